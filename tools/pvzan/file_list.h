// The files that the arguments name, directories opened up.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

struct listed_file {
    std::string path;
    std::string mirrored; // its place in a directory that mirrors the inputs
    std::uint64_t bytes = 0;
};

struct file_list {
    std::vector<listed_file> files;
    std::vector<std::string> errors; // "name: what": what could not be looked at
};

// In the order of the arguments, and of names within directories. Links in directories are not
// followed, and ".git" is left out. Without recursive, a directory is an error.
file_list list_files(const std::vector<std::string>& arguments, bool recursive);

} // namespace tool
