// Search for any of several short byte sequences, by a byte of each that is rare in UTF-8 text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

class byte_patterns {
public:
    byte_patterns() = default;
    explicit byte_patterns(std::span<const std::string_view> patterns);

    void add(std::string_view pattern);
    [[nodiscard]] bool any_in(std::span<const std::uint8_t> text) const;

private:
    struct anchor {
        std::uint8_t byte;
        std::size_t offset; // of the byte in the patterns
        std::vector<std::string> patterns;
    };
    std::vector<anchor> anchors_;
};

} // namespace tool
