// ISO-2022-JP (RFC 1468) and ISO-2022-JP-2004 (JIS X 0213:2004, annex 2). Stateful: an escape
// sequence designates the set of the codes behind it.
//
//   1B 28 42      ESC ( B     ASCII, at the start of every text
//   1B 28 4A      ESC ( J     JIS X 0201 Roman
//   1B 24 40      ESC $ @     JIS C 6226-1978
//   1B 24 42      ESC $ B     JIS X 0208
//   1B 24 28 51   ESC $ ( Q   JIS X 0213 plane 1; ISO-2022-JP-2004 also writes JIS X 0208 with it
//   1B 24 28 50   ESC $ ( P   JIS X 0213 plane 2
//
// There are no others; katakana (ESC ( I) and JIS X 0212 (ESC $ ( D) are not part of either
// charset. One decoder and one encoder serve both: what a charset has, its definition says.
//
// Deliberate in the decoder:
// - An unknown escape sequence is reported as incomplete input. It may be a longer one that this
//   version does not know, and reading on would turn its codes into ASCII.
// - In a double-byte set, CR, TAB and LF are read as ASCII, since many writers forget to go back to
//   it at the end of a line. The set stays designated.
// - The bytes of a code are not checked; tables and writers refuse what they do not have.
// - Plane 2 holds for one character: that is how the encoder writes it. See below.
//
// Deliberate in the encoder:
// - ASCII is designated at the start too, so that texts can be joined.
// - Every JIS X 0213 character has its own escape sequence and leaves the designated set alone.
// - An escape sequence never takes the last byte of the buffer: it never stands at the end of a
//   full one.
#include "cconv/rulefunc/designations.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/rulefunc/traits.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array designations = {to_ascii,    to_roman,  to_jisc6226,
                                     to_jisx0208, to_plane1, to_plane2};

// ---- Decoding ----------------------------------------------------------------------------------

u32 deliver_ascii(session* s, u32 code) {
    s->charSetNo = PVZAN_SET_ISO_646_IRV;
    s->charSetType = PVZAN_SET_BASE;
    s->srcCode = code;
    s->setCode = code;
    ++s->inCount;
    s->status = PVZAN_DECODED;
    return 1;
}

u32 decode_designated(session* s, std::span<const u8> input, u32 plane_flag) {
    const basic_set* set = designated_set(s->srcGroup, s->srcShiftSet);
    if (set == nullptr) {
        ++s->inPos;
        return stop_with(s, PVZAN_INVALID_INPUT);
    }
    if (!is_double_byte_width(set->byteNum)) {
        ++s->inPos;
        return deliver_character(s, set, input[0], input[0], 0);
    }
    if (is_ascii_in_double_byte_text(input[0])) {
        ++s->inPos;
        return deliver_ascii(s, input[0]);
    }
    if (input.size() < 2) {
        return stop_with(s, PVZAN_INPUT_INCOMPLETE);
    }
    s->inPos += 2;
    const u32 code = load_big_endian(input.first(2)) | plane_flag;
    return deliver_character(s, set, code, code, 0);
}

// ---- Encoding ----------------------------------------------------------------------------------

// The designation for the set of the prepared code; null if neither charset has it.
const designation* designation_for(const session* s) {
    switch (s->outSetNo) {
    case PVZAN_SET_ISO_646_IRV: return &to_ascii;
    case PVZAN_SET_JIS_X_0201_LATIN: return &to_roman;
    case PVZAN_SET_JIS_C_6226_1978: return &to_jisc6226;
    case PVZAN_SET_JIS_X_0208_1990:
        return s->dstGroupNo == PVZAN_ISO_2022_JP_2004 ? &to_plane1 : &to_jisx0208;
    case PVZAN_SET_JIS_X_0213: return (s->outCode & jisx0213_plane2) != 0 ? &to_plane2 : &to_plane1;
    default: return nullptr;
    }
}

bool put_escape(session* s, const designation& d) {
    return emit_bytes(s, d.sequence(), 1);
}

