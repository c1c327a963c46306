#include "tools/pvzan/cli/options.h"

#include "tools/pvzan/directory/charset.h"
#include "tools/pvzan/report/shown_text.h"

#include <algorithm>
#include <array>

namespace tool {

namespace {

constexpr unsigned bit(verb what) {
    return 1U << static_cast<unsigned>(what);
}
constexpr unsigned converts = bit(verb::convert), detects = bit(verb::detect),
                   lists = bit(verb::list);
constexpr unsigned reads = converts | bit(verb::check); // a text, and converts it
constexpr unsigned writes = converts | bit(verb::repair);

// The words of --eol and --bom, as the library has them.
constexpr std::array<std::uint32_t, 4> break_values = {PVZAN_BREAKS_LF, PVZAN_BREAKS_CRLF,
                                                       PVZAN_BREAKS_CR, PVZAN_BREAKS_AS_FOUND};
constexpr std::array<std::uint32_t, 3> mark_values = {PVZAN_MARK_ADD, PVZAN_MARK_STRIP,
                                                      PVZAN_MARK_KEEP};

void take_policy(command& c, const option_value& value) {
    constexpr std::array<std::pair<std::string_view, std::uint32_t>, 5> names = {
        {{"stop", PVZAN_TELL},
         {"subst", PVZAN_SUBSTITUTE},
         {"ref", PVZAN_REFERENCE},
         {"hex", PVZAN_HEX},
         {"skip", PVZAN_DROP}}};
    text_options& options = c.convert.text;
    const std::string_view how = value.text;
    const std::size_t equals = std::min(how.find('='), how.size());
    const auto* found = std::ranges::find(names, how.substr(0, equals),
                                          &std::pair<std::string_view, std::uint32_t>::first);
    if (found == names.end()) {
        c.mistake = fmt::format("takes stop, subst, subst=CHAR, ref, hex or skip, not '{}'",
                                printable(how));
        return;
    }
    options.on_error = found->second;
    if (equals < how.size()) {
        const std::string_view character = how.substr(equals + 1);
        const auto first = first_character(character);
        const bool one = first && first->bytes == character.size() && first->scalar >= 0x20;
        if (options.on_error != PVZAN_SUBSTITUTE) {
            c.mistake = "takes a character only after subst, as in subst=?";
        } else if (!one) {
            c.mistake = fmt::format("takes one character in UTF-8 after subst=, not '{}'",
                                    printable(character));
        }
        options.substitute = first ? first->scalar : 0;
    }
}

using given = const option_value&;

// In the order in which --help shows them.
const std::array all_options = {
    option{reads | detects, 'f', "from", "NAME[,NAME...]",
           "Charset of the input, or several to choose from",
           [](command& c, given v) { c.convert.from = v.text; }},
    option{reads, 't', "to", "NAME", "Charset of the output, utf-8 if not given",
           [](command& c, given v) { c.convert.to = v.text; }},
    option{reads, 0, "web-labels", nullptr, "Charset names mean what they mean to browsers",
           [](command& c, given) { c.convert.web_labels = true; }},
    option{reads | detects, 0, "lang", "LANGUAGE", nullptr,
           [](command& c, given v) { c.convert.language = v.text; }},
    option{reads, 0, "per-line", nullptr, nullptr,
           [](command& c, given) { c.convert.per_line = true; }},
    option{writes, 'o', "output", "PATH", "Output file, or directory for all output files",
           [](command& c, given v) { c.convert.output = v.text; }},
    option{writes, 'i', "in-place", "[=SUFFIX]", "Replace each file; -i=SUFFIX keeps the old one",
           [](command& c, given v) {
               c.convert.in_place = true;
               c.convert.backup_suffix = v.text;
           }},
    option{reads | writes, 'r', "recursive", nullptr, "Recurse into directories",
           [](command& c, given) { c.convert.recursive = true; }},
    option{reads | writes, 'j', "jobs", "N", "Number of threads",
           [](command& c, given v) {
               constexpr unsigned most = 1024;
               c.convert.jobs = static_cast<unsigned>(std::min<std::uint64_t>(v.number, most));
               c.mistake = v.number == 0 ? "takes a number of at least 1" : "";
           }},
    option{converts, 'e', "on-error", "HOW", "stop, subst[=CHAR], ref, hex (<82>), skip (-c)",
           take_policy},
    option{converts, 'c', nullptr, nullptr, nullptr,
           [](command& c, given) { c.convert.text.on_error = PVZAN_DROP; }},
    option{converts, 0, "max-errors", "N", "Fail if there are more problems than this",
           [](command& c, given v) { c.convert.text.most_errors = v.number; }},
    option{reads, 0, "similar", nullptr, "Take look-alikes as equal (wave dash, yen, ...)",
           [](command& c, given) { c.convert.text.similar = true; }},
    option{reads, 0, "eol", "lf|crlf|cr|keep", "Line breaks of the output",
           [](command& c, given v) { c.convert.text.breaks = break_values[v.number]; }},
    option{converts, 0, "bom", "add|drop|keep", "Byte-order mark of the output",
           [](command& c, given v) { c.convert.text.mark = mark_values[v.number]; }},
    option{converts, 0, "read-back", nullptr, "Convert back and compare before writing",
           [](command& c, given) { c.convert.text.read_back = true; }},
    option{lists, 0, "check", "DIR", "Report what is wrong with a charset directory",
           [](command& c, given v) { c.list.check = v.text; }},
    option{~0U, 0, "json", nullptr, "Messages and answers as JSON, one object a line",
           [](command& c, given) { c.style.json = true; }},
    option{~0U, 'q', "quiet", nullptr, "Print errors only",
           [](command& c, given) { c.style.quiet = true; }},
    option{~lists, 'v', "verbose", nullptr, "Report each file, and show text at problems",
           [](command& c, given) { c.style.verbose = true; }},
    option{lists, 'v', "verbose", nullptr, "Show numbers, rules, definitions, coded sets",
           [](command& c, given) { c.style.verbose = true; }},
    option{~0U, 0, "color", "auto|always|never", "Color of messages",
           [](command& c, given v) { c.style.color = static_cast<color_when>(v.number); }},
    option{~0U, 0, "charset-dir", "DIR", "Directory of the charset definitions",
           [](command& c, given v) { c.charset_dir = v.text; }},
    option{converts, 'l', "list", nullptr, nullptr, [](command& c, given) { c.list.bare = true; }},
    option{~0U, 0, "version", nullptr, "Version, charset directory, number of charsets",
           [](command& c, given) { c.asks_version = true; }},
    option{~0U, 'h', "help", nullptr, "This help", [](command& c, given) { c.asks_help = true; }},
};

constexpr std::array<verb_text, 5> all_verbs = {{
    {"convert",
     "pvzan [OPTIONS] [FILE...]\n       pvzan check|detect|repair|list [OPTIONS] ...   (see their "
     "--help)",
     "Convert text, to UTF-8 by default. If that fails, no output is left behind."},
    {"check", "pvzan check [OPTIONS] [FILE...]",
     "Convert without writing, convert back and compare. Report what is invalid,\n"
     "cannot be written, or would come back as something else."},
    {"detect", "pvzan detect [OPTIONS] [FILE...]", "Guess the charset of files."},
    {"repair", "pvzan repair [OPTIONS] [FILE...]",
     "Undo what reading with a wrong charset made of text in UTF-8, as in \"Ã©\" for\n"
     "\"é\", line by line where the way back is exact."},
    {"list", "pvzan list [OPTIONS] [NAME...]",
     "List the charsets and their other names; pvzan -l prints the bare names."},
}};

} // namespace

std::span<const verb_text> verbs() {
    return all_verbs;
}

std::span<const option> options() {
    return all_options;
}

std::string help_text(verb what) {
    constexpr std::size_t column = 33;
    const verb_text& about = all_verbs[static_cast<std::size_t>(what)];
    std::string text = fmt::format("Usage: {}\n{}\n\n", about.usage, about.what);
    for (const option& o : all_options) {
        if (o.help == nullptr || !o.belongs_to(what)) {
            continue;
        }
        const bool shows_value = o.value != nullptr && *o.value != '[';
        const std::string names =
            fmt::format("{}--{}{}{}", o.letter != 0 ? fmt::format("-{}, ", o.letter) : "    ",
                        o.name, shows_value ? " " : "", shows_value ? o.value : "");
        text += fmt::format("  {:<{}}{}\n", names, column - 2, o.help);
    }
    return text;
}

} // namespace tool
