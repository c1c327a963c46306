// Kernels for processors with AVX-512 VBMI2, whose byte compression puts variable lengths together.
#include "cconv/fast/kernels/avx2.h"

#if defined(__x86_64__)

#include <algorithm>
#include <bit>
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized" // in the header of g++ 12 itself
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#define AVX512 [[gnu::target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,bmi,bmi2,popcnt")]]

namespace fast {

namespace {

// The kinds of bytes in 64 of them, a bit each. Too low to follow E0 are 80 to 9F.
struct byte_kinds {
    u64 lead2, lead3, continuation, other, too_low;
};

AVX512 inline byte_kinds kinds_of(__m512i bytes) {
    const u64 beyond_ascii = _mm512_movepi8_mask(bytes);
    const u64 from_c0 = _mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xC0)));
    const u64 from_e0 = _mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xE0)));
    const u64 from_f0 = _mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xF0)));
    // C0 and C1 open nothing but forms that are too long.
    const u64 from_c2 = _mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xC2)));
    const u64 from_a0 = _mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xA0)));
    const u64 e0 = _mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xE0)));
    return {from_c2 & ~from_e0, from_e0 & ~from_f0, beyond_ascii & ~from_c0,
            from_f0 | (from_c0 & ~from_c2), e0 << 1 & ~from_a0};
}

// One half of the scalars, from the last, last but one and last but two bytes of the sequences.
AVX512 inline __m512i join_bytes(__m256i last, __m256i middle, __m256i first) {
    const __m512i low = _mm512_and_si512(_mm512_cvtepu8_epi16(last), _mm512_set1_epi16(0x7F));
    const __m512i mid = _mm512_slli_epi16(
        _mm512_and_si512(_mm512_cvtepu8_epi16(middle), _mm512_set1_epi16(0x3F)), 6);
    const __m512i high = _mm512_slli_epi16(_mm512_cvtepu8_epi16(first), 12);
    return _mm512_or_si512(_mm512_or_si512(low, mid), high);
}

AVX512 chunk_read decode_utf8(const u8* in, u16* scalars) {
    const __m512i bytes = _mm512_loadu_si512(in);
    const byte_kinds kinds = kinds_of(bytes);
    const u64 leads = ~kinds.continuation;
    const u64 wrong =
        (kinds.continuation ^ (kinds.lead2 << 1 | kinds.lead3 << 1 | kinds.lead3 << 2)) |
        kinds.other | kinds.too_low;
    // What comes before the last lead is whole, and well-formed when that stands before any wrong
    // byte.
    const u64 candidates = leads & (wrong == 0 ? ~u64{0} : (wrong & -wrong) - 1);
    if (candidates == 0) {
        return {0, 0};
    }
    const auto size = static_cast<std::size_t>(63 - std::countl_zero(candidates));
    const u64 inside = (u64{1} << size) - 1;
    const u64 ends = leads >> 1 & inside;
    const u64 long_ends = (kinds.lead2 << 1 | kinds.lead3 << 2) & ends;
    const u64 longest_ends = kinds.lead3 << 2 & ends;
    // The bytes before each, without reading before the text.
    const __m512i one_before = _mm512_maskz_loadu_epi8(long_ends, in - 1);
    const __m512i two_before = _mm512_maskz_loadu_epi8(longest_ends, in - 2);
    const __m512i last = _mm512_maskz_compress_epi8(ends, bytes);
    const __m512i middle = _mm512_maskz_compress_epi8(ends, one_before);
    const __m512i first = _mm512_maskz_compress_epi8(ends, two_before);
    const auto count = static_cast<std::size_t>(std::popcount(ends));
    _mm512_storeu_si512(scalars,
                        join_bytes(_mm512_castsi512_si256(last), _mm512_castsi512_si256(middle),
                                   _mm512_castsi512_si256(first)));
    if (count > chunk_codes / 2) {
        _mm512_storeu_si512(scalars + chunk_codes / 2,
                            join_bytes(_mm512_extracti64x4_epi64(last, 1),
                                       _mm512_extracti64x4_epi64(middle, 1),
                                       _mm512_extracti64x4_epi64(first, 1)));
    }
    return {count, size};
}

AVX512 inline __m512i repeat(__m128i v) {
    return _mm512_broadcast_i32x4(v);
}

AVX512 inline __m512i reverse_quads(__m512i quads) {
    return _mm512_shuffle_epi8(
        quads, repeat(_mm_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3)));
}

