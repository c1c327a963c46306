// What belongs to a file besides its content.
#pragma once

#include <string>

namespace tool {

// Gives one open file the owner, group, mode, extended attributes and access control list of
// another. False when something cannot be kept, with what that is, and errno.
bool copy_belongings(int from, int to, std::string& what);

} // namespace tool
