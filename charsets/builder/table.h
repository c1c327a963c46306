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
    bool extra = false;            // encode only, for one charset
    bool changes = false;          // two_way holds other scalars for codes of another table
    std::string charset, language; // of a charset that is nothing but this table
    std::string exchanged;         // and of the same with two codes exchanged
    u32 exchanged_codes[2] = {};
    std::vector<pair> decode_only, two_way;

    u32 largest_code() const;
};

// Both directions must agree: each code stands once, each scalar once among the two-way pairs, and
// a pair that only decodes has a two-way one for its character.
void check_directions(const table& checked);

table read_table(const std::filesystem::path& path);

} // namespace charsets
