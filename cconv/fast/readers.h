// Reads source characters for the loops: the length and the key of the one at p, and chunks of
// them.
//
// A key is the index of a character's entry: its byte or two bytes, its Unicode value or unit.
// Three bytes of EUC, a single shift and two bytes from A1 on, have keys below the lead bytes,
// which no two bytes have.
#pragma once

#include "cconv/fast/pair.h"

namespace fast {

// ---- Keys --------------------------------------------------------------------------------------

constexpr u32 pair_of_bytes(const u8* p) {
    return u32{p[0]} << 8 | p[1];
}

// 0: none.
constexpr u32 single_shift_key(const u8* p) {
    return p[1] >= 0xA1 && p[2] >= 0xA1 ? (p[1] & 0x7FU) << 8 | (p[2] & 0x7FU) : 0;
}

constexpr u32 lead_byte_key(const u8* p, u32 length) {
    return length == 1 ? p[0] : length == 2 ? pair_of_bytes(p) : single_shift_key(p);
}

constexpr u32 utf8_key(const u8* p, u32 length) {
    if (length == 3) {
        return (p[0] & 0x0FU) << 12 | (p[1] & 0x3FU) << 6 | (p[2] & 0x3FU);
    }
    return length == 2 ? (p[0] & 0x1FU) << 6 | (p[1] & 0x3FU) : p[0];
}

// Whether these are two bytes of seven bits.
constexpr u32 seven_bit_key(const u8* p) {
    return (p[0] & 0x7FU) << 7 | (p[1] & 0x7FU);
}

// ---- Readers -----------------------------------------------------------------------------------

// length() is 0 if the character is left to the rules. It looks at no more than left bytes, but may
// return a larger length. before() finds the beginning of the character that ends at p, which must
// have been converted.
struct lead_byte_reader {
    static constexpr bool scalars = false, has_states = false;
    static constexpr u32 unit_bytes = 1, usual_length = 2;
    static constexpr std::ptrdiff_t longest = 3;

    lead_byte_reader(const pair& with, u32)
        : p_(with), by_{with.leads.load(), with.plan.single_shift} {}
    [[nodiscard]] static bool is_ascii(const u8* p) { return *p < 0x80; }
    [[nodiscard]] u32 length(const u8* p, std::size_t left) const {
        const u32 length = 1U + p_.behind_lead[*p].load(std::memory_order_relaxed);
        return length == 3 && left >= 3 && single_shift_key(p) == 0 ? 0 : length;
    }
    [[nodiscard]] static u32 key(const u8* p, u32 length) { return lead_byte_key(p, length); }

    static bool reads_blocks(const kernels& k) { return k.split_codes != nullptr; }
    [[nodiscard]] chunk_read read(const u8* p, std::size_t chunks, u16* codes) const {
        return p_.kernel->split_codes(p, chunks, by_, codes);
    }
    static const u8* go_behind(const u8* p, std::span<const u16> codes) {
        for (const u16 code : codes) {
            p += code <= 0xFF ? 1 : code >= 0x8000 ? 2 : 3;
        }
        return p;
    }

private:
    const pair& p_;
    split_by by_;
};

struct utf8_reader {
    static constexpr bool scalars = true, has_states = false;
    static constexpr u32 unit_bytes = 1, usual_length = 3;
    static constexpr std::ptrdiff_t longest = 3;

    utf8_reader(const pair& with, u32) : p_(with) {}
    [[nodiscard]] static bool is_ascii(const u8* p) { return *p < 0x80; }
    [[nodiscard]] static u32 length(const u8* p, std::size_t left) {
        if (*p < 0x80) {
            return 1;
        }
        const u32 length = *p < 0xC2 ? 0 : *p < 0xE0 ? 2 : *p < 0xF0 ? 3 : 0;
        if (length == 3 && left >= 3) {
            const bool over_long = *p == 0xE0 && p[1] < 0xA0;
            return ((p[1] ^ 0x80) | (p[2] ^ 0x80)) < 0x40 && !over_long ? 3 : 0;
        }
        return length == 2 && left >= 2 && (p[1] ^ 0x80) >= 0x40 ? 0 : length;
    }
    [[nodiscard]] static u32 key(const u8* p, u32 length) { return utf8_key(p, length); }

    static bool reads_blocks(const kernels& k) { return k.decode_utf8 != nullptr; }
    [[nodiscard]] chunk_read read(const u8* p, std::size_t chunks, u16* scalars_read) const {
        return p_.kernel->decode_utf8(p, chunks, scalars_read);
    }
    static const u8* before(const u8* p) {
        do {
            --p;
        } while ((*p & 0xC0) == 0x80);
        return p;
    }
    static const u8* go_behind(const u8* p, std::span<const u16> scalars_read) {
        for (std::size_t n = scalars_read.size(); n > 0; --n) {
            do {
                ++p;
            } while ((*p & 0xC0) == 0x80);
        }
        return p;
    }

private:
    const pair& p_;
};

// Units of two or four bytes. Values beyond U+FFFF are left to the rules.
template <u32 Bytes, bool BigEndian>
struct unit_reader {
    static constexpr bool scalars = true, has_states = false;
    static constexpr u32 unit_bytes = Bytes, usual_length = Bytes;
    static constexpr std::ptrdiff_t longest = Bytes;

    unit_reader(const pair& with, u32) : p_(with) {}
    [[nodiscard]] static u32 code(const u8* p) { return load_code({p, Bytes}, BigEndian); }
    [[nodiscard]] static bool is_ascii(const u8* p) { return code(p) < 0x80; }
    [[nodiscard]] static u32 length(const u8* p, std::size_t left) {
        return Bytes == 2 || left < Bytes || code(p) < key_count ? Bytes : 0;
    }
    [[nodiscard]] static u32 key(const u8* p, u32) { return code(p) % key_count; }

    static bool reads_blocks(const kernels& k) { return Bytes == 2 || k.narrow_quads != nullptr; }
    [[nodiscard]] chunk_read read(const u8* p, std::size_t chunks, u16* units) const {
        if constexpr (Bytes == 4) {
            return p_.kernel->narrow_quads(p, chunks, units, BigEndian);
        } else {
            constexpr bool native = BigEndian == (std::endian::native == std::endian::big);
            p_.kernel->copy_units(p, units, chunks, !native);
            return {chunks * chunk_bytes / Bytes, chunks * chunk_bytes};
        }
    }
    static const u8* before(const u8* p) { return p - Bytes; }
    static const u8* go_behind(const u8* p, std::span<const u16> units) {
        return p + Bytes * units.size();
    }

private:
    const pair& p_;
};

} // namespace fast
