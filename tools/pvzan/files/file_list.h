// The files that the arguments name, recursing into directories.
#pragma once

#include <cstdint>
#include <set>
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
    std::set<std::string> left_over; // temporary files of runs that were killed
};

// In the order of the arguments, and of names within directories. Links in directories are not
// followed; ".git" and temporary files are left out. Without recursive, a directory is an error.
file_list list_files(const std::vector<std::string>& arguments, bool recursive);

// Adds what killed runs have left in a folder, as far as a quick look tells.
void look_for_left_over(const std::string& folder, std::set<std::string>& left_over);

} // namespace tool
