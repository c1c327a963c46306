#include "tools/pvzan/directory/definition.h"

#include "tools/pvzan/directory/charset.h"

#include <algorithm>
#include <fmt/core.h>
#include <fstream>
#include <iterator>
#include <utility>

namespace tool {

namespace {

namespace fs = std::filesystem;
constexpr std::string_view further_folder = "further/"; // of those that are asked for

// The characters of a text in UTF-16, or in UCS-4 where its mark is FE 00 00 FF; those beyond ASCII
// are "?", line breaks and tabs blanks. The directory may lack the charsets to convert it.
std::string decode(std::string_view bytes) {
    const std::string_view begin = bytes.substr(0, 4);
    const bool wide = begin.ends_with('\xFF') || begin.ends_with('\xFE');
    const bool big = begin.starts_with('\xFE');
    const std::size_t width = wide ? 4 : 2;
    std::string text;
    for (std::size_t at = 0; at + width <= bytes.size(); at += width) {
        std::uint32_t unit = 0;
        for (std::size_t i = 0; i < width; ++i) {
            unit = unit << 8 | static_cast<unsigned char>(bytes[at + (big ? i : width - 1 - i)]);
        }
        text += unit >= 0x80 ? '?' : unit < ' ' ? ' ' : static_cast<char>(unit);
    }
    return text;
}

// The text of a file of the directory, without instructions and comments.
std::string read_text(const fs::path& directory, std::string_view name) {
    const bool is_further = name.starts_with(further_folder);
    const fs::path path = directory / (is_further ? further_folder : "") /
                          fold_name(fs::path(name).filename().string());
    std::error_code error;
    if (!fs::is_regular_file(path, error)) {
        return {};
    }
    std::ifstream file(path, std::ios::binary);
    const std::string content(std::istreambuf_iterator<char>(file), {});
    std::string text = decode(content);
    for (const auto& [opens, closes] : {std::pair("<?", "?>"), std::pair("--", "--")}) {
        for (std::size_t at = 0; (at = text.find(opens, at)) != text.npos;) {
            const std::size_t end = text.find(closes, at + 2);
            text.erase(at, end == text.npos ? 1 : end + 2 - at);
        }
    }
    return text;
}

// What stands between two marks, from a place on, which moves behind it; empty: nothing does.
std::string_view between(std::string_view text, std::string_view before, std::string_view behind,
                         std::size_t& at) {
    const std::size_t found = text.find(before, at);
    const std::size_t start = found == text.npos ? found : found + before.size();
    const std::size_t end = found == text.npos ? found : text.find(behind, start);
    at = end;
    return end == text.npos ? std::string_view() : text.substr(start, end - start);
}

std::string_view between(std::string_view text, std::string_view before, std::string_view behind) {
    std::size_t at = 0;
    return between(text, before, behind, at);
}

// The name of the coded set whose file an element's entity reference names.
std::string set_name(const fs::path& directory, std::string_view document,
                     std::string_view element) {
    std::string entity(between(element, "&", ";"));
    std::erase(entity, ' ');
    std::string_view declared = between(document, fmt::format(" {} ", entity), ">");
    const std::string_view file = between(declared, "\"", "\"");
    return std::string(between(read_text(directory, file), "<name>", "<"));
}

} // namespace

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

definition read_definition(const fs::path& directory, const std::string& file) {
    const std::string text = read_text(directory, file);
    definition charset;
    charset.file = file;
    charset.name = fold_name(between(text, "<name>", "<"));
    charset.decoder = between(text, "destrule=\"", "\"");
    charset.encoder = between(text, "construle=\"", "\"");
    std::vector<std::pair<std::size_t, std::string_view>> sets; // with where they stand
    for (const char* kind : {"baseset", "diffset", "eudcset"}) {
        std::size_t at = 0;
        while (true) {
            const std::string_view element =
                between(text, fmt::format("<{}", kind), fmt::format("</{}", kind), at);
            if (at == text.npos) {
                break;
            }
            sets.emplace_back(at, element);
        }
    }
    std::ranges::sort(sets);
    for (const auto& [at, element] : sets) {
        charset.sets.push_back(set_name(directory, text, element));
    }
    return charset;
}

} // namespace tool
