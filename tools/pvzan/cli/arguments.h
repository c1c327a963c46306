// The command line.
#pragma once

#include "tools/pvzan/cli/options.h"

#include <optional>

namespace tool {

// Nothing, when there is nothing to do any more; then the exit_status is set. Prints help and
// version, and complains.
std::optional<command> read_arguments(int argc, char** argv, int& status);

} // namespace tool
