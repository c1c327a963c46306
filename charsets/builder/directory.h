// The whole charset directory: all sources, and what must hold between them.
#pragma once

#include "charsets/builder/definition.h"
#include "charsets/builder/table.h"

#include <map>

namespace charsets {

// Keyed by the name of the file in the charset directory.
struct directory {
    std::map<std::string, charset> charsets;
    std::map<std::string, coded_set> sets;
    std::map<std::string, table> tables;
};

// Reads definitions/, sets/ and tables/ of a source directory and checks them.
directory read_directory(const std::filesystem::path& source);

} // namespace charsets
