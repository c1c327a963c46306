// EUC-JP, EUC-JIS-2004 and the fixed-width EUC-JP-FIX.
//
//                    EUC-JP          EUC-JIS-2004
//   00-7E            ASCII           ASCII
//   A0-FF A0-FF      JIS X 0208      JIS X 0213 plane 1
//   8E A0-FF         JIS X 0201 katakana (single shift 2)
//   8F A0-FF A0-FF   JIS X 0212      JIS X 0213 plane 2 (single shift 3)
//
//                    EUC-JP-FIX, always two bytes
//   00 00-7E         ASCII
//   00 A0-FF         JIS X 0201 katakana
//   A0-FF A0-FF      JIS X 0208
//   A0-FF 21-7E      JIS X 0212
//
// Deliberate: DEL and the control codes 80-8D, 90-9F are invalid, since in practice they are
// damage; and bytes A0 and FF, which no set has, are left to the tables to refuse. An invalid
// character uses up one byte, so that reading comes back into step after a lost one.
//
// The Unicode value is left to the encoder, which often needs none.
#include "cconv/rulefunc/member_set.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/rulefunc/traits.h"

#include <algorithm>
#include <array>

namespace {

constexpr u8 high_bit = 0x80;
constexpr u8 single_shift_2 = 0x8E;
constexpr u8 single_shift_3 = 0x8F;

constexpr bool is_ascii(u32 byte) {
    return byte <= 0x7E;
}

constexpr bool is_high(u32 byte) {
    return byte >= 0xA0;
}

constexpr bool is_fixed_jisx0212_trail(u32 byte) {
    return byte >= 0x21 && byte <= 0x7E;
}

// The rows after JIS X 0208, which the Shift_JIS arithmetic uses for user-defined characters.
constexpr bool is_user_defined_row(u32 row) {
    return row >= 0x7F && row <= 0x92;
}

constexpr u32 row_of(u32 code) {
    return code >> 8 & 0xFF;
}

constexpr u8 cell_of(u32 code) {
    return static_cast<u8>(code);
}

constexpr u8 with_high_bit(u32 byte) {
    return static_cast<u8>(byte | high_bit);
}

// ---- Decoding ----------------------------------------------------------------------------------

enum class form { whole, cut, invalid };

struct euc_character {
    form what;
    u32 setNo = 0, code = 0;
    i32 length = 0;
};

constexpr euc_character cut_character{form::cut};
constexpr euc_character invalid_character{form::invalid};

euc_character whole_character(u32 setNo, u32 code, i32 length) {
    return {form::whole, setNo, code, length};
}

// Reads the bytes after a single shift, or those of a double-byte code. All must be there before
// any is checked.
bool all_high(std::span<const u8> bytes) {
    return std::ranges::all_of(bytes, is_high);
}

euc_character parse_euc(std::span<const u8> input, u32 ss3Set) {
    const u8 lead = input[0];
    if (is_ascii(lead)) {
        return whole_character(PVZAN_SET_ISO_646_IRV, lead, 1);
    }
    if (lead != single_shift_2 && lead != single_shift_3 && !is_high(lead)) {
        return invalid_character;
    }
    const bool is_2004 = ss3Set == PVZAN_SET_JIS_X_0213;
    const std::size_t length = lead == single_shift_3 ? 3 : 2;
    if (input.size() < length) {
        return cut_character;
    }
    if (!all_high(input.subspan(1, length - 1))) {
        return invalid_character;
    }
    if (lead == single_shift_2) {
        return whole_character(PVZAN_SET_JIS_X_0201_KANA, input[1], 2);
    }
    if (lead == single_shift_3) {
        const u32 code = load_big_endian(input.subspan(1, 2)) & 0x7F7F;
        return whole_character(ss3Set, is_2004 ? code | jisx0213_plane2 : code, 3);
    }
    return whole_character(is_2004 ? PVZAN_SET_JIS_X_0213 : PVZAN_SET_JIS_X_0208_1990,
                           load_big_endian(input.first(2)) & 0x7F7F, 2);
}

euc_character parse_euc_fix(std::span<const u8> input) {
    if (input.size() < 2) {
        return cut_character;
    }
    const u8 first = input[0], second = input[1];
    const u32 code = load_big_endian(input.first(2));
    if (first == 0x00 && is_high(second)) {
        return whole_character(PVZAN_SET_JIS_X_0201_KANA, second, 2);
    }
    if (first == 0x00 && is_ascii(second)) {
        return whole_character(PVZAN_SET_ISO_646_IRV, second, 2);
    }
    if (is_high(first) && is_high(second)) {
        return whole_character(PVZAN_SET_JIS_X_0208_1990, code & 0x7F7F, 2);
    }
    if (is_high(first) && is_fixed_jisx0212_trail(second)) {
        return whole_character(PVZAN_SET_JIS_X_0212_1990, code & 0x7FFF, 2);
    }
    return invalid_character;
}

u32 refuse(session* s) {
    ++s->inPos;
    return stop_with(s, PVZAN_INVALID_INPUT);
}

u32 deliver(session* s, const euc_character& character) {
    switch (character.what) {
    case form::cut: return stop_with(s, PVZAN_INPUT_INCOMPLETE);
    case form::invalid: return refuse(s);
    case form::whole: break;
    }
    // Set before the charset is searched for the set, so that a refused character can be reported.
    s->charSetNo = character.setNo;
    s->srcCode = character.code;
    const basic_set* set = member_set(s->srcGroup, character.setNo);
    if (set == nullptr) {
        return refuse(s);
    }
    s->inPos += character.length;
    return deliver_character(s, set, character.code, character.code, 0);
}

// ---- Encoding ----------------------------------------------------------------------------------

struct euc_bytes {
    std::array<u8, 3> bytes{};
    std::size_t length = 0; // 0: the code has no such form
};

euc_bytes double_byte_form(u32 code) {
    return {{with_high_bit(row_of(code)), with_high_bit(cell_of(code))}, 2};
}

euc_bytes single_shift_3_form(u32 code) {
    return {{single_shift_3, with_high_bit(row_of(code)), with_high_bit(cell_of(code))}, 3};
}

// User-defined characters come from the sets of Windows-31J. In EUC their rows would collide with
// bytes that mean something else.
euc_bytes jisx0208_form(u32 code) {
    return is_user_defined_row(row_of(code)) ? euc_bytes{} : double_byte_form(code);
}

euc_bytes euc_form(u32 setNo, u32 code) {
    switch (setNo) {
    case PVZAN_SET_ISO_646_IRV: return {{cell_of(code)}, 1};
    case PVZAN_SET_JIS_X_0201_KANA: return {{single_shift_2, cell_of(code)}, 2};
    case PVZAN_SET_JIS_X_0208_1990: return jisx0208_form(code);
    case PVZAN_SET_JIS_X_0212_1990: return single_shift_3_form(code);
    case PVZAN_SET_JIS_X_0213:
        return (code & jisx0213_plane2) != 0 ? single_shift_3_form(code) : double_byte_form(code);
    default: return {};
    }
}

euc_bytes euc_fix_form(u32 setNo, u32 code) {
    switch (setNo) {
    case PVZAN_SET_ISO_646_IRV:
    case PVZAN_SET_JIS_X_0201_KANA: return {{0x00, cell_of(code)}, 2};
    case PVZAN_SET_JIS_X_0208_1990: return jisx0208_form(code);
    case PVZAN_SET_JIS_X_0212_1990: return {{with_high_bit(row_of(code)), cell_of(code)}, 2};
    default: return {};
    }
}

u32 put_form(session* s, const euc_bytes& out, i64 spare) {
    if (out.length == 0) {
        return stop_with(s, PVZAN_UNREPRESENTABLE);
    }
    if (!emit_bytes(s, std::span(out.bytes).first(out.length), spare)) {
        return 0;
    }
    ++s->outCount;
    s->status = PVZAN_WRITTEN;
    return 1;
}

// Deliberate: the variable-width writer never uses the last byte of the buffer, so that a caller
// can terminate the text with a NUL.
u32 put_euc(session* s, u32 code) {
    return put_form(s, euc_form(s->outSetNo, code), 1);
}

// Deliberate: fixed-width text is not terminated by one byte, so this writer uses the whole buffer.
u32 put_euc_fix(session* s, u32 code) {
    return put_form(s, euc_fix_form(s->outSetNo, code), 0);
}

} // namespace

