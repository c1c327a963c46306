// Where the charset definitions lie.
#pragma once

#include <string>

namespace tool {

// Settles the library's charset directory, the one asked for or where the library finds it. False
// when there is none, or nothing in it; error says why.
bool settle_charset_directory(const std::string& asked_for, std::string& error);

// The settled one; empty: there is none.
std::string charset_directory_path();

// Settles it; complains and returns false when there is none.
bool open_charset_directory(const std::string& asked_for);

// Whether the library knows a charset; complains where it does not: its directory lacks it, or
// another one may be meant.
bool is_known(const std::string& name);
void complain_unknown(const std::string& name);

} // namespace tool
