// Mapping tables: their source text, checked and expanded to pairs.
#pragma once

#include "charsets/builder/source.h"

namespace charsets {

struct pair {
    u32 code, scalar;
    std::size_t line;
};

// In the order in which they go into the charset directory, where of several pairs with one scalar
// the last is the one that encodes: first the pairs that only decode, then those that go both ways.
struct table {
    source_file source;
    bool extra = false; // encode only, for one charset
    std::vector<pair> decode_only, two_way;

    u32 largest_code() const;
};

table read_table(const std::filesystem::path& path);

} // namespace charsets