AVX512 inline __m512i swap_pairs(__m512i units) {
    return _mm512_or_si512(_mm512_slli_epi16(units, 8), _mm512_srli_epi16(units, 8));
}

AVX512 std::size_t narrow_quads(const u8* in, u16* scalars, bool big_endian) {
    const __m512i read = _mm512_loadu_si512(in);
    const __m512i quads = big_endian ? reverse_quads(read) : read;
    if (_mm512_cmpgt_epu32_mask(quads, _mm512_set1_epi32(0xFFFF)) != 0) {
        return 0;
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(scalars), _mm512_cvtepi32_epi16(quads));
    return chunk_bytes / 4;
}

// Bit i: byte i, if a character begins there, is the lead of two.
AVX512 inline u64 lead_mask(__m512i bytes, const byte_set& leads) {
    const __m512i rows = repeat(_mm_loadu_si128(reinterpret_cast<const __m128i*>(leads.rows)));
    // ASCII has no bit here.
    const __m512i bits = repeat(_mm_set_epi8(static_cast<char>(0x80), 0x40, 0x20, 0x10, 8, 4, 2, 1,
                                             0, 0, 0, 0, 0, 0, 0, 0));
    const __m512i low4 = _mm512_set1_epi8(0x0F);
    const __m512i row = _mm512_shuffle_epi8(rows, _mm512_and_si512(bytes, low4));
    const __m512i bit =
        _mm512_shuffle_epi8(bits, _mm512_and_si512(_mm512_srli_epi16(bytes, 4), low4));
    return _mm512_test_epi8_mask(row, bit);
}

AVX512 inline __m512i join_pair(__m256i lead, __m256i last) {
    return _mm512_or_si512(_mm512_slli_epi16(_mm512_cvtepu8_epi16(lead), 8),
                           _mm512_cvtepu8_epi16(last));
}

AVX512 chunk_read split_codes(const u8* in, const byte_set& leads, u16* codes) {
    const __m512i bytes = _mm512_loadu_si512(in);
    const u64 trails = trails_of(lead_mask(bytes, leads));
    const auto size = static_cast<std::size_t>(63 - std::countl_zero(~trails));
    const u64 ends = ~trails >> 1 & ((u64{1} << size) - 1);
    const u64 pair_ends = trails & ends;
    const __m512i last = _mm512_maskz_compress_epi8(ends, bytes);
    const __m512i lead =
        _mm512_maskz_compress_epi8(ends, _mm512_maskz_loadu_epi8(pair_ends, in - 1));
    const auto count = static_cast<std::size_t>(std::popcount(ends));
    _mm512_storeu_si512(codes,
                        join_pair(_mm512_castsi512_si256(lead), _mm512_castsi512_si256(last)));
    if (count > chunk_codes / 2) {
        _mm512_storeu_si512(codes + chunk_codes / 2, join_pair(_mm512_extracti64x4_epi64(lead, 1),
                                                               _mm512_extracti64x4_epi64(last, 1)));
    }
    return {count, size};
}

AVX512 std::size_t seven_bit_pairs(const u8* in, u16 base, u16* codes) {
    const __m512i bytes = _mm512_loadu_si512(in);
    const u64 others = _mm512_cmplt_epi8_mask(bytes, _mm512_set1_epi8(0x21)) |
                       _mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8(0x7F));
    const __m512i pairs = swap_pairs(bytes);
    const __m512i rows = _mm512_srli_epi16(_mm512_and_si512(pairs, _mm512_set1_epi16(0x7F00)), 1);
    const __m512i cells = _mm512_and_si512(pairs, _mm512_set1_epi16(0x007F));
    _mm512_storeu_si512(codes, _mm512_or_si512(_mm512_or_si512(rows, cells),
                                               _mm512_set1_epi16(static_cast<short>(base))));
    return static_cast<std::size_t>(std::countr_zero(others)) / 2;
}

