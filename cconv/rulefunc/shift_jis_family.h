// What the decoders of Shift_JIS, Shift_JIS-2004 and Windows-31J share.
//
//   00-7F   JIS X 0201 Roman
//   A1-DF   JIS X 0201 katakana
//   others  lead byte of a double-byte code
#pragma once

#include "cconv/registry/further.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/tables/table.h"

#include <array>

inline constexpr std::array<u8, 4> shift_jis_leads = {0x81, 0x9F, 0xE0, 0xFC};

constexpr bool is_single_kana(u32 byte) {
    return byte >= 0xA1 && byte <= 0xDF;
}

constexpr bool is_single_byte(u32 byte) {
    return byte <= 0x7F || is_single_kana(byte);
}

// Decodes a byte for which is_single_byte holds. The byte is used up, also when it is invalid,
// which a byte below 80 is only without its set: unmapped, it still is a character.
inline u32 decode_single_byte(session* s, u32 byte) {
    const bool kana = is_single_kana(byte);
    ++s->inPos;
    const basic_set* set =
        registered_set(kana ? PVZAN_SET_JIS_X_0201_KANA : PVZAN_SET_JIS_X_0201_LATIN);
    if (set == nullptr) {
        return stop_with(s, PVZAN_INVALID_INPUT);
    }
    const u32 ucs = map_code(set->decodeTable, byte);
    if (kana && ucs == 0) {
        return stop_with(s, PVZAN_INVALID_INPUT);
    }
    return deliver_character(s, set, byte, byte, ucs);
}

// An invalid double-byte code uses up its lead byte only: the trail byte is read again.
inline u32 refuse_double_byte(session* s) {
    ++s->inPos;
    return stop_with(s, PVZAN_INVALID_INPUT);
}
