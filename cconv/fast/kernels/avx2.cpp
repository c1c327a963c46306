// Kernels for processors with AVX2. Variable lengths are put together by byte shuffles that are
// looked up by where characters end, four of them at a time.
#include "cconv/fast/kernels/avx2.h"

#if defined(__x86_64__)

#include <array>
#include <bit>
#include <immintrin.h>

#define AVX2 [[gnu::target("avx2,bmi,bmi2,popcnt")]]

namespace fast {

namespace {

constexpr std::size_t vector_bytes = 32;

AVX2 inline __m256i load(const void* p) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}
AVX2 inline void store(void* p, __m256i v) {
    _mm256_storeu_si256(static_cast<__m256i*>(p), v);
}
AVX2 inline u32 mask_of(__m256i bytes) {
    return static_cast<u32>(_mm256_movemask_epi8(bytes));
}

constexpr u8 nothing = 0x80; // in a shuffle: a zero byte

// ---- UTF-8 to scalars --------------------------------------------------------------------------

// By where characters end among twelve bytes: which shuffle puts up to four of them into lanes of
// four bytes, the last byte lowest, and what they come to.
constexpr std::size_t decode_bytes = 12;
constexpr u32 lanes = 4;

struct decode_step {
    u8 shuffle, characters, bytes;
};
struct decode_tables {
    std::array<decode_step, std::size_t{1} << decode_bytes> steps{};
    std::array<std::array<u8, 16>, 1 + 3 + 9 + 27 + 81> shuffles{};
};

constexpr decode_tables make_decode_tables() {
    decode_tables tables;
    for (u32 ends = 0; ends < tables.steps.size(); ++ends) {
        decode_step& step = tables.steps[ends];
        std::array<u8, 16> shuffle{};
        shuffle.fill(nothing);
        std::size_t index = 0; // the lengths as digits, with those of fewer characters before them
        for (u32 rest = ends; rest != 0 && step.characters < lanes; rest &= rest - 1) {
            const auto end = static_cast<std::size_t>(std::countr_zero(rest));
            const std::size_t length = end + 1 - step.bytes;
            if (length > 3) {
                break;
            }
            for (std::size_t i = 0; i < length; ++i) {
                shuffle[4 * step.characters + i] = static_cast<u8>(end - i);
            }
            index = 3 * index + length;
            step.bytes = static_cast<u8>(end + 1);
            ++step.characters;
        }
        step.shuffle = static_cast<u8>(index);
        tables.shuffles[index] = shuffle;
    }
    return tables;
}
constexpr decode_tables decoding = make_decode_tables();

// A bit for each of chunk_bytes bytes.
AVX2 inline u64 in_range(__m256i low, __m256i high, u8 first, u8 last) {
    // Signed comparison of bytes from 80 on.
    const __m256i below = _mm256_set1_epi8(static_cast<char>(first - 1));
    const __m256i above = _mm256_set1_epi8(static_cast<char>(last));
    const auto half = [&](__m256i v) __attribute__((target("avx2,bmi,bmi2,popcnt"))) {
        return mask_of(
            _mm256_andnot_si256(_mm256_cmpgt_epi8(v, above), _mm256_cmpgt_epi8(v, below)));
    };
    return u64{half(high)} << 32 | half(low);
}

// Sixteen single bytes.
AVX2 inline void put_sixteen(const u8* in, u16* codes) {
    store(codes, _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in))));
}

AVX2 chunk_read decode_utf8(const u8* in, u16* scalars) {
    const __m256i low = load(in), high = load(in + vector_bytes);
    const u64 beyond_ascii = u64{mask_of(high)} << 32 | mask_of(low);
    const u64 lead2 = in_range(low, high, 0xC2, 0xDF);
    const u64 lead3 = in_range(low, high, 0xE0, 0xEF);
    const u64 continuation = in_range(low, high, 0x80, 0xBF) & beyond_ascii;
    const u64 other = beyond_ascii & ~(lead2 | lead3 | continuation);
    const u64 leads = ~continuation;
    // Forms that are too long open with C0, C1, or E0 and a byte below A0.
    const u64 too_low = in_range(low, high, 0xE0, 0xE0) << 1 & ~in_range(low, high, 0xA0, 0xFF);
    const u64 wrong = (continuation ^ (lead2 << 1 | lead3 << 1 | lead3 << 2)) | other | too_low;
    // What comes before the last lead is whole, and well-formed when that stands before any wrong
    // byte.
    const u64 candidates = leads & (wrong == 0 ? ~u64{0} : (wrong & -wrong) - 1);
    if (candidates == 0) {
        return {0, 0};
    }
    const auto size = static_cast<std::size_t>(63 - std::countl_zero(candidates));
    const u64 ends = leads >> 1 & ((u64{1} << size) - 1);
    chunk_read block{0, 0};
    // The last steps would read behind the block.
    while (block.bytes < size && block.bytes + 16 <= chunk_bytes) {
        if ((beyond_ascii >> block.bytes & 0xFFFF) == 0 && block.bytes + 16 <= size) {
            put_sixteen(in + block.bytes, scalars + block.codes);
            block.codes += 16;
            block.bytes += 16;
            continue;
        }
        const decode_step& step = decoding.steps[ends >> block.bytes & (decoding.steps.size() - 1)];
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + block.bytes));
        const __m128i shuffle = _mm_loadu_si128(
            reinterpret_cast<const __m128i*>(decoding.shuffles[step.shuffle].data()));
        const __m128i v = _mm_shuffle_epi8(bytes, shuffle);
        const __m128i last = _mm_and_si128(v, _mm_set1_epi32(0x7F));
        const __m128i middle = _mm_srli_epi32(_mm_and_si128(v, _mm_set1_epi32(0x3F00)), 2);
        const __m128i first = _mm_srli_epi32(_mm_and_si128(v, _mm_set1_epi32(0x0F0000)), 4);
        const __m128i joined = _mm_or_si128(_mm_or_si128(last, middle), first);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(scalars + block.codes),
                         _mm_packus_epi32(joined, joined));
        block.codes += step.characters;
        block.bytes += step.bytes;
    }
    return block;
}

