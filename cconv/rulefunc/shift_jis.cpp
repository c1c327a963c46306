// Shift_JIS (JIS X 0208:1997, annex 1) and Shift_JIS-2004 (JIS X 0213:2004, annex 1).
//
//   00-7F                      JIS X 0201 Roman
//   A1-DF                      JIS X 0201 katakana
//   81-9F E0-FC, 40-7E 80-FC   JIS X 0208 by the JIS arithmetic; in Shift_JIS-2004 JIS X 0213,
//   whose plane 2
//                              has the leads F0-FC
//
// Shift_JIS has no area of its own for leads F0-FC: they become rows behind the grid, which the
// table of JIS X 0208 lacks. One decode rule serves both; the source charset's number tells them
// apart.
#include "cconv/rulefunc/shift_jis_family.h"
#include "cconv/rulefunc/traits.h"

namespace {

constexpr bool in_grid(u32 byte) {
    return byte >= 0x21 && byte <= 0x7E;
}

constexpr bool is_plane2_row(u32 row) {
    const u32 ku = row - 0x20;
    return ku == 1 || (ku >= 3 && ku <= 5) || ku == 8 || (ku >= 12 && ku <= 15) || ku >= 78;
}

// Whether JIStoSJIS2004 accepts the code. Codes from EUC or ISO-2022-JP reach the encoder unchecked
// if the charsets share a set.
constexpr bool is_jisx0213_code(u32 code) {
    if (code <= 0xFF) {
        return true;
    }
    const u32 row = code >> 8 & 0xFF;
    return code <= (jisx0213_plane2 | 0xFFFF) && in_grid(row) && in_grid(code & 0xFF) &&
           ((code & jisx0213_plane2) == 0 || is_plane2_row(row));
}

u32 put_shift_jis_2004(session* s, u32 code) {
    if (!is_jisx0213_code(code)) {
        return stop_with(s, PVZAN_UNREPRESENTABLE);
    }
    return putCode(s, JIStoSJIS2004, nullptr, code, output_width(s));
}

u32 decode_double_byte(session* s, std::span<const u8> input) {
    if (input.size() < 2) {
        return stop_with(s, PVZAN_INPUT_INCOMPLETE);
    }
    const bool is_2004 = s->srcGroupNo == PVZAN_SHIFT_JIS_2004;
    const u32 code = load_big_endian(input.first(2));
    const u32 jis = is_2004 ? SJIStoJIS2004(code) : SJIStoJIS(code);
    const basic_set* set =
        registered_set(is_2004 ? PVZAN_SET_JIS_X_0213 : PVZAN_SET_JIS_X_0208_1990);
    if (jis == 0 || set == nullptr) {
        return refuse_double_byte(s);
    }
    u32 ucs = 0;
    s->outCode2 = 0;
    if (set->setNo != PVZAN_SET_JIS_X_0213 ||
        ConvJISX0213CombiningToUCS(jis, &ucs, &s->outCode2) == 0) {
        ucs = map_code(set->decodeTable, jis);
    }
    if (ucs == 0) {
        return refuse_double_byte(s);
    }
    s->inPos += 2;
    return deliver_character(s, set, code, jis, ucs);
}

} // namespace

extern "C" {

u32 destSHIFT_JIS(session* s) {
    const std::span<const u8> input = input_left(s);
    if (input.empty()) {
        return stop_with(s, PVZAN_DONE);
    }
    return is_single_byte(input[0]) ? decode_single_byte(s, input[0])
                                    : decode_double_byte(s, input);
}

u32 constSHIFT_JIS(session* s) {
    return convDstConvert(s) != 0 ? convDstPutcode(s, JIStoSJIS, nullptr) : 0;
}

u32 destSHIFT_JIS_2004(session* s) {
    return destSHIFT_JIS(s);
}

u32 constSHIFT_JIS_2004(session* s) {
    return convDstConvert(s) != 0 ? convDstPutcode(s, nullptr, put_shift_jis_2004) : 0;
}

} // extern "C"

namespace {
constexpr u32 consulted_sets[] = {PVZAN_SET_JIS_X_0201_LATIN, PVZAN_SET_JIS_X_0201_KANA,
                                  PVZAN_SET_JIS_X_0208_1990, PVZAN_SET_JIS_X_0213};
}

const codec_traits shift_jis_traits{
    .decode = destSHIFT_JIS,
    .encode = constSHIFT_JIS,
    .read = reading::lead_byte,
    .leads = shift_jis_leads,
    .sets = consulted_sets,
};
const codec_traits shift_jis_2004_traits{
    .decode = destSHIFT_JIS_2004,
    .encode = constSHIFT_JIS_2004,
    .read = reading::lead_byte,
    .leads = shift_jis_leads,
    .sets = consulted_sets,
};
