// Reads the sequences of Unicode text in memory strictly.
#pragma once

#include "cconv/rulefunc/strict.h"
#include "cconv/rulefunc/utf8.h"

#include "pvzan_text.h"

namespace text {

inline sequence read_utf8(const u8* p, std::size_t size) {
    return ::read_utf8({p, size});
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
    if (kind != PVZAN_KIND_UTF_16 || !is_high_surrogate(unit)) {
        return {sequence::ill_formed, width, 0};
    }
    if (size < 4) {
        return {sequence::cut, static_cast<u32>(size), 0};
    }
    const u32 low = load_code({p + 2, 2}, big);
    if (!is_low_surrogate(low)) {
        return {sequence::ill_formed, 2, 0};
    }
    return {sequence::whole, 4, join_surrogate_pair(unit, low)};
}

inline sequence read_sequence(const u8* p, std::size_t size, u32 kind, bool big) {
    return kind == PVZAN_KIND_UTF_8 ? read_utf8(p, size) : read_units(p, size, kind, big);
}

constexpr bool is_private_use(u32 c) {
    return (c >= 0xE000 && c <= 0xF8FF) || c >= 0xF0000;
}

} // namespace text
