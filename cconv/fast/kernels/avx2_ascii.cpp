// Runs of ASCII by AVX2: copied, widened to units of two or four bytes, narrowed from them.
#include "cconv/fast/kernels/avx2.h"

#if defined(__x86_64__)

#include <algorithm>
#include <bit>
#include <immintrin.h>

#define AVX2 [[gnu::target("avx2,bmi,bmi2,popcnt")]]

namespace fast {

namespace {

constexpr std::size_t vector_bytes = 32, few = 8; // characters at a time

AVX2 inline __m256i load(const void* p) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}
AVX2 inline __m128i load_16(const void* p) {
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
}
AVX2 inline __m128i load_8(const void* p) {
    return _mm_loadl_epi64(static_cast<const __m128i*>(p));
}
AVX2 inline void store(void* p, __m256i v) {
    _mm256_storeu_si256(static_cast<__m256i*>(p), v);
}
AVX2 inline void store_16(void* p, __m128i v) {
    _mm_storeu_si128(static_cast<__m128i*>(p), v);
}
AVX2 inline void store_8(void* p, __m128i v) {
    _mm_storel_epi64(static_cast<__m128i*>(p), v);
}

// The set of plain bytes, ready to be asked.
struct plain_test {
    __m256i rows, bits;

    AVX2 explicit plain_test(const byte_set& plain)
        : rows(_mm256_broadcastsi128_si256(load_16(plain.rows))),
          bits(_mm256_broadcastsi128_si256(_mm_set_epi8(
              0, 0, 0, 0, 0, 0, 0, 0, static_cast<char>(0x80), 0x40, 0x20, 0x10, 8, 4, 2, 1))) {}

