#include "tools/pvzan/cli/arguments.h"

#include "tools/pvzan/directory/charset.h"
#include "tools/pvzan/directory/charset_directory.h"
#include "tools/pvzan/report/exit_status.h"
#include "tools/pvzan/report/shown_text.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <getopt.h>
#include <string_view>

namespace tool {

namespace {

constexpr int long_options = 256; // the option with index i is known to getopt as this and i

// "lf, crlf or cr"
std::string any_of(const std::vector<std::string>& words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        text += (i == 0 ? "" : i + 1 < words.size() ? ", " : " or ") + words[i];
    }
    return text;
}

// What is wrong with an option's value; empty where it is taken.
std::string take(const option& found, const char* text, command& c) {
    option_value value{text == nullptr ? "" : text};
    const std::string_view kind = found.value == nullptr ? "" : found.value;
    if (kind == "N") {
        const char* end = text + value.text.size();
        const auto read = std::from_chars(text, end, value.number);
        if (read.ec != std::errc() || read.ptr != end) {
            return fmt::format("takes a number, not '{}'", printable(value.text));
        }
    } else if (kind.find('|') != kind.npos) {
        const std::vector<std::string> words = split_names(kind, '|');
        const auto word = std::ranges::find(words, value.text);
        if (word == words.end()) {
            return fmt::format("takes {}, not '{}'", any_of(words), printable(value.text));
        }
        value.number = static_cast<std::uint64_t>(word - words.begin());
    }
    found.take(c, value);
    return c.mistake;
}

std::string shown_option(const option& o) {
    return o.name != nullptr ? fmt::format("--{}", o.name) : fmt::format("-{}", o.letter);
}

// Reads all arguments; what is wrong with the first wrong one, or empty.
std::string read_options(std::span<char*> arguments, command& c) {
    std::string letters = ":"; // a missing value is told apart
    std::vector<::option> names;
    for (std::size_t i = 0; i < options().size(); ++i) {
        const option& o = options()[i];
        if (!o.belongs_to(c.what)) {
            continue;
        }
        const bool optional = o.value != nullptr && *o.value == '[';
        if (o.letter != 0) {
            letters += o.letter;
            letters += o.value != nullptr && !optional ? ":" : "";
        }
        if (o.name != nullptr) {
            names.push_back({o.name,
                             o.value == nullptr ? no_argument
                             : optional         ? optional_argument
                                                : required_argument,
                             nullptr, long_options + static_cast<int>(i)});
        }
    }
    names.push_back({});
    const auto option_of = [&](int known) {
        return std::ranges::find_if(options(), [&](const option& o) {
            return o.belongs_to(c.what) &&
                   (o.letter == known || &o - options().data() == known - long_options);
        });
    };
    ::optind = 0; // begins anew
    ::opterr = 0;
    int next = 0;
    while ((next = ::getopt_long(static_cast<int>(arguments.size()), arguments.data(),
                                 letters.c_str(), names.data(), nullptr)) != -1) {
        const bool wrong = next == '?' || next == ':';
        const int known = wrong ? ::optopt : next;
        const auto found = known == 0 ? options().end() : option_of(known);
        if (found == options().end()) {
            const std::string argument = known == 0
                                             ? arguments[static_cast<std::size_t>(::optind) - 1]
                                             : fmt::format("-{}", static_cast<char>(known));
            return fmt::format("there is no option {}", printable(argument));
        }
        const std::string mistake = next == ':'   ? "needs a value"
                                    : next == '?' ? "takes no value"
                                                  : take(*found, ::optarg, c);
        if (!mistake.empty()) {
            return fmt::format("{} {}", shown_option(*found), mistake);
        }
    }
    c.operands.assign(arguments.begin() + ::optind, arguments.end());
    return {};
}

// The verb, which is taken from the front; without one it is convert. A file that bears a verb's
// name is written "./convert". "help check" is "check --help".
verb take_verb(std::vector<char*>& arguments, bool& asks_help) {
    const auto take_word = [&](std::string_view word) {
        const bool there = arguments.size() > 1 && arguments[1] == word;
        arguments.erase(arguments.begin() + 1, arguments.begin() + (there ? 2 : 1));
        return there;
    };
    asks_help = take_word("help");
    const auto found =
        std::ranges::find_if(verbs(), [&](const verb_text& v) { return take_word(v.name); });
    return found == verbs().end() ? verb::convert : static_cast<verb>(found - verbs().begin());
}

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

// Whether the words begin alike, and are the same but for two letters beside each other.
bool is_slip(std::string_view word, std::string_view meant) {
    const std::size_t shorter = std::min(word.size(), meant.size());
    const auto behind_same = [&](auto from, auto other) {
        return static_cast<std::size_t>(
            std::mismatch(from, from + static_cast<std::ptrdiff_t>(shorter), other).first - from);
    };
    const std::size_t same =
        behind_same(word.begin(), meant.begin()) + behind_same(word.rbegin(), meant.rbegin());
    return word.starts_with(meant[0]) && std::max(word.size(), meant.size()) <= same + 2;
}

// What is wrong with arguments that are well-formed each; empty where nothing is.
std::string mistake_in(const command& c) {
    const convert_options& o = c.convert;
    if (c.what != verb::convert || c.list.bare) {
        return {};
    }
    if (std::error_code error;
        !c.operands.empty() && !std::filesystem::exists(c.operands[0], error)) {
        for (const verb_text& v : verbs()) {
            if (is_slip(c.operands[0], v.name)) {
                return fmt::format("{}: no such file; did you mean 'pvzan {} ...'?",
                                   printable(c.operands[0]), v.name);
            }
        }
    }
    if (o.in_place && !o.recursive && c.operands.empty()) {
        return "-i needs the names of the files to convert";
    }
    const bool nowhere = o.recursive && !o.in_place && o.output.empty();
    return nowhere
               ? "-r needs -i to replace each file, or -o DIRECTORY to write converted copies there"
               : std::string();
}

// What several verbs share goes where each of them looks for it.
void share(command& c) {
    if (c.list.bare) {
        c.what = verb::list;
        c.operands.clear();
    }
    c.convert.check = c.what == verb::check;
    c.convert.repair = c.what == verb::repair;
    c.convert.files = c.detect.files = c.list.names = c.operands;
    if (c.convert.from != "auto") {
        c.detect.choice.among = split_names(c.convert.from);
    }
    c.detect.choice.language = c.convert.language;
}

} // namespace

