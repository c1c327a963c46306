#include "tools/pvzan/directory/list_charsets.h"

#include "tools/pvzan/directory/charset.h"
#include "tools/pvzan/directory/charset_directory.h"
#include "tools/pvzan/directory/definition_text.h"
#include "tools/pvzan/report/exit_status.h"
#include "tools/pvzan/report/message.h"

#include "pvzan.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
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

// ---- Definition files --------------------------------------------------------------------------

std::string element_text(std::string_view text, std::string_view name) {
    const auto found = find_element(text, name, 0);
    return found ? std::string(found->in(text)) : std::string();
}

// The name of the coded set whose file the first entity reference of an element names.
std::string set_name(const fs::path& directory, const definition_text& document,
                     const element& reference) {
    const auto entity = entity_reference(reference.in(document.text));
    const auto file = entity ? entity_file(document.text, *entity) : std::nullopt;
    return file ? element_text(read_definition_text(directory, *file, document.units).text, "name")
                : std::string();
}

struct charset_entry {
    std::string name, decoder, encoder;
    std::vector<std::string> sets; // in order of preference
};

charset_entry read_charset(const fs::path& directory, const std::string& file) {
    const definition_text document = read_definition_text(directory, file);
    charset_entry charset;
    charset.name = fold_name(element_text(document.text, "name"));
    charset.decoder = quoted(document.text, "destrule=").value_or("");
    charset.encoder = quoted(document.text, "construle=").value_or("");
    std::vector<std::pair<std::size_t, std::string>> sets; // with where they stand
    for (const std::string_view kind : {"baseset", "diffset", "eudcset"}) {
        std::size_t at = 0;
        while (const auto found = find_element(document.text, kind, at)) {
            sets.emplace_back(found->start, set_name(directory, document, *found));
            at = found->end;
        }
    }
    std::ranges::sort(sets);
    for (auto& [start, name] : sets) {
        charset.sets.push_back(std::move(name));
    }
    return charset;
}

// ---- Numbers -----------------------------------------------------------------------------------

struct numbered_set {
    std::string_view name; // folded
    std::uint32_t number;
};

constexpr std::array numbered_sets = {
    numbered_set{"iso-646irv", PVZAN_SET_ISO_646_IRV},
    numbered_set{"jis_x0201latin", PVZAN_SET_JIS_X_0201_LATIN},
    numbered_set{"jis_x0201kana", PVZAN_SET_JIS_X_0201_KANA},
    numbered_set{"jis_c6226-1978", PVZAN_SET_JIS_C_6226_1978},
    numbered_set{"jis_x0208-1983", PVZAN_SET_JIS_X_0208_1983},
    numbered_set{"jis_x0208-1990", PVZAN_SET_JIS_X_0208_1990},
    numbered_set{"jis_x0212-1990", PVZAN_SET_JIS_X_0212_1990},
    numbered_set{"nec_extset", PVZAN_SET_NEC_EXT},
    numbered_set{"ibm_extset", PVZAN_SET_IBM_EXT},
    numbered_set{"jis-78-83", PVZAN_SET_JIS_78_83},
    numbered_set{"jis_x0213", PVZAN_SET_JIS_X_0213},
    numbered_set{"windows31j-usr", PVZAN_SET_WINDOWS_31J_USER},
    numbered_set{"windowsntj-usr", PVZAN_SET_WINDOWS_NTJ_USER},
    numbered_set{"oasys_extset", PVZAN_SET_OASYS_EXT},
    numbered_set{"oasys2_extset", PVZAN_SET_OASYS2_EXT},
    numbered_set{"chinesegbk", PVZAN_CHINESE_GBK},
    numbered_set{"chinesebig5", PVZAN_CHINESE_BIG5},
    numbered_set{"koreanksc", PVZAN_KOREAN_KSC},
    numbered_set{"gb18030", PVZAN_GB18030},
};

// A set with its number, where that is a fixed one.
std::string with_number(const std::string& set) {
    const auto found = std::ranges::find(numbered_sets, fold_name(set), &numbered_set::name);
    return found == numbered_sets.end() ? set : fmt::format("{} ({})", set, found->number);
}

