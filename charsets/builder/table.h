// Mapping tables: their source text, checked and expanded to pairs.
#pragma once

#include "charsets/builder/source.h"

namespace charsets {

// A scalar, or two of them in one number, the mark in the upper half: engine.h takes them apart.
struct pair {
    u32 code, scalar;
    std::size_t line;
};

// In the order in which they go into the charset directory, where of several pairs with one scalar
// the last is the one that encodes: first the pairs that only decode, of characters that have
// another code and of those that the set does not write, then those that go both ways.
struct table {
    source_file source;
    bool extra = false;            // encode only, for one charset
    bool changes = false;          // two_way holds other scalars for codes of another table
    std::string charset, language; // of a charset that is nothing but this table
    std::string exchanged;         // and of the same with two codes exchanged
    u32 exchanged_codes[2] = {};
    // The codes of a table that is linear are counted: two_way holds those with which a run of
    // scalars begins, and with 0 those behind one that nothing follows.
    std::string linear; // their bytes; empty: it is not
    std::vector<pair> run_ends;
    std::vector<pair> decode_only, read_only, two_way;

    u32 largest_code() const;
    // As they go into the directory. The code 0 is none: behind a pair of that code the scalar has
    // no code in this set.
    std::vector<pair> in_order() const;
};

// Both directions must agree: each code stands once, each scalar once among the two-way pairs, and
// a pair that only decodes has a two-way one for its character.
void check_directions(const table& checked);

table read_table(const std::filesystem::path& path);

} // namespace charsets
