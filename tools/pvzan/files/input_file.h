// Input: a file, or standard input for "-".
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace tool {

bool is_standard_input(const std::string& name);

// What a regular file is known by, under whatever name.
using file_id = std::pair<dev_t, ino_t>;
std::optional<file_id> id_of(const std::string& path);
std::optional<file_id> id_of(int descriptor);

class input_file {
public:
    explicit input_file(const std::string& name);
    ~input_file();
    input_file(const input_file&) = delete;
    input_file& operator=(const input_file&) = delete;

    [[nodiscard]] bool is_open() const { return descriptor_ >= 0; }
    [[nodiscard]] int descriptor() const { return descriptor_; }

    // Reads what there is: 0 at the end, -1 on failure with errno set.
    ssize_t read(std::span<std::uint8_t> into) const;

private:
    int descriptor_;
};

// Reads a block of an open file, less at its end, from a place. False on failure.
bool read_block(int descriptor, std::uint64_t place, std::vector<std::uint8_t>& block);
bool same_content(int descriptor, int other);

} // namespace tool
