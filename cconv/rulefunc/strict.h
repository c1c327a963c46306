// Single characters, strictly: what a code stands for in Unicode, and what becomes of it on the way
// back. The rules hand codes on between charsets that share a set, and write what nothing reads
// back; who must not lose anything asks here.
#pragma once

#include "cconv/engine/engine.h"

// A character of Unicode, and a mark that stands in the same code; 0: none.
struct character {
    u32 letter, mark;

    bool operator==(const character&) const = default;
};
inline constexpr character no_character{~0U, 0};

constexpr bool is_scalar(u32 c) {
    return c < 0xD800 || (c > 0xDFFF && c <= 0x10FFFF);
}

// Control characters that switch sets in text with designations, where they stand for nothing else.
constexpr bool switches_sets(u32 c) {
    return c == shift_out || c == shift_in || c == escape_byte;
}

// The character that a decode rule left in the session; false where its code stands for none.
bool read_character(session* s, character& c);

// Makes it the session's character as if it had been decoded from Unicode text, so that the encode
// rule looks for it by what it is and not by its code.
void put_character(session* s, const character& c);

// What the target's decode rule makes of bytes that the encode rule wrote, with that set
// designated: two characters, as of a line break, are told like a letter and its mark. None where
// they are no characters, or more. The session stays as it is.
character read_back(session* s, std::span<const u8> written, u32 set);

// How the source's encode rule writes the character, and how many bytes those are; 0: it does not.
std::size_t spell_again(session* s, const character& c, std::span<u8> out);