std::optional<command> read_arguments(int argc, char** argv, int& status) {
    static char name[] = "pvzan";
    std::vector<char*> arguments(argv, argv + argc);
    if (arguments.empty()) {
        arguments.push_back(name);
    }
    std::vector<std::string> spelled; // "-i=.orig" as getopt knows it
    spelled.reserve(arguments.size());
    const auto options_end = std::find_if(arguments.begin(), arguments.end(), [](const char* a) {
        return std::string_view(a) == "--";
    });
    bool json = false; // before all is read, for what is wrong with it
    for (auto argument = arguments.begin(); argument != options_end; ++argument) {
        const std::string_view text = *argument;
        json = json || text == "--json";
        if (text.starts_with("-i=")) {
            *argument = spelled.emplace_back("--in-place" + std::string(text.substr(2))).data();
        }
    }
    set_message_style({.json = json});
    command c;
    bool asks_help = false;
    c.what = take_verb(arguments, asks_help);
    std::string mistake = asks_help ? std::string() : read_options(arguments, c);
    const char* verb_name =
        c.what == verb::convert ? "" : verbs()[static_cast<std::size_t>(c.what)].name;
    asks_help = asks_help || (mistake.empty() && c.asks_help);
    if (!mistake.empty()) {
        mistake += fmt::format("; see pvzan {}{}--help", verb_name, *verb_name != '\0' ? " " : "");
    } else if (!asks_help && !c.asks_version) {
        mistake = mistake_in(c);
    }
    status = exit_no_work;
    if (!mistake.empty()) {
        complain(mistake);
        return std::nullopt;
    }
    if (asks_help || c.asks_version) {
        answer_lines(asks_help ? help_text(c.what) : version(c.charset_dir));
        status = finish_answers() ? exit_converted : exit_no_work;
        return std::nullopt;
    }
    share(c);
    return c;
}

} // namespace tool