// ---- Other chunks ------------------------------------------------------------------------------

AVX2 inline __m256i repeat(__m128i v) {
    return _mm256_broadcastsi128_si256(v);
}

AVX2 inline __m256i reverse_quads(__m256i quads) {
    return _mm256_shuffle_epi8(
        quads, repeat(_mm_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3)));
}

AVX2 inline __m256i swap_pairs(__m256i units) {
    return _mm256_or_si256(_mm256_slli_epi16(units, 8), _mm256_srli_epi16(units, 8));
}

AVX2 std::size_t narrow_quads(const u8* in, u16* scalars, bool big_endian) {
    __m256i low = load(in), high = load(in + vector_bytes);
    if (big_endian) {
        low = reverse_quads(low);
        high = reverse_quads(high);
    }
    const __m256i beyond = _mm256_set1_epi32(static_cast<int>(0xFFFF0000));
    if (_mm256_testz_si256(_mm256_or_si256(low, high), beyond) == 0) {
        return 0;
    }
    store(scalars, _mm256_permute4x64_epi64(_mm256_packus_epi32(low, high), 0xD8));
    return chunk_bytes / 4;
}

AVX2 std::size_t seven_bit_pairs(const u8* in, u16 base, u16* codes) {
    u64 others = 0;
    for (std::size_t at = 0; at < chunk_bytes; at += vector_bytes) {
        const __m256i bytes = load(in + at);
        others |= u64{mask_of(_mm256_or_si256(_mm256_cmpgt_epi8(_mm256_set1_epi8(0x21), bytes),
                                              _mm256_cmpeq_epi8(bytes, _mm256_set1_epi8(0x7F))))}
                  << at;
        const __m256i pairs = swap_pairs(bytes);
        const __m256i rows =
            _mm256_srli_epi16(_mm256_and_si256(pairs, _mm256_set1_epi16(0x7F00)), 1);
        const __m256i cells = _mm256_and_si256(pairs, _mm256_set1_epi16(0x007F));
        store(codes + at / 2, _mm256_or_si256(_mm256_or_si256(rows, cells),
                                              _mm256_set1_epi16(static_cast<short>(base))));
    }
    return static_cast<std::size_t>(std::countr_zero(others)) / 2;
}

// ---- Scalars to UTF-8 --------------------------------------------------------------------------

// By the lengths of four characters, two bits each: the shuffle that draws them together.
struct encode_step {
    std::array<u8, 16> shuffle;
    u32 bytes;
};

constexpr std::array<encode_step, 256> make_encode_steps() {
    std::array<encode_step, 256> steps{};
    for (u32 index = 0; index < steps.size(); ++index) {
        encode_step& step = steps[index];
        step.shuffle.fill(nothing);
        for (u32 lane = 0; lane < lanes; ++lane) {
            // One bit for "two or more", one for "three", as the masks come.
            const u32 length = 1 + (index >> lane & 1) + (index >> (lane + lanes) & 1);
            for (u32 i = 0; i < length; ++i) {
                step.shuffle[step.bytes++] = static_cast<u8>(4 * lane + i);
            }
        }
    }
    return steps;
}
constexpr std::array<encode_step, 256> encoding = make_encode_steps();

AVX2 inline __m256i choose(__m256i condition, __m256i yes, __m256i no) {
    return _mm256_blendv_epi8(no, yes, condition);
}

AVX2 inline u8* put_lanes(u8* out, __m128i bytes, u32 index, u32 count) {
    const encode_step& step = encoding[index];
    const __m128i shuffle = _mm_loadu_si128(reinterpret_cast<const __m128i*>(step.shuffle.data()));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_shuffle_epi8(bytes, shuffle));
    // Lanes behind the last scalar are zero, and came to a byte each.
    return out + step.bytes - (count < lanes ? lanes - count : 0);
}

