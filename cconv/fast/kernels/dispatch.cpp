// Which kernels the processor at hand can run.
#include "cconv/fast/kernels/kernels.h"

#include <atomic>

namespace fast {

namespace {

std::atomic<const kernels*> by_hand;

const kernels& best_kernels() {
    kernel_list list{};
    list_kernels(list);
    return *list[0];
}

} // namespace

void list_kernels(kernel_list& list) {
    std::size_t count = 0;
#if defined(__x86_64__)
    __builtin_cpu_init();
    const bool avx2 = __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("bmi2") != 0;
    if (avx2 && __builtin_cpu_supports("avx512vbmi2") != 0 &&
        __builtin_cpu_supports("avx512vbmi") != 0 && __builtin_cpu_supports("avx512bw") != 0 &&
        __builtin_cpu_supports("avx512vl") != 0) {
        list[count++] = &avx512_kernels;
    }
    if (avx2) {
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
