// UTF-8, UTF-16, UCS-4 and UCS-2: byte-order marks, scalars and their writers.
//
//   UTF-8    00-7F | C0-DF + 1 | E0-EF + 2 | F0-F7 + 3 | F8-FB + 4 | FC-FD + 5 bytes, six bits in
//   each
//            (RFC 2279's range, read leniently; 80-BF alone stand for themselves, FE and FF are
//            skipped)
//   UTF-16   two bytes, or two times two for surrogates in either order
//   UCS-4    four bytes      UCS-2   two bytes, by the tables of the charset
//
// The decoders are lenient on purpose: they read what is there, and leave judging the text to
// the caller, who knows whether it matters.
#include "cconv/rulefunc/scanned.h"
#include "cconv/rulefunc/unicode_tags.h"

#include <array>

namespace {

constexpr u32 byte_order_mark = 0xFEFF;
constexpr u32 utf8_byte_order_mark = 0xEFBBBF;
// The result of reading one character; only done yields a value.
enum class read_result { done, incomplete };

// ---- Rules' common steps ---------------------------------------------------------------------

u32 input_incomplete(session* s, i32 position) {
    s->inPos = position;
    return stop_with(s, PVZAN_INPUT_INCOMPLETE);
}

bool big_endian_input(const session* s) {
    return s->source.srcBigEndian != 0;
}

// At the end of a conversion these encoders write nothing, not even a mark or a reference.
bool closes_output(session* s) {
    if (s->status != PVZAN_TERMINATE) {
        return false;
    }
    s->status = PVZAN_DONE;
    return true;
}

// Writes the byte-order mark if it has not been written. Its status makes the engine choose the set
// of the first character again, so nothing is lost if there was no room for the mark.
bool write_due_mark(session* s, u32 n, u32 value) {
    if (s->target.dstWriteBom == 0) {
        return true;
    }
    if (writeBOM(s, n, value) == 0) {
        return false;
    }
    s->target.dstWriteBom = 0;
    return true;
}

u32 encode_scalar(session* s, put_function put) {
    if (convDstConvert(s) == 0 || dstUCS4(s, put) == 0) {
        return 0;
    }
    return convDstPutcode(s, nullptr, put);
}

u32 written(session* s) {
    ++s->outCount;
    s->status = PVZAN_WRITTEN;
    return 1;
}

u32 put_unit(session* s, u32 code, std::size_t width) {
    std::array<u8, 4> bytes{};
    for (std::size_t i = 0; i < width; ++i) {
        const std::size_t shift = s->target.dstBigEndian != 0 ? width - 1 - i : i;
        bytes[i] = static_cast<u8>(code >> 8 * shift);
    }
    return emit_bytes(s, std::span(bytes).first(width)) ? written(s) : 0;
}

// ---- UTF-8 -----------------------------------------------------------------------------------

constexpr bool is_skipped_byte(u32 byte) {
    return byte >= 0xFE;
}

// The length of the sequence that a lead byte begins, and the value bits in that byte.
struct utf8_lead {
    std::size_t length;
    u32 bits;
};

constexpr utf8_lead classify_lead(u32 byte) {
    if (byte >= 0xFC) {
        return {6, byte & 0x01};
    }
    if (byte >= 0xF8) {
        return {5, byte & 0x03};
    }
    if (byte >= 0xF0) {
        return {4, byte & 0x07};
    }
    if (byte >= 0xE0) {
        return {3, byte & 0x0F};
    }
    if (byte >= 0xC0) {
        return {2, byte & 0x1F};
    }
    return {1, byte};
}

// Reads one character. Continuation bytes are not checked. If the input is cut, the position stays
// at the lead byte, or at the beginning if only skipped bytes were found.
read_result read_utf8(session* s, u32& c) {
    const i32 start = s->inPos;
    while (!input_left(s).empty() && is_skipped_byte(input_left(s)[0])) {
        ++s->inPos;
    }
    const std::span<const u8> input = input_left(s);
    if (input.empty()) {
        s->inPos = start;
        return read_result::incomplete;
    }
    const utf8_lead lead = classify_lead(input[0]);
    if (input.size() < lead.length) {
        return read_result::incomplete;
    }
    c = lead.bits;
    for (const u8 byte : input.subspan(1, lead.length - 1)) {
        c = c << 6 | (byte & 0x3F);
    }
    s->inPos += static_cast<i32>(lead.length);
    return read_result::done;
}

// Whether a combining mark may begin here; most lead bytes begin other characters, or none.
bool may_open_mark(std::span<const u8> input) {
    const u32 lead = input.empty() ? 0 : input[0];
    return lead == 0xCB || lead == 0xCC || lead == 0xE0 || lead == 0xE3 || lead >= 0xF0;
}

u32 put_utf8(session* s, u32 code) {
    if (code >= 0x80000000) {
        return stop_with(s, PVZAN_UNREPRESENTABLE);
    }
    if (code < 0x80) {
        const u8 byte = static_cast<u8>(code);
        return emit_bytes(s, std::span(&byte, 1)) ? written(s) : 0;
    }
    // Each byte after the lead byte has six value bits; the lead byte of n bytes starts with n one
    // bits.
    std::size_t length = 2;
    for (u32 limit = 0x800; length < 6 && code >= limit; limit <<= 5) {
        ++length;
    }
    std::array<u8, 6> bytes{};
    for (std::size_t i = length - 1; i > 0; --i) {
        bytes[i] = static_cast<u8>(0x80 | (code & 0x3F));
        code >>= 6;
    }
    bytes[0] = static_cast<u8>(0xFF00U >> length | code);
    return emit_bytes(s, std::span(bytes).first(length)) ? written(s) : 0;
}

// ---- UTF-16, UCS-4, UCS-2 --------------------------------------------------------------------

// Reads a unit of width bytes; if it is cut, the position does not change.
read_result read_unit(session* s, std::size_t width, u32& unit) {
    const std::span<const u8> input = input_left(s);
    if (input.size() < width) {
        return read_result::incomplete;
    }
    unit = load_code(input.first(width), big_endian_input(s));
    s->inPos += static_cast<i32>(width);
    return read_result::done;
}

// The order of the two halves is not checked: in reverse order they are the same character.
constexpr u32 join_surrogate_units(u32 first, u32 second) {
    return first < first_low_surrogate ? join_surrogate_pair(first, second)
                                       : join_surrogate_pair(second, first);
}

u32 put_utf16(session* s, u32 code) {
    if (code < first_supplementary) {
        return put_unit(s, code, 2);
    }
    if (code > last_scalar) {
        return stop_with(s, PVZAN_UNREPRESENTABLE);
    }
    const i32 before = s->outPos;
    if (put_unit(s, high_surrogate(code), 2) == 0) {
        return 0;
    }
    if (put_unit(s, low_surrogate(code), 2) == 0) {
        s->outPos = before; // the count of the high surrogate is not restored, deliberately
        return 0;
    }
    return 1;
}

u32 put_ucs4(session* s, u32 code) {
    return put_unit(s, code, 4);
}

u32 put_ucs2(session* s, u32 code) {
    if (s->target.charRefMode != PVZAN_CHARREF_OFF && IsWIN31J(s) == 0) {
        return ToCharRef(s, s->outCode);
    }
    return put_unit(s, code, 2);
}

// Writes characters beyond two bytes as references, if the options say so.
bool may_refer(const session* s) {
    return s->target.charRefMode != PVZAN_CHARREF_OFF && s->ucsCode >= first_supplementary &&
           s->ucsCode <= last_scalar;
}

} // namespace

