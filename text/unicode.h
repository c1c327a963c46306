// Reads the sequences of Unicode text in memory strictly.
#pragma once

#include "cconv/rulefunc/strict.h"

#include "pvzan_text.h"

namespace text {

struct sequence {
    enum kind_type : u8 { whole, cut, ill_formed } kind;
    u32 bytes; // ill-formed: those that cannot be part of a character
    u32 scalar;
};

inline sequence read_utf8(const u8* p, std::size_t size) {
    const u32 lead = p[0];
    if (lead < 0x80) {
        return {sequence::whole, 1, lead};
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return {sequence::ill_formed, 1, 0};
    }
    const u32 length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    // Checks that a form is not too long, not a surrogate, and not beyond U+10FFFF.
    const u32 low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const u32 high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    u32 scalar = lead & (0x7FU >> length);
    for (u32 i = 1; i < length; ++i) {
        if (i == size) {
            return {sequence::cut, i, 0};
        }
        if (p[i] < (i == 1 ? low : 0x80) || p[i] > (i == 1 ? high : 0xBF)) {
            return {sequence::ill_formed, i, 0};
        }
        scalar = scalar << 6 | (p[i] & 0x3FU);
    }
    return {sequence::whole, length, scalar};
}

// Units of two or four bytes. UCS-2 and UCS-4 have no surrogate pairs.
inline sequence read_units(const u8* p, std::size_t size, u32 kind, bool big) {
    const u32 width = kind == PVZAN_KIND_UCS_4 ? 4 : 2;
    if (size < width) {
        return {sequence::cut, static_cast<u32>(size), 0};
    }
    const u32 unit = load_code({p, width}, big);
    if (is_scalar(unit)) {
        return {sequence::whole, width, unit};
    }
    if (kind != PVZAN_KIND_UTF_16 || unit >= 0xDC00) {
        return {sequence::ill_formed, width, 0};
    }
    if (size < 4) {
        return {sequence::cut, static_cast<u32>(size), 0};
    }
    const u32 low = load_code({p + 2, 2}, big);
    if (low < 0xDC00 || low > 0xDFFF) {
        return {sequence::ill_formed, 2, 0};
    }
    return {sequence::whole, 4, 0x10000 + ((unit & 0x3FF) << 10 | (low & 0x3FF))};
}

inline sequence read_sequence(const u8* p, std::size_t size, u32 kind, bool big) {
    return kind == PVZAN_KIND_UTF_8 ? read_utf8(p, size) : read_units(p, size, kind, big);
}

constexpr bool is_private_use(u32 c) {
    return (c >= 0xE000 && c <= 0xF8FF) || c >= 0xF0000;
}

} // namespace text
