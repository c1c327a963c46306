// Codes whose meaning depends on designations and shifts, as the charset's definition describes
// them: finds what is at the beginning of a text, and how to write a code.
#pragma once

#include "cconv/engine/engine.h"
#include "cconv/registry/iso2022.h"
#include "cconv/rulefunc/traits.h"

// The bytes that must be written before a code of the set, and the state after the code.
struct iso2022_way {
    static constexpr u32 most_bytes = 6;
    u64 bytes; // the first byte is lowest
    u32 size, state;
};
// Used in place of a set for a line break.
inline constexpr u32 line_way = 15;
// The set whose codes need no sequences in that state; none if sequences are due anyway.
u32 set_at_hand(const iso2022& codes, u32 state);

// How a codec with such states gets from one state to the next. A session keeps the state as a word
// of the codec's own.
struct iso2022_codec {
    // What can be designated; null if the definition does not say.
    const iso2022* (*codes)(const charset_group* group);
    u32 (*state_of)(const charset_group* group, u32 word);
    u32 (*word_of)(u32 state);
    // Finds what is silent; the rule handles everything else.
    scan_function scan;
    // False if there is no way of at most that many bytes.
    bool (*find_way)(const charset_group* group, u32 state, u32 set, iso2022_way& way);
};
