// Where the charset definitions lie.
#pragma once

#include <string>
#include <vector>

namespace tool {

struct charset_directory {
    std::string path;               // empty: there is none
    std::string reason;             // what chose it
    std::vector<std::string> tried; // the places looked at
};

// Settles the library's charset directory: the one asked for, the environment variable
// PVZAN_CHARSET_DIR, the one beside the loaded library, the installed one; the first that exists.
// Never the current directory, where anybody's definitions may lie.
charset_directory settle_charset_directory(const std::string& asked_for);

// Settles it and reads the definitions; complains and returns false when there are none.
bool open_charset_directory(const std::string& asked_for);

// That the library does not know a charset: its directory lacks it, or another one may be meant.
void complain_unknown(const std::string& name);

} // namespace tool
