// Kernels for any processor, in the compiler's own vectors where they pay: SSE2, NEON and others.
#include "cconv/fast/kernels/kernels.h"

#include <algorithm>
#include <bit>

namespace fast {

namespace {

constexpr std::size_t step = 8; // characters looked at together

// How many of the bytes the run may begin with.
std::size_t plain_bytes(const u8* p, std::size_t count, const byte_set& plain) {
    std::size_t at = 0;
    while (at < count && p[at] < 0x80 && plain.has(p[at])) {
        ++at;
    }
    return at;
}

bool all_plain(const u8* p, const byte_set& plain) {
    u64 word;
    std::memcpy(&word, p, sizeof word);
    bool all = (word & 0x8080808080808080) == 0;
    for (std::size_t i = 0; i < step; ++i) {
        all &= plain.has(p[i]);
    }
    return all;
}

std::size_t copy_ascii(const ascii_run& run) {
    const byte_set plain = run.plain; // nothing is stored into this one, for all the compiler knows
    const std::size_t size = std::min(run.in_size, run.out_size);
    std::size_t at = 0;
    for (; at + step <= size && all_plain(run.in + at, plain); at += step) {
        std::memcpy(run.out + at, run.in + at, step);
    }
    const std::size_t rest = plain_bytes(run.in + at, std::min(size - at, step), plain);
    std::memcpy(run.out + at, run.in + at, rest);
    return at + rest;
}

template <u32 UnitBytes>
std::size_t widen(const ascii_run& run, bool big_endian) {
    const byte_set plain = run.plain;
    const std::size_t size = std::min(run.in_size, run.out_size / UnitBytes);
    const std::size_t place = big_endian ? UnitBytes - 1 : 0; // of the byte in its unit
    std::size_t at = 0;
    while (at < size) {
        const std::size_t n = at + step <= size && all_plain(run.in + at, plain)
                                  ? step
                                  : plain_bytes(run.in + at, std::min(size - at, step), plain);
        u8* const out = run.out + UnitBytes * at;
        std::memset(out, 0, UnitBytes * n);
        for (std::size_t i = 0; i < n; ++i) {
            out[UnitBytes * i + place] = run.in[at + i];
        }
        at += n;
        if (n < step) {
            break;
        }
    }
    return at;
}

std::size_t widen_ascii(const ascii_run& run, ascii_unit target) {
    return target.bytes == 2 ? widen<2>(run, target.big_endian) : widen<4>(run, target.big_endian);
}

template <u32 UnitBytes>
std::size_t narrow(const ascii_run& run, bool big_endian) {
    const byte_set plain = run.plain;
    const std::size_t size = std::min(run.in_size / UnitBytes, run.out_size);
    for (std::size_t at = 0; at < size; ++at) {
        const u32 value = load_code({run.in + UnitBytes * at, UnitBytes}, big_endian);
        if (value >= 0x80 || !plain.has(static_cast<u8>(value))) {
            return at;
        }
        run.out[at] = static_cast<u8>(value);
    }
    return size;
}

std::size_t narrow_ascii(const ascii_run& run, ascii_unit source) {
    return source.bytes == 2 ? narrow<2>(run, source.big_endian)
                             : narrow<4>(run, source.big_endian);
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
    constexpr std::size_t vector_bytes = 16, units_together = vector_bytes / 2;
    using unit_vector [[gnu::vector_size(vector_bytes)]] = u16;
    using word_vector [[gnu::vector_size(vector_bytes)]] = u64;
    for (std::size_t at = 0; at < count; at += units_together) {
        unit_vector units;
        std::memcpy(&units, scalars + at, sizeof units);
        auto stop = (units & 0xF800) == 0xD800;
        for (const u16 s : stops) {
            stop |= units == s;
        }
        const auto words = reinterpret_cast<word_vector>(stop);
        if ((words[0] | words[1]) != 0) {
            while (at < count && stop[at % units_together] == 0) {
                ++at;
            }
            return at;
        }
    }
    return count;
}

} // namespace

const kernels portable_kernels = {
    .name = "portable",
    .copy_ascii = copy_ascii,
    .widen_ascii = widen_ascii,
    .narrow_ascii = narrow_ascii,
    .decode_utf8 = nullptr,
    .decode_pays_for_entries = false,
    .narrow_quads = narrow_quads,
    .split_codes = nullptr,
    .encode_utf8 = nullptr,
    .copy_units = copy_units,
    .put_quads = put_quads,
    .plain_scalars = plain_scalars,
    .seven_bit_pairs = nullptr,
};

} // namespace fast
