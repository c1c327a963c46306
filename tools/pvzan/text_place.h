// Where in a text one is: line, column and byte, as the messages tell them.
#pragma once

#include "tools/pvzan/unicode_text.h"

namespace tool {

// Line and column count from 1, the column in characters; the offset from 0. CR, LF and CR LF end a
// line.
struct text_place {
    std::uint64_t line = 1, column = 1, offset = 0;
    bool behind_cr = false;
};

// Goes on behind one character of that many bytes.
void step(text_place& place, char32_t character, std::size_t bytes);

// Goes on behind whole text, whose characters behind its last line break are tail_characters.
void pass(text_place& place, bytes_view text, const charset_name& charset,
          std::uint64_t tail_characters);

// The offset behind the last line break of text, and behind the first one; 0 when there is none.
// In charsets of one-byte units CR and LF are never part of another character.
std::size_t behind_last_break(bytes_view text, const charset_name& charset);
std::size_t behind_last_line_feed(bytes_view text, const charset_name& charset);
std::size_t behind_first_break(bytes_view text, const charset_name& charset);

// The line breaks of a text: "LF", "CRLF", "CR", "mixed line breaks"; empty when there are none.
const char* kind_of_breaks(bytes_view text, const charset_name& charset);

} // namespace tool