AVX512 std::size_t encode_utf8(const u16* scalars, std::size_t count, u8* out) {
    constexpr std::size_t step = 16;
    const u8* const begin = out;
    for (std::size_t at = 0; at < count; at += step) {
        const auto lanes =
            static_cast<__mmask16>(count - at >= step ? 0xFFFFU : (1U << (count - at)) - 1);
        const __m512i c = _mm512_cvtepu16_epi32(_mm256_maskz_loadu_epi16(lanes, scalars + at));
        const __mmask16 two = _mm512_cmpge_epu32_mask(c, _mm512_set1_epi32(0x80));
        const __mmask16 three = _mm512_cmpge_epu32_mask(c, _mm512_set1_epi32(0x800));
        // Lead in the lowest byte. Of one byte: c; of two: c >> 6, c; of three: c >> 12, c >> 6, c.
        const __m512i tail =
            _mm512_or_si512(_mm512_and_si512(c, _mm512_set1_epi32(0x3F)), _mm512_set1_epi32(0x80));
        const __m512i middle =
            _mm512_or_si512(_mm512_and_si512(_mm512_srli_epi32(c, 6), _mm512_set1_epi32(0x3F)),
                            _mm512_set1_epi32(0x80));
        const __m512i lead2 = _mm512_or_si512(_mm512_srli_epi32(c, 6), _mm512_set1_epi32(0xC0));
        const __m512i lead3 = _mm512_or_si512(_mm512_srli_epi32(c, 12), _mm512_set1_epi32(0xE0));
        __m512i bytes = _mm512_mask_or_epi32(c, two, lead2, _mm512_slli_epi32(tail, 8));
        bytes = _mm512_mask_or_epi32(
            bytes, three, lead3,
            _mm512_or_si512(_mm512_slli_epi32(middle, 8), _mm512_slli_epi32(tail, 16)));
        // How many bytes of each lane count.
        __m512i used = _mm512_maskz_set1_epi32(lanes, 0x000000FF);
        used = _mm512_mask_set1_epi32(used, two, 0x0000FFFF);
        used = _mm512_mask_set1_epi32(used, three, 0x00FFFFFF);
        const u64 keep = _mm512_movepi8_mask(used);
        _mm512_storeu_si512(out, _mm512_maskz_compress_epi8(keep, bytes));
        out += std::popcount(keep);
    }
    return static_cast<std::size_t>(out - begin);
}

AVX512 void copy_units(const void* in, void* out, bool swap) {
    const __m512i units = _mm512_loadu_si512(in);
    _mm512_storeu_si512(out, swap ? swap_pairs(units) : units);
}

AVX512 void put_quads(const u16* scalars, std::size_t count, u8* out, bool big_endian) {
    constexpr std::size_t step = 16;
    for (std::size_t at = 0; at < count; at += step) {
        const __m512i quads = _mm512_cvtepu16_epi32(
            _mm256_loadu_si256(reinterpret_cast<const __m256i*>(scalars + at)));
        _mm512_storeu_si512(out + 4 * at, big_endian ? reverse_quads(quads) : quads);
    }
}

AVX512 std::size_t plain_scalars(const u16* scalars, std::size_t count,
                                 std::span<const u16> stops) {
    constexpr std::size_t step = 32;
    for (std::size_t at = 0; at < count; at += step) {
        const __m512i units = _mm512_loadu_si512(scalars + at);
        u32 stop = _mm512_cmpeq_epi16_mask(
            _mm512_and_si512(units, _mm512_set1_epi16(static_cast<short>(0xF800))),
            _mm512_set1_epi16(static_cast<short>(0xD800)));
        for (const u16 s : stops) {
            stop |= _mm512_cmpeq_epi16_mask(units, _mm512_set1_epi16(static_cast<short>(s)));
        }
        if (stop != 0) {
            const std::size_t first = at + static_cast<std::size_t>(std::countr_zero(stop));
            return first < count ? first : count;
        }
    }
    return count;
}

// ---- Runs of ASCII -----------------------------------------------------------------------------

// Short runs, and the ends of buffers, in one step under a mask; AVX2 does long ones no slower.

AVX512 inline u64 first_lanes(std::size_t count) {
    return count < 64 ? (u64{1} << count) - 1 : ~u64{0};
}

// How many of the bytes, count of which are there, are plain before the first that is not.
AVX512 inline std::size_t plain_bytes(__m512i bytes, u64 there, const byte_set& plain) {
    const __m512i rows = repeat(_mm_loadu_si128(reinterpret_cast<const __m128i*>(plain.rows)));
    const __m512i bits = repeat(_mm_set_epi8(0, 0, 0, 0, 0, 0, 0, 0, static_cast<char>(0x80), 0x40,
                                             0x20, 0x10, 8, 4, 2, 1));
    // A row is only found for ASCII.
    const __m512i row = _mm512_shuffle_epi8(rows, bytes);
    const __m512i bit = _mm512_shuffle_epi8(
        bits, _mm512_and_si512(_mm512_srli_epi16(bytes, 4), _mm512_set1_epi8(0x0F)));
    const u64 is_plain = _mm512_test_epi8_mask(row, bit) & there;
    return is_plain == ~u64{0} ? 64 : static_cast<std::size_t>(std::countr_zero(~is_plain));
}

