// The verb "convert": files, or standard input, to one output.
#pragma once

#include <string>
#include <vector>

namespace tool {

struct convert_options {
    std::string from;
    std::string to = "utf-8";
    std::string output;             // empty: standard output
    std::string charset_dir;        // empty: where it is usually found
    std::vector<std::string> files; // none: standard input, as is "-"
};

// Returns an exit_status.
int convert_files(const convert_options& options);

} // namespace tool
