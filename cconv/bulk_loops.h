// What the loops of the fast path share: runs of ASCII, and the readers of source characters.
#pragma once

#include "cconv/bulk_memory.h"

#include <iterator>

#if defined(__SSE2__) && !defined(PVZAN_PORTABLE)
#define PVZAN_BULK_SSE2
#include <emmintrin.h>
#endif

// Bytes that a step may touch behind the position: a vector of input, and what it becomes.
inline constexpr std::ptrdiff_t in_margin = 16;
inline constexpr std::ptrdiff_t out_margin = 32;

// What one character takes and gives.
struct step {
    u32 in = 0, characters = 1;
    u32 out = 0, codes = 1;
    u64 bytes = 0; // packed; not filled in for short entries
    [[nodiscard]] bool known() const { return in != 0; }
};

// Bytes behind the output position that a block may touch.
inline constexpr std::ptrdiff_t block_out_margin = 4 * block_scalars + kernel_margin;

struct block_written {
    std::size_t characters, bytes;
};

// Writes what the entries say, up to the first that is not short. There is no branch on each of
// them: all are written, and those in vain overwritten later.
block_written bulk_put_entries(const bulk_memory& memory, const u16* codes, std::size_t count,
                               u8* q);

constexpr bool is_line_break(u32 c) {
    return c == '\r' || c == '\n';
}

// ---- Runs of ASCII -----------------------------------------------------------------------------

struct ascii_vector;
template <bulk_ascii Kind>
std::size_t long_run(const ascii_vector& vector, const u8* p, const u8* in_stop, u8* q,
                     const u8* out_stop);

#if defined(PVZAN_BULK_SSE2)

struct ascii_vector {
    explicit ascii_vector(const bulk_memory& memory)
        : kernels(memory.kernels), stops_at(memory.special, memory.special_count) {
        for (std::size_t i = 0; i < std::size(special); ++i) {
            special[i] = _mm_set1_epi8(static_cast<char>(memory.special[i]));
        }
        any_special = memory.special_count != 0;
    }

    static __m128i load(const u8* p) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    }
    static void store(u8* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

    // Bit i: byte i is no ASCII, or one that no run may hold.
    [[nodiscard]] u32 stops(__m128i bytes) const {
        __m128i stop = bytes;
        if (any_special) {
            for (const __m128i& s : special) {
                stop = _mm_or_si128(stop, _mm_cmpeq_epi8(bytes, s));
            }
        }
        return static_cast<u32>(_mm_movemask_epi8(stop));
    }

    const bulk_kernels* kernels;
    std::span<const u8> stops_at;
    __m128i special[max_stops];
    bool any_special;
};

// The same for two-byte units that become single bytes, eight at a time.
template <bool BigEndian>
std::size_t narrow_ascii(const ascii_vector& vector, const u8* p, const u8* in_stop, u8*& q,
                         const u8* out_stop) {
    const u8* const begin = p;
    const __m128i high = _mm_set1_epi16(static_cast<short>(0xFF80));
    while (p < in_stop && q < out_stop) {
        __m128i units = ascii_vector::load(p);
        if constexpr (BigEndian) {
            units = _mm_or_si128(_mm_slli_epi16(units, 8), _mm_srli_epi16(units, 8));
        }
        const __m128i beyond = _mm_and_si128(units, high);
        const __m128i ascii = _mm_cmpeq_epi16(beyond, _mm_setzero_si128());
        const __m128i bytes = _mm_packus_epi16(_mm_and_si128(units, ascii), beyond);
        const u32 wide = ~static_cast<u32>(_mm_movemask_epi8(_mm_packs_epi16(ascii, ascii)));
        const u32 stops = (vector.stops(bytes) | wide | 0x100U) & 0x1FFU;
        ascii_vector::store(q, bytes);
        const auto length = static_cast<std::size_t>(std::countr_zero(stops));
        p += 2 * length;
        q += length;
        if (length < 8) {
            break;
        }
        if (p == begin + 16 && p < in_stop && q < out_stop) {
            const std::size_t n = vector.kernels->narrow_ascii(
                {p, static_cast<std::size_t>(in_stop - p), q,
                 static_cast<std::size_t>(out_stop - q), vector.stops_at},
                {2, BigEndian});
            p += 2 * n;
            q += n;
        }
    }
    return static_cast<std::size_t>(p - begin) / 2;
}

