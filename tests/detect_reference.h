// Encoding detection a second time, from its rules alone and slowly, to compare the library with.
#pragma once

#include "cconv/base.h"

#include <iosfwd>
#include <string>

namespace reference {

struct scores {
    u32 iso2022_jp = 0, utf8 = 0, utf8_multibyte = 0, utf8_latin1 = 0, euc_jp_fix = 0,
        utf16_big = 0, utf16_little = 0, ucs4_big = 0, ucs4_little = 0, euc_jp = 0, shift_jis = 0,
        shift_jis_double = 0, shift_jis_high = 0;
    bool operator==(const scores&) const = default;
};

struct answer {
    u32 result = 0;
    std::string name = "unknown";
    u32 declared = 0, marked = 0, big_endian = 1, newline = 0, flags = 0;
    bool operator==(const answer&) const = default;
};

std::ostream& operator<<(std::ostream& out, const scores& all);
std::ostream& operator<<(std::ostream& out, const answer& a);

bool plausible(u32 high, u32 low);
scores score(const std::string& text);
std::size_t find_keyword(const std::string& buffer, std::size_t from, std::size_t width);
answer detect(const std::string& buffer, std::size_t pos, std::size_t end);

} // namespace reference
