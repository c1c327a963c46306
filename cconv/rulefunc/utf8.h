// UTF-8 as the standard has it: whole sequences, strictly.
#pragma once

#include "platform/base.h"

#include <span>

struct sequence {
    enum kind_type : u8 { whole, cut, ill_formed } kind;
    u32 bytes; // ill-formed: those that cannot be continued
    u32 scalar;
};

// What the text, which is not empty, begins with.
inline sequence read_utf8(std::span<const u8> text) {
    const u32 lead = text[0];
    if (lead < 0x80) {
        return {sequence::whole, 1, lead};
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return {sequence::ill_formed, 1, 0};
    }
    const u32 length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    // What keeps the form from being too long, a surrogate, or beyond U+10FFFF.
    const u32 low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const u32 high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    u32 scalar = lead & (0x7FU >> length);
    for (u32 i = 1; i < length; ++i) {
        if (i == text.size()) {
            return {sequence::cut, i, 0};
        }
        if (text[i] < (i == 1 ? low : 0x80) || text[i] > (i == 1 ? high : 0xBF)) {
            return {sequence::ill_formed, i, 0};
        }
        scalar = scalar << 6 | (text[i] & 0x3FU);
    }
    return {sequence::whole, length, scalar};
}

// Writes a scalar, or half a pair of surrogates; returns how many bytes it is.
inline u32 write_utf8(u32 c, u8* out) {
    if (c < 0x80) {
        out[0] = static_cast<u8>(c);
        return 1;
    }
    const u32 length = c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    for (u32 i = length - 1; i > 0; --i, c >>= 6) {
        out[i] = static_cast<u8>(0x80 | (c & 0x3F));
    }
    out[0] = static_cast<u8>(0xF00U >> length | c);
    return length;
}
