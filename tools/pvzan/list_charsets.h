// The verb "list": the charsets of the charset directory.
#pragma once

#include <string>

namespace tool {

struct list_options {
    std::string charset_dir; // empty: where it is usually found
    std::string check;       // the directory to check instead of listing
};

// Returns an exit_status.
int list_charsets(const list_options& options);

} // namespace tool
