// What bench.cpp runs. All results go to standard output as Markdown.
#pragma once

#include "bench/charset_pairs.h"

#include <algorithm>
#include <chrono>

namespace bench {

struct options {
    std::string texts;         // directory with the texts
    std::string pair, text;    // only names that contain these
    std::size_t megabytes = 0; // how much of each text; 0: all
    std::size_t rounds = 9;    // each contender once in each
    bool normalise_newlines = false;
    bool peers = true;
    const char* older = nullptr; // another build of the library, to measure beside this one
};

inline double now_ns() {
    return std::chrono::duration<double, std::nano>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

inline double median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
}

std::vector<std::uint8_t> read_text(const options& wanted, const std::string& name);

// The text in a charset, empty when it cannot be.
std::vector<std::uint8_t> in_charset(bytes_view utf8_text, const charset& to);

// MB (10^6 bytes) of input a second for each pair and text.
void measure_throughput(const options& wanted);

// Opening, short texts, detection, and the library's memory. Takes processes of its own for what
// happens once in a process: to be called before anything else uses the library.
void measure_small_costs(const options& wanted);

} // namespace bench
