// What a charset directory says about its charsets, for people and programs that list them.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace tool {

struct definition {
    std::string file; // in the directory
    std::string name; // folded
    std::string decoder, encoder;
    std::vector<std::string> sets; // in order of preference
};

// The files of those that the library reads at the start, then of those that it reads when they are
// asked for.
std::vector<std::string> definition_files(const std::filesystem::path& directory);

// Found by text search, as the library does, and not as XML.
definition read_definition(const std::filesystem::path& directory, const std::string& file);

} // namespace tool
