// Text as bytes: units of a form, in either byte order.
#pragma once

#include "tests/support/oracle.h"

#include <initializer_list>

namespace test {

// A code as its bytes, the most significant first.
inline std::string code_text(std::uint32_t code, std::size_t length) {
    std::string text;
    while (length-- > 0) {
        text += static_cast<char>(code >> 8 * length);
    }
    return text;
}

inline std::string ucs4(std::initializer_list<std::uint32_t> values) {
    std::string bytes;
    for (const std::uint32_t value : values) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes += static_cast<char>(value >> shift & 0xFF);
        }
    }
    return bytes;
}

inline std::string utf16(std::initializer_list<std::uint32_t> units) {
    std::string bytes;
    for (const std::uint32_t unit : units) {
        bytes += static_cast<char>(unit >> 8);
        bytes += static_cast<char>(unit & 0xFF);
    }
    return bytes;
}

// Every width bytes the other way round.
inline std::string swapped(std::string bytes, std::size_t width) {
    for (std::size_t at = 0; at + width <= bytes.size(); at += width) {
        std::reverse(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                     bytes.begin() + static_cast<std::ptrdiff_t>(at + width));
    }
    return bytes;
}

inline std::string utf8(std::u32string_view text) {
    std::string bytes;
    for (const char32_t c : text) {
        bytes += utf8(c);
    }
    return bytes;
}

} // namespace test
