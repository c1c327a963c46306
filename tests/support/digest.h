// Answers to many questions as one number each, recorded when they had been found equal to those of
// another judge. That says in few lines of test that nothing has changed; to find what has, set
// PVZAN_DIGEST to the name of a digest, with the library as it was and as it is: what went into it
// is written to standard output, a line each.
#pragma once

#include "tests/support/test.h"

namespace test {

class digest {
public:
    explicit digest(std::string name) : name_(std::move(name)) {
        const char* shown = std::getenv("PVZAN_DIGEST");
        shown_ = shown != nullptr && name_ == shown;
    }

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

    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] std::string value() const {
        return (std::ostringstream() << std::hex << value_).str();
    }

private:
    void add_byte(std::uint32_t byte) { value_ = (value_ ^ byte) * 1099511628211U; } // FNV-1a

    std::string name_;
    bool shown_;
    std::uint64_t value_ = 14695981039346656037U;
};

// Rows of three columns: a kind, what was recorded, and of what.
struct recorded_row {
    std::string answer, of;
};

inline std::vector<recorded_row> recorded(const std::string& file, std::string_view kind) {
    std::ifstream in(PVZAN_SOURCE_DIR "/tests/data/" + file);
    std::vector<recorded_row> rows;
    std::string line_kind;
    for (recorded_row row; std::getline(in, line_kind, '\t') &&
                           std::getline(in, row.answer, '\t') && std::getline(in, row.of);) {
        if (line_kind == kind) {
            rows.push_back(row);
        }
    }
    EXPECT_FALSE(rows.empty()) << file << " has no " << kind;
    return rows;
}

inline void expect_recorded(const std::string& file, const digest& d) {
    for (const recorded_row& row : recorded(file, "digest")) {
        if (row.of == d.name()) {
            EXPECT_EQ(d.value(), row.answer) << d.name();
            return;
        }
    }
    ADD_FAILURE() << "digest\t" << d.value() << '\t' << d.name() << "\nis not in " << file;
}

} // namespace test