// The number by which the library knows a charset; 0 when it does not.
std::uint32_t charset_number(const std::string& name) {
    const auto session = std::make_unique<pvzan_session>();
    return cconvInitConvert(session.get(), nullptr, name.c_str()) == PVZAN_DONE
               ? session->dstGroupNo
               : 0;
}

// ---- The list ----------------------------------------------------------------------------------

struct definition {
    std::string file;
    charset_entry charset;
};

// Those that the library reads at the start, then those that it reads when they are asked for.
std::vector<std::string> definition_files(const fs::path& directory) {
    std::vector<std::string> all;
    for (const std::string_view folder : {std::string_view(), further_folder}) {
        std::vector<std::string> files;
        std::error_code error;
        for (fs::directory_iterator entry(directory / folder, error), end; !error && entry != end;
             entry.increment(error)) {
            if (entry->path().extension() == ".xml") {
                files.push_back(std::string(folder) + entry->path().filename().string());
            }
        }
        std::ranges::sort(files);
        all.insert(all.end(), files.begin(), files.end());
    }
    return all;
}

// By the charset's name; the first file settles it.
std::map<std::string, definition> all_definitions() {
    std::map<std::string, definition> found;
    const fs::path directory = charset_directory_path();
    for (const std::string& file : definition_files(directory)) {
        charset_entry charset = read_charset(directory, file);
        const std::string name = charset.name;
        found.try_emplace(name, definition{file, std::move(charset)});
    }
    return found;
}

std::string joined(const std::vector<std::string>& items, std::string_view between) {
    std::string text;
    for (const std::string& item : items) {
        text += (text.empty() ? "" : std::string(between)) + item;
    }
    return text;
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
        return joined(items, ",");
    };
    std::vector<std::string> names = names_of(charset);
    std::ranges::transform(names, names.begin(), fold_name);
    std::erase(names, charset.charset);
    return fmt::format("{{\"charset\":{},\"number\":{},\"aliases\":[{}],\"sets\":[{}]}}\n",
                       json_string(charset.charset), charset_number(charset.charset),
                       quoted(std::move(names)), quoted(described.charset.sets));
}

// A line, and what the charset is to the library and to those who write definitions.
std::string page_of(const pvzan_name& charset, const definition& described) {
    std::string text = line_of(charset, false);
    text += wrapped("  in C",
                    {fmt::format("\"{}\" ({})", charset.charset, charset_number(charset.charset))});
    text += wrapped("  rules", {described.charset.decoder, described.charset.encoder});
    text +=
        wrapped("  definition", {(fs::path(charset_directory_path()) / described.file).string()});
    std::vector<std::string> sets = described.charset.sets;
    std::ranges::transform(sets, sets.begin(), with_number);
    return text + wrapped("  coded sets", sets);
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
        fault(directory, "there are no definitions (*.xml) in it");
    }
    std::set<std::string> defined;
    for (const std::string& file : files) {
        std::array<pvzan_error, 32> errors = {};
        errors[0].size = sizeof errors[0];
        const std::size_t found = std::min(
            pvzan_check_definition(file.c_str(), errors.data(), errors.size()), errors.size());
        const std::string name = read_charset(directory, file).name;
        const std::uint32_t number = defined.insert(name).second ? charset_number(name) : 0;
        for (const pvzan_error& error : std::span(errors).first(found)) {
            const bool refused = number == 0 && error.file == file;
            fault(error.file, fmt::format("{}{}", refused ? "not taken: " : "", error.text));
        }
        if (number != 0) {
            answer_lines(
                json ? fmt::format(
                           "{{\"file\":{},\"kind\":\"taken\",\"charset\":{},\"number\":{}}}\n",
                           json_string(file), json_string(name), number)
                     : fmt::format("{}: taken as {} ({})\n", printable(file), printable(name),
                                   number));
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
                return is_charset(charset, {charset_of(name).charset});
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
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain(fmt::format("standard output: cannot write: {}", system_error_text(errno)));
        return exit_no_work;
    }
    return status;
}

} // namespace tool
