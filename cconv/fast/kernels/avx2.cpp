// Kernels for processors with AVX2. Variable lengths are put together by byte shuffles that are
// looked up.
#if defined(__x86_64__)

#include <array>
#include <cstddef>
#include <immintrin.h>

#define MACHINE [[gnu::target("avx2,bmi,bmi2,popcnt")]]
#define VECTOR_BYTES 32
#include "cconv/fast/kernels/vectors.inc"

namespace fast {

namespace {

template <typename V>
MACHINE inline __m256i raw(V v) {
    return reinterpret_cast<__m256i>(v);
}
MACHINE inline __m256i repeat(__m128i v) {
    return _mm256_broadcastsi128_si256(v);
}
MACHINE inline u32 mask_of(__m256i bytes) {
    return static_cast<u32>(_mm256_movemask_epi8(bytes));
}

// The compiler's own conversion of vectors goes by single elements here.
template <typename Wide, typename Narrow>
MACHINE inline Wide widen(const Narrow* p) {
    constexpr std::size_t bytes = sizeof(Wide) / sizeof(Wide{}[0]) * sizeof(Narrow);
    __m128i narrow = _mm_setzero_si128();
    std::memcpy(&narrow, p, bytes);
    return reinterpret_cast<Wide>(sizeof(Narrow) == 2      ? _mm256_cvtepu16_epi32(narrow)
                                  : sizeof(Wide{}[0]) == 2 ? _mm256_cvtepu8_epi16(narrow)
                                                           : _mm256_cvtepu8_epi32(narrow));
}

template <u8 Limit>
MACHINE inline u64 at_least(bytes_v bytes) {
    const __m256i limit = _mm256_set1_epi8(static_cast<char>(Limit));
    return Limit == 0x80
               ? mask_of(raw(bytes))
               : mask_of(_mm256_cmpeq_epi8(_mm256_max_epu8(raw(bytes), limit), raw(bytes)));
}

MACHINE inline u64 rare_leads(bytes_v bytes) {
    return (at_least<0xC0>(bytes) & ~at_least<0xC2>(bytes)) |
           (at_least<0xE0>(bytes) & ~at_least<0xE1>(bytes)) | at_least<0xF0>(bytes);
}

MACHINE inline bytes_v only(bytes_v bytes, u64 places) {
    const __m256i eight = _mm256_shuffle_epi8(
        _mm256_set1_epi32(static_cast<int>(places)),
        _mm256_setr_epi64x(0, 0x0101010101010101, 0x0202020202020202, 0x0303030303030303));
    const __m256i bit = _mm256_set1_epi64x(static_cast<long long>(0x8040201008040201));
    return reinterpret_cast<bytes_v>(
        _mm256_and_si256(raw(bytes), _mm256_cmpeq_epi8(_mm256_and_si256(eight, bit), bit)));
}

// By eight places: the shuffle that draws together the units, or four parts of one to three bytes.
using shuffles = std::array<std::array<u8, 16>, 256>;
constexpr u8 nothing = 0x80; // in a shuffle: a zero byte

constexpr shuffles make_unit_shuffles() {
    shuffles made{};
    for (u32 places = 0; places < made.size(); ++places) {
        made[places].fill(nothing);
        std::size_t at = 0;
        for (u32 rest = places; rest != 0; rest &= rest - 1) {
            const auto place = static_cast<u8>(2 * std::countr_zero(rest));
            made[places][at++] = place;
            made[places][at++] = static_cast<u8>(place + 1);
        }
    }
    return made;
}
constexpr shuffles unit_shuffles = make_unit_shuffles();

// By the lengths of four lanes, their low bits before their high ones; with what they come to.
struct lane_shuffle {
    std::array<u8, 16> shuffle;
    u64 bytes;
};
constexpr std::array<lane_shuffle, 256> make_lane_shuffles() {
    std::array<lane_shuffle, 256> made{};
    for (u32 index = 0; index < made.size(); ++index) {
        made[index].shuffle.fill(nothing);
        for (u32 lane = 0; lane < 4; ++lane) {
            const u32 length = (index >> lane & 1) + 2 * (index >> (lane + 4) & 1);
            for (u32 i = 0; i < length; ++i) {
                made[index].shuffle[made[index].bytes++] = static_cast<u8>(4 * lane + i);
            }
        }
    }
    return made;
}
constexpr std::array<lane_shuffle, 256> lane_shuffles = make_lane_shuffles();

MACHINE inline void store_drawn(__m128i bytes, const std::array<u8, 16>& shuffle, void* out) {
    _mm_storeu_si128(
        static_cast<__m128i*>(out),
        _mm_shuffle_epi8(bytes, _mm_loadu_si128(reinterpret_cast<const __m128i*>(shuffle.data()))));
}

MACHINE inline u16* draw_codes(bytes_v low, bytes_v high, u64 places, u16* out) {
    const __m256i even = _mm256_unpacklo_epi8(raw(low), raw(high));
    const __m256i odd = _mm256_unpackhi_epi8(raw(low), raw(high));
    const __m128i eights[] = {_mm256_castsi256_si128(even), _mm256_castsi256_si128(odd),
                              _mm256_extracti128_si256(even, 1), _mm256_extracti128_si256(odd, 1)};
#pragma GCC unroll 4
    for (u32 i = 0; i < 4; ++i) {
        const u8 some = static_cast<u8>(places >> 8 * i);
        store_drawn(eights[i], unit_shuffles[some], out);
        out += std::popcount(some);
    }
    return out;
}

MACHINE inline u8* draw_bytes(quads_v packed, u8* out) {
    const auto ones = static_cast<u32>(_mm256_movemask_ps(_mm256_castsi256_ps(raw(packed << 7))));
    const auto twos = static_cast<u32>(_mm256_movemask_ps(_mm256_castsi256_ps(raw(packed << 6))));
    const lane_shuffle& first = lane_shuffles[(ones & 0xF) | (twos & 0xF) << 4];
    const lane_shuffle& second = lane_shuffles[ones >> 4 | (twos & 0xF0)];
    store_drawn(_mm256_castsi256_si128(raw(packed)), first.shuffle, out);
    store_drawn(_mm256_extracti128_si256(raw(packed), 1), second.shuffle, out + first.bytes);
    return out + first.bytes + second.bytes;
}

MACHINE inline quads_v join(__m128i low, __m128i high) {
    return reinterpret_cast<quads_v>(_mm256_set_m128i(high, low));
}

struct outside_table {
    __m256i rows, bits;
};
MACHINE inline outside_table table_of(const byte_set& set) {
    return {repeat(_mm_loadu_si128(reinterpret_cast<const __m128i*>(set.rows))),
            repeat(_mm_set_epi64x(0, static_cast<long long>(0x8040201008040201)))};
}
MACHINE inline bytes_v outsiders(bytes_v bytes, const outside_table& table) {
    // A row is only found for ASCII.
    const __m256i row = _mm256_shuffle_epi8(table.rows, raw(bytes));
    const __m256i bit = _mm256_shuffle_epi8(table.bits, raw(bytes >> 4));
    return reinterpret_cast<bytes_v>(
        _mm256_cmpeq_epi8(_mm256_and_si256(row, bit), _mm256_setzero_si256()));
}

MACHINE inline bytes_v ascii_marks(bytes_v bytes, const outside_table& table) {
    return (outsiders(bytes, table) & 0x80) |
           (reinterpret_cast<bytes_v>(bytes == '\n') & feed_mark) |
           (reinterpret_cast<bytes_v>(bytes == '\r') & return_mark);
}

MACHINE inline bytes_v load_some(const void* p, std::size_t size) {
    bytes_v bytes{};
    std::memcpy(&bytes, p, std::min(size, vector_bytes));
    return bytes;
}
MACHINE inline void store_some(void* p, bytes_v bytes, std::size_t size) {
    std::memcpy(p, &bytes, std::min(size, vector_bytes));
}

} // namespace

} // namespace fast

#include "cconv/fast/kernels/vector_loops.inc"

const fast::kernels fast::avx2_kernels = vector_kernels("avx2");

#endif
