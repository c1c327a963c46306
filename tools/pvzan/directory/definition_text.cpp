#include "tools/pvzan/directory/definition_text.h"

#include "tools/pvzan/directory/charset.h"

#include <algorithm>
#include <fmt/core.h>
#include <fstream>
#include <iterator>

namespace tool {

namespace {

namespace fs = std::filesystem;
using std::operator""sv;

// A name in 16-bit units on the first line, in either byte order.
bool declares(std::string_view bytes, std::string_view name) {
    std::string wide;
    for (const char c : name) {
        wide += c;
        wide += '\0';
    }
    wide.pop_back();
    const std::string_view first_line = bytes.substr(0, bytes.find_first_of("\r\n"));
    return first_line.find(wide) != std::string_view::npos;
}

bool is_big(text_units units) {
    return units == text_units::utf16_big || units == text_units::ucs4_big;
}

std::optional<text_units> find_units(std::string_view bytes, text_units assumed) {
    if (bytes.starts_with("\xFF\xFE"sv) || bytes.starts_with("\xFE\xFF"sv)) {
        if (!declares(bytes, "UTF-16") && !declares(bytes, "ISO-10646-UCS-2")) {
            return assumed;
        }
        return bytes[0] == '\xFE' ? text_units::utf16_big : text_units::utf16_little;
    }
    if (bytes.size() >= 4 && bytes[0] == '\xFE' && bytes[3] == '\xFF') {
        return text_units::ucs4_big;
    }
    if (bytes.size() >= 4 && bytes[0] == '\xFF' && bytes[3] == '\xFE') {
        return text_units::ucs4_little;
    }
    if (bytes.find("utf-8") != std::string_view::npos ||
        bytes.find("shift") != std::string_view::npos) {
        return std::nullopt;
    }
    return assumed;
}

// Declarations and comments go, line breaks and tabs are blanks.
std::string normalise(const std::string& text) {
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        const std::string_view rest = std::string_view(text).substr(at);
        const bool instruction = rest.starts_with("<?");
        if (instruction || rest.starts_with("--")) {
            const std::size_t end = text.find(instruction ? "?>" : "--", at + 2);
            at = end == std::string::npos ? at + 1 : end + 2;
            continue;
        }
        out += rest[0] == '\r' || rest[0] == '\n' || rest[0] == '\t' ? ' ' : rest[0];
        at += rest.starts_with("\r\n") ? 2U : 1U;
    }
    return out;
}

} // namespace

std::string decode_units(std::string_view bytes, text_units units) {
    const std::size_t width =
        units == text_units::ucs4_big || units == text_units::ucs4_little ? 4 : 2;
    std::string text;
    for (std::size_t at = 0; at + width <= bytes.size(); at += width) {
        std::uint32_t unit = 0;
        for (std::size_t i = 0; i < width; ++i) {
            const std::size_t index = is_big(units) ? i : width - 1 - i;
            unit = unit << 8 | static_cast<unsigned char>(bytes[at + index]);
        }
        text += unit < 0x80 ? static_cast<char>(unit) : '?';
    }
    return text;
}

definition_text read_definition_text(const fs::path& directory, std::string_view name,
                                     text_units units) {
    definition_text result;
    const bool is_further = name.starts_with(further_folder);
    const fs::path path = directory / (is_further ? further_folder : "") /
                          fold_name(fs::path(name).filename().string());
    std::error_code error;
    if (!fs::is_regular_file(path, error)) {
        result.fault = fmt::format("there is no file {}", path.filename().string());
        return result;
    }
    std::ifstream file(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    const auto found = find_units(bytes, units);
    if (bytes.empty()) {
        result.fault = fmt::format("{} is empty", path.filename().string());
    } else if (!found) {
        result.fault = fmt::format("{} is not in UTF-16, UCS-2 or UCS-4", path.filename().string());
    } else {
        result.units = *found;
        result.text = normalise(decode_units(bytes, *found));
    }
    return result;
}

std::optional<element> find_element(std::string_view text, std::string_view name,
                                    std::size_t from) {
    const std::string plain = fmt::format("<{}>", name), attributed = fmt::format("<{} ", name);
    const std::size_t opened = std::min(text.find(plain, from), text.find(attributed, from));
    if (opened == std::string_view::npos) {
        return std::nullopt;
    }
    const std::size_t start = opened + plain.size();
    std::size_t end = text.find(fmt::format("</{}>", name), start);
    if (end == std::string_view::npos) {
        end = text.find("/>", start);
    }
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    return element{start, end};
}

std::optional<std::string> quoted(std::string_view text, std::string_view key, std::size_t from) {
    const std::size_t at = text.find(key, from);
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    const std::size_t open = text.find('"', at + key.size());
    const std::size_t close = text.find('"', open == std::string_view::npos ? open : open + 1);
    if (close == std::string_view::npos) {
        return std::nullopt;
    }
    return std::string(text.substr(open + 1, close - open - 1));
}

std::optional<std::string> entity_reference(std::string_view text) {
    const std::size_t ampersand = text.find('&');
    const std::size_t end =
        ampersand == std::string_view::npos ? ampersand : text.find(';', ampersand);
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    const std::size_t start = std::min(text.find_first_not_of(' ', ampersand + 1), end);
    return std::string(text.substr(start, end - start));
}

std::optional<std::string> entity_file(std::string_view document, const std::string& entity) {
    if (entity.empty()) {
        return std::nullopt;
    }
    for (std::size_t at = 0; (at = document.find(entity, at)) != std::string_view::npos;) {
        at += entity.size();
        if (at < document.size() && document[at] == ' ') {
            const std::size_t system = document.find("SYSTEM \"", at);
            return system == std::string_view::npos ? std::nullopt
                                                    : quoted(document, "SYSTEM ", system);
        }
    }
    return std::nullopt;
}

} // namespace tool
