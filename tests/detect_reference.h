// Encoding detection a second time, from its rules alone and slowly, to compare the library with.
#pragma once

#include "cconv/base.h"

#include <iosfwd>
#include <string>
#include <string_view>

namespace reference {

struct answer {
    u32 result = 0;
    std::string name = "unknown";
    u32 declared = 0, marked = 0, big_endian = 1, newline = 0, flags = 0;
    bool operator==(const answer&) const = default;
};

std::ostream& operator<<(std::ostream& out, const answer& a);

bool plausible(u32 high, u32 low);
std::size_t find_keyword(const std::string& buffer, std::size_t from, std::size_t width);
answer detect(const std::string& buffer, std::size_t pos, std::size_t end);

} // namespace reference

namespace test {

// Asks the library about text[pos, end); the caller's fields must come back as they were.
reference::answer ask(const u8* text, i32 pos, i32 end);
reference::answer ask(std::string_view text, std::size_t pos = 0);

} // namespace test
