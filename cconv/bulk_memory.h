// What the fast path remembers for a pair of charsets, and the loops that run on it.
#pragma once

#include "cconv/bulk_kernels.h"
#include "cconv/engine.h"

#include <atomic>
#include <bit>
#include <cstring>
#include <optional>

// How source characters are told apart.
enum class bulk_reader : u8 {
    lead_bytes, // one or two bytes, by the lead byte
    utf8,       // one to three bytes; the scalar is the key
    unit_big,   // two-byte units
    unit_little,
    quad_big, // four-byte units
    quad_little,
    iso2022 // one or two bytes, by the set designated last
};

// How target characters are written.
enum class bulk_writer : u8 {
    plain,       // as their bytes
    iso2022,     // their set designated before them
    iso2022_2004 // likewise, JIS X 0208 by the sequence of JIS X 0213
};

// What becomes of a run of ASCII.
enum class bulk_ascii : u8 {
    none,      // nothing that could be done at once
    same,      // one byte each, unchanged
    widen_big, // the same in two bytes each
    widen_little,
    quads_big, // in four bytes each, between Unicode charsets
    quads_little,
    narrow // units of two or four bytes to single bytes
};

// What a character of a run becomes.
constexpr ascii_unit ascii_target(bulk_ascii kind) {
    switch (kind) {
    case bulk_ascii::widen_big: return {2, true};
    case bulk_ascii::widen_little: return {2, false};
    case bulk_ascii::quads_big: return {4, true};
    case bulk_ascii::quads_little: return {4, false};
    default: return {1, false};
    }
}

// What becomes of a block of scalars, where source characters are read in blocks.
enum class bulk_blocks : u8 {
    entries, // what their entries say
    utf8,    // both charsets are Unicode: the scalars in another form
    units_big,
    units_little,
    quads_big,
    quads_little
};

// The bytes written for one character, up to three, and their number; or where among the long
// entries they stand; 0 is "ask the rules".
struct bulk_entry {
    u32 packed = 0;

    static constexpr u32 max_bytes = 3;
    static constexpr u32 one_byte = 1U << 24; // the length, as it is packed
    [[nodiscard]] u32 length() const { return packed / one_byte; }
    [[nodiscard]] bool known() const { return packed != 0; }
    // Neither unknown nor long: odd() has its highest bit clear.
    [[nodiscard]] u32 odd() const { return packed - one_byte; }
    [[nodiscard]] bool is_short() const { return packed >= one_byte; }
    [[nodiscard]] bool is_long() const { return known() && !is_short(); }
    [[nodiscard]] u32 long_index() const { return packed - 1; }
    static bulk_entry long_at(u32 index) { return {index + 1}; }

    // Stores four bytes, of which length() count.
    void store(u8* out) const {
        u32 bytes = packed;
        if constexpr (std::endian::native == std::endian::big) {
            bytes = __builtin_bswap32(bytes);
        }
        std::memcpy(out, &bytes, sizeof bytes);
    }
};

// Stores eight bytes, the lowest first.
inline void bulk_store(u8* out, u64 packed) {
    if constexpr (std::endian::native == std::endian::big) {
        packed = __builtin_bswap64(packed);
    }
    std::memcpy(out, &packed, sizeof packed);
}

// Bytes packed the same way.
constexpr u64 bulk_pack(std::span<const u8> bytes) {
    u64 packed = 0;
    for (std::size_t i = bytes.size(); i-- > 0;) {
        packed = packed << 8 | bytes[i];
    }
    return packed;
}

inline constexpr std::size_t bulk_codes = 0x10000;

// Characters written as more bytes, or as two codes. One atomic word each, so that it is there
// whole or not yet: the bytes from the lowest on, their number, the codes.
struct bulk_long_entry {
    u64 packed = 0;

    static constexpr u32 max_bytes = 6;
    [[nodiscard]] u32 length() const { return static_cast<u32>(packed >> 48 & 0xFF); }
    [[nodiscard]] u32 codes() const { return static_cast<u32>(packed >> 56); }
};
inline constexpr std::size_t bulk_long_entries = 1024;

// Line breaks where they are normalised: any of them is written as these bytes, counted as so many
// codes.
struct bulk_newline {
    u64 packed;
    u32 length; // 0: the rules write them
    u32 codes;
    u32 slot; // ISO-2022-JP output: the set that they need
};

// Everything that decides the bytes of a character.
struct bulk_key {
    void** charsets; // the registered ones, and their number
    u32 charset_count;
    const charset_group *source, *target;
    const rule_row *decoder, *encoder;
    u32 source_big_endian, target_big_endian;
    u32 newline; // 0: line breaks are characters like others; else 1 + newlineMode
    u32 tables;  // generation of the loaded tables
    u32 use_substitute;
    u32 substitutes[4]; // sets and codes, where they are used

    bool operator==(const bulk_key&) const = default;
};

// How a pair is converted.
struct bulk_plan {
    bulk_key key;
    bulk_reader reader;
    bulk_writer writer;
    bulk_blocks blocks;
};

