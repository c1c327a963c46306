// The verb "list": the charsets of the charset directory.
#pragma once

#include <string>
#include <vector>

namespace tool {

struct list_options {
    std::string charset_dir;        // empty: where it is usually found
    std::string check;              // the directory to check instead of listing
    std::vector<std::string> names; // to be told more of; none: all, a line each
};

// Returns an exit_status.
int list_charsets(const list_options& options);

// Names of the charsets of the settled directory, in the order of its files.
std::vector<std::string> charset_names();

} // namespace tool
