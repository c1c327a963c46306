#include "tools/pvzan/list_charsets.h"

#include "tools/pvzan/charset_directory.h"
#include "tools/pvzan/charset_name.h"
#include "tools/pvzan/check_directory.h"
#include "tools/pvzan/definition_text.h"
#include "tools/pvzan/exit_status.h"
#include "tools/pvzan/message.h"

#include "pvzan.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
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

struct listed_charset {
    charset_entry charset;
    std::uint32_t number;
    std::string file;
};

std::vector<listed_charset> all_charsets() {
    const fs::path directory = ZAN_getCharsetPath();
    std::vector<std::string> files;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->path().extension() == ".xml") {
            files.push_back(entry->path().filename().string());
        }
    }
    std::ranges::sort(files);
    std::vector<listed_charset> list;
    for (const std::string& file : files) {
        charset_entry charset = read_charset(directory, file);
        const std::uint32_t number = charset_number(charset.name);
        const bool listed = std::ranges::any_of(
            list, [&](const listed_charset& row) { return row.charset.name == charset.name; });
        // The library refuses the definition, or an earlier one has settled the charset.
        if (number != 0 && !listed) {
            list.push_back({std::move(charset), number, file});
        }
    }
    std::ranges::stable_sort(list, {}, [](const listed_charset& row) {
        return charset_rank(row.charset.name); // those of one's own last
    });
    return list;
}

std::string joined(const std::vector<std::string>& items, std::string_view between) {
    std::string text;
    for (const std::string& item : items) {
        text += (text.empty() ? "" : std::string(between)) + item;
    }
    return text;
}

std::vector<std::string> aliases_of(const listed_charset& row) {
    const auto names = other_names(row.charset.name);
    return {names.begin(), names.end()};
}

// The name that people know, and all others that are not spelled alike.
std::vector<std::string> human_names(const listed_charset& row) {
    std::vector<std::string> names = {resolve_charset(row.charset.name).shown};
    for (const std::string& name : aliases_of(row)) {
        if (!same_name(name, names.front())) {
            names.push_back(name);
        }
    }
    return names;
}

// Words behind a heading, in as many lines as they need.
std::string wrapped(std::string_view heading, const std::vector<std::string>& words) {
    constexpr std::size_t column = 18, width = 80;
    std::string text, line = fmt::format("{:<{}}", printable(heading), column);
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string word = printable(words[i]) + (i + 1 < words.size() ? "," : "");
        if (i > 0 && line.size() + 1 + word.size() > width) {
            text += line + "\n";
            line = std::string(column, ' ');
        } else if (i > 0) {
            line += ' ';
        }
        line += word;
    }
    return text + line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

std::string line_of(const listed_charset& row) {
    std::vector<std::string> names = human_names(row);
    const std::string first = names.front();
    names.erase(names.begin());
    if (const int page = code_page(row.charset.name); page != 0) {
        names.back() += fmt::format(" (Windows code page {})", page);
    }
    return wrapped(first, names);
}

// One line for a program to split at blanks.
std::string bare_line_of(const listed_charset& row) {
    return printable(joined(human_names(row), " ")) + "\n";
}

std::string json_of(const listed_charset& row) {
    const auto quoted = [](std::vector<std::string> items) {
        std::ranges::transform(items, items.begin(), json_string);
        return joined(items, ",");
    };
    return fmt::format("{{\"charset\":{},\"number\":{},\"aliases\":[{}],\"sets\":[{}]}}\n",
                       json_string(row.charset.name), row.number, quoted(aliases_of(row)),
                       quoted(row.charset.sets));
}

// A line, and what the charset is to the library and to those who write definitions.
std::string page_of(const listed_charset& row) {
    const fs::path directory = ZAN_getCharsetPath();
    std::string text = line_of(row);
    text += wrapped("  in C", {fmt::format("\"{}\" ({})", row.charset.name, row.number)});
    text += wrapped("  rules", {row.charset.decoder, row.charset.encoder});
    text += wrapped("  definition", {(directory / row.file).string()});
    std::vector<std::string> sets = row.charset.sets;
    std::ranges::transform(sets, sets.begin(), with_number);
    return text + wrapped("  coded sets", sets);
}

} // namespace

std::vector<std::string> charset_names() {
    std::vector<std::string> names;
    for (const listed_charset& row : all_charsets()) {
        names.push_back(row.charset.name);
    }
    return names;
}

int list_charsets(const list_options& options) {
    if (!options.check.empty()) {
        return check_charset_directory(options.check);
    }
    if (!open_charset_directory(options.charset_dir)) {
        return exit_no_work;
    }
    std::vector<listed_charset> rows = all_charsets();
    int status = exit_converted;
    if (!options.names.empty()) {
        std::vector<listed_charset> wanted;
        for (const std::string& name : options.names) {
            const auto found = std::ranges::find_if(rows, [&](const listed_charset& row) {
                return row.charset.name == resolve_charset(name).library;
            });
            if (found == rows.end()) {
                complain_unknown(name);
                status = exit_no_work;
            } else {
                wanted.push_back(*found);
            }
        }
        rows = std::move(wanted);
    }
    for (const listed_charset& row : rows) {
        const message_style& style = current_style();
        const std::string text = style.json      ? json_of(row)
                                 : options.bare  ? bare_line_of(row)
                                 : style.verbose ? page_of(row)
                                                 : line_of(row);
        std::fwrite(text.data(), 1, text.size(), stdout);
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain(fmt::format("standard output: cannot write: {}", system_error_text(errno)));
        return exit_no_work;
    }
    return status;
}

} // namespace tool
