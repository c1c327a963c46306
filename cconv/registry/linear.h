// Tables whose codes are counted. Codes whose bytes lie in given ranges, one a byte, have numbers
// in their order; from one code on they stand for scalars in a row, up to the next such code. A
// pair of the table is such a code and its scalar, 0 where codes stand for nothing. GB 18030's
// million of codes are some two hundred pairs so.
//
// Such a table has a single block of its own kind, made when its set is read: its runs, in the
// order of the keys.
#pragma once

#include "cconv/registry/registry.h"

// In the place of the width of a block's values, which has sixteen bits.
inline constexpr u32 linear_block = 0xFFFFFFFF;

struct code_bytes {
    u32 count;
    u8 first[max_code_bytes], last[max_code_bytes];

    // From "81-FE 30-39", with so many bytes; false where it is not like that.
    bool read(const char* text, u32 wanted);
    [[nodiscard]] bool has(u32 code) const;
    [[nodiscard]] u32 number_of(u32 code) const;
    [[nodiscard]] u32 code_of(u32 number) const;
    [[nodiscard]] u32 last_number() const;
};

// Makes an empty table one of these; false when memory is short.
bool make_linear(table_object* table, const code_bytes& codes);

inline bool is_linear(const table_object* table) {
    return table->blocks->count == 1 &&
           static_cast<const table_block*>(table->blocks->items[0])->valueBytes == linear_block;
}

// Adds a pair, in the order of codes; false where it is out of order, no code, or one too many.
bool add_linear(table_object* table, u32 code, u32 scalar);
// Settles the bounds of a table that has all its pairs.
void finish_linear(table_object* table);
// What a key maps to; 0 for nothing.
u32 find_linear(const table_object* table, u32 key);
