// Finds out what is wrong with a table, or with the numbers of a definition.
#pragma once

#include "cconv/definition/document.h"
#include "cconv/registry/linear.h"

#include <cstdio>

namespace text {

struct table_to_check {
    FILE* file;
    u32 encoding, big_endian;
    u16 code_size;             // most bytes of a code
    const code_bytes* counted; // the bytes of counted codes; null if each pair is a code
    std::span<const u8> cache; // what the cache should contain
};

// What is wrong with the table, in words that are empty if nothing is. Returns whether the cache is
// right, too.
bool check_table(const table_to_check& table, char (&words)[128]);

// Whether what is between two places of a document are codes and ranges; or what is wrong with
// them.
bool check_codes(const document& in, i32 start, i32 end, char (&words)[128]);

} // namespace text
