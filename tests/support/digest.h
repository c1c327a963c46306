// Answers to many questions as one number each, recorded in tests/data/digests.tsv when they had
// been found equal to those of another judge. That says in few lines of test that nothing has
// changed; to find what has, set PVZAN_DIGEST to the name of a digest, with the library as it was
// and as it is: what went into it is written to standard output, a line each.
#pragma once

#include "tests/support/test.h"

namespace test {

// Compared with what was recorded when it ends.
class digest {
public:
    explicit digest(std::string name) : name_(std::move(name)) {
        const char* shown = std::getenv("PVZAN_DIGEST");
        shown_ = shown != nullptr && name_ == shown;
    }
    ~digest() {
        std::ifstream file(PVZAN_SOURCE_DIR "/tests/data/digests.tsv");
        std::ostringstream value;
        value << name_ << '\t' << std::hex << value_;
        for (std::string line; std::getline(file, line);) {
            if (line == value.str()) {
                return;
            }
        }
        ADD_FAILURE() << value.str() << "\nis not in digests.tsv";
    }
    digest(const digest&) = delete;
    digest& operator=(const digest&) = delete;

    // A line of text, or numbers that would make one.
    void add(std::string_view line) {
        for (const char c : line) {
            add_byte(static_cast<unsigned char>(c));
        }
        if (shown_) {
            std::cout << line << '\n';
        }
    }
    void add(std::initializer_list<std::uint32_t> numbers) {
        for (const std::uint32_t number : numbers) {
            for (int shift = 0; shift < 32; shift += 8) {
                add_byte(number >> shift & 0xFF);
            }
            if (shown_) {
                std::cout << std::hex << number << ' ';
            }
        }
        if (shown_) {
            std::cout << '\n';
        }
    }
    void add(std::string_view line, std::initializer_list<std::uint32_t> numbers) {
        add(line);
        add(numbers);
    }

private:
    void add_byte(std::uint32_t byte) { value_ = (value_ ^ byte) * 1099511628211U; } // FNV-1a

    std::string name_;
    bool shown_;
    std::uint64_t value_ = 14695981039346656037U;
};

} // namespace test
