// Charsets of single bytes that are one source file each: a table that says its charset.
#pragma once

#include "charsets/builder/directory.h"

namespace charsets {

// Adds a charset to the further ones.
void add_further(directory& whole, charset added);

// Adds the charset that a table says it is, by a definition and a set made for it; and the one with
// two codes exchanged, where the table says so, too.
void add_single_byte(directory& whole, table read);

} // namespace charsets
