// How far the work on many files is, on the last line of a terminal.
#pragma once

#include "tools/pvzan/files/file_list.h"

#include <chrono>
#include <vector>

namespace tool {

class progress {
public:
    explicit progress(const std::vector<listed_file>& files);
    // Another file is done.
    void add(std::uint64_t bytes, std::uint64_t problems);
    void end();

private:
    using clock = std::chrono::steady_clock;

    void show(clock::time_point now);

    bool wanted_;
    std::uint64_t files_, all_bytes_ = 0, done_ = 0, bytes_ = 0, problems_ = 0;
    clock::time_point start_ = clock::now(), shown_ = start_;
    bool on_screen_ = false;
};

} // namespace tool
