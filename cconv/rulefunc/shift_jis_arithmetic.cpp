// Shift_JIS to JIS code arithmetic and back.
//
//   Shift_JIS lead  81-9F E0-FC, two JIS rows each     trail  40-7E 80-9E   cells 21-7E of the odd
//   row
//                                                             9F-FC         cells 21-7E of the even
//                                                             row
//
// Leads 81-EF are the 94 rows 21-7E. Leads F0-FC are, in the extended arithmetic, rows 7F-98, and
// in Shift_JIS-2004 the rows of plane 2 that k40 and k9F list.
#include "cconv/rulefunc/rules.h"

#undef NDEBUG // it would hide the declaration of __assert_fail
#include <cassert>

namespace {

constexpr u32 row_base = 0x20; // row and cell bytes are row and cell numbers plus this
constexpr u32 first_code = 0x2121, last_code = 0x987E;
constexpr u32 plane2_first_lead = 0xF0;
constexpr u32 first_even_row_trail = 0x9F;

constexpr bool is_lead(u32 byte) {
    return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC);
}

constexpr bool is_trail(u32 byte) {
    return byte >= 0x40 && byte <= 0xFC && byte != 0x7F;
}

constexpr u32 cell_of_trail(u32 trail) {
    if (trail >= first_even_row_trail) {
        return trail - 0x7E;
    }
    return trail < 0x7F ? trail - 0x1F : trail - 0x20; // 7F is not a trail byte
}

constexpr u32 row_of(u32 lead, u32 trail) {
    const u32 odd_row = (lead - (lead < 0xE0 ? 0x81 : 0xC1)) * 2 + 0x21;
    return trail >= first_even_row_trail ? odd_row + 1 : odd_row;
}

// The assertion is also active in release builds, and names the folder instead of a file, so that
// its message does not depend on the sources.
[[noreturn]] void unexpected_code(unsigned line) {
    __assert_fail("0", "cconv/rulefunc", line, "JIStoSJIS2004");
}
constexpr unsigned plane1_row_line = 217, plane2_row_line = 229, cell_line = 240;

u32 plane1_lead(u32 row) {
    const u32 ku = row - row_base;
    if (row >= 0x21 && row <= 0x5E) {
        return (ku + 257) >> 1;
    }
    if (row >= 0x5F && row <= 0x7E) {
        return (ku + 385) >> 1;
    }
    unexpected_code(plane1_row_line);
}

u32 plane2_lead(u32 row) {
    const u32 ku = row - row_base;
    switch (ku) {
    case 1:
    case 3:
    case 4:
    case 5:
    case 8:
    case 12:
    case 13:
    case 14:
    case 15: return ((ku + 479) >> 1) - (ku >> 3) * 3;
    default: break;
    }
    // Rows 64 to 77, which plane 2 does not have, are accepted, deliberately: the formula covers
    // them.
    if (row >= 0x60 && row <= 0x7E) {
        return (ku + 411) >> 1;
    }
    unexpected_code(plane2_row_line);
}

} // namespace

extern "C" {

const u32 k40[13] = {1, 3, 5, 13, 15, 79, 81, 83, 85, 87, 89, 91, 93};
const u32 k9F[13] = {8, 4, 12, 14, 78, 80, 82, 84, 86, 88, 90, 92, 94};

u32 SJIStoJISex(u32 code) {
    const u32 lead = code >> 8 & 0xFF;
    const u32 trail = code & 0xFF;
    if (lead == 0) {
        return trail;
    }
    if (!is_lead(lead) || !is_trail(trail)) {
        return 0;
    }
    return row_of(lead, trail) << 8 | cell_of_trail(trail);
}

u32 SJIStoJIS(u32 code) {
    return SJIStoJISex(code);
}

u32 SJIStoJIS2004(u32 code) {
    const u32 jis = SJIStoJISex(code);
    const u32 lead = code >> 8 & 0xFF;
    if (jis == 0 || lead < plane2_first_lead) {
        return jis;
    }
    const bool even_half = (code & 0xFF) >= first_even_row_trail;
    const u32 ku = (even_half ? k9F : k40)[lead - plane2_first_lead];
    return jisx0213_plane2 | (ku + row_base) << 8 | (jis & 0xFF);
}

// The difference to the first code is used as a whole, deliberately: a cell byte below 21 borrows
// from the row instead of being refused, and one above 7E changes the lead byte.
u32 JIStoSJISex(u32 code) {
    const u32 c = code & 0xFFFF;
    if (c <= 0xFF) {
        return c;
    }
    const u32 offset = (c - first_code) & 0xFFFF;
    if (offset > last_code - first_code) {
        return 0;
    }
    const u32 row = offset >> 8;
    const u32 cell = offset & 0xFF;
    u32 trail = cell + 0x9F;
    if (row % 2 == 0) {
        trail = cell + 0x40;
        if (trail > 0x7E) {
            ++trail;
        }
    }
    u32 lead = (row >> 1) + 0x81;
    if (lead >= 0xA0) {
        lead = (row >> 1) + 0xC1;
    }
    return (lead << 8 | trail) & 0xFFFF;
}

u32 JIStoSJIS(u32 code) {
    return JIStoSJISex(code);
}

u32 JIStoSJIS2004(u32 code) {
    if (code <= 0xFF) {
        return code;
    }
    const u32 row = code >> 8 & 0xFF;
    const u32 cell = code & 0xFF;
    const u32 lead = (code & jisx0213_plane2) != 0 ? plane2_lead(row) : plane1_lead(row);
    u32 trail = cell + 0x7E;
    if ((row - row_base) % 2 != 0) {
        if (cell >= 0x21 && cell <= 0x5F) {
            trail = cell + 0x1F;
        } else if (cell >= 0x60 && cell <= 0x7E) {
            trail = cell + 0x20;
        } else {
            unexpected_code(cell_line);
        }
    }
    return (lead << 8 | trail) & 0xFFFF;
}

} // extern "C"
