// The whole charset directory: all sources, and what must hold between them.
#pragma once

#include "charsets/builder/definition.h"
#include "charsets/builder/table.h"

#include <map>
#include <set>

namespace charsets {

// Charsets that the library reads when they are asked for lie in a folder of the charset directory,
// with the sets and tables that no others use.
inline constexpr std::string_view further_folder = "further/";

// Keyed by the name of the file in the charset directory; that of a further charset has the folder
// before it, that of a set or a table has not.
struct directory {
    std::map<std::string, charset> charsets;
    std::map<std::string, coded_set> sets;
    std::map<std::string, table> tables;
    std::set<std::string> further; // sets and tables that go into the folder

    // Where a set or a table lies in the charset directory.
    std::string place_of(const std::string& file) const;
};

// Reads definitions/, sets/, tables/ and further/ (unless there is none) of a source directory and
// checks them. An overlay (empty: none) is another directory that changes some tables and omits
// some charsets; sets and tables that nothing uses then are left out.
directory read_directory(const std::filesystem::path& source,
                         const std::filesystem::path& overlay = {});

} // namespace charsets
