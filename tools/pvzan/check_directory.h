// "list --check": what the library makes of each file of a charset directory, and why.
#pragma once

#include <string>

namespace tool {

// Prints a line for each definition and for each fault; returns an exit_status: exit_bad_text when
// anything is wrong.
int check_charset_directory(const std::string& directory);

} // namespace tool