extern "C" {

u32 euc_jp_reader(session* s, u32 ss3Set) {
    const std::span<const u8> input = input_left(s);
    return input.empty() ? stop_with(s, PVZAN_DONE) : deliver(s, parse_euc(input, ss3Set));
}

u32 destEUC_JP(session* s) {
    return euc_jp_reader(s, PVZAN_SET_JIS_X_0212_1990);
}

u32 constEUC_JP(session* s) {
    return convDstConvert(s) != 0 ? convDstPutcode(s, nullptr, put_euc) : 0;
}

u32 destEUC_JIS_2004(session* s) {
    return euc_jp_reader(s, PVZAN_SET_JIS_X_0213);
}

u32 constEUC_JIS_2004(session* s) {
    return constEUC_JP(s);
}

u32 destEUC_JP_FIX(session* s) {
    const std::span<const u8> input = input_left(s);
    return input.empty() ? stop_with(s, PVZAN_DONE) : deliver(s, parse_euc_fix(input));
}

u32 constEUC_JP_FIX(session* s) {
    return convDstConvert(s) != 0 ? convDstPutcode(s, nullptr, put_euc_fix) : 0;
}

} // extern "C"

const codec_traits euc_jp_traits{
    .decode = destEUC_JP,
    .encode = constEUC_JP,
    .read = reading::lead_byte,
    .single_shift = single_shift_3,
    .leads = {single_shift_2, single_shift_3, 0xA1, 0xFE},
    .spare = 1,
};
const codec_traits euc_jis_2004_traits{
    .decode = destEUC_JIS_2004,
    .encode = constEUC_JIS_2004,
    .read = reading::lead_byte,
    .single_shift = single_shift_3,
    .leads = {single_shift_2, single_shift_3, 0xA1, 0xFE},
    .spare = 1,
};
const codec_traits euc_jp_fix_traits{
    .decode = destEUC_JP_FIX, .encode = constEUC_JP_FIX, .read = reading::pairs};
