// The whole charset directory: all sources, and what must hold between them.
#pragma once

#include "charsets/builder/definition.h"
#include "charsets/builder/table.h"

#include <map>
#include <set>

namespace charsets {

// Keyed by the name of the file in the charset directory.
struct directory {
    std::map<std::string, charset> charsets;
    std::map<std::string, coded_set> sets;
    std::map<std::string, table> tables;
    std::set<std::string> further; // of these, what lies in the folder of that name
};

// Reads definitions/, sets/, tables/ and further/ (unless there is none) of a source directory and
// checks them. An overlay (empty: none) is another directory that changes some tables and omits
// some charsets; sets and tables that nothing uses then are left out.
directory read_directory(const std::filesystem::path& source,
                         const std::filesystem::path& overlay = {});

} // namespace charsets
