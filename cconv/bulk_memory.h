// What the fast path remembers for a pair of charsets, and the loops that run on it.
#pragma once

#include "cconv/engine.h"

#include <atomic>
#include <bit>
#include <cstring>

// How source characters are told apart.
enum class bulk_reader : u8 {
    lead_bytes, // one or two bytes, by the lead byte
    utf8,       // one to three bytes; the scalar is the key
    unit_big,   // two-byte units
    unit_little
};

// What becomes of a run of ASCII.
enum class bulk_ascii : u8 {
    none,      // nothing that could be done at once
    same,      // one byte each, unchanged
    widen_big, // the same in two bytes each
    widen_little,
    narrow // two-byte units to single bytes
};

// The bytes written for one character, up to three, and their number; 0 is "ask the rules".
struct bulk_entry {
    u32 packed = 0;

    static constexpr u32 max_bytes = 3;
    [[nodiscard]] u32 length() const { return packed >> 24; }
    [[nodiscard]] bool known() const { return packed != 0; }

    // Stores four bytes, of which length() count.
    void store(u8* out) const {
        u32 bytes = packed;
        if constexpr (std::endian::native == std::endian::big) {
            bytes = __builtin_bswap32(bytes);
        }
        std::memcpy(out, &bytes, sizeof bytes);
    }
};

inline constexpr std::size_t bulk_codes = 0x10000;

// Line breaks where they are normalised: any of them is written as these bytes, counted as so many
// codes.
struct bulk_newline {
    u8 bytes[8];
    u32 length; // 0: the rules write them
    u32 codes;
};

// Everything that decides the bytes of a character.
struct bulk_key {
    const charset_group *source, *target;
    const rule_row *decoder, *encoder;
    u32 source_big_endian, target_big_endian;
    u32 newline; // 0: line breaks are characters like others; else 1 + newlineMode
    u32 tables;  // generation of the loaded tables

    bool operator==(const bulk_key&) const = default;
};

struct bulk_memory {
    bulk_key key;
    bulk_memory* next;
    bulk_reader reader;
    bulk_ascii ascii;
    u8 special[4]; // ASCII bytes that no run may hold; unused ones repeat the first
    u32 special_count;
    bulk_newline newline;
    // By lead byte: 0 ask the rules, 1 a character by itself, 2 with the byte behind it.
    std::atomic<u8> lead_length[256];
    std::atomic<u32> single[256];      // by byte; lead_bytes reader only
    std::atomic<u32> wide[bulk_codes]; // by two bytes, scalar or unit

    [[nodiscard]] bulk_entry single_entry(u32 byte) const {
        return {single[byte].load(std::memory_order_relaxed)};
    }
    [[nodiscard]] bulk_entry wide_entry(u32 code) const {
        return {wide[code].load(std::memory_order_relaxed)};
    }
};

// A stretch of input and output for the loops, and how far they came.
struct bulk_stretch {
    const u8 *in, *in_end;
    u8 *out, *out_end;
    u32 characters; // read
    u32 codes;      // written
};

// Runs over known characters, and stands two characters before the first that is not. Nothing is
// done when there are not that many.
void bulk_convert(const bulk_memory& memory, bulk_stretch& stretch);
