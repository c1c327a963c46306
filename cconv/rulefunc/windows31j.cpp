// Windows-31J (code page 932): Shift_JIS with the sets of the vendors and a user-defined area.
//
//   00-7F                      JIS X 0201 Roman
//   A1-DF                      JIS X 0201 katakana
//   81-9F E0-FC, 40-7E 80-FC   by the JIS arithmetic, the first set that has the code:
//                              JIS X 0208, NEC (rows 13 and 89-92), IBM, user-defined
//
// Leads F0-FC are rows 7F-98, behind the grid: F0-F9 the user-defined rows, FA-FC the IBM rows.
#include "cconv/rulefunc/shift_jis_family.h"
#include "cconv/rulefunc/traits.h"

#include <array>

namespace {

// In order of preference: a character of the standard is never taken for a vendor's.
constexpr std::array<u32, 4> double_byte_sets = {
    PVZAN_SET_JIS_X_0208_1990,
    PVZAN_SET_NEC_EXT,
    PVZAN_SET_IBM_EXT,
    PVZAN_SET_WINDOWS_31J_USER,
};

u32 decode_double_byte(session* s, std::span<const u8> input) {
    if (input.size() < 2) {
        return stop_with(s, PVZAN_INPUT_INCOMPLETE);
    }
    const u32 code = load_big_endian(input.first(2));
    const u32 jis = SJIStoJISex(code);
    if (jis == 0) {
        return refuse_double_byte(s);
    }
    for (const u32 setNo : double_byte_sets) {
        const basic_set* set = registered_set(setNo);
        const u32 ucs = set != nullptr ? map_code(set->decodeTable, jis) : 0;
        if (ucs != 0) {
            s->inPos += 2;
            return deliver_character(s, set, code, jis, ucs);
        }
    }
    return refuse_double_byte(s);
}

// Sets whose characters all belong to Windows-31J.
constexpr bool is_windows31j_set(u32 setNo) {
    switch (setNo) {
    case PVZAN_SET_JIS_X_0201_LATIN:
    case PVZAN_SET_JIS_X_0201_KANA:
    case PVZAN_SET_JIS_X_0208_1990:
    case PVZAN_SET_NEC_EXT:
    case PVZAN_SET_IBM_EXT: return true;
    default: return false;
    }
}

constexpr bool is_private_use(u32 code) {
    return code >= user_defined_first && code <= 0xF8FF;
}

// Deliberate: one more than the 20 rows of 94 user-defined characters, so that U+E758 is written as
// itself.
constexpr bool is_windows31j_private_use(u32 code) {
    return code <= 0xE758;
}

constexpr bool is_compatibility_form(u32 code) {
    return code >= 0xFF00 && code <= 0xFFFE;
}

// Deliberate: without U+FFE3 and U+FFE4, the overline and the broken bar, which other systems
// display or map differently: a reference is safer.
constexpr bool is_windows31j_form(u32 code) {
    return (code >= 0xFF01 && code <= 0xFF5E) || (code >= 0xFF61 && code <= 0xFF9F) ||
           (code >= 0xFFE0 && code <= 0xFFE2) || code == 0xFFE5;
}

} // namespace

extern "C" {

u32 destWINDOWS31J(session* s) {
    const std::span<const u8> input = input_left(s);
    if (input.empty()) {
        return stop_with(s, PVZAN_DONE);
    }
    return is_single_byte(input[0]) ? decode_single_byte(s, input[0])
                                    : decode_double_byte(s, input);
}

u32 constWINDOWS31J(session* s) {
    return convDstConvert(s) != 0 ? convDstPutcode(s, JIStoSJISex, nullptr) : 0;
}

// Called by the UCS-2 writer, so the code to be written is a Unicode value. The ranges need no
// tables.
u32 IsWIN31J(session* s) {
    if (is_windows31j_set(s->charSetNo)) {
        return 1;
    }
    if (is_private_use(s->outCode)) {
        return is_windows31j_private_use(s->outCode) ? 1 : 0;
    }
    if (is_compatibility_form(s->outCode)) {
        return is_windows31j_form(s->outCode) ? 1 : 0;
    }
    if (s->outCode == s->subst1.code || s->outCode == s->subst2.code) {
        return 1;
    }
    for (const basic_set* set : member_sets(registered_group("windows31j"))) {
        if (set->setType != PVZAN_SET_USER_DEFINED && map_code(set->encodeTable, s->ucsCode) != 0) {
            return 1;
        }
    }
    return 0;
}

} // extern "C"

namespace {
constexpr u32 consulted_sets[] = {PVZAN_SET_JIS_X_0201_LATIN, PVZAN_SET_JIS_X_0201_KANA,
                                  PVZAN_SET_JIS_X_0208_1990,  PVZAN_SET_NEC_EXT,
                                  PVZAN_SET_IBM_EXT,          PVZAN_SET_WINDOWS_31J_USER};
}

const codec_traits windows31j_traits{
    .decode = destWINDOWS31J,
    .encode = constWINDOWS31J,
    .read = reading::lead_byte,
    .leads = shift_jis_leads,
    .sets = consulted_sets,
};