struct bulk_memory : bulk_plan {
    bulk_memory* next;
    bulk_ascii ascii;
    u32 ascii_set;         // ISO-2022-JP output: the set that runs of ASCII need
    u8 special[max_stops]; // ASCII bytes that no run may hold; unused ones repeat the first
    u32 special_count;
    bulk_newline newline;
    const bulk_kernels* kernels;
    u16 stops[12]; // between Unicode charsets: scalars that do not stand for themselves
    u32 stop_count;
    std::atomic<u32> long_count;
    std::atomic<u64> longs[bulk_long_entries];
    // By lead byte: 0 ask the rules, 1 a character by itself, 2 with the byte behind it; 3 for the
    // single shift of EUC.
    std::atomic<u8> lead_length[256];
    std::atomic<u8> lead_rows[16];     // those of length 2, as a lead_set
    std::atomic<u32> wide[bulk_codes]; // by byte, two bytes, scalar or unit; see bulk_euc3_key

    [[nodiscard]] bulk_entry wide_entry(u32 code) const {
        return {wide[code].load(std::memory_order_relaxed)};
    }
    [[nodiscard]] bulk_long_entry long_entry(bulk_entry entry) const {
        return {longs[entry.long_index()].load(std::memory_order_relaxed)};
    }
};

// The scalar of a three-byte sequence in UTF-8.
constexpr u32 bulk_utf8_scalar(const u8* p) {
    return (p[0] & 0x0FU) << 12 | (p[1] & 0x3FU) << 6 | (p[2] & 0x3FU);
}

// Three bytes of EUC, a single shift and two from A1 on, lie where no two bytes do: below the
// leads.
inline constexpr u8 bulk_single_shift = 0x8F;
constexpr u32 bulk_euc3_key(const u8* p) {
    return p[1] >= 0xA1 && p[2] >= 0xA1 ? (p[1] & 0x7FU) << 8 | (p[2] & 0x7FU) : 0;
}

// A stretch of input and output for the loops, and how far they came.
struct bulk_stretch {
    const u8 *in, *in_end;
    u8 *out, *out_end;
    u32 characters;      // read
    u32 codes;           // written
    u32 in_set, out_set; // ISO-2022-JP: the sets designated
};

// ---- ISO-2022-JP

constexpr bool bulk_iso2022_is_double_byte(u32 setNo) {
    return setNo != PVZAN_SET_ISO_646_IRV && setNo != PVZAN_SET_JIS_X_0201_LATIN;
}

// The place of a code in the wide entries: each set has a quarter, the one-byte sets share one.
constexpr u32 bulk_iso2022_base(u32 setNo) {
    switch (setNo) {
    case PVZAN_SET_JIS_X_0208_1990: return 0;
    case PVZAN_SET_JIS_C_6226_1978: return 0x4000;
    case PVZAN_SET_JIS_X_0213: return 0x8000;
    case PVZAN_SET_ISO_646_IRV: return 0xC000;
    default: return 0xC080;
    }
}
constexpr u32 bulk_iso2022_offset(u32 code) {
    return (code >> 8 & 0x7F) << 7 | (code & 0x7F);
}
constexpr u32 bulk_iso2022_key(u32 setNo, u32 code) {
    return bulk_iso2022_base(setNo) | bulk_iso2022_offset(code);
}

// Entries for this output hold up to two bytes, and in their upper four bits which designation they
// need: a slot from 1 on.
constexpr u32 bulk_iso2022_slot(bulk_entry entry) {
    return entry.packed >> 28;
}
constexpr u32 bulk_iso2022_length(bulk_entry entry) {
    return entry.packed >> 24 & 0x0F;
}
u32 bulk_iso2022_slot_of(u32 setNo, bool is_2004);

void bulk_read_iso2022(const bulk_memory& memory, bulk_stretch& stretch);
void bulk_write_iso2022(const bulk_memory& memory, bulk_stretch& stretch);

// The plan for a session's pair and options; none where the rules alone will do.
std::optional<bulk_plan> bulk_plan_of(const session* s);
// Only charsets of the registry stay what they are.
bool bulk_is_registered(const session* s);

// A memory that knows ASCII and line breaks; null when memory is short.
bulk_memory* bulk_make_memory(const session* s, const bulk_plan& plan);

// The entry of a character that was just written: of what went out, its own bytes without the
// escape sequence before them. Unknown when they are too many, or their set has no place.
bulk_entry bulk_pack_short(const bulk_memory& memory, const session* s, std::span<const u8> bytes);
// The same for what is too long for an entry, or two codes; unknown when there is no room left.
bulk_entry bulk_pack_long(bulk_memory& memory, std::span<const u8> bytes, u32 codes);

// Scalars are the key; some of these decoders read ahead for a mark, and none learns one.
constexpr bool bulk_reads_scalars(bulk_reader reader) {
    return reader != bulk_reader::lead_bytes && reader != bulk_reader::iso2022;
}

// Runs over known characters, and stands two characters before the first that is not. Nothing is
// done when there are not that many.
void bulk_convert(const bulk_memory& memory, bulk_stretch& stretch);
