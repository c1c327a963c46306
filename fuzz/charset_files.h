// Charset directories made from an input, and a registry that is emptied between inputs.
#pragma once

#include "cconv/tables/table.h"
#include "fuzz/support.h"

#include <vector>

namespace fuzz {

// Settles the scratch directory, still empty, as the charset directory, and its reading as done.
void use_empty_charset_directory();
void clear_registry();

// Writes the files of an input into the emptied scratch directory, and returns their names, sorted.
// A file begins with a line "@@u NAME" (to be widened, behind a byte-order mark) or "@@b NAME" (as
// it is).
std::vector<std::string> write_files(bytes data);

// Expects of a table filled from a cache's contents what a plain map of its pairs says.
void expect_pairs_of(const std::string& contents, const table_object& table);

} // namespace fuzz
