// Strict conversion of single characters: what a code stands for in Unicode, and whether it comes
// back as the same. The rules pass codes on between charsets that share a set, and write characters
// that do not come back; callers who must not lose anything use these functions.
#pragma once

#include "cconv/engine/engine.h"
#include "platform/unicode.h"

// A Unicode character, and a mark that is part of the same code; 0 if there is none.
struct character {
    u32 letter, mark;

    bool operator==(const character&) const = default;
};
inline constexpr character no_character{~0U, 0};

// Control characters that switch sets in text with designations, and stand for nothing else there.
constexpr bool switches_sets(u32 c) {
    return c == shift_out || c == shift_in || c == escape_byte;
}

// Gets the character that a decode rule put into the session; false if its code stands for none.
bool read_character(session* s, character& c);

// Makes this the session's character as if it had been decoded from Unicode text, so that the
// encode rule searches for the character, not for its code.
void put_character(session* s, const character& c);

// Decodes bytes that the encode rule wrote while the given set was designated. Two characters, as
// in a line break, are returned like a letter and its mark. None if the bytes are not valid, or
// more than two characters. The session does not change.
character read_back(session* s, std::span<const u8> written, u32 set);

// The bytes that the source's encode rule writes for the character, and their number; 0 if it
// cannot.
std::size_t spell_again(session* s, const character& c, std::span<u8> out);
