// Kernels for any processor, in the compiler's own vectors where they pay: SSE2, NEON and others.
#include "cconv/fast/kernels/kernels.h"

#include <algorithm>
#include <bit>

namespace fast {

namespace {

constexpr std::size_t step = 16; // characters looked at together

// The set of plain bytes; in long runs as a byte each, 0 for a plain one.
struct plain_test {
    explicit plain_test(const byte_set& set) : plain(set) {}

    byte_set plain;
    bool has_table = false;
    u8 table[256];

    void make_table() {
        for (u32 byte = 0; byte < std::size(table); ++byte) {
            table[byte] = is_plain(byte) ? 0 : 1;
        }
        has_table = true;
    }
    [[nodiscard]] bool is_plain(u32 code) const {
        return code < 0x80 && plain.has(static_cast<u8>(code));
    }
    // How many of the bytes are plain, up to the first that is not.
    [[nodiscard]] std::size_t first(const u8* p, std::size_t count) const {
        u32 other = 0;
        for (std::size_t i = 0; has_table && count == step && i < step; ++i) {
            other |= table[p[i]];
        }
        std::size_t at = has_table && count == step && other == 0 ? step : 0;
        while (at < count && is_plain(p[at])) {
            ++at;
        }
        return at;
    }
};

// Converts size bytes or fewer, step by step, by a function for so many of them.
template <typename Put>
std::size_t convert(const u8* in, const byte_set& set, std::size_t size, Put put) {
    constexpr std::size_t long_run = 8 * step;
    plain_test plain(set);
    std::size_t at = 0;
    for (std::size_t n = step; n == step && at < size; at += n) {
        if (at == long_run) {
            plain.make_table();
        }
        n = plain.first(in + at, std::min(size - at, step));
        put(at, n);
    }
    return at;
}

std::size_t copy_ascii(const ascii_run& run) {
    return convert(run.in, run.plain, std::min(run.in_size, run.out_size),
                   [in = run.in, out = run.out](std::size_t at, std::size_t n) {
                       std::memcpy(out + at, in + at, n);
                   });
}

template <u32 UnitBytes>
std::size_t widen(const ascii_run& run, bool big_endian) {
    const std::size_t place = big_endian ? UnitBytes - 1 : 0; // of the byte in its unit
    return convert(run.in, run.plain, std::min(run.in_size, run.out_size / UnitBytes),
                   [=, in = run.in, out = run.out](std::size_t at, std::size_t n) {
                       std::memset(out + UnitBytes * at, 0, UnitBytes * n);
                       for (std::size_t i = 0; i < n; ++i) {
                           out[UnitBytes * (at + i) + place] = in[at + i];
                       }
                   });
}

std::size_t widen_ascii(const ascii_run& run, ascii_unit target) {
    return target.bytes == 2 ? widen<2>(run, target.big_endian) : widen<4>(run, target.big_endian);
}

template <u32 UnitBytes>
std::size_t narrow(const ascii_run& run, bool big_endian) {
    const std::size_t size = std::min(run.in_size / UnitBytes, run.out_size);
    const plain_test plain(run.plain);
    std::size_t at = 0;
    for (; at < size; ++at) {
        const u32 value = load_code({run.in + UnitBytes * at, UnitBytes}, big_endian);
        if (!plain.is_plain(value)) {
            break;
        }
        run.out[at] = static_cast<u8>(value);
    }
    return at;
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

template <typename Unit>
u64 count_breaks_in(const u8* in, std::size_t units, bool big_endian) {
    constexpr std::size_t together = step / sizeof(Unit);
    using unit_vector [[gnu::vector_size(step)]] = Unit;
    const Unit lf = loaded_ascii<Unit>('\n', big_endian), cr = loaded_ascii<Unit>('\r', big_endian);
    u64 breaks = 0;
    std::size_t at = 0;
    while (units - at >= together) {
        unit_vector some{};
        for (int i = 0; i < 0xFF && units - at >= together; ++i, at += together) {
            unit_vector here, behind;
            std::memcpy(&here, in + at * sizeof(Unit), sizeof here);
            std::memcpy(&behind, in + (at + 1) * sizeof(Unit), sizeof behind);
            some -= reinterpret_cast<unit_vector>((here == lf) | ((here == cr) & (behind != lf)));
        }
        for (std::size_t i = 0; i < together; ++i) {
            breaks += some[i];
        }
    }
    return breaks + count_last_breaks<Unit>(in + at * sizeof(Unit), units - at, big_endian);
}

u64 count_breaks(const u8* in, std::size_t units, ascii_unit unit) {
    return unit.bytes == 1   ? count_breaks_in<u8>(in, units, unit.big_endian)
           : unit.bytes == 2 ? count_breaks_in<u16>(in, units, unit.big_endian)
                             : count_breaks_in<u32>(in, units, unit.big_endian);
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
    .count_breaks = count_breaks,
};

} // namespace fast
