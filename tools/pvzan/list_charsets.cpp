#include "tools/pvzan/list_charsets.h"

#include "tools/pvzan/charset_directory.h"
#include "tools/pvzan/exit_status.h"
#include "tools/pvzan/message.h"
#include "tools/pvzan/unicode_text.h"

#include "pvzan.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace tool {

namespace {

namespace fs = std::filesystem;

// ---- Definition files --------------------------------------------------------------------------

std::string fold(std::string_view text) {
    std::string folded(text);
    std::ranges::transform(folded, folded.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return folded;
}

// The text of a definition without its comments; everything of interest in it is ASCII. Empty where
// it cannot be read. Files bear lower-case names, however they are referred to.
std::string read_definition(const fs::path& directory, std::string_view name) {
    std::ifstream file(directory / fold(fs::path(name).filename().string()), std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    charset_name utf16;
    utf16.form = unicode_form::utf16;
    utf16.big_endian = bytes.starts_with("\xFE\xFF");
    bytes_view rest(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    std::string text;
    while (!rest.empty()) {
        const unicode_sequence next = read_sequence(rest, utf16);
        text += next.scalar < 0x80 ? static_cast<char>(next.scalar) : '?';
        rest = rest.subspan(next.bytes);
    }
    for (std::size_t begin = 0; (begin = text.find("--", begin)) != std::string::npos;) {
        const std::size_t end = text.find("--", begin + 2);
        text.erase(begin, end == std::string::npos ? 1 : end + 2 - begin);
    }
    return text;
}

// What stands between two texts, searched for from an offset, which is moved behind it. Empty when
// it is not there.
std::string_view between(std::string_view text, std::string_view before, std::string_view after,
                         std::size_t& offset) {
    const std::size_t begin = text.find(before, offset);
    if (begin == std::string_view::npos) {
        return {};
    }
    const std::size_t inside = begin + before.size(), end = text.find(after, inside);
    if (end == std::string_view::npos) {
        return {};
    }
    offset = end + after.size();
    return text.substr(inside, end - inside);
}

std::string_view between(std::string_view text, std::string_view before, std::string_view after) {
    std::size_t start = 0;
    return between(text, before, after, start);
}

// The name of the coded set whose file the first entity reference of an element names.
std::string set_name(const fs::path& directory, std::string_view document,
                     std::string_view element) {
    const std::string entity(between(element, "&", ";"));
    const std::string_view file = between(document, "<!ENTITY " + entity + " SYSTEM \"", "\"");
    return std::string(between(read_definition(directory, file), "<name>", "</name>"));
}

struct charset_entry {
    std::string name, decoder, encoder;
    std::vector<std::string> sets; // in order of preference
};

charset_entry read_charset(const fs::path& directory, const std::string& file) {
    const std::string document = read_definition(directory, file);
    charset_entry charset;
    charset.name = fold(between(document, "<name>", "</name>"));
    charset.decoder = between(document, "destrule=\"", "\"");
    charset.encoder = between(document, "construle=\"", "\"");
    std::vector<std::pair<std::size_t, std::string>> sets; // with where they stand
    for (const std::string_view kind : {"baseset", "diffset", "eudcset"}) {
        const std::string begin = fmt::format("<{}", kind), end = fmt::format("</{}>", kind);
        for (std::size_t offset = 0;;) {
            const std::string_view element = between(document, begin, end, offset);
            if (element.empty()) {
                break;
            }
            sets.emplace_back(offset, set_name(directory, document, element));
        }
    }
    std::ranges::sort(sets);
    for (auto& [offset, name] : sets) {
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
    const auto found = std::ranges::find(numbered_sets, fold(set), &numbered_set::name);
    return found == numbered_sets.end() ? set : fmt::format("{} ({})", set, found->number);
}

// The number by which the library knows a charset; 0 when it does not.
std::uint32_t charset_number(const std::string& name) {
    const auto session = std::make_unique<pvzan_session>();
    return cconvInitConvert(session.get(), nullptr, name.c_str()) == PVZAN_DONE
               ? session->dstGroupNo
               : 0;
}

} // namespace

int list_charsets(const list_options& options) {
    if (!open_charset_directory(options.charset_dir)) {
        return exit_no_work;
    }
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
    std::vector<std::string> listed;
    for (const std::string& file : files) {
        const charset_entry charset = read_charset(directory, file);
        const std::uint32_t number = charset_number(charset.name);
        // The library refuses the definition, or an earlier one has settled the charset.
        if (number == 0 || std::ranges::find(listed, charset.name) != listed.end()) {
            continue;
        }
        listed.push_back(charset.name);
        std::string sets;
        for (const std::string& set : charset.sets) {
            sets += fmt::format("{}{}", sets.empty() ? "" : ", ", printable(with_number(set)));
        }
        fmt::print("{:<18}{:<12}{:<22}{:<23}{}\n", printable(charset.name), number,
                   printable(charset.decoder), printable(charset.encoder), sets);
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain(fmt::format("standard output: cannot write: {}", system_error_text(errno)));
        return exit_no_work;
    }
    return exit_converted;
}

} // namespace tool
