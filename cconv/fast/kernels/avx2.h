// Runs of ASCII by AVX2, which longer vectors do not beat; for the other kernels of x86-64.
#pragma once

#include "cconv/fast/kernels/kernels.h"

namespace fast {

std::size_t copy_ascii_avx2(const ascii_run& run);
std::size_t widen_ascii_avx2(const ascii_run& run, ascii_unit target);
std::size_t narrow_ascii_avx2(const ascii_run& run, ascii_unit source);
u64 count_breaks_avx2(const u8* in, std::size_t units, ascii_unit unit);

// The bits that a unit of ASCII has not, for a vector of 32-bit lanes as it is loaded.
constexpr int beyond_ascii(u32 unit_bytes, bool big_endian) {
    const u32 bits = unit_bytes == 2 ? big_endian ? 0x80FF80FF : 0xFF80FF80
                     : big_endian    ? 0x80FFFFFF
                                     : 0xFFFFFF80;
    return static_cast<int>(bits);
}

// By how many bits the value of a unit is displaced as it is loaded and stored.
constexpr int displacement(u32 unit_bytes, bool big_endian) {
    return big_endian ? static_cast<int>(8 * (unit_bytes - 1)) : 0;
}

// What of a run lies behind its first n characters.
inline ascii_run behind(const ascii_run& run, std::size_t n, u32 in_unit, u32 out_unit) {
    return {run.in + n * in_unit, run.in_size - n * in_unit, run.out + n * out_unit,
            run.out_size - n * out_unit, run.plain};
}

} // namespace fast
