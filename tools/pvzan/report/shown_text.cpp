#include "tools/pvzan/report/shown_text.h"

#include <algorithm>
#include <array>
#include <fmt/core.h>
#include <utility>

namespace tool {

namespace {

// Whether one of the ranges holds it; each is a first and a last character.
bool is_in(std::span<const char32_t> ranges, char32_t scalar) {
    for (std::size_t i = 0; i + 1 < ranges.size(); i += 2) {
        if (scalar >= ranges[i] && scalar <= ranges[i + 1]) {
            return true;
        }
    }
    return false;
}

// Whether it takes two columns.
bool is_wide(char32_t scalar) {
    constexpr std::array<char32_t, 18> wide = {0x1100, 0x115F, 0x2E80, 0x303E, 0x3041,  0xA4CF,
                                               0xAC00, 0xD7A3, 0xF900, 0xFAFF, 0xFE30,  0xFE6F,
                                               0xFF01, 0xFF60, 0xFFE0, 0xFFE6, 0x1F300, 0x3FFFD};
    return is_in(wide, scalar);
}

// Those of which vendors' tables hold one or the other.
std::string_view look_alike_name(char32_t scalar) {
    constexpr std::array<std::pair<char32_t, std::string_view>, 25> names = {{
        {0x00A2, "CENT SIGN"},
        {0x00A3, "POUND SIGN"},
        {0x00A5, "YEN SIGN"},
        {0x00A6, "BROKEN BAR"},
        {0x00AC, "NOT SIGN"},
        {0x00AF, "MACRON"},
        {0x2014, "EM DASH"},
        {0x2015, "HORIZONTAL BAR"},
        {0x2016, "DOUBLE VERTICAL LINE"},
        {0x203E, "OVERLINE"},
        {0x2212, "MINUS SIGN"},
        {0x2225, "PARALLEL TO"},
        {0x2985, "LEFT WHITE PARENTHESIS"},
        {0x2986, "RIGHT WHITE PARENTHESIS"},
        {0x301C, "WAVE DASH"},
        {0xFF0D, "FULLWIDTH HYPHEN-MINUS"},
        {0xFF5E, "FULLWIDTH TILDE"},
        {0xFF5F, "FULLWIDTH LEFT WHITE PARENTHESIS"},
        {0xFF60, "FULLWIDTH RIGHT WHITE PARENTHESIS"},
        {0xFFE0, "FULLWIDTH CENT SIGN"},
        {0xFFE1, "FULLWIDTH POUND SIGN"},
        {0xFFE2, "FULLWIDTH NOT SIGN"},
        {0xFFE3, "FULLWIDTH MACRON"},
        {0xFFE4, "FULLWIDTH BROKEN BAR"},
        {0xFFE5, "FULLWIDTH YEN SIGN"},
    }};
    const auto* found =
        std::ranges::find(names, scalar, &std::pair<char32_t, std::string_view>::first);
    return found == names.end() ? std::string_view() : found->second;
}

// Controls, marks that join what is before them, what turns the direction of writing, private use.
bool is_visible(char32_t scalar) {
    constexpr std::array<char32_t, 24> hidden = {0x00,   0x1F,   0x7F,   0xA0,   0x0300,  0x036F,
                                                 0x200B, 0x200F, 0x2028, 0x202E, 0x2060,  0x206F,
                                                 0x3099, 0x309A, 0xD800, 0xF8FF, 0xFE00,  0xFE0F,
                                                 0xFEFF, 0xFEFF, 0xFFF0, 0xFFFC, 0xE0000, 0x10FFFF};
    return !is_in(hidden, scalar);
}

} // namespace

std::string utf8_of(char32_t scalar) {
    if (scalar < 0x80) {
        return {static_cast<char>(scalar)};
    }
    const unsigned trail_bytes = scalar < 0x800 ? 1 : scalar < 0x10000 ? 2 : 3;
    std::string text = {static_cast<char>(0xFFU << (7 - trail_bytes) | scalar >> 6 * trail_bytes)};
    for (unsigned left = trail_bytes; left > 0; --left) {
        text += static_cast<char>(0x80 | (scalar >> 6 * (left - 1) & 0x3F));
    }
    return text;
}

std::optional<utf8_character> first_character(std::string_view text) {
    const auto byte = [&](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned lead = byte(0);
    const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (text.empty() || (lead >= 0x80 && lead < 0xC2) || lead > 0xF4) {
        return std::nullopt;
    }
    char32_t scalar = length == 1 ? lead : lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return std::nullopt;
        }
        scalar = scalar << 6 | (byte(i) & 0x3F);
    }
    // What could be written shorter, a surrogate, or beyond Unicode.
    const bool whole = utf8_of(scalar).size() == length && scalar <= 0x10FFFF &&
                       (scalar < 0xD800 || scalar > 0xDFFF);
    return whole ? std::optional(utf8_character{scalar, length}) : std::nullopt;
}

