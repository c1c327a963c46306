// What the kernels for AVX2 share.
#pragma once

#include "cconv/base.h"

#include <immintrin.h>

#define AVX2 [[gnu::target("avx2,bmi,bmi2,popcnt")]]

inline constexpr std::size_t vector_bytes = 32;

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
AVX2 inline u32 mask_of(__m256i bytes) {
    return static_cast<u32>(_mm256_movemask_epi8(bytes));
}
