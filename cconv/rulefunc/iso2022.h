// Codes that designations and shifts give their meaning, as the charset's definition says: what
// stands at the begin of a text, and how a code is written.
#pragma once

#include "cconv/engine/engine.h"
#include "cconv/registry/iso2022.h"

struct iso2022_reading {
    enum kind_type : u8 {
        code,   // of the set
        silent, // a sequence, or a literal for nothing
        cut,    // more input decides
        invalid
    } kind;
    u8 length; // bytes that are taken; of what is invalid, those to step over
    u8 needed; // bytes that decided
    u32 state; // behind it
    const basic_set* set;
    u32 set_code; // in that set
    u32 bytes;    // of the code, as one number
};
// What the text, which is not empty, begins with.
iso2022_reading iso2022_read(const charset_group* group, u32 state, std::span<const u8> text);

// Whether the text may end, by what holds then.
inline bool iso2022_may_end(const charset_group* group, u32 state) {
    return group->codes->close.holds_in(group->codes->state_of(state));
}
