// The names people use for charsets, and what they mean.
#pragma once

#include "cconv/registry/names.h"

#include "pvzan_text.h"

#include <string_view>

namespace text {

// What a name means, by the list of names and then by the charset directory, which is read unless
// the list has the name. False where neither has it; shown is then a name that is like it, or
// empty.
bool resolve(const char* name, u32 flags, pvzan_name& meaning);

// What the charset's codes are, by its decode rule and sets; null: what the list says stays.
void describe_codes(const charset_group* group, const rule_row* decoder, pvzan_name& meaning);
void describe_codes(const charset_group* group, pvzan_name& meaning);

// The charset of that name in the directory, which is settled by now, read unless that was done;
// null when there is none.
charset_group* find_group(const char* charset);

// The first name of the list whose charset is this one; the charset's own where there is none.
void shown_name(std::string_view charset, char (&shown)[64]);

// The charsets that may have what this one lacks, the nearest first; false behind the last.
bool relative_of(std::string_view charset, std::size_t index, char (&relative)[64]);

} // namespace text
