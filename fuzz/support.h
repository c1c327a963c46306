// What the fuzzers share: reading choices from the input, failing, and places to put things.
#pragma once

#include "tests/support/temp_dir.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

// What libFuzzer, and the replaying main program, call.
extern "C" {
int LLVMFuzzerInitialize(int* argc, char*** argv);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
}

namespace fuzz {

using bytes = std::span<const std::uint8_t>;

// Stops the process, as a crash would.
[[noreturn]] void fail(const std::string& what);

inline void expect(bool holds, const char* what) {
    if (!holds) {
        fail(what);
    }
}

// Takes choices from the front of the input; what is used up gives 0.
class input {
public:
    explicit input(bytes data) : data_(data) {}

    std::uint32_t byte() {
        if (data_.empty()) {
            return 0;
        }
        const std::uint8_t value = data_.front();
        data_ = data_.subspan(1);
        return value;
    }
    std::uint32_t word() {
        std::uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            value = value << 8 | byte();
        }
        return value;
    }
    template <typename T, std::size_t Size>
    const T& choose(const T (&from)[Size]) {
        static_assert(Size <= 256);
        return from[byte() % Size];
    }
    bytes take(std::size_t most) {
        const bytes taken = data_.first(most < data_.size() ? most : data_.size());
        data_ = data_.subspan(taken.size());
        return taken;
    }
    [[nodiscard]] bytes rest() const { return data_; }

private:
    bytes data_;
};

// Bytes on a heap block of exactly their size, so that the sanitizer sees every step beyond.
class exact_bytes {
public:
    explicit exact_bytes(bytes from);
    exact_bytes(std::size_t size, std::uint8_t fill);
    explicit exact_bytes(std::size_t size) : data_(new std::uint8_t[size]), size_(size) {} // unset
    [[nodiscard]] std::uint8_t* data() const { return data_.get(); }
    [[nodiscard]] std::size_t size() const { return size_; }

private:
    std::unique_ptr<std::uint8_t[]> data_;
    std::size_t size_;
};

// Small numbers that follow from a seed.
class sequence {
public:
    explicit sequence(std::uint32_t seed) : state_(seed * 2 + 1) {}
    std::uint32_t below(std::uint32_t limit) {
        state_ = state_ * 1664525 + 1013904223;
        return (state_ >> 8) % limit;
    }

private:
    std::uint32_t state_;
};

inline std::string_view as_text(bytes b) {
    return {reinterpret_cast<const char*>(b.data()), b.size()};
}

// A directory of this process, removed at its end.
const test::temp_dir& scratch();

} // namespace fuzz