AVX2 std::size_t encode_utf8(const u16* scalars, std::size_t count, u8* out) {
    const u8* const begin = out;
    for (std::size_t at = 0; at < count; at += 2 * lanes) {
        const auto left = static_cast<u32>(count - at);
        __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(scalars + at));
        if (left < 2 * lanes) {
            const __m128i order = _mm_set_epi16(7, 6, 5, 4, 3, 2, 1, 0);
            units = _mm_and_si128(units,
                                  _mm_cmpgt_epi16(_mm_set1_epi16(static_cast<short>(left)), order));
        }
        const __m256i c = _mm256_cvtepu16_epi32(units);
        const __m256i two = _mm256_cmpgt_epi32(c, _mm256_set1_epi32(0x7F));
        const __m256i three = _mm256_cmpgt_epi32(c, _mm256_set1_epi32(0x7FF));
        const __m256i low6 = _mm256_set1_epi32(0x3F), mark = _mm256_set1_epi32(0x80);
        const __m256i up6 = _mm256_srli_epi32(c, 6);
        const __m256i tail = _mm256_or_si256(_mm256_and_si256(c, low6), mark);
        const __m256i middle = _mm256_or_si256(_mm256_and_si256(up6, low6), mark);
        const __m256i of_two = _mm256_or_si256(_mm256_or_si256(up6, _mm256_set1_epi32(0xC0)),
                                               _mm256_slli_epi32(tail, 8));
        const __m256i of_three = _mm256_or_si256(
            _mm256_or_si256(_mm256_srli_epi32(c, 12), _mm256_set1_epi32(0xE0)),
            _mm256_or_si256(_mm256_slli_epi32(middle, 8), _mm256_slli_epi32(tail, 16)));
        const __m256i bytes = choose(three, of_three, choose(two, of_two, c));
        const auto twos = static_cast<u32>(_mm256_movemask_ps(_mm256_castsi256_ps(two)));
        const auto threes = static_cast<u32>(_mm256_movemask_ps(_mm256_castsi256_ps(three)));
        out =
            put_lanes(out, _mm256_castsi256_si128(bytes), (twos & 0xF) | (threes & 0xF) << 4, left);
        if (left > lanes) {
            out = put_lanes(out, _mm256_extracti128_si256(bytes, 1), twos >> 4 | (threes & 0xF0),
                            left - lanes);
        }
    }
    return static_cast<std::size_t>(out - begin);
}

AVX2 void copy_units(const void* in, void* out, bool swap) {
    for (std::size_t at = 0; at < chunk_bytes; at += vector_bytes) {
        const __m256i units = load(static_cast<const u8*>(in) + at);
        store(static_cast<u8*>(out) + at, swap ? swap_pairs(units) : units);
    }
}

AVX2 void put_quads(const u16* scalars, std::size_t count, u8* out, bool big_endian) {
    for (std::size_t at = 0; at < count; at += 2 * lanes) {
        const __m256i quads =
            _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(scalars + at)));
        store(out + 4 * at, big_endian ? reverse_quads(quads) : quads);
    }
}

AVX2 std::size_t plain_scalars(const u16* scalars, std::size_t count, std::span<const u16> stops) {
    constexpr std::size_t step = 16;
    for (std::size_t at = 0; at < count; at += step) {
        const __m256i units = load(scalars + at);
        __m256i stop = _mm256_cmpeq_epi16(
            _mm256_and_si256(units, _mm256_set1_epi16(static_cast<short>(0xF800))),
            _mm256_set1_epi16(static_cast<short>(0xD800)));
        for (const u16 s : stops) {
            stop = _mm256_or_si256(
                stop, _mm256_cmpeq_epi16(units, _mm256_set1_epi16(static_cast<short>(s))));
        }
        if (mask_of(stop) != 0) {
            const std::size_t first =
                at + static_cast<std::size_t>(std::countr_zero(mask_of(stop))) / 2;
            return first < count ? first : count;
        }
    }
    return count;
}

} // namespace

const kernels avx2_kernels = {
    .name = "avx2",
    .copy_ascii = copy_ascii_avx2,
    .widen_ascii = widen_ascii_avx2,
    .narrow_ascii = narrow_ascii_avx2,
    .decode_utf8 = decode_utf8,
    .decode_pays_for_entries = false,
    .narrow_quads = narrow_quads,
    .split_codes = nullptr,
    .encode_utf8 = encode_utf8,
    .copy_units = copy_units,
    .put_quads = put_quads,
    .plain_scalars = plain_scalars,
    .seven_bit_pairs = seven_bit_pairs,
    .count_breaks = count_breaks_avx2,
};

} // namespace fast

#endif
