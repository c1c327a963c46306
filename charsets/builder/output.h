// Writes the charset directory: documents and tables in UTF-16, and the caches of the tables.
#pragma once

#include "charsets/builder/directory.h"

namespace charsets {

// Leaves the files of `built` in the directory and no other document, table or cache. They are
// written beside it, and take its place when all are there: a builder that is killed, or that has
// no room, leaves the directory as it was, or none.
void write_directory(const directory& built, const std::filesystem::path& output);

// Writes the same as a C++ source, to be linked into a library that then needs no directory.
void write_embedded(const directory& built, const std::filesystem::path& output);

} // namespace charsets