extern "C" {

u32 writeBOM(session* s, u32 n, u32 value) {
    std::array<u8, 4> bytes{};
    const std::size_t length = n < bytes.size() ? n : bytes.size();
    for (std::size_t i = 0; i < length; ++i) {
        const std::size_t shift = s->target.dstBigEndian != 0 ? length - 1 - i : i;
        bytes[i] = static_cast<u8>(value >> 8 * shift);
    }
    if (!emit_bytes(s, std::span(bytes).first(length))) {
        return 0;
    }
    s->status = PVZAN_WRITTEN;
    return 1;
}

// ---- UTF-8

u32 destUTF_8(session* s) {
    if (s->source.srcCheckBom != 0) {
        const std::span<const u8> input = input_left(s);
        if (input.size() < 3) {
            return stop_with(s, PVZAN_INPUT_INCOMPLETE);
        }
        s->source.srcCheckBom = 0;
        if (load_big_endian(input.first(3)) == utf8_byte_order_mark) {
            s->inPos += 3;
            s->source.srcBigEndian = 1;
        }
    }
    if (input_left(s).empty()) {
        return stop_with(s, PVZAN_DONE);
    }
    const i32 start = s->inPos;
    u32 c = 0;
    if (read_utf8(s, c) != read_result::done) {
        return stop_with(s, PVZAN_INPUT_INCOMPLETE);
    }
    s->srcCode = c;
    const i32 behind = s->inPos;
    u32 next = 0;
    if (may_open_mark(input_left(s)) && read_utf8(s, next) == read_result::done &&
        IsJISX0213CombiningUCS(c, next) != 0) {
        s->outCode2 = next;
    } else {
        s->inPos = behind;
    }
    return srcUCS4(s, start);
}

u32 constUTF_8(session* s) {
    if (closes_output(s)) {
        return 0;
    }
    if (s->target.dstWriteBom != 0) {
        s->target.dstBigEndian = 1; // a mark in UTF-8 has only one byte order
    }
    return write_due_mark(s, 3, utf8_byte_order_mark) ? encode_scalar(s, put_utf8) : 0;
}

// ---- UTF-16

u32 destUTF_16(session* s) {
    if (s->source.srcCheckBom != 0) {
        const std::span<const u8> input = input_left(s);
        if (input.size() < 2) {
            return stop_with(s, PVZAN_INPUT_INCOMPLETE);
        }
        s->source.srcCheckBom = 0;
        // Lenient, deliberately: one of the two bytes is enough for a mark.
        if (input[0] >= 0xFE || input[1] >= 0xFE) {
            s->source.srcBigEndian = input[0] == 0xFE;
            s->inPos += 2;
        }
    }
    const i32 start = s->inPos;
    u32 first = 0;
    u32 next = 0;
    if (read_unit(s, 2, first) != read_result::done) {
        return stop_with(s, PVZAN_INPUT_INCOMPLETE);
    }
    if (is_high_surrogate(first) || is_low_surrogate(first)) {
        if (read_unit(s, 2, next) != read_result::done) {
            return input_incomplete(s, start);
        }
        s->srcCode = join_surrogate_units(first, next);
        return srcUCS4(s, start);
    }
    s->srcCode = first;
    const i32 behind = s->inPos;
    if (read_unit(s, 2, next) == read_result::done && IsJISX0213CombiningUCS(first, next) != 0) {
        s->outCode2 = next;
    } else {
        s->inPos = behind;
    }
    return srcUCS4(s, start);
}

u32 constUTF_16(session* s) {
    if (closes_output(s)) {
        return 0;
    }
    return write_due_mark(s, 2, byte_order_mark) ? encode_scalar(s, put_utf16) : 0;
}

// ---- UCS-4

u32 destISO_10646_UCS_4(session* s) {
    if (s->source.srcCheckBom != 0) {
        const std::span<const u8> input = input_left(s);
        if (input.size() < 4) {
            return stop_with(s, PVZAN_INPUT_INCOMPLETE);
        }
        s->source.srcCheckBom = 0;
        const bool big = load_big_endian(input.first(4)) == byte_order_mark;
        if (big || load_little_endian(input.first(4)) == byte_order_mark) {
            s->source.srcBigEndian = big;
            s->inPos += 4;
        }
    }
    const i32 start = s->inPos;
    if (read_unit(s, 4, s->srcCode) != read_result::done) {
        return stop_with(s, PVZAN_INPUT_INCOMPLETE);
    }
    return srcUCS4(s, start);
}

u32 constISO_10646_UCS_4(session* s) {
    if (closes_output(s)) {
        return 0;
    }
    return write_due_mark(s, 4, byte_order_mark) ? encode_scalar(s, put_ucs4) : 0;
}

// ---- UCS-2

u32 destISO_10646_UCS_2(session* s) {
    if (s->source.srcCheckBom != 0) {
        const std::span<const u8> input = input_left(s);
        if (input.size() < 2) {
            return stop_with(s, PVZAN_INPUT_INCOMPLETE);
        }
        s->source.srcCheckBom = 0;
        const bool big = load_big_endian(input.first(2)) == byte_order_mark;
        if (big || load_little_endian(input.first(2)) == byte_order_mark) {
            s->source.srcBigEndian = big;
            s->inPos += 2;
        }
    }
    if (convSrcConvert(s, nullptr) == 0) {
        return 0;
    }
    if (s->ucsCode == 0) {
        s->ucsCode = s->srcCode;
    }
    return 1;
}

u32 constISO_10646_UCS_2(session* s) {
    if (closes_output(s)) {
        return 0;
    }
    if (!write_due_mark(s, 2, byte_order_mark)) {
        return 0;
    }
    // No code was prepared if there was no room for a reference.
    const bool refer_again = s->status == PVZAN_OUTPUT_FULL && s->outBytes == 0 && may_refer(s);
    if (refer_again || convDstConvert(s) == 0) {
        return may_refer(s) ? ToCharRef(s, s->ucsCode) : 0;
    }
    if (s->ucsCode > 0xFFFF && s->status != PVZAN_OUTPUT_FULL) {
        return stop_with(s, PVZAN_UNREPRESENTABLE);
    }
    return convDstPutcode(s, nullptr, put_ucs2);
}

} // extern "C"

const codec_traits utf_8_traits{
    .decode = destUTF_8,
    .encode = constUTF_8,
    .read = reading::utf8,
    .checks_mark = true,
    .joins_marks = true,
    .writes_marks = true,
    .form = unicode_form::utf8,
};
const codec_traits utf_16_traits{
    .decode = destUTF_16,
    .encode = constUTF_16,
    .read = reading::utf16,
    .checks_mark = true,
    .joins_marks = true,
    .writes_marks = true,
    .form = unicode_form::units,
};
const codec_traits ucs_4_traits{
    .decode = destISO_10646_UCS_4,
    .encode = constISO_10646_UCS_4,
    .read = reading::ucs4,
    .checks_mark = true,
    .writes_marks = true,
    .form = unicode_form::quads,
};
const codec_traits ucs_2_traits{
    .decode = destISO_10646_UCS_2,
    .encode = constISO_10646_UCS_2,
    .read = reading::ucs2,
    .checks_mark = true,
    .writes_marks = true,
    .refers = true,
    .form = unicode_form::units,
};