    // Not 0 in the bytes that are plain. A row is only found for ASCII.
    AVX2 [[nodiscard]] __m256i operator()(__m256i bytes) const {
        const __m256i high = _mm256_and_si256(_mm256_srli_epi16(bytes, 4), _mm256_set1_epi8(0x0F));
        return _mm256_and_si256(_mm256_shuffle_epi8(rows, bytes), _mm256_shuffle_epi8(bits, high));
    }
    // Bit i: byte i is not plain.
    AVX2 [[nodiscard]] u32 others(__m256i bytes) const {
        return static_cast<u32>(
            _mm256_movemask_epi8(_mm256_cmpeq_epi8((*this)(bytes), _mm256_setzero_si256())));
    }
    AVX2 [[nodiscard]] u32 others(__m128i bytes) const {
        return others(_mm256_castsi128_si256(bytes));
    }
};

constexpr std::size_t first_of(u32 others) {
    return static_cast<std::size_t>(std::countr_zero(others));
}

// ---- Copied ------------------------------------------------------------------------------------

// The last bytes of a run, less than a vector. Vectors may overlap what is done.
AVX2 std::size_t copy_rest(const u8* in, u8* out, std::size_t size, const plain_test& plain) {
    std::size_t at = 0;
    while (at + few <= size || (at > 0 && at < size)) {
        const std::size_t from = std::min(at, size - few);
        const __m128i bytes = load_8(in + from);
        const u32 others = plain.others(bytes) | 1U << few;
        store_8(out + from, bytes);
        at = from + first_of(others);
        if (first_of(others) < few) {
            return at;
        }
    }
    for (; at < size; ++at) {
        if ((plain.others(_mm_cvtsi32_si128(in[at])) & 1) != 0) {
            break;
        }
        out[at] = in[at];
    }
    return at;
}

// ---- Widened -----------------------------------------------------------------------------------

// Writes a vector of ASCII, or few of it, in units.
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
AVX2 inline void put_few_widened(__m128i bytes, u8* out, __m128i shift) {
    if constexpr (UnitBytes == 2) {
        store_16(out, _mm_sll_epi16(_mm_cvtepu8_epi16(bytes), shift));
    } else {
        store(out, _mm256_sll_epi32(_mm256_cvtepu8_epi32(bytes), shift));
    }
}

template <u32 UnitBytes>
AVX2 std::size_t widen(const ascii_run& run, bool big_endian) {
    const u8* const in = run.in;
    u8* const out = run.out;
    const plain_test plain(run.plain);
    const std::size_t size = std::min(run.in_size, run.out_size / UnitBytes);
    const __m128i shift = _mm_cvtsi32_si128(displacement(UnitBytes, big_endian));
    std::size_t at = 0;
    for (; at + 2 * vector_bytes <= size; at += 2 * vector_bytes) {
        const __m256i least =
            _mm256_min_epu8(plain(load(in + at)), plain(load(in + at + vector_bytes)));
        if (_mm256_movemask_epi8(_mm256_cmpeq_epi8(least, _mm256_setzero_si256())) != 0) {
            break;
        }
        put_widened<UnitBytes>(in + at, out + UnitBytes * at, shift);
        put_widened<UnitBytes>(in + at + vector_bytes, out + UnitBytes * (at + vector_bytes),
                               shift);
    }
    for (; at + vector_bytes <= size && plain.others(load(in + at)) == 0; at += vector_bytes) {
        put_widened<UnitBytes>(in + at, out + UnitBytes * at, shift);
    }
    while (at + few <= size || (size >= few && at > 0 && at < size)) {
        const std::size_t from = std::min(at, size - few);
        const __m128i bytes = load_8(in + from);
        const std::size_t n = first_of(plain.others(bytes) | 1U << few);
        put_few_widened<UnitBytes>(bytes, out + UnitBytes * from, shift);
        at = from + n;
        if (n < few) {
            return at;
        }
    }
    for (; at < size && (plain.others(_mm_cvtsi32_si128(in[at])) & 1) == 0; ++at) {
        std::memset(out + UnitBytes * at, 0, UnitBytes);
        out[UnitBytes * at + (big_endian ? UnitBytes - 1 : 0)] = in[at];
    }
    return at;
}

// ---- Narrowed ----------------------------------------------------------------------------------

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

// A few units as bytes, FF for one that is beyond ASCII.
template <u32 UnitBytes>
AVX2 inline __m128i few_narrowed(const u8* in, __m256i beyond, __m128i shift) {
    if constexpr (UnitBytes == 2) {
        const __m128i units = load_16(in);
        const __m128i ascii = _mm_cmpeq_epi16(_mm_and_si128(units, _mm256_castsi256_si128(beyond)),
                                              _mm_setzero_si128());
        const __m128i values = _mm_or_si128(_mm_srl_epi16(units, shift),
                                            _mm_andnot_si128(ascii, _mm_set1_epi16(0xFF)));
        return _mm_packus_epi16(_mm_and_si128(values, _mm_set1_epi16(0xFF)), values);
    } else {
        const __m256i units = load(in);
        const __m256i ascii =
            _mm256_cmpeq_epi32(_mm256_and_si256(units, beyond), _mm256_setzero_si256());
        const __m256i values =
            _mm256_and_si256(_mm256_or_si256(_mm256_srl_epi32(units, shift),
                                             _mm256_andnot_si256(ascii, _mm256_set1_epi32(0xFF))),
                             _mm256_set1_epi32(0xFF));
        const __m128i words =
            _mm_packus_epi32(_mm256_castsi256_si128(values), _mm256_extracti128_si256(values, 1));
        return _mm_packus_epi16(words, words);
    }
}

template <u32 UnitBytes>
AVX2 std::size_t narrow(const ascii_run& run, bool big_endian) {
    const u8* const in = run.in;
    u8* const out = run.out;
    const plain_test plain(run.plain);
    const std::size_t size = std::min(run.in_size / UnitBytes, run.out_size);
    const __m128i shift = _mm_cvtsi32_si128(displacement(UnitBytes, big_endian));
    const __m256i beyond = _mm256_set1_epi32(beyond_ascii(UnitBytes, big_endian));
    std::size_t at = 0;
    for (; at + vector_bytes <= size; at += vector_bytes) {
        __m256i bytes;
        if (!get_narrowed<UnitBytes>(in + UnitBytes * at, beyond, shift, bytes) ||
            plain.others(bytes) != 0) {
            break;
        }
        store(out + at, bytes);
    }
    while (at + few <= size || (size >= few && at > 0 && at < size)) {
        const std::size_t from = std::min(at, size - few);
        const __m128i bytes = few_narrowed<UnitBytes>(in + UnitBytes * from, beyond, shift);
        const std::size_t n = first_of(plain.others(bytes) | 1U << few);
        store_8(out + from, bytes);
        at = from + n;
        if (n < few) {
            return at;
        }
    }
    for (; at < size; ++at) {
        const u32 value = load_code({in + UnitBytes * at, UnitBytes}, big_endian);
        if (value >= 0x80 || !run.plain.has(static_cast<u8>(value))) {
            break;
        }
        out[at] = static_cast<u8>(value);
    }
    return at;
}

template <typename Unit>
AVX2 __m256i repeated(Unit unit) {
    return sizeof unit == 1   ? _mm256_set1_epi8(static_cast<char>(unit))
           : sizeof unit == 2 ? _mm256_set1_epi16(static_cast<short>(unit))
                              : _mm256_set1_epi32(static_cast<int>(unit));
}

template <typename Unit>
AVX2 __m256i equal(__m256i a, __m256i b) {
    return sizeof(Unit) == 1   ? _mm256_cmpeq_epi8(a, b)
           : sizeof(Unit) == 2 ? _mm256_cmpeq_epi16(a, b)
                               : _mm256_cmpeq_epi32(a, b);
}

template <typename Unit>
AVX2 u64 count_breaks(const u8* in, std::size_t units, bool big_endian) {
    constexpr std::size_t step = vector_bytes / sizeof(Unit);
    const __m256i lf = repeated(loaded_ascii<Unit>('\n', big_endian));
    const __m256i cr = repeated(loaded_ascii<Unit>('\r', big_endian));
    u64 bytes = 0;
    std::size_t at = 0;
    for (; units - at >= step; at += step) {
        const __m256i here = load(in + at * sizeof(Unit));
        const __m256i behind = load(in + (at + 1) * sizeof(Unit));
        const __m256i lone = _mm256_andnot_si256(equal<Unit>(behind, lf), equal<Unit>(here, cr));
        const __m256i found = _mm256_or_si256(equal<Unit>(here, lf), lone);
        bytes += static_cast<u64>(_mm_popcnt_u32(static_cast<u32>(_mm256_movemask_epi8(found))));
    }
    return bytes / sizeof(Unit) +
           count_last_breaks<Unit>(in + at * sizeof(Unit), units - at, big_endian);
}

} // namespace

