// Runs of ASCII: copied, widened to units of two or four bytes, narrowed from them.
#include "cconv/bulk_ascii.h"

#if defined(__x86_64__)

#include "cconv/bulk_avx2.h"

#include <algorithm>
#include <bit>

namespace {

// The bits that a unit of ASCII has not, for a vector of 32-bit lanes as it is loaded.
constexpr int beyond_ascii(u32 unit_bytes, bool big_endian) {
    const u32 bits = unit_bytes == 2 ? big_endian ? 0x80FF80FF : 0xFF80FF80
                     : big_endian    ? 0x80FFFFFF
                                     : 0xFFFFFF80;
    return std::bit_cast<int>(bits);
}

// By how many bits the value of a unit is displaced as it is loaded and stored.
constexpr int displacement(u32 unit_bytes, bool big_endian) {
    return big_endian ? static_cast<int>(8 * (unit_bytes - 1)) : 0;
}

// ---- AVX2 --------------------------------------------------------------------------------------

constexpr u8 del = 0x7F; // next to what is no ASCII: seen at once with it

AVX2 inline bool has_stop(__m256i a, __m256i b, std::span<const u8> stops) {
    __m256i stop = _mm256_or_si256(a, b);
    for (const u8 s : stops) {
        const __m256i one = _mm256_set1_epi8(static_cast<char>(s));
        stop = _mm256_or_si256(
            stop, _mm256_or_si256(_mm256_cmpeq_epi8(a, one), _mm256_cmpeq_epi8(b, one)));
    }
    return mask_of(stop) != 0;
}
AVX2 inline bool has_stop(__m256i bytes, std::span<const u8> stops) {
    return has_stop(bytes, bytes, stops);
}

// Writes a vector of ASCII in units.
template <u32 UnitBytes>
AVX2 inline void put_widened(const u8* in, u8* out, __m128i shift) {
    for (u32 i = 0; i < UnitBytes; ++i) {
        const u8* const part = in + vector_bytes / UnitBytes * i;
        store(out + vector_bytes * i,
              UnitBytes == 2 ? _mm256_sll_epi16(_mm256_cvtepu8_epi16(load_16(part)), shift)
                             : _mm256_sll_epi32(_mm256_cvtepu8_epi32(load_8(part)), shift));
    }
}

template <u32 UnitBytes>
AVX2 std::size_t widen(const ascii_run& run, bool big_endian) {
    const u8* const in = run.in;
    u8* const out = run.out;
    const std::span<const u8> stops = run.stops;
    const std::size_t size = std::min(run.in_size, run.out_size / UnitBytes);
    const __m128i shift = _mm_cvtsi32_si128(displacement(UnitBytes, big_endian));
    std::size_t at = 0;
    for (; at + 2 * vector_bytes <= size; at += 2 * vector_bytes) {
        if (has_stop(load(in + at), load(in + at + vector_bytes), stops)) {
            break;
        }
        put_widened<UnitBytes>(in + at, out + UnitBytes * at, shift);
        put_widened<UnitBytes>(in + at + vector_bytes, out + UnitBytes * (at + vector_bytes),
                               shift);
    }
    for (; at + vector_bytes <= size && !has_stop(load(in + at), stops); at += vector_bytes) {
        put_widened<UnitBytes>(in + at, out + UnitBytes * at, shift);
    }
    return at;
}

// Packs 32 units of ASCII. Packing goes by halves of vectors: the order is mended after it.
AVX2 inline __m256i pack(const __m256i (&units)[2], __m128i shift) {
    const __m256i packed =
        _mm256_packus_epi16(_mm256_srl_epi16(units[0], shift), _mm256_srl_epi16(units[1], shift));
    return _mm256_permute4x64_epi64(packed, 0xD8);
}
AVX2 inline __m256i pack(const __m256i (&units)[4], __m128i shift) {
    const __m256i low =
        _mm256_packus_epi32(_mm256_srl_epi32(units[0], shift), _mm256_srl_epi32(units[1], shift));
    const __m256i high =
        _mm256_packus_epi32(_mm256_srl_epi32(units[2], shift), _mm256_srl_epi32(units[3], shift));
    return _mm256_permutevar8x32_epi32(_mm256_packus_epi16(low, high),
                                       _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

// Makes a vector of bytes of units; false when one is beyond ASCII.
template <u32 UnitBytes>
AVX2 inline bool get_narrowed(const u8* in, __m256i beyond, __m128i shift, __m256i& bytes) {
    __m256i units[UnitBytes], any = _mm256_setzero_si256();
    for (u32 i = 0; i < UnitBytes; ++i) {
        units[i] = load(in + vector_bytes * i);
        any = _mm256_or_si256(any, units[i]);
    }
    bytes = pack(units, shift);
    return _mm256_testz_si256(any, beyond) != 0;
}

template <u32 UnitBytes>
AVX2 std::size_t narrow(const ascii_run& run, bool big_endian) {
    const u8* const in = run.in;
    u8* const out = run.out;
    const std::span<const u8> stops = run.stops;
    const std::size_t size = std::min(run.in_size / UnitBytes, run.out_size);
    const __m128i shift = _mm_cvtsi32_si128(displacement(UnitBytes, big_endian));
    const __m256i beyond = _mm256_set1_epi32(beyond_ascii(UnitBytes, big_endian));
    std::size_t at = 0;
    for (; at + 2 * vector_bytes <= size; at += 2 * vector_bytes) {
        __m256i a, b;
        if (!get_narrowed<UnitBytes>(in + UnitBytes * at, beyond, shift, a) ||
            !get_narrowed<UnitBytes>(in + UnitBytes * (at + vector_bytes), beyond, shift, b) ||
            has_stop(a, b, stops)) {
            break;
        }
        store(out + at, a);
        store(out + at + vector_bytes, b);
    }
    for (; at + vector_bytes <= size; at += vector_bytes) {
        __m256i bytes;
        if (!get_narrowed<UnitBytes>(in + UnitBytes * at, beyond, shift, bytes) ||
            has_stop(bytes, stops)) {
            break;
        }
        store(out + at, bytes);
    }
    return at;
}

} // namespace

// Vectors of 32 bytes copy faster than longer ones.
AVX2 std::size_t copy_ascii_avx2(const ascii_run& run) {
    // What the loop uses lies in variables of its own: for all the compiler knows, its stores may
    // change the run.
    const u8* const in = run.in;
    u8* const out = run.out;
    const std::size_t size = std::min(run.in_size, run.out_size);
    __m256i beyond_del = _mm256_setzero_si256(); // 1 in each byte where DEL is a stop
    __m256i others[max_stops];
    std::size_t other_count = 0;
    for (const u8 stop : run.stops) {
        if (stop == del) {
            beyond_del = _mm256_set1_epi8(1);
        } else {
            others[other_count++] = _mm256_set1_epi8(static_cast<char>(stop));
        }
    }
    std::size_t at = 0;
    if (size >= 16 * vector_bytes) {
        // Stores that cross no line of the cache are worth a vector written twice.
        const __m256i bytes = load(in);
        if (has_stop(bytes, run.stops)) {
            return 0;
        }
        store(out, bytes);
        at = vector_bytes - reinterpret_cast<std::uintptr_t>(out) % vector_bytes;
    }
    for (; at + 4 * vector_bytes <= size; at += 4 * vector_bytes) {
        const u8* const p = in + at;
        const __m256i a = load(p), b = load(p + vector_bytes);
        const __m256i c = load(p + 2 * vector_bytes), d = load(p + 3 * vector_bytes);
        const __m256i highest = _mm256_max_epu8(_mm256_max_epu8(a, b), _mm256_max_epu8(c, d));
        __m256i stop = _mm256_adds_epu8(highest, beyond_del);
        for (std::size_t i = 0; i < other_count; ++i) {
            const __m256i o = others[i];
            const __m256i low = _mm256_or_si256(_mm256_cmpeq_epi8(a, o), _mm256_cmpeq_epi8(b, o));
            const __m256i high = _mm256_or_si256(_mm256_cmpeq_epi8(c, o), _mm256_cmpeq_epi8(d, o));
            stop = _mm256_or_si256(stop, _mm256_or_si256(low, high));
        }
        if (mask_of(stop) != 0) {
            break;
        }
        u8* const q = out + at;
        store(q, a);
        store(q + vector_bytes, b);
        store(q + 2 * vector_bytes, c);
        store(q + 3 * vector_bytes, d);
    }
    for (; at + vector_bytes <= size; at += vector_bytes) {
        const __m256i bytes = load(in + at);
        if (has_stop(bytes, run.stops)) {
            break;
        }
        store(out + at, bytes);
    }
    return at;
}

std::size_t widen_ascii_avx2(const ascii_run& run, ascii_unit target) {
    return target.bytes == 2 ? widen<2>(run, target.big_endian) : widen<4>(run, target.big_endian);
}

std::size_t narrow_ascii_avx2(const ascii_run& run, ascii_unit source) {
    return source.bytes == 2 ? narrow<2>(run, source.big_endian)
                             : narrow<4>(run, source.big_endian);
}

#endif
