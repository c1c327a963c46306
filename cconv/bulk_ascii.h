// Kernels for runs of ASCII, for the tables of bulk_kernels.h.
#pragma once

#include "cconv/bulk_kernels.h"

std::size_t copy_ascii_avx2(const ascii_run& run);
std::size_t widen_ascii_avx2(const ascii_run& run, ascii_unit target);
std::size_t narrow_ascii_avx2(const ascii_run& run, ascii_unit source);
