// Types, constants and byte arithmetic for all rooms of the library.
#pragma once

#include "pvzan.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using i32 = std::int32_t;
using i64 = std::int64_t;

using session = pvzan_session;
using target_options = pvzan_target_options;
using source_options = pvzan_source_options;
using substitute = pvzan_substitute;
using charset_group = pvzan_charset_group;
using rule_row = pvzan_rule_row;

// Names, rule names, paths and language tags are stored NUL-terminated in buffers of this size.
inline constexpr std::size_t text_bytes = PVZAN_TEXT_BYTES;

inline constexpr u32 jisx0213_plane2 = 0x10000; // marks plane 2 in a JIS X 0213 code

// User-defined characters start here, in Unicode's private use area.
inline constexpr u32 user_defined_first = 0xE000;

// A code is at most four bytes long.
inline constexpr u32 max_code_bytes = 4;

// Copies as much of text as fits, and terminates it with a NUL.
template <std::size_t Size>
inline void copy_text(char (&out)[Size], const char* text) {
    const std::size_t length = ::strnlen(text, Size - 1);
    std::memcpy(out, text, length);
    out[length] = '\0';
}

// Converts A-Z to lower case; all other bytes are unchanged.
constexpr char fold_ascii(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline void fold_text(char* text) {
    for (; *text != '\0'; ++text) {
        *text = fold_ascii(*text);
    }
}

// Appends all of text, or nothing if it does not fit.
template <std::size_t Size>
inline bool append_text(char (&out)[Size], const char* text) {
    const std::size_t length = std::strlen(out), added = std::strlen(text);
    if (added >= Size - length) {
        return false;
    }
    std::memcpy(out + length, text, added + 1);
    return true;
}

constexpr u32 load_big_endian(std::span<const u8> bytes) {
    u32 value = 0;
    for (const u8 byte : bytes) {
        value = value << 8 | byte;
    }
    return value;
}

constexpr u32 load_little_endian(std::span<const u8> bytes) {
    u32 value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;) {
        value = value << 8 | bytes[i];
    }
    return value;
}

constexpr u32 load_code(std::span<const u8> bytes, bool big_endian) {
    return big_endian ? load_big_endian(bytes) : load_little_endian(bytes);
}