// Values of dstShiftPlane.
constexpr u32 shift_plane_1 = 11;
constexpr u32 shift_plane_2 = 12;

u32 put_jisx0213(session* s) {
    const designation& wanted = *designation_for(s);
    const u32 plane = wanted.plane_flag != 0 ? shift_plane_2 : shift_plane_1;
    const i32 before = s->outPos;
    // Deliberate: dstShiftSet is not changed, so the set is never found designated, and text that
    // continues in the previous set needs no escape sequence.
    if (s->dstShiftSet != PVZAN_SET_JIS_X_0213 || s->dstShiftPlane != plane) {
        if (!put_escape(s, wanted)) {
            return 0;
        }
        s->dstShiftPlane = plane;
    }
    if (convDstPutcode(s, nullptr, nullptr) == 0) {
        s->outPos = before; // not remembered: the escape sequence is written again later
        return 0;
    }
    return 1;
}

u32 close_output(session* s) {
    if (s->outSetNo != PVZAN_SET_ISO_646_IRV && !put_escape(s, to_ascii)) {
        return 0;
    }
    return stop_with(s, PVZAN_DONE);
}

} // namespace

const designation* designation_at(std::span<const u8> input) {
    const auto* found = std::ranges::find_if(designations, [=](const designation& d) {
        return input.size() >= d.length && std::ranges::equal(input.first(d.length), d.sequence());
    });
    return found != designations.end() ? found : nullptr;
}

const basic_set* designated_set(const charset_group* group, u32 setNo) {
    for (const basic_set* set : member_sets(group)) {
        if (set->setNo == setNo &&
            (is_single_byte_width(set->byteNum) || is_double_byte_width(set->byteNum))) {
            return set;
        }
    }
    return nullptr;
}

extern "C" {

// Deliberate: plane 2 is remembered only during one call, and not reset by another escape sequence.
// The session has no room for it, and the encoder puts an escape sequence before every character of
// plane 2.
u32 destISO_2022_JP(session* s) {
    u32 plane_flag = 0;
    for (auto input = input_left(s); !input.empty(); input = input_left(s)) {
        if (input[0] != escape_byte) {
            return decode_designated(s, input, plane_flag);
        }
        const designation* d = designation_at(input);
        if (d == nullptr) {
            return stop_with(s, PVZAN_INPUT_INCOMPLETE);
        }
        s->srcShiftSet = d->setNo;
        plane_flag |= d->plane_flag;
        s->inPos += static_cast<i32>(d->length);
    }
    return stop_with(s, PVZAN_DONE);
}

u32 constISO_2022_JP(session* s) {
    if (s->status == PVZAN_TERMINATE) {
        return close_output(s);
    }
    if (convDstConvert(s) == 0) {
        return 0;
    }
    if (s->outSetNo == PVZAN_SET_JIS_X_0213) {
        return put_jisx0213(s);
    }
    if (s->outSetNo != s->dstShiftSet) {
        const designation* wanted = designation_for(s);
        if (wanted == nullptr) {
            return stop_with(s, PVZAN_UNREPRESENTABLE);
        }
        if (!put_escape(s, *wanted)) {
            return 0;
        }
        s->dstShiftSet = s->outSetNo;
    }
    return convDstPutcode(s, nullptr, nullptr);
}

u32 destISO_2022_JP_2004(session* s) {
    return destISO_2022_JP(s);
}

u32 constISO_2022_JP_2004(session* s) {
    return constISO_2022_JP(s);
}

} // extern "C"

namespace {
constexpr u32 ascii_alone[] = {PVZAN_SET_ISO_646_IRV}; // for line controls in double-byte text
}

const codec_traits iso_2022_jp_traits{
    .decode = destISO_2022_JP,
    .encode = constISO_2022_JP,
    .read = reading::escapes,
    .sets = ascii_alone,
    .designates = true,
};
const codec_traits iso_2022_jp_2004_traits{
    .decode = destISO_2022_JP_2004,
    .encode = constISO_2022_JP_2004,
    .read = reading::escapes,
    .sets = ascii_alone,
    .designates = true,
};