// Copies the ASCII that p begins with, up to 16 bytes at a time; returns its length. The output
// position moves along.
template <bulk_ascii Kind>
std::size_t copy_ascii(const ascii_vector& vector, const u8* p, const u8* in_stop, u8*& q,
                       const u8* out_stop) {
    const u8* const begin = p;
    while (p < in_stop && q < out_stop) {
        const __m128i bytes = ascii_vector::load(p);
        const u32 stops = vector.stops(bytes);
        if constexpr (Kind == bulk_ascii::same) {
            ascii_vector::store(q, bytes);
        } else {
            const __m128i zero = _mm_setzero_si128();
            const bool big = Kind == bulk_ascii::widen_big;
            ascii_vector::store(q, big ? _mm_unpacklo_epi8(zero, bytes)
                                       : _mm_unpacklo_epi8(bytes, zero));
            ascii_vector::store(q + 16, big ? _mm_unpackhi_epi8(zero, bytes)
                                            : _mm_unpackhi_epi8(bytes, zero));
        }
        const auto length =
            stops == 0 ? std::size_t{16} : static_cast<std::size_t>(std::countr_zero(stops));
        p += length;
        q += ascii_target(Kind).bytes * length;
        if (length < 16) {
            break;
        }
        if (p == begin + 16) {
            const std::size_t n = long_run<Kind>(vector, p, in_stop, q, out_stop);
            p += n;
            q += ascii_target(Kind).bytes * n;
        }
    }
    return static_cast<std::size_t>(p - begin);
}

#else

struct ascii_vector {
    explicit ascii_vector(const bulk_memory& m)
        : memory(m), kernels(m.kernels), stops_at(m.special, m.special_count) {}
    const bulk_memory& memory;
    const bulk_kernels* kernels;
    std::span<const u8> stops_at;
};

template <bulk_ascii Kind>
std::size_t copy_ascii(const ascii_vector& vector, const u8* p, const u8* in_stop, u8*& q,
                       const u8* out_stop) {
    const u8* const begin = p;
    const auto stops = [&](u8 byte) {
        bool special = byte >= 0x80;
        for (u32 i = 0; i < vector.memory.special_count; ++i) {
            special = special || byte == vector.memory.special[i];
        }
        return special;
    };
    const std::size_t n = long_run<Kind>(vector, p, in_stop, q, out_stop);
    p += n;
    q += ascii_target(Kind).bytes * n;
    for (; p < in_stop && q < out_stop && !stops(*p); ++p) {
        if constexpr (Kind == bulk_ascii::widen_big) {
            *q++ = 0;
        }
        *q++ = *p;
        if constexpr (Kind == bulk_ascii::widen_little) {
            *q++ = 0;
        }
    }
    return static_cast<std::size_t>(p - begin);
}

// What remains of a run after this the entries do.
template <bool BigEndian>
std::size_t narrow_ascii(const ascii_vector& vector, const u8* p, const u8* in_stop, u8*& q,
                         const u8* out_stop) {
    const std::size_t n =
        vector.kernels->narrow_ascii({p, static_cast<std::size_t>(in_stop - p), q,
                                      static_cast<std::size_t>(out_stop - q), vector.stops_at},
                                     {2, BigEndian});
    q += n;
    return n;
}

#endif

// A run that fills a vector is probably long: the processor's own kernel goes on with it.
template <bulk_ascii Kind>
std::size_t long_run(const ascii_vector& vector, const u8* p, const u8* in_stop, u8* q,
                     const u8* out_stop) {
    if (p >= in_stop || q >= out_stop) {
        return 0;
    }
    const ascii_run run{p, static_cast<std::size_t>(in_stop - p), q,
                        static_cast<std::size_t>(out_stop - q), vector.stops_at};
    if constexpr (Kind == bulk_ascii::same) {
        return vector.kernels->copy_ascii(run);
    } else {
        return vector.kernels->widen_ascii(run, ascii_target(Kind));
    }
}

