#include "tools/pvzan/cli/arguments.h"

#include "tools/pvzan/directory/charset.h"
#include "tools/pvzan/directory/charset_directory.h"
#include "tools/pvzan/report/exit_status.h"
#include "tools/pvzan/report/shown_text.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <utility>

namespace tool {

namespace {

constexpr std::array<std::pair<const char*, verb>, 4> verbs = {{{"convert", verb::convert},
                                                                {"check", verb::check},
                                                                {"detect", verb::detect},
                                                                {"list", verb::list}}};

const std::map<std::string, line_breaks> break_names = {{"keep", line_breaks::keep},
                                                        {"lf", line_breaks::lf},
                                                        {"crlf", line_breaks::crlf},
                                                        {"cr", line_breaks::cr}};
const std::map<std::string, mark_rule> mark_names = {
    {"add", mark_rule::add}, {"drop", mark_rule::drop}, {"keep", mark_rule::keep}};
const std::map<std::string, color_when> color_names = {
    {"auto", color_when::automatic}, {"always", color_when::always}, {"never", color_when::never}};

std::string read_policy(const std::string& how, text_options& options) {
    static const std::map<std::string, error_policy> names = {{"stop", error_policy::stop},
                                                              {"subst", error_policy::subst},
                                                              {"ref", error_policy::ref},
                                                              {"hex", error_policy::hex},
                                                              {"skip", error_policy::skip}};
    const std::size_t equals = std::min(how.find('='), how.size());
    const auto found = names.find(how.substr(0, equals));
    if (found == names.end()) {
        return "HOW is stop, subst, subst=CHAR, ref, hex or skip";
    }
    options.on_error = found->second;
    if (equals < how.size()) {
        const std::string character = how.substr(equals + 1);
        const auto first = first_character(character);
        const bool one = first && first->bytes == character.size() && first->scalar >= 0x20;
        if (!one || options.on_error != error_policy::subst) {
            return "only subst takes a character, and only one, in UTF-8: subst=?";
        }
        options.substitute = first->scalar;
    }
    return {};
}

// A word out of several, as a member of its enumeration.
template <typename Choice>
void add_choice(CLI::App& app, const std::string& name, Choice& into,
                const std::map<std::string, Choice>& names, const std::string& words,
                const std::string& help) {
    app.add_option_function<std::string>(
           name, [&into, &names](const std::string& word) { into = names.at(word); }, help)
        ->type_name(words)
        ->check(CLI::Validator(
            [&names](const std::string& word) {
                std::string all;
                for (const auto& [known, value] : names) {
                    all += (all.empty() ? "" : ", ") + known;
                }
                return names.contains(word) ? std::string() : "it is one of " + all;
            },
            ""));
}

std::string& charset_dir_of(command& c) {
    return c.what == verb::detect ? c.detect.charset_dir
           : c.what == verb::list ? c.list.charset_dir
                                  : c.convert.charset_dir;
}

void add_shared(CLI::App& app, command& c,
                const char* verbose = "A line for each file, and the text at problems") {
    app.add_flag("--json", c.style.json, "Messages and answers as JSON, an object a line");
    app.add_flag("-q,--quiet", c.style.quiet, "Only errors");
    app.add_flag("-v,--verbose", c.style.verbose, verbose);
    add_choice(app, "--color", c.style.color, color_names, "auto|always|never",
               "Color of messages");
    app.add_option("--charset-dir", charset_dir_of(c), "Directory of the charset definitions")
        ->type_name("DIR");
}

void add_language(CLI::App& app, std::string& language) {
    app.add_option("--lang", language)->group("");
}

void add_source_and_target(CLI::App& app, command& c) {
    convert_options& o = c.convert;
    app.add_option("-f,--from", o.from, "Charset of the input, or several to choose from")
        ->type_name("NAME[,NAME...]");
    app.add_option("-t,--to", o.to, "Charset of the output")->type_name("NAME");
    app.add_flag("--web-labels", o.web_labels, "Names mean what they mean to browsers");
    add_language(app, o.language);
    app.add_flag("--per-line", o.per_line)->group("");
}

void add_bulk(CLI::App& app, command& c) {
    app.add_flag("-r,--recursive", c.convert.recursive, "Recurse into directories");
    app.add_option("-j,--jobs", c.convert.jobs, "Threads, over files or inside a long one")
        ->check(CLI::Range(1, 1024).description(""))
        ->type_name("N");
}

void add_text_options(CLI::App& app, command& c) {
    text_options& text = c.convert.text;
    app.add_flag("--similar", text.similar, "Take look-alikes as equal (wave dash, yen, ...)");
    add_choice(app, "--eol", text.breaks, break_names, "lf|crlf|cr|keep", "Line breaks");
}

void add_convert(CLI::App& app, command& c) {
    convert_options& o = c.convert;
    add_source_and_target(app, c);
    app.add_option("-o,--output", o.output, "File, or directory that mirrors the inputs")
        ->type_name("PATH");
    app.add_flag("-i,--in-place", o.in_place, "Replace each file; -i=SUFFIX keeps the old one");
    app.add_option("--backup-suffix", o.backup_suffix)->group("");
    add_bulk(app, c);
    app.add_option_function<std::string>(
           "-e,--on-error",
           [&o](const std::string& how) {
               if (const std::string wrong = read_policy(how, o.text); !wrong.empty()) {
                   throw CLI::ValidationError("--on-error", wrong);
               }
           },
           "stop, subst[=CHAR], ref, hex (<82>), skip (-c)")
        ->type_name("HOW");
    app.add_flag_callback("-c", [&o] { o.text.on_error = error_policy::skip; })->group("");
    app.add_option("--max-errors", o.text.most_errors, "Fail if there are more problems than this")
        ->check(CLI::Validator(
            [](const std::string& number) {
                return number.starts_with('-') ? "N is a number from 0 on" : std::string();
            },
            ""))
        ->type_name("N");
    add_text_options(app, c);
    add_choice(app, "--bom", o.text.mark, mark_names, "add|drop|keep",
               "Byte-order mark of the output");
    app.add_flag("--read-back", o.text.read_back, "Convert back and compare, before writing");
    add_shared(app, c);
    app.add_flag("-l,--list", c.list.bare)->group("");
    app.add_option("files", o.files, "Files; none, or -, is standard input")->type_name("FILE");
}

void add_check(CLI::App& app, command& c) {
    c.convert.check = true;
    add_source_and_target(app, c);
    add_bulk(app, c);
    add_text_options(app, c);
    add_shared(app, c);
    app.add_option("files", c.convert.files, "Files; none, or -, is standard input")
        ->type_name("FILE");
}

void add_detect(CLI::App& app, command& c) {
    app.add_option("-f,--from", c.detect.choice.among, "Charsets to choose from")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->type_name("NAME[,NAME...]");
    add_language(app, c.detect.choice.language);
    add_shared(app, c);
    app.add_option("files", c.detect.files, "Files; none, or -, is standard input")
        ->type_name("FILE");
}

void add_list(CLI::App& app, command& c) {
    app.add_option("--check", c.list.check, "Report what is wrong with a charset directory")
        ->type_name("DIR");
    add_shared(app, c, "Numbers, rules, definitions and coded sets, too");
    app.add_option("names", c.list.names, "Charsets to describe")->type_name("NAME");
}

// ---- Help --------------------------------------------------------------------------------------

struct description {
    const char *usage, *what;
    void (*add)(CLI::App&, command&);
};

constexpr std::array<description, 4> descriptions = {{
    {"pvzan [OPTIONS] [FILE...]\n       pvzan check|detect|list [OPTIONS] ...   (see their "
     "--help)",
     "Convert text, to UTF-8 by default. If that fails, no output is left behind.", add_convert},
    {"pvzan check [OPTIONS] [FILE...]",
     "Convert without writing, convert back and compare; report what is invalid,\n"
     "cannot be written, or would come back as something else.",
     add_check},
    {"pvzan detect [OPTIONS] [FILE...]", "Guess the encoding of files.", add_detect},
    {"pvzan list [OPTIONS] [NAME...]",
     "List the charsets and their other names; pvzan -l prints the bare names.", add_list},
}};

class help_format : public CLI::Formatter {
public:
    help_format() { column_width(help_column); }

