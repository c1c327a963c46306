// Line breaks in text as it lies in memory, by its code units.
#pragma once

#include "tools/pvzan/directory/charset.h"

namespace tool {

struct code_unit {
    std::size_t bytes = 1;
    bool little_endian = false;
};

// Of a text that begins like that: a byte-order mark tells the order where the name leaves it open.
code_unit unit_of(const pvzan_name& charset, bytes_view begin);

// The offset behind the last line feed of text, which begins where a unit does; 0: there is none.
// In charsets of one-byte units CR and LF are never part of another character.
std::size_t behind_last_line_feed(bytes_view text, code_unit unit);

// The line breaks of a text: "LF", "CRLF", "CR", "mixed line breaks"; empty when there are none.
const char* kind_of_breaks(bytes_view text, code_unit unit);

} // namespace tool
