// Writes the charset directory: documents and tables in UTF-16, and the caches of the tables.
#pragma once

#include "charsets/builder/directory.h"

namespace charsets {

// Leaves the files of `built` in the directory and no other document, table or cache.
void write_directory(const directory& built, const std::filesystem::path& output);

} // namespace charsets
