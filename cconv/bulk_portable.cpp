// Kernels for any processor, in the compiler's own vectors where they pay: SSE2, NEON and others.
#include "cconv/bulk_kernels.h"

#include <algorithm>
#include <bit>

namespace {

constexpr std::size_t vector_bytes = 16;
using byte_vector [[gnu::vector_size(vector_bytes)]] = u8;
using word_vector [[gnu::vector_size(vector_bytes)]] = u64;

byte_vector load(const u8* p) {
    byte_vector v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

bool any_bit(byte_vector v) {
    const auto words = reinterpret_cast<word_vector>(v);
    return (words[0] | words[1]) != 0;
}

bool has_stop(byte_vector bytes, std::span<const u8> stops) {
    byte_vector stop = bytes & 0x80;
    for (const u8 s : stops) {
        stop |= reinterpret_cast<byte_vector>(bytes == s);
    }
    return any_bit(stop);
}

std::size_t copy_ascii(const ascii_run& run) {
    const std::size_t size = run.in_size < run.out_size ? run.in_size : run.out_size;
    std::size_t at = 0;
    for (; at + vector_bytes <= size; at += vector_bytes) {
        const byte_vector bytes = load(run.in + at);
        if (has_stop(bytes, run.stops)) {
            break;
        }
        std::memcpy(run.out + at, &bytes, sizeof bytes);
    }
    return at;
}

template <u32 UnitBytes>
std::size_t widen(const ascii_run& run, bool big_endian) {
    const std::size_t size = std::min(run.in_size, run.out_size / UnitBytes);
    const std::size_t place = big_endian ? UnitBytes - 1 : 0; // of the byte in its unit
    std::size_t at = 0;
    for (; at + vector_bytes <= size; at += vector_bytes) {
        if (has_stop(load(run.in + at), run.stops)) {
            break;
        }
        u8* const out = run.out + UnitBytes * at;
        std::memset(out, 0, UnitBytes * vector_bytes);
        for (std::size_t i = 0; i < vector_bytes; ++i) {
            out[UnitBytes * i + place] = run.in[at + i];
        }
    }
    return at;
}

std::size_t widen_ascii(const ascii_run& run, ascii_unit target) {
    return target.bytes == 2 ? widen<2>(run, target.big_endian) : widen<4>(run, target.big_endian);
}

template <u32 UnitBytes>
std::size_t narrow(const ascii_run& run, bool big_endian) {
    const std::size_t size = std::min(run.in_size / UnitBytes, run.out_size);
    std::size_t at = 0;
    for (; at + vector_bytes <= size; at += vector_bytes) {
        u8 bytes[vector_bytes];
        u32 beyond = 0;
        for (std::size_t i = 0; i < vector_bytes; ++i) {
            const u32 value = load_code({run.in + UnitBytes * (at + i), UnitBytes}, big_endian);
            bytes[i] = static_cast<u8>(value);
            beyond |= value >> 8;
        }
        if (beyond != 0 || has_stop(load(bytes), run.stops)) {
            break;
        }
        std::memcpy(run.out + at, bytes, sizeof bytes);
    }
    return at;
}

std::size_t narrow_ascii(const ascii_run& run, ascii_unit source) {
    return source.bytes == 2 ? narrow<2>(run, source.big_endian)
                             : narrow<4>(run, source.big_endian);
}

constexpr bool is_continuation(u8 byte) {
    return (byte & 0xC0) == 0x80;
}

scalar_block decode_utf8(const u8* in, u16* scalars) {
    constexpr std::size_t longest = 3;
    scalar_block block{0, 0};
    while (block.bytes + longest <= chunk_bytes) {
        const u8* const p = in + block.bytes;
        u32 scalar = p[0];
        std::size_t length = 1;
        if (scalar >= 0x80) {
            if (scalar < 0xC0 || scalar >= 0xF0 || !is_continuation(p[1])) {
                break;
            }
            length = 2;
            scalar = (scalar & 0x1F) << 6 | (p[1] & 0x3FU);
            if (p[0] >= 0xE0) {
                if (!is_continuation(p[2])) {
                    break;
                }
                length = 3;
                scalar = (scalar & 0x3FF) << 6 | (p[2] & 0x3FU);
            }
        }
        scalars[block.scalars++] = static_cast<u16>(scalar);
        block.bytes += length;
    }
    return block;
}

std::size_t narrow_quads(const u8* in, u16* scalars, bool big_endian) {
    constexpr std::size_t quads = chunk_bytes / 4;
    u32 beyond = 0;
    for (std::size_t i = 0; i < quads; ++i) {
        const u32 quad = load_code({in + 4 * i, 4}, big_endian);
        scalars[i] = static_cast<u16>(quad);
        beyond |= quad >> 16;
    }
    return beyond == 0 ? quads : 0;
}

scalar_block split_codes(const u8* in, const lead_set& leads, u16* codes) {
    scalar_block block{0, 0};
    while (block.bytes + 2 <= chunk_bytes) {
        const u8* const p = in + block.bytes;
        const bool pair = *p >= 0x80 && (leads.rows[*p & 0xF] >> (*p >> 4 & 7) & 1) != 0;
        codes[block.scalars++] = static_cast<u16>(pair ? p[0] << 8 | p[1] : p[0]);
        block.bytes += pair ? 2 : 1;
    }
    return block;
}

std::size_t seven_bit_pairs(const u8* in, u16 base, u16* codes) {
    const auto fits = [](u8 byte) { return byte >= 0x21 && byte <= 0x7E; };
    std::size_t pairs = 0;
    for (; pairs < chunk_bytes / 2 && fits(in[2 * pairs]) && fits(in[2 * pairs + 1]); ++pairs) {
        codes[pairs] = static_cast<u16>(base | in[2 * pairs] << 7 | in[2 * pairs + 1]);
    }
    return pairs;
}

std::size_t encode_utf8(const u16* scalars, std::size_t count, u8* out) {
    const u8* const begin = out;
    for (const u16 c : std::span(scalars, count)) {
        if (c < 0x80) {
            *out++ = static_cast<u8>(c);
            continue;
        }
        if (c < 0x800) {
            *out++ = static_cast<u8>(0xC0 | c >> 6);
        } else {
            *out++ = static_cast<u8>(0xE0 | c >> 12);
            *out++ = static_cast<u8>(0x80 | (c >> 6 & 0x3F));
        }
        *out++ = static_cast<u8>(0x80 | (c & 0x3F));
    }
    return static_cast<std::size_t>(out - begin);
}

void copy_units(const void* in, void* out, bool swap) {
    u16 units[chunk_bytes / 2];
    std::memcpy(units, in, sizeof units);
    for (u16& unit : units) {
        unit = swap ? __builtin_bswap16(unit) : unit;
    }
    std::memcpy(out, units, sizeof units);
}

void put_quads(const u16* scalars, std::size_t count, u8* out, bool big_endian) {
    const bool swap = big_endian != (std::endian::native == std::endian::big);
    for (std::size_t i = 0; i < count; ++i) {
        const u32 quad = swap ? __builtin_bswap32(scalars[i]) : u32{scalars[i]};
        std::memcpy(out + 4 * i, &quad, sizeof quad);
    }
}

std::size_t plain_scalars(const u16* scalars, std::size_t count, std::span<const u16> stops) {
    using unit_vector [[gnu::vector_size(vector_bytes)]] = u16;
    const auto is_stop = [=](u16 c) {
        bool stop = (c & 0xF800) == 0xD800;
        for (const u16 s : stops) {
            stop = stop || c == s;
        }
        return stop;
    };
    constexpr std::size_t step = vector_bytes / 2;
    for (std::size_t at = 0; at < count; at += step) {
        unit_vector units;
        std::memcpy(&units, scalars + at, sizeof units);
        auto stop = (units & 0xF800) == 0xD800;
        for (const u16 s : stops) {
            stop |= units == s;
        }
        if (any_bit(reinterpret_cast<byte_vector>(stop))) {
            while (at < count && !is_stop(scalars[at])) {
                ++at;
            }
            return at;
        }
    }
    return count;
}

} // namespace

const bulk_kernels bulk_kernels_portable = {
    copy_ascii,  widen_ascii, narrow_ascii, decode_utf8,   narrow_quads,   split_codes,
    encode_utf8, copy_units,  put_quads,    plain_scalars, seven_bit_pairs};
