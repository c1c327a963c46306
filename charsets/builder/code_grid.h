// The codes whose bytes each lie in a given set. Ranges of a table run through them in order.
#pragma once

#include "charsets/builder/source.h"

#include <array>
#include <bitset>
#include <optional>

namespace charsets {

class code_grid {
public:
    // From "81-FE 40-7E,80-FE": one column a byte, inclusive ranges. Nothing when it is not one.
    static std::optional<code_grid> parse(std::string_view pattern);

    bool empty() const { return columns_.empty(); }
    int digits() const { return static_cast<int>(2 * columns_.size()); }
    bool contains(u32 code) const;
    // The code behind one of the grid, wrapping round to the first.
    u32 following(u32 code) const;
    // How many codes of the grid come before it.
    std::uint64_t number_of(u32 code) const;

private:
    using column = std::bitset<256>;

    std::vector<column> columns_; // most significant byte first
};

} // namespace charsets
