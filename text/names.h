// The names of charsets that people use, and what they mean.
#pragma once

#include "cconv/registry/names.h"

#include "pvzan_text.h"

#include <string_view>

namespace text {

// Finds the meaning of a name, first in the list of names, then in the charset directory, which is
// only read if the list does not have the name. False if neither has it; shown is then a similar
// name, or empty.
bool resolve(const char* name, u32 flags, pvzan_name& meaning);

// Sets the kind of the charset's codes, according to its decode rule and sets; null: as the list
// says.
void describe_codes(const charset_group* group, pvzan_name& meaning);

// Whether a definition outside of the folder of further ones has this name.
bool is_read_at_start(const char* charset);

// Charsets that may have what this one lacks, the nearest first; false after the last.
bool relative_of(std::string_view charset, std::size_t index, char (&relative)[64]);

} // namespace text
