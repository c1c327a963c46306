// The escape sequences of the ISO-2022-JP charsets.
#pragma once

#include "cconv/registry/registry.h"

#include <array>

inline constexpr u8 escape_byte = 0x1B;

struct designation {
    u32 setNo;
    u32 plane_flag; // added to the codes
    std::size_t length;
    std::array<u8, 4> bytes;

    [[nodiscard]] constexpr std::span<const u8> sequence() const {
        return std::span(bytes).first(length);
    }
};

inline constexpr designation to_ascii{PVZAN_SET_ISO_646_IRV, 0, 3, {escape_byte, '(', 'B'}};
inline constexpr designation to_roman{PVZAN_SET_JIS_X_0201_LATIN, 0, 3, {escape_byte, '(', 'J'}};
inline constexpr designation to_jisc6226{PVZAN_SET_JIS_C_6226_1978, 0, 3, {escape_byte, '$', '@'}};
inline constexpr designation to_jisx0208{PVZAN_SET_JIS_X_0208_1990, 0, 3, {escape_byte, '$', 'B'}};
inline constexpr designation to_plane1{PVZAN_SET_JIS_X_0213, 0, 4, {escape_byte, '$', '(', 'Q'}};
inline constexpr designation to_plane2{
    PVZAN_SET_JIS_X_0213, jisx0213_plane2, 4, {escape_byte, '$', '(', 'P'}};

// Whether codes of a set can be read after a designation.
constexpr bool is_single_byte_width(u16 byteNum) {
    return byteNum == 1;
}
// The width of a set includes its plane, which is not in the text.
constexpr bool is_double_byte_width(u16 byteNum) {
    return byteNum == 2 || byteNum == 4;
}

// Characters that are read as ASCII in a double-byte set, too.
constexpr bool is_ascii_in_double_byte_text(u32 byte) {
    return byte == '\r' || byte == '\t' || byte == '\n';
}

// The designation at the beginning of the input; null if there is none, or if it is cut.
const designation* designation_at(std::span<const u8> input);

// The member set with that number; null if the charset does not have it.
const basic_set* designated_set(const charset_group* group, u32 setNo);
