// Kernels for any processor, in the compiler's own vectors where they pay: SSE2, NEON and others.
#define VECTOR_BYTES 16
#define MACHINE
#include "cconv/fast/kernels/vectors.inc"

namespace fast {

namespace {

template <typename V>
bool any(V condition) {
    u64 words[sizeof(V) / sizeof(u64)];
    std::memcpy(words, &condition, sizeof words);
    return (words[0] | words[1]) != 0;
}

// ASCII that a run may not hold, in ranges: worth looking for in long runs.
struct ascii_gaps {
    std::size_t count = 0;
    bytes_v first[8], size_less_one[8];

    // False where there are more.
    bool find(const byte_set& plain) {
        for (u8 byte = 0; byte < 0x80; ++byte) {
            if (plain.has(byte)) {
                continue;
            }
            if (byte > 0 && !plain.has(byte - 1)) {
                size_less_one[count - 1] += 1;
            } else if (count == std::size(first)) {
                return false;
            } else {
                first[count] = bytes_v{} + byte;
                size_less_one[count++] = bytes_v{};
            }
        }
        return true;
    }
    // Those of the bytes that a run may not hold, or that are not ASCII.
    [[nodiscard]] auto find_others(bytes_v bytes) const {
        auto others = bytes >= 0x80;
        for (std::size_t gap = 0; gap < count; ++gap) {
            others |= bytes - first[gap] <= size_less_one[gap];
        }
        return others;
    }
};

constexpr u8 in_order(u8 unit, bool) {
    return unit;
}
constexpr u16 in_order(u16 unit, bool swap) {
    return swap ? __builtin_bswap16(unit) : unit;
}
constexpr u32 in_order(u32 unit, bool swap) {
    return swap ? __builtin_bswap32(unit) : unit;
}

// A long run is copied by some vectors at once, up to the last that hold nothing else.
std::size_t copy_vectors(const ascii_run& run, std::size_t from, std::size_t size) {
    ascii_gaps gaps;
    std::size_t at = from;
    if (gaps.find(run.plain)) {
        for (bytes_v bytes[4]; at + sizeof bytes <= size; at += sizeof bytes) {
            std::memcpy(bytes, run.in + at, sizeof bytes);
            if (any(gaps.find_others(bytes[0]) | gaps.find_others(bytes[1]) |
                    gaps.find_others(bytes[2]) | gaps.find_others(bytes[3]))) {
                break;
            }
            std::memcpy(run.out + at, bytes, sizeof bytes);
        }
    }
    return at;
}

template <typename In, typename Out>
std::size_t convert_ascii(const ascii_run& run, bool swap) {
    constexpr std::size_t long_run = 128;
    const u8* const in = run.in;
    u8* const out = run.out;
    const byte_set plain = run.plain;
    const std::size_t size = std::min(run.in_size / sizeof(In), run.out_size / sizeof(Out));
    for (std::size_t at = 0; at < size; ++at) {
        if (sizeof(In) == sizeof(Out) && at == long_run) {
            at = copy_vectors(run, at, size);
            if (at == size) {
                break;
            }
        }
        In unit;
        std::memcpy(&unit, in + sizeof(In) * at, sizeof unit);
        unit = in_order(unit, swap);
        if (unit >= 0x80 || !plain.has(static_cast<u8>(unit))) {
            return at;
        }
        const Out written = in_order(static_cast<Out>(unit), swap);
        std::memcpy(out + sizeof(Out) * at, &written, sizeof written);
    }
    return size;
}

constexpr bool swapped(ascii_unit unit) {
    return unit.big_endian != (std::endian::native == std::endian::big);
}

std::size_t copy_ascii(const ascii_run& run) {
    return convert_ascii<u8, u8>(run, false);
}
std::size_t copy_and_count(const ascii_run& run, ascii_breaks& counted) {
    const std::size_t n = copy_ascii(run);
    const bool ends = n > 0 && run.in[n - 1] == '\n'; // as nothing behind may be read
    counted.line_feeds = ends + (n > 0 ? count_breaks(run.in, n - 1, {{1, true}, '\n', 0xFF}) : 0);
    counted.has_returns = n > 0 && std::memchr(run.in, '\r', n) != nullptr;
    return n;
}
std::size_t widen_ascii(const ascii_run& run, ascii_unit target) {
    return target.bytes == 2 ? convert_ascii<u8, u16>(run, swapped(target))
                             : convert_ascii<u8, u32>(run, swapped(target));
}
std::size_t narrow_ascii(const ascii_run& run, ascii_unit source) {
    return source.bytes == 2 ? convert_ascii<u16, u8>(run, swapped(source))
                             : convert_ascii<u32, u8>(run, swapped(source));
}

bool is_ascii(const u8* in, std::size_t size) {
    u64 all = 0;
    for (std::size_t at = 0; at < size; at += sizeof all) {
        u64 some;
        std::memcpy(&some, in + at, sizeof some);
        all |= some;
    }
    return (all & 0x8080808080808080) == 0;
}

void store_packed(u32 packed, u8* out) {
    const u32 bytes = std::endian::native == std::endian::big ? __builtin_bswap32(packed) : packed;
    std::memcpy(out, &bytes, sizeof bytes);
}

// There is no branch on each entry: all are written, and those in vain overwritten later.
template <typename Code>
block_written put_each(const entry_word* entries, const Code* codes, std::size_t count, u8* out) {
    u8* const begin = out;
    u32 lacking = 0; // its highest bit: whether an entry says something else
#pragma GCC unroll 4
    for (std::size_t i = 0; i < count; ++i) {
        const u32 packed = entries[codes[i]].load(std::memory_order_relaxed);
        store_packed(packed, out);
        out += packed / one_byte;
        lacking |= packed - one_byte;
    }
    if (static_cast<i32>(lacking) >= 0) {
        return {count, static_cast<std::size_t>(out - begin)};
    }
    // Others may have been asked about by now, and were not written above: once more.
    block_written written{0, 0};
    for (; written.codes < count; ++written.codes) {
        const u32 packed = entries[codes[written.codes]].load(std::memory_order_relaxed);
        if (packed < one_byte) {
            break;
        }
        store_packed(packed, begin + written.bytes);
        written.bytes += packed / one_byte;
    }
    return written;
}

} // namespace

block_written put_one_by_one(const entry_word* entries, const u16* codes, std::size_t count,
                             u8* out) {
    return put_each(entries, codes, count, out);
}

// Stops where a run of ASCII begins, for which there are kernels of its own.
bytes_put put_bytes_one_by_one(const entry_word* entries, const ascii_run& run, byte_tables&) {
    constexpr std::size_t some = 64, most_written = 4 * some;
    block_written all{0, 0};
    for (bool goes_on = true; goes_on && all.bytes + most_written < run.out_size;) {
        const u8* const in = run.in + all.codes;
        const std::size_t size = std::min(some, run.in_size - all.codes);
        if (size == some && run.plain.has(*in) && is_ascii(in, some)) {
            break;
        }
        const block_written put = put_each(entries, in, size, run.out + all.bytes);
        all.codes += put.codes;
        all.bytes += put.bytes;
        goes_on = size == some && put.codes == size;
    }
    return {all.codes, all.bytes, all.codes};
}

const kernels portable_kernels = {
    .name = "portable",
    .copy_ascii = copy_ascii,
    .copy_and_count = copy_and_count,
    .widen_ascii = widen_ascii,
    .narrow_ascii = narrow_ascii,
    .count_breaks = count_breaks,
    .put_entries = put_one_by_one,
    .put_bytes = put_bytes_one_by_one,
    .copy_units = copy_units,
};

} // namespace fast
