// Characters that a target charset takes but gives back as others: a wave dash that comes back as a
// full-width tilde, half-width katakana that ISO-2022-JP makes full-width.
#pragma once

#include "tools/pvzan/byte_patterns.h"
#include "tools/pvzan/unicode_text.h"

#include <array>
#include <map>
#include <span>
#include <string>

namespace tool {

class one_way_characters {
public:
    // Ask the library, once for a target; Unicode has none of them. It takes the target's tables,
    // which ASCII without the two that may be a yen sign and an overline there does not need.
    void open(const charset_name& to);
    void open_ascii(const charset_name& to);

    // Whether one may be in Unicode text; fast, and right when it says no.
    [[nodiscard]] bool may_be_in(bytes_view text, const charset_name& form) const;
    // What it comes back as; 0 for characters that come back as themselves.
    [[nodiscard]] char32_t comes_back(char32_t scalar) const;

private:
    void ask(const charset_name& to, std::span<const char32_t> list);

    std::map<char32_t, char32_t> comes_back_;
    byte_patterns patterns_; // in UTF-8, two or three bytes
};

// A character to use in place of one that the target lacks, as --similar allows; 0: none.
char32_t stand_in(char32_t scalar);

// The name of a character that has look-alikes; empty for all others.
std::string_view look_alike_name(char32_t scalar);

} // namespace tool
