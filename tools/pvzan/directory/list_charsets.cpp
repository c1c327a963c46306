#include "tools/pvzan/directory/list_charsets.h"

#include "tools/pvzan/directory/charset.h"
#include "tools/pvzan/directory/charset_directory.h"
#include "tools/pvzan/directory/definition.h"
#include "tools/pvzan/report/exit_status.h"
#include "tools/pvzan/report/json.h"
#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include "pvzan.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

namespace tool {

namespace {

namespace fs = std::filesystem;

// The number by which the library knows a charset; 0 when it does not.
std::uint32_t charset_number(const std::string& name) {
    const auto session = std::make_unique<pvzan_session>();
    return cconvInitConvert(session.get(), nullptr, name.c_str()) == PVZAN_DONE
               ? session->dstGroupNo
               : 0;
}

// By the charset's name; the first file settles it.
std::map<std::string, definition> all_definitions() {
    std::map<std::string, definition> found;
    const fs::path directory = charset_directory_path();
    for (const std::string& file : definition_files(directory)) {
        definition read = read_definition(directory, file);
        const std::string name = read.name;
        found.try_emplace(name, std::move(read));
    }
    return found;
}

// The name that people know first, and no other that is spelled alike.
std::vector<std::string> names_of(const pvzan_name& charset) {
    std::vector<std::string> names = {charset.shown};
    std::set<std::string> known = {fold_name(charset.shown)};
    std::array<char, 64> name{};
    for (std::size_t i = 0; pvzan_each_name(charset.charset, i, name.data(), name.size()) == 1;
         ++i) {
        if (known.insert(fold_name(name.data())).second) {
            names.emplace_back(name.data());
        }
    }
    return names;
}

// Words behind a heading, in as many lines as they need; or as many words as there is room for in
// one.
std::string wrapped(std::string_view heading, const std::vector<std::string>& words,
                    bool one_line = false) {
    constexpr std::size_t column = 18, width = 80;
    constexpr std::string_view more = " ...";
    std::string text, line = fmt::format("{:<{}}", printable(heading), column);
    for (std::size_t i = 0; i < words.size(); ++i) {
        const bool last = i + 1 == words.size();
        const std::string word = printable(words[i]) + (last ? "" : ",");
        const std::size_t taken = word.size() + (one_line && !last ? more.size() : 0);
        if (i > 0 && line.size() + 1 + taken > width) {
            if (one_line) {
                line += more;
                break;
            }
            text += line + "\n";
            line = std::string(column, ' ');
        } else if (i > 0) {
            line += ' ';
        }
        line += word;
    }
    return text + line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

std::string line_of(const pvzan_name& charset, bool one_line) {
    std::vector<std::string> names = names_of(charset);
    names.erase(names.begin());
    return wrapped(charset.shown, names, one_line);
}

// One line for a program to split at blanks.
std::string bare_line_of(const pvzan_name& charset) {
    return printable(joined(names_of(charset), " ")) + "\n";
}

std::string json_of(const pvzan_name& charset, const definition& described) {
    const auto quoted = [](std::vector<std::string> items) {
        std::ranges::transform(items, items.begin(), json_string);
        return json_array(items);
    };
    std::vector<std::string> names = names_of(charset);
    std::ranges::transform(names, names.begin(), fold_name);
    std::erase(names, charset.charset);
    return json_object()
        .add("charset", charset.charset)
        .add("number", charset_number(charset.charset))
        .add_json("aliases", quoted(std::move(names)))
        .add_json("sets", quoted(described.sets))
        .line();
}

// A line, and what the charset is to the library and to those who write definitions.
std::string page_of(const pvzan_name& charset, const definition& described) {
    std::string text = line_of(charset, false);
    text += wrapped("  in C",
                    {fmt::format("\"{}\" ({})", charset.charset, charset_number(charset.charset))});
    text += wrapped("  rules", {described.decoder, described.encoder});
    text +=
        wrapped("  definition", {(fs::path(charset_directory_path()) / described.file).string()});
    return text + wrapped("  coded sets", described.sets);
}

// ---- Checking ----------------------------------------------------------------------------------

// A line for each definition that the library takes and for each fault. False where there is one.
bool check_definitions(const std::string& directory) {
    const std::vector<std::string> files = definition_files(directory);
    const bool json = current_style().json;
    std::set<std::string> said;
    const auto fault = [&](const std::string& file, const std::string& what) {
        if (said.insert(file + what).second) {
            answer_lines(json ? complaint_about(file, what)
                              : fmt::format("{}: {}\n", printable(file), printable(what)));
        }
    };
    if (files.empty()) {
        fault(directory, "contains no charset definitions (*.xml)");
    }
    std::set<std::string> defined;
    for (const std::string& file : files) {
        std::array<pvzan_error, 32> errors = {};
        errors[0].size = sizeof errors[0];
        const std::size_t found = std::min(
            pvzan_check_definition(file.c_str(), errors.data(), errors.size()), errors.size());
        const std::string name = read_definition(directory, file).name;
        const std::uint32_t number = defined.insert(name).second ? charset_number(name) : 0;
        for (const pvzan_error& error : std::span(errors).first(found)) {
            const bool refused = number == 0 && error.file == file;
            fault(error.file, fmt::format("{}{}", refused ? "not accepted: " : "", error.text));
        }
        if (number != 0) {
            answer_lines(json ? json_object()
                                    .add("file", file)
                                    .add("kind", "taken")
                                    .add("charset", name)
                                    .add("number", number)
                                    .line()
                              : fmt::format("{}: accepted as {} ({})\n", printable(file),
                                            printable(name), number));
        }
    }
    return said.empty();
}

int check_charset_directory(const std::string& directory) {
    std::error_code error;
    if (!fs::is_directory(directory, error)) {
        complain_about(directory, "no such directory");
        return exit_no_work;
    }
    std::string none; // is told file by file
    settle_charset_directory(directory, none);
    return check_definitions(directory) ? exit_converted : exit_bad_text;
}

int print_list(const list_options& options) {
    int status = exit_converted;
    std::vector<pvzan_name> charsets = all_charsets();
    if (!options.names.empty()) {
        std::vector<pvzan_name> wanted;
        for (const std::string& name : options.names) {
            const auto found = std::ranges::find_if(charsets, [&](const pvzan_name& charset) {
                return std::string_view(charset.charset) == charset_of(name).charset;
            });
            if (found != charsets.end()) {
                wanted.push_back(*found);
            } else {
                complain_unknown(name);
                status = exit_no_work;
            }
        }
        charsets = std::move(wanted);
    }
    const message_style& style = current_style();
    std::map<std::string, definition> definitions;
    if (style.json || style.verbose) {
        definitions = all_definitions();
    }
    std::string_view group;
    for (const pvzan_name& charset : charsets) {
        if (options.names.empty() && !style.json && !options.bare && group != charset.group) {
            answer_lines(
                fmt::format("{}{}\n", group.empty() ? "" : "\n", printable(charset.group)));
            group = charset.group;
        }
        answer_lines(style.json      ? json_of(charset, definitions[charset.charset])
                     : options.bare  ? bare_line_of(charset)
                     : style.verbose ? page_of(charset, definitions[charset.charset])
                                     : line_of(charset, options.names.empty()));
    }
    return status;
}

} // namespace

int list_charsets(const list_options& options) {
    const int status =
        options.check.empty() ? print_list(options) : check_charset_directory(options.check);
    return finish_answers() ? status : exit_no_work;
}

} // namespace tool
