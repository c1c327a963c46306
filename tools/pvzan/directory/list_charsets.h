// The verb "list": the charsets of the charset directory.
#pragma once

#include <string>
#include <vector>

namespace tool {

struct list_options {
    std::string check;              // the directory to check instead of listing
    std::vector<std::string> names; // to be told of; none: all
    bool bare = false;              // all names of a charset in a line, parted by blanks
};

// Returns an exit_status.
int list_charsets(const list_options& options);

} // namespace tool
