// Codes whose meaning depends on designations and shifts, as the charset's definition describes
// them: finds what is at the beginning of a text, and how to write a code.
#pragma once

#include "cconv/engine/engine.h"
#include "cconv/registry/iso2022.h"
#include "cconv/rulefunc/traits.h"

struct iso2022_reading : scanned {
    const basic_set* set; // of a code
    u32 set_code;         // its code in that set
    u32 bytes;            // bytes of the code, as one number
};
// The bytes that must be written before a code of the set, and the state after the code.
struct iso2022_way {
    static constexpr u32 most_bytes = 6;
    u64 bytes; // the first byte is lowest
    u32 size, state;
};
// Used in place of a set for a line break.
inline constexpr u32 line_way = 15;
// False if there is no such sequence of at most that many bytes.
bool find_way(const charset_group* group, u32 state, u32 set, iso2022_way& way);
// The set whose codes need no sequences in that state; none if sequences are due anyway.
u32 set_at_hand(const iso2022& codes, u32 state);

// What is at the beginning of the text, which must not be empty.
iso2022_reading iso2022_read(const charset_group* group, u32 state, std::span<const u8> text);
