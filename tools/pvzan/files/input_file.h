// Input: a file, or standard input for "-".
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <sys/types.h>

namespace tool {

bool is_standard_input(const std::string& name);

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

} // namespace tool