AVX512 std::size_t copy_ascii(const ascii_run& run) {
    constexpr std::size_t step = 64;
    const std::size_t size = std::min(run.in_size, run.out_size);
    const u64 there = first_lanes(size);
    const __m512i bytes = _mm512_maskz_loadu_epi8(there, run.in);
    const std::size_t n = plain_bytes(bytes, there, run.plain);
    _mm512_mask_storeu_epi8(run.out, first_lanes(n), bytes);
    return n < step || size == step ? n : n + copy_ascii_avx2(behind(run, n, 1, 1));
}

AVX512 std::size_t widen_ascii(const ascii_run& run, ascii_unit target) {
    const std::size_t step = 64 / target.bytes;
    const std::size_t size = std::min(run.in_size, run.out_size / target.bytes);
    const u64 there = first_lanes(std::min(size, step));
    const __m512i bytes = _mm512_maskz_loadu_epi8(there, run.in);
    const std::size_t n = plain_bytes(bytes, there, run.plain);
    const __m128i shift = _mm_cvtsi32_si128(displacement(target.bytes, target.big_endian));
    if (target.bytes == 2) {
        const __m512i units = _mm512_cvtepu8_epi16(_mm512_castsi512_si256(bytes));
        _mm512_mask_storeu_epi16(run.out, static_cast<__mmask32>(first_lanes(n)),
                                 _mm512_sll_epi16(units, shift));
    } else {
        const __m512i units = _mm512_cvtepu8_epi32(_mm512_castsi512_si128(bytes));
        _mm512_mask_storeu_epi32(run.out, static_cast<__mmask16>(first_lanes(n)),
                                 _mm512_sll_epi32(units, shift));
    }
    return n < step || size == step ? n
                                    : n + widen_ascii_avx2(behind(run, n, 1, target.bytes), target);
}

AVX512 std::size_t narrow_ascii(const ascii_run& run, ascii_unit source) {
    const std::size_t step = 64 / source.bytes;
    const std::size_t size = std::min(run.in_size / source.bytes, run.out_size);
    const u64 there = first_lanes(std::min(size, step));
    const __m128i shift = _mm_cvtsi32_si128(displacement(source.bytes, source.big_endian));
    __m512i bytes;
    u64 ascii;
    if (source.bytes == 2) {
        const __m512i units = _mm512_maskz_loadu_epi16(static_cast<__mmask32>(there), run.in);
        ascii =
            _mm512_testn_epi16_mask(units, _mm512_set1_epi32(beyond_ascii(2, source.big_endian)));
        bytes = _mm512_castsi256_si512(_mm512_cvtepi16_epi8(_mm512_srl_epi16(units, shift)));
    } else {
        const __m512i units = _mm512_maskz_loadu_epi32(static_cast<__mmask16>(there), run.in);
        ascii =
            _mm512_testn_epi32_mask(units, _mm512_set1_epi32(beyond_ascii(4, source.big_endian)));
        bytes = _mm512_castsi128_si512(_mm512_cvtepi32_epi8(_mm512_srl_epi32(units, shift)));
    }
    const std::size_t n = plain_bytes(bytes, there & ascii, run.plain);
    _mm512_mask_storeu_epi8(run.out, first_lanes(n), bytes);
    return n < step || size == step
               ? n
               : n + narrow_ascii_avx2(behind(run, n, source.bytes, 1), source);
}

} // namespace

const kernels avx512_kernels = {
    .name = "avx512",
    .copy_ascii = copy_ascii,
    .widen_ascii = widen_ascii,
    .narrow_ascii = narrow_ascii,
    .decode_utf8 = decode_utf8,
    .decode_pays_for_entries = true,
    .narrow_quads = narrow_quads,
    .split_codes = split_codes,
    .encode_utf8 = encode_utf8,
    .copy_units = copy_units,
    .put_quads = put_quads,
    .plain_scalars = plain_scalars,
    .seven_bit_pairs = seven_bit_pairs,
    .count_breaks = count_breaks_avx2,
};

} // namespace fast

#endif
