// Which kernels the processor at hand can run.
#include "cconv/fast/kernels/kernels.h"

#include <atomic>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace fast {

namespace {

std::atomic<const kernels*> by_hand;

#if defined(__x86_64__)
struct features {
    bool avx2 = false, avx512 = false;
};

// Both the processor and the system must know the registers. Not by __builtin_cpu_supports, which
// asks for everything at every start of a process: in a virtual machine each question takes longer
// than a short text does.
features ask_processor() {
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & bit_OSXSAVE) == 0) {
        return {};
    }
    constexpr unsigned avx_state = 0x06, avx512_state = 0xE6;
    unsigned kept = 0;
    __asm__("xgetbv" : "=a"(kept), "=d"(d) : "c"(0));
    if (__get_cpuid_count(7, 0, &a, &b, &c, &d) == 0) {
        return {};
    }
    constexpr unsigned avx2 = bit_AVX2 | bit_BMI2;
    constexpr unsigned avx512 = bit_AVX512F | bit_AVX512BW | bit_AVX512VL;
    constexpr unsigned bytes = bit_AVX512VBMI | bit_AVX512VBMI2;
    return {.avx2 = (kept & avx_state) == avx_state && (b & avx2) == avx2,
            .avx512 = (kept & avx512_state) == avx512_state && (b & avx512) == avx512 &&
                      (c & bytes) == bytes};
}
#endif

const kernels& best_kernels() {
    static std::atomic<const kernels*> best; // the same whoever asks first
    const kernels* known = best.load(std::memory_order_relaxed);
    if (known == nullptr) {
        kernel_list list{};
        list_kernels(list);
        known = list[0];
        best.store(known, std::memory_order_relaxed);
    }
    return *known;
}

} // namespace

void list_kernels(kernel_list& list) {
    std::size_t count = 0;
#if defined(__x86_64__)
    const features has = ask_processor();
    if (has.avx2 && has.avx512) {
        list[count++] = &avx512_kernels;
    }
    if (has.avx2) {
        list[count++] = &avx2_kernels;
    }
#endif
    list[count++] = &portable_kernels;
    list[count] = nullptr;
}

void choose_kernels(const kernels* chosen) {
    by_hand.store(chosen, std::memory_order_relaxed);
}

const kernels& chosen_kernels() {
    const kernels* chosen = by_hand.load(std::memory_order_relaxed);
    return chosen != nullptr ? *chosen : best_kernels();
}

} // namespace fast