// With units of four bytes only whole vectors pay: blocks do what remains of a run.
template <bulk_ascii Kind>
std::size_t widen_to_quads(const ascii_vector& vector, const u8* p, const u8* in_stop, u8*& q,
                           const u8* out_stop) {
    const std::size_t n = long_run<Kind>(vector, p, in_stop, q, out_stop);
    q += ascii_target(Kind).bytes * n;
    return n;
}
template <bool BigEndian>
std::size_t narrow_quads(const ascii_vector& vector, const u8* p, const u8* in_stop, u8*& q,
                         const u8* out_stop) {
    const std::size_t n =
        vector.kernels->narrow_ascii({p, static_cast<std::size_t>(in_stop - p), q,
                                      static_cast<std::size_t>(out_stop - q), vector.stops_at},
                                     {4, BigEndian});
    q += n;
    return n;
}

// ---- Readers -----------------------------------------------------------------------------------

// Each reader tells the length of the character at p by its lead byte, 0 for "ask the rules", and
// its entry. chunk() reads the characters of a chunk that are alike, double-byte ones or scalars,
// by their wide entries; before() and behind() find their way among these.
struct lead_byte_reader {
    explicit lead_byte_reader(const bulk_memory& m) : memory(m) {
        for (std::size_t i = 0; i < std::size(leads.rows); ++i) {
            leads.rows[i] = m.lead_rows[i].load(std::memory_order_relaxed);
        }
    }
    const bulk_memory& memory;
    lead_set leads;

    [[nodiscard]] u32 length(const u8* p) const {
        return memory.lead_length[*p].load(std::memory_order_relaxed);
    }
    [[nodiscard]] bulk_entry entry(const u8* p, u32 length) const {
        if (length == 3) {
            const u32 key = bulk_euc3_key(p);
            return key != 0 ? memory.wide_entry(key) : bulk_entry{};
        }
        return memory.wide_entry(length == 2 ? u32{p[0]} << 8 | p[1] : p[0]);
    }
    [[nodiscard]] u32 code(const u8* p) const { return p[0]; }
    static constexpr u32 unit_bytes = 1, usual_length = 2;

    static bool may_open_chunk(u32 length) { return length != 3; } // single shifts go alone
    static constexpr std::size_t full_chunk = 1;
    // Short runs of ASCII go with blocks.
    static bool may_open_run(const u8* begin, const u8* end, std::size_t n) {
        return static_cast<std::size_t>(end - begin) == n;
    }
    [[nodiscard]] u32 scalar(const u8* p, u32) const { return code(p); }
    [[nodiscard]] scalar_block chunk(const u8* p, u16* codes) const {
        return memory.kernels->split_codes(p, leads, codes);
    }
    static const u8* before(const u8* p, u16 code) { return p - length_of(code); }
    static const u8* behind(const u8* p, std::span<const u16> codes) {
        for (const u16 code : codes) {
            p += length_of(code);
        }
        return p;
    }
    static std::ptrdiff_t length_of(u16 code) { return code > 0xFF ? 2 : 1; }

    template <bulk_ascii Kind>
    static std::size_t ascii_run(const ascii_vector& vector, const u8* p, const u8* in_stop, u8*& q,
                                 const u8* out_stop) {
        return copy_ascii<Kind>(vector, p, in_stop, q, out_stop);
    }
};

// Continuation bytes are not checked: the decode rule does not, either, and reads the same scalar.
struct utf8_reader {
    const bulk_memory& memory;

    [[nodiscard]] u32 length(const u8* p) const {
        if (*p >= 0xE0) {
            return *p < 0xF0 ? 3 : 0;
        }
        if (*p >= 0xC0) {
            return 2;
        }
        return *p < 0x80 ? 1 : 0;
    }
    [[nodiscard]] static u32 scalar(const u8* p, u32 length) {
        if (length == 3) {
            return bulk_utf8_scalar(p);
        }
        return length == 2 ? (p[0] & 0x1FU) << 6 | (p[1] & 0x3FU) : p[0];
    }
    [[nodiscard]] bulk_entry entry(const u8* p, u32 length) const {
        return memory.wide_entry(scalar(p, length));
    }
    [[nodiscard]] u32 code(const u8* p) const { return p[0]; }
    static constexpr u32 unit_bytes = 1, usual_length = 3;

