// Time that grows with the input, not with its square.
#pragma once

#include "tests/support/test.h"

#include <ctime>

namespace test {

inline double cpu_seconds() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// prepare(bytes) makes ready an input of that size and returns what is to be timed: sixteen times
// as much takes sixteen times as long, give or take the machine.
template <typename Prepare>
void expect_linear_time(const std::string& what, Prepare prepare) {
    const auto seconds = [&](std::size_t bytes) {
        const auto run = prepare(bytes);
        double best = 1e9;
        for (int i = 0; i < 3; ++i) {
            const double start = cpu_seconds();
            run();
            best = std::min(best, cpu_seconds() - start);
        }
        return best;
    };
    constexpr std::size_t small = 20000;
    EXPECT_LT(seconds(16 * small), 4 * 16 * (seconds(small) + 1e-4)) << what;
}

} // namespace test
