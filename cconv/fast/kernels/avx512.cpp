// Kernels for processors with AVX-512 VBMI2, whose byte compression puts variable lengths together.
#if defined(__x86_64__)

#include <array>
#include <cstddef>
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized" // in the header of g++ 12 itself
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#define MACHINE [[gnu::target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,bmi,bmi2,popcnt")]]
#define VECTOR_BYTES 64
#include "cconv/fast/kernels/vectors.inc"

namespace fast {

namespace {

template <typename V>
MACHINE inline __m512i raw(V v) {
    return reinterpret_cast<__m512i>(v);
}

// The compiler's own conversion of vectors goes by single elements here.
template <typename Wide, typename Narrow>
MACHINE inline Wide widen(const Narrow* p) {
    if constexpr (sizeof(Narrow) == 1 && sizeof(Wide{}[0]) == 4) {
        return reinterpret_cast<Wide>(_mm512_cvtepu8_epi32(load<__m128i>(p)));
    } else {
        const auto narrow = load<__m256i>(p);
        return reinterpret_cast<Wide>(sizeof(Narrow) == 1 ? _mm512_cvtepu8_epi16(narrow)
                                                          : _mm512_cvtepu16_epi32(narrow));
    }
}

template <u8 Limit>
MACHINE inline u64 at_least(bytes_v bytes) {
    return Limit == 0x80
               ? _mm512_movepi8_mask(raw(bytes))
               : _mm512_cmpge_epu8_mask(raw(bytes), _mm512_set1_epi8(static_cast<char>(Limit)));
}

MACHINE inline bytes_v only(bytes_v bytes, u64 places) {
    return reinterpret_cast<bytes_v>(_mm512_maskz_mov_epi8(places, raw(bytes)));
}

template <std::size_t N>
MACHINE inline bytes_v before(const u8* in, std::size_t at) {
    const u64 there = at > 0 ? ~u64{0} : ~u64{0} << N;
    return reinterpret_cast<bytes_v>(_mm512_maskz_loadu_epi8(there, in + at - N));
}

MACHINE inline u16* draw_codes(bytes_v low_bytes, bytes_v high_bytes, u64 places, u16* out) {
    const __m512i low = _mm512_maskz_compress_epi8(places, raw(low_bytes));
    const __m512i high = _mm512_maskz_compress_epi8(places, raw(high_bytes));
    // Where the bytes of the first 32 codes stand in both vectors.
    const __m512i first = raw(make_vector<bytes_v>(
                      [](std::size_t i) { return i / 2 + i % 2 * vector_bytes; })),
                  second = _mm512_add_epi8(first, _mm512_set1_epi8(vector_bytes / 2));
    _mm512_storeu_si512(out, _mm512_permutex2var_epi8(low, first, high));
    _mm512_storeu_si512(out + vector_bytes / 2, _mm512_permutex2var_epi8(low, second, high));
    return out + std::popcount(places);
}

MACHINE inline u8* draw_bytes(quads_v packed, u8* out) {
    const __m512i lengths = _mm512_shuffle_epi8(
        raw(packed), _mm512_broadcast_i32x4(
                         _mm_set_epi8(15, 15, 15, 15, 11, 11, 11, 11, 7, 7, 7, 7, 3, 3, 3, 3)));
    const u64 keep = _mm512_cmpgt_epi8_mask(lengths, _mm512_set1_epi32(0x7F020100));
    _mm512_storeu_si512(out, _mm512_maskz_compress_epi8(keep, raw(packed)));
    return out + std::popcount(keep);
}

// A byte for each of ASCII: 80 for those that are not in the set, marks for line breaks.
struct outside_table {
    __m512i low, high;
};
MACHINE inline outside_table table_of(const byte_set& set) {
    const __m512i rows =
        _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(set.rows)));
    const __m512i bits = _mm512_set_epi64(
        0x0808080808080808, 0x0808080808080808, 0x0404040404040404, 0x0404040404040404,
        0x0202020202020202, 0x0202020202020202, 0x0101010101010101, 0x0101010101010101);
    const auto of = [&](__m512i some) __attribute__((target("avx512f,avx512bw"))) {
        return _mm512_maskz_set1_epi8(_mm512_testn_epi8_mask(rows, some), static_cast<char>(0x80));
    };
    const __m512i marks = _mm512_zextsi128_si512(
        _mm_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, feed_mark, 0, 0, return_mark, 0, 0));
    return {_mm512_or_si512(of(bits), marks), of(_mm512_slli_epi16(bits, 4))};
}
MACHINE inline bytes_v ascii_marks(bytes_v bytes, const outside_table& table) {
    return reinterpret_cast<bytes_v>(_mm512_permutex2var_epi8(table.low, raw(bytes), table.high));
}
MACHINE inline bytes_v outsiders(bytes_v bytes, const outside_table& table) {
    return ascii_marks(bytes, table) | bytes;
}

MACHINE inline u64 first_places(std::size_t size) {
    return size < vector_bytes ? (u64{1} << size) - 1 : ~u64{0};
}
MACHINE inline bytes_v load_some(const void* p, std::size_t size) {
    return reinterpret_cast<bytes_v>(_mm512_maskz_loadu_epi8(first_places(size), p));
}
MACHINE inline void store_some(void* p, bytes_v bytes, std::size_t size) {
    _mm512_mask_storeu_epi8(p, first_places(size), raw(bytes));
}

} // namespace

} // namespace fast

#include "cconv/fast/kernels/vector_loops.inc"

namespace fast {

namespace {

// Looked up one by one, a block before it is drawn together: no position waits for an entry.
MACHINE block_written put_entries(const entry_word* entries, const u16* codes, std::size_t count,
                                  u8* out) {
    constexpr std::size_t few = 32;
    if (count < few) {
        return put_one_by_one(entries, codes, count, out);
    }
    u32 packed[block_codes + chunk_codes];
#pragma GCC unroll 4
    for (std::size_t i = 0; i < count; ++i) {
        packed[i] = entries[codes[i]].load(std::memory_order_relaxed);
    }
    const u8* const begin = out;
    for (std::size_t at = 0; at < count; at += lanes) {
        const auto now = load<quads_v>(packed + at);
        const u64 others = at_least<0x80>(
            reinterpret_cast<bytes_v>(reinterpret_cast<signed_quads_v>(now) < i32{one_byte}));
        const auto n =
            std::min(count - at, static_cast<std::size_t>(std::countr_zero(others)) / sizeof(u32));
        if (n < lanes) {
            out = draw_bytes(first_lanes(now, n), out);
            return {at + n, static_cast<std::size_t>(out - begin)};
        }
        out = draw_bytes(now, out);
    }
    return {count, static_cast<std::size_t>(out - begin)};
}

} // namespace

constinit const kernels avx512_kernels = [] {
    kernels k = vector_kernels("avx512");
    k.put_entries = put_entries;
    return k;
}();

} // namespace fast

#endif