    static bool may_open_chunk(u32) { return true; }
    static constexpr std::size_t full_chunk = 1;
    // Short runs of ASCII go with blocks.
    static bool may_open_run(const u8* begin, const u8* end, std::size_t n) {
        return static_cast<std::size_t>(end - begin) == n;
    }
    [[nodiscard]] scalar_block chunk(const u8* p, u16* scalars) const {
        return memory.kernels->decode_utf8(p, scalars);
    }
    static const u8* before(const u8* p, u16) {
        do {
            --p;
        } while ((*p & 0xC0) == 0x80);
        return p;
    }
    static const u8* behind(const u8* p, std::span<const u16> scalars) {
        for (std::size_t n = scalars.size(); n > 0; --n) {
            do {
                ++p;
            } while ((*p & 0xC0) == 0x80);
        }
        return p;
    }

    template <bulk_ascii Kind>
    static std::size_t ascii_run(const ascii_vector& vector, const u8* p, const u8* in_stop, u8*& q,
                                 const u8* out_stop) {
        if constexpr (ascii_target(Kind).bytes == 4) {
            return widen_to_quads<Kind>(vector, p, in_stop, q, out_stop);
        } else {
            return copy_ascii<Kind>(vector, p, in_stop, q, out_stop);
        }
    }
};

template <bool BigEndian>
struct unit_reader {
    const bulk_memory& memory;

    [[nodiscard]] u32 length(const u8*) const { return 2; }
    [[nodiscard]] u32 scalar(const u8* p, u32) const { return code(p); }
    [[nodiscard]] bulk_entry entry(const u8* p, u32) const { return memory.wide_entry(code(p)); }
    [[nodiscard]] u32 code(const u8* p) const {
        return BigEndian ? u32{p[0]} << 8 | p[1] : u32{p[1]} << 8 | p[0];
    }
    static constexpr u32 unit_bytes = 2, usual_length = 2;

    static bool may_open_chunk(u32) { return true; }
    static constexpr std::size_t full_chunk = chunk_bytes;
    static bool may_open_run(const u8*, const u8* end, std::size_t) {
        return (BigEndian ? end[-2] == 0 && end[-1] < 0x80 : end[-1] == 0 && end[-2] < 0x80);
    }
    [[nodiscard]] scalar_block chunk(const u8* p, u16* scalars) const {
        memory.kernels->copy_units(p, scalars,
                                   BigEndian != (std::endian::native == std::endian::big));
        return {chunk_bytes / unit_bytes, chunk_bytes};
    }
    static const u8* before(const u8* p, u16) { return p - unit_bytes; }
    static const u8* behind(const u8* p, std::span<const u16> units) {
        return p + unit_bytes * units.size();
    }

    template <bulk_ascii Kind>
    static std::size_t ascii_run(const ascii_vector& vector, const u8* p, const u8* in_stop, u8*& q,
                                 const u8* out_stop) {
        return narrow_ascii<BigEndian>(vector, p, in_stop, q, out_stop);
    }
};

// Scalars beyond U+FFFF are the rules'.
template <bool BigEndian>
struct quad_reader {
    const bulk_memory& memory;

    [[nodiscard]] u32 length(const u8* p) const { return code(p) < bulk_codes ? 4 : 0; }
    [[nodiscard]] u32 scalar(const u8* p, u32) const { return code(p); }
    [[nodiscard]] bulk_entry entry(const u8* p, u32) const {
        return memory.wide_entry(code(p) % bulk_codes);
    }
    [[nodiscard]] u32 code(const u8* p) const {
        return BigEndian ? load_big_endian({p, 4}) : load_little_endian({p, 4});
    }
    static constexpr u32 unit_bytes = 4, usual_length = 4;

    static bool may_open_chunk(u32) { return true; }
    static constexpr std::size_t full_chunk = chunk_bytes;
    static bool may_open_run(const u8*, const u8* end, std::size_t) {
        return BigEndian ? load_big_endian({end - 4, 4}) < 0x80
                         : load_little_endian({end - 4, 4}) < 0x80;
    }
    [[nodiscard]] scalar_block chunk(const u8* p, u16* scalars) const {
        const std::size_t n = memory.kernels->narrow_quads(p, scalars, BigEndian);
        return {n, n * unit_bytes};
    }
    static const u8* before(const u8* p, u16) { return p - unit_bytes; }
    static const u8* behind(const u8* p, std::span<const u16> units) {
        return p + unit_bytes * units.size();
    }

    template <bulk_ascii Kind>
    static std::size_t ascii_run(const ascii_vector& vector, const u8* p, const u8* in_stop, u8*& q,
                                 const u8* out_stop) {
        return narrow_quads<BigEndian>(vector, p, in_stop, q, out_stop);
    }
};
