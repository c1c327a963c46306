// Encoding detection: byte-order mark, XML declaration, statistics, line breaks.
#pragma once

#include "platform/base.h"

extern "C" {
// 1 if the 16-bit value is a character that is likely to occur in text.
PVZAN_API u32 isUNICODE_BMP(u32 high, u32 low);
// The offset, rounded down to whole units, of the keyword "encoding" on the first line of buffer[0,
// end), in units of width bytes; 0 if there is none. A keyword at offset 0 is not found,
// deliberately: a declaration begins with other characters.
PVZAN_API i32 findEncoding(const u8* buffer, i32 end, i32 width);
}

using bytes_view = std::span<const u8>;

inline constexpr u8 escape_byte = 0x1B;

constexpr bool is_printable(u32 byte) {
    return byte >= 0x21 && byte <= 0x7E;
}
constexpr bool is_whitespace(u32 byte) {
    return byte == ' ' || byte == '\r' || byte == '\t' || byte == '\n';
}

// ---- detect_score.cpp: how well a text fits each encoding, in ten-thousandths of its units ------

struct shift_jis_score {
    u32 score = 0;
    u32 double_bytes = 0; // pairs that are characters
    u32 high_bytes = 0;   // other bytes from A0 on
};

struct utf8_score {
    u32 score = 0;
    u32 multibyte = 0; // sequences that are characters
    u32 latin1 = 0;    // those of U+00A0 to U+00FF
};

struct ordered_score {
    u32 big = 0, little = 0;
    [[nodiscard]] u32 best() const { return big > little ? big : little; }
};

u32 score_iso2022_jp(bytes_view text);
utf8_score score_utf8(bytes_view text);
u32 score_euc_jp_fix(bytes_view text);
ordered_score score_utf16(bytes_view text);
ordered_score score_ucs4(bytes_view text);
u32 score_euc_jp(bytes_view text);
shift_jis_score score_shift_jis(bytes_view text);

// ---- detect_declaration.cpp --------------------------------------------------------------------

// Looks for an XML declaration at pos, after the byte-order mark if there is one. Sets the
// request's xmlDeclared, bigEndian and encodingName; false if there is none.
bool read_declaration(pvzan_detection_request* request, i32 pos);

// ---- detect_newline.cpp ------------------------------------------------------------------------

// The most frequent line break of text, which is in the request's encoding: PVZAN_NEWLINE_..., or 0
// if there is none.
u32 find_newline_kind(const pvzan_detection_request* request, bytes_view text);
