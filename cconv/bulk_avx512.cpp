// Kernels for processors with AVX-512 VBMI2, whose byte compression puts variable lengths together.
#include "cconv/bulk_kernels.h"

#if defined(__x86_64__)

#include "cconv/bulk_ascii.h"

#include <bit>
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized" // in the header of g++ 12 itself
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#define AVX512 [[gnu::target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,bmi,bmi2,popcnt")]]

namespace {

// The kinds of bytes in 64 of them, a bit each.
struct byte_kinds {
    u64 lead2, lead3, continuation, other;
};

AVX512 inline byte_kinds kinds_of(__m512i bytes) {
    const u64 beyond_ascii = _mm512_movepi8_mask(bytes);
    const u64 from_c0 = _mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xC0)));
    const u64 from_e0 = _mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xE0)));
    const u64 from_f0 = _mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xF0)));
    return {from_c0 & ~from_e0, from_e0 & ~from_f0, beyond_ascii & ~from_c0, from_f0};
}

// One half of the scalars, from the last, last but one and last but two bytes of the sequences.
AVX512 inline __m512i join_bytes(__m256i last, __m256i middle, __m256i first) {
    const __m512i low = _mm512_and_si512(_mm512_cvtepu8_epi16(last), _mm512_set1_epi16(0x7F));
    const __m512i mid = _mm512_slli_epi16(
        _mm512_and_si512(_mm512_cvtepu8_epi16(middle), _mm512_set1_epi16(0x3F)), 6);
    const __m512i high = _mm512_slli_epi16(_mm512_cvtepu8_epi16(first), 12);
    return _mm512_or_si512(_mm512_or_si512(low, mid), high);
}

AVX512 scalar_block decode_utf8(const u8* in, u16* scalars) {
    const __m512i bytes = _mm512_loadu_si512(in);
    const byte_kinds kinds = kinds_of(bytes);
    const u64 leads = ~kinds.continuation;
    const u64 wrong =
        (kinds.continuation ^ (kinds.lead2 << 1 | kinds.lead3 << 1 | kinds.lead3 << 2)) |
        kinds.other;
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
    if (count > chunk_scalars / 2) {
        _mm512_storeu_si512(scalars + chunk_scalars / 2,
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
AVX512 inline u64 lead_mask(__m512i bytes, const lead_set& leads) {
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

AVX512 scalar_block split_codes(const u8* in, const lead_set& leads, u16* codes) {
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
    if (count > chunk_scalars / 2) {
        _mm512_storeu_si512(
            codes + chunk_scalars / 2,
            join_pair(_mm512_extracti64x4_epi64(lead, 1), _mm512_extracti64x4_epi64(last, 1)));
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

} // namespace

const bulk_kernels bulk_kernels_avx512 = {copy_ascii_avx2, widen_ascii_avx2, narrow_ascii_avx2,
                                          decode_utf8,     narrow_quads,     split_codes,
                                          encode_utf8,     copy_units,       put_quads,
                                          plain_scalars,   seven_bit_pairs};

#endif