// Vectors of 32 bytes copy faster than longer ones.
AVX2 std::size_t copy_ascii_avx2(const ascii_run& run) {
    // What the loop uses lies in variables of its own: for all the compiler knows, its stores may
    // change the run.
    const u8* const in = run.in;
    u8* const out = run.out;
    const std::size_t size = std::min(run.in_size, run.out_size);
    const plain_test plain(run.plain);
    std::size_t at = 0;
    if (size >= vector_bytes) {
        const __m256i bytes = load(in);
        store(out, bytes);
        const u32 others = plain.others(bytes);
        if (others != 0) {
            return first_of(others);
        }
        // Stores that cross no line of the cache are worth a vector written twice.
        at = size < 16 * vector_bytes
                 ? vector_bytes
                 : vector_bytes - reinterpret_cast<std::uintptr_t>(out) % vector_bytes;
    }
    for (; at + 4 * vector_bytes <= size; at += 4 * vector_bytes) {
        const u8* const p = in + at;
        const __m256i a = load(p), b = load(p + vector_bytes);
        const __m256i c = load(p + 2 * vector_bytes), d = load(p + 3 * vector_bytes);
        const __m256i least = _mm256_min_epu8(_mm256_min_epu8(plain(a), plain(b)),
                                              _mm256_min_epu8(plain(c), plain(d)));
        if (_mm256_movemask_epi8(_mm256_cmpeq_epi8(least, _mm256_setzero_si256())) != 0) {
            break;
        }
        u8* const q = out + at;
        store(q, a);
        store(q + vector_bytes, b);
        store(q + 2 * vector_bytes, c);
        store(q + 3 * vector_bytes, d);
    }
    while (size >= vector_bytes && at < size) {
        const std::size_t from = std::min(at, size - vector_bytes);
        const __m256i bytes = load(in + from);
        const u32 others = plain.others(bytes);
        store(out + from, bytes);
        if (others != 0) {
            return from + first_of(others);
        }
        at = from + vector_bytes;
    }
    return at < size ? copy_rest(in, out, size, plain) : size;
}

u64 count_breaks_avx2(const u8* in, std::size_t units, ascii_unit unit) {
    return unit.bytes == 1   ? count_breaks<u8>(in, units, unit.big_endian)
           : unit.bytes == 2 ? count_breaks<u16>(in, units, unit.big_endian)
                             : count_breaks<u32>(in, units, unit.big_endian);
}

std::size_t widen_ascii_avx2(const ascii_run& run, ascii_unit target) {
    return target.bytes == 2 ? widen<2>(run, target.big_endian) : widen<4>(run, target.big_endian);
}

std::size_t narrow_ascii_avx2(const ascii_run& run, ascii_unit source) {
    return source.bytes == 2 ? narrow<2>(run, source.big_endian)
                             : narrow<4>(run, source.big_endian);
}

} // namespace fast

#endif
