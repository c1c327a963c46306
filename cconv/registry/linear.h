// Tables with counted codes. The bytes of such codes are in given ranges, one for each byte, so the
// codes can be numbered in order. From certain codes on, consecutive codes stand for consecutive
// Unicode values, up to the next such code. Each pair of the table is such a code and its value, or
// 0 if the codes from there on stand for nothing. In this way the million four-byte codes of GB
// 18030 need only some two hundred pairs.
//
// Such a table has a single block of its own kind, created when its set is read: its runs, ordered
// by keys.
#pragma once

#include "cconv/registry/registry.h"

#include <optional>

// Stored in place of the width of a block's values, which has sixteen bits.
inline constexpr u32 linear_block = 0xFFFFFFFF;

struct code_bytes {
    u32 count;
    u8 first[max_code_bytes], last[max_code_bytes];

    // Parses text such as "81-FE 30-39" with this number of ranges; false if it is malformed.
    bool read(const char* text, u32 wanted);
    [[nodiscard]] bool has(u32 code) const;
    [[nodiscard]] u32 number_of(u32 code) const;
    [[nodiscard]] u32 code_of(u32 number) const;
    [[nodiscard]] u32 last_number() const;
};

// Turns an empty table into one of these; false if memory runs out.
bool make_linear(table_object* table, const code_bytes& codes);

inline bool is_linear(const table_object* table) {
    return table->blocks->count == 1 &&
           static_cast<const table_block*>(table->blocks->items[0])->valueBytes == linear_block;
}

// Adds a pair; the codes must ascend. False if it is out of order, not a code, or one too many.
bool add_linear(table_object* table, u32 code, u32 scalar);
// Sets the bounds of a table once it has all its pairs.
void finish_linear(table_object* table);
// Finishes an encode table, and finds the first code of a run that shares values with another
// one, or has some that are not characters.
std::optional<u32> faulty_run(table_object* table);
// The value of a key; 0 if there is none.
u32 find_linear(const table_object* table, u32 key);