    std::string make_help(const CLI::App* app, std::string, CLI::AppFormatMode) const override {
        std::string text = "Usage: " + app->get_name() + "\n" + app->get_description() + "\n\n";
        for (const CLI::Option* option : app->get_options()) {
            if (!option->get_group().empty() && !option->get_positional()) {
                text += line(*option);
            }
        }
        return text;
    }

private:
    static constexpr std::size_t help_column = 33;

    static std::string line(const CLI::Option& option) {
        std::string names;
        for (const std::string& name : option.get_snames()) {
            names += (names.empty() ? "-" : ", -") + name;
        }
        names = names.empty() ? "    " : names;
        for (const std::string& name : option.get_lnames()) {
            names += (names == "    " ? "--" : ", --") + name;
        }
        if (option.get_items_expected_max() > 0 && !option.get_type_name().empty()) {
            names += " " + option.get_type_name();
        }
        const bool fits = names.size() + 2 < help_column;
        return fmt::format("  {:<{}}{}{}\n", names, fits ? help_column - 2 : 0,
                           fits ? "" : "\n" + std::string(help_column, ' '),
                           option.get_description());
    }
};

std::string version(const std::string& asked_for) {
    const std::string text = "pvzan " PVZAN_VERSION "\ncharset directory: ";
    std::string error;
    if (!settle_charset_directory(asked_for, error)) {
        return fmt::format("{}none ({})\n", text, printable(error));
    }
    const std::string path = charset_directory_path();
    const char* variable = ::secure_getenv("PVZAN_CHARSET_DIR");
    const char* reason = !asked_for.empty()                        ? " (--charset-dir)"
                         : variable != nullptr && path == variable ? " (PVZAN_CHARSET_DIR)"
                                                                   : "";
    return fmt::format("{}{}{}\ncharsets: {}\n", text, printable(path), reason,
                       all_charsets().size());
}

// "-i=.orig" and "--in-place=.orig" as two arguments that the parser knows.
std::vector<std::string> spell_out(std::vector<std::string> arguments) {
    for (std::size_t i = 0; i < arguments.size() && arguments[i] != "--"; ++i) {
        for (const std::string start : {"-i=", "--in-place="}) {
            if (arguments[i].starts_with(start)) {
                const std::string suffix = arguments[i].substr(start.size());
                arguments[i] = "--in-place";
                arguments.insert(arguments.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                                 "--backup-suffix=" + suffix);
            }
        }
    }
    return arguments;
}

// ---- Verbs -------------------------------------------------------------------------------------

// Takes the verb away from the front; without one it is convert. A file that bears a verb's name is
// written "./convert". "help check" is "check --help".
verb take_verb(std::vector<std::string>& arguments) {
    const bool help = !arguments.empty() && arguments.front() == "help";
    if (help) {
        arguments.erase(arguments.begin());
    }
    const auto* found = std::ranges::find_if(verbs, [&](const std::pair<const char*, verb>& known) {
        return !arguments.empty() && arguments.front() == known.first;
    });
    if (found != verbs.end()) {
        arguments.erase(arguments.begin());
    }
    if (help) {
        arguments = {"--help"};
    }
    return found == verbs.end() ? verb::convert : found->second;
}

// Whether one letter added, dropped, changed or swapped makes one word of the other; in long ones,
// two.
bool is_slip(std::string_view word, std::string_view meant) {
    constexpr std::size_t long_word = 6;
    std::vector<std::vector<std::size_t>> cost(word.size() + 1,
                                               std::vector<std::size_t>(meant.size() + 1));
    for (std::size_t i = 0; i <= word.size(); ++i) {
        for (std::size_t j = 0; j <= meant.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1,
                                   cost[i - 1][j - 1] + (word[i - 1] == meant[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && word[i - 1] == meant[j - 2] && word[i - 2] == meant[j - 1]) {
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
            }
        }
    }
    return cost[word.size()][meant.size()] <= (word.size() < long_word ? 1U : 2U);
}

// What is wrong with arguments that are well-formed each; empty where nothing is.
std::string mistake_in(const command& c) {
    const convert_options& o = c.convert;
    if (c.what != verb::convert || c.list.bare) {
        return {};
    }
    if (std::error_code error; !o.files.empty() && !std::filesystem::exists(o.files[0], error)) {
        for (const auto& [name, what] : verbs) {
            if (is_slip(o.files[0], name)) {
                return fmt::format("{}: no such file; did you mean 'pvzan {} ...'?",
                                   printable(o.files[0]), name);
            }
        }
    }
    const bool nowhere = o.recursive && !o.in_place && o.output.empty();
    return nowhere ? "-r needs -i, to replace each file, or -o DIRECTORY, for a copy of the tree"
                   : std::string();
}

} // namespace

std::optional<command> read_arguments(int argc, char** argv, int& status) {
    std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    // Before all is read, for what is wrong with it.
    const auto options_end = std::ranges::find(arguments, "--");
    const bool json = std::find(arguments.begin(), options_end, "--json") != options_end;
    set_message_style({.json = json});
    command c;
    c.what = take_verb(arguments);
    const description& about = descriptions[static_cast<std::size_t>(c.what)];
    CLI::App app(about.what, about.usage);
    app.formatter(std::make_shared<help_format>());
    about.add(app, c);
    bool asks_version = false;
    app.add_flag("--version", asks_version, "Version, charset directory, number of charsets");
    app.set_help_flag("-h,--help", "This help");
    status = exit_converted;
    std::string mistake;
    bool asks_help = false;
    try {
        arguments = spell_out(std::move(arguments));
        std::ranges::reverse(arguments); // as CLI11 takes them
        app.parse(std::move(arguments));
        mistake = asks_version ? std::string() : mistake_in(c);
    } catch (const CLI::CallForHelp&) {
        asks_help = true;
    } catch (const CLI::ParseError& error) {
        mistake = fmt::format("{} (see pvzan --help)", printable(error.what()));
    }
    if (!mistake.empty()) {
        complain(mistake);
        status = exit_no_work;
        return std::nullopt;
    }
    if (asks_help || asks_version) {
        fmt::print("{}", asks_help ? app.help() : version(charset_dir_of(c)));
        status = std::fflush(stdout) == 0 ? exit_converted : exit_no_work;
        return std::nullopt;
    }
    if (c.list.bare) {
        c.what = verb::list;
        c.list.charset_dir = c.convert.charset_dir;
    }
    return c;
}

} // namespace tool