std::string code_point(char32_t scalar) {
    return fmt::format("U+{:04X}", static_cast<std::uint32_t>(scalar));
}

std::string character_text(char32_t scalar) {
    std::string text = code_point(scalar);
    if (is_visible(scalar)) {
        text += " " + utf8_of(scalar);
    }
    const std::string_view name = look_alike_name(scalar);
    return name.empty() ? text : fmt::format("{} {}", text, name);
}

bool drives_terminal(char32_t scalar) {
    constexpr std::array<char32_t, 10> ranges = {0x00,   0x1F,   0x7F,   0x9F,   0x200E,
                                                 0x200F, 0x2028, 0x202E, 0x2066, 0x2069};
    return is_in(ranges, scalar);
}

excerpt excerpt_of(std::u32string_view characters) {
    constexpr std::size_t most_columns = 50;
    excerpt shown;
    for (auto c = characters.rbegin(); c != characters.rend(); ++c) {
        const auto value = static_cast<std::uint32_t>(*c);
        const std::string cell = *c == no_character ? "\u2592"
                                 : is_visible(*c)   ? utf8_of(*c)
                                 : *c == '\t'       ? " "
                                 : value <= 0xFF    ? fmt::format("\\x{:02x}", value)
                                                    : fmt::format("\\u{{{:x}}}", value);
        const bool escaped = cell[0] == '\\' && *c != '\\';
        const std::size_t columns = escaped ? cell.size() : is_wide(*c) ? 2 : 1;
        if (shown.columns + columns > most_columns) {
            break;
        }
        shown.text.insert(0, cell);
        shown.columns += columns;
    }
    return shown;
}

std::string hex_bytes(std::span<const std::uint8_t> bytes, std::string_view between) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += fmt::format("{}{:02x}", text.empty() ? "" : between, byte);
    }
    return text;
}

std::string printable(std::string_view text) {
    constexpr std::size_t most_escaped = 16;
    std::string shown;
    std::size_t escaped = 0;
    bool left_out = false; // the bytes before
    for (std::size_t at = 0; at < text.size();) {
        const auto next = first_character(text.substr(at));
        const std::string_view bytes = text.substr(at, next ? next->bytes : 1);
        at += bytes.size();
        if (next && !drives_terminal(next->scalar)) {
            shown += bytes;
            left_out = false;
            continue;
        }
        for (const char byte : bytes) {
            shown += ++escaped <= most_escaped
                         ? fmt::format("\\x{:02x}", static_cast<unsigned char>(byte))
                     : left_out ? ""
                                : "…";
            left_out = escaped > most_escaped;
        }
    }
    return escaped > most_escaped ? fmt::format("{} ({} bytes)", shown, text.size()) : shown;
}

std::string shown_name(const std::string& name) {
    return name == "-" ? "(standard input)" : printable(name);
}

std::string grouped(std::uint64_t number) {
    constexpr std::uint64_t thousand = 1000;
    return number < thousand
               ? fmt::format("{}", number)
               : fmt::format("{},{:03}", grouped(number / thousand), number % thousand);
}

std::string counted(std::uint64_t number, std::string_view thing) {
    return fmt::format("{} {}{}", grouped(number), thing, number == 1 ? "" : "s");
}

std::string joined(const std::vector<std::string>& items, std::string_view between) {
    std::string text;
    for (const std::string& item : items) {
        text += text.empty() ? item : fmt::format("{}{}", between, item);
    }
    return text;
}

} // namespace tool
