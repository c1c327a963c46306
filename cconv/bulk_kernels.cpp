// Which kernels the processor at hand can run.
#include "cconv/bulk_kernels.h"

const bulk_kernels& bulk_best_kernels() {
#if defined(__x86_64__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512vbmi2") != 0 && __builtin_cpu_supports("avx512vbmi") != 0 &&
        __builtin_cpu_supports("avx512bw") != 0 && __builtin_cpu_supports("avx512vl") != 0) {
        return bulk_kernels_avx512;
    }
    if (__builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("bmi2") != 0) {
        return bulk_kernels_avx2;
    }
#endif
    return bulk_kernels_portable;
}
