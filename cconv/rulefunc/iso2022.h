// Codes that designations and shifts give their meaning, as the charset's definition says: what
// stands at the begin of a text, and how a code is written.
#pragma once

#include "cconv/engine/engine.h"
#include "cconv/registry/iso2022.h"
#include "cconv/rulefunc/traits.h"

struct iso2022_reading : scanned {
    const basic_set* set; // of a code
    u32 set_code;         // in that set
    u32 bytes;            // of the code, as one number
};
// What the text, which is not empty, begins with.
iso2022_reading iso2022_read(const charset_group* group, u32 state, std::span<const u8> text);
