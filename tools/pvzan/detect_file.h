// The verb "detect": what encoding files are in.
#pragma once

#include <string>
#include <vector>

namespace tool {

struct detect_options {
    std::string charset_dir;
    std::vector<std::string> candidates; // charsets to choose from; none: the usual ones
    std::vector<std::string> files;      // none: standard input, as is "-"
};

// Prints a line for each file; returns an exit_status.
int detect_files(const detect_options& options);

} // namespace tool
