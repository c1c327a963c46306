// The verb "detect": what encoding files are in.
#pragma once

#include "tools/pvzan/detect/source_guess.h"

#include <string>
#include <vector>

namespace tool {

struct detect_options {
    guess_choice choice;
    std::vector<std::string> files; // none: standard input, as is "-"
};

// Prints a line for each file; returns an exit_status.
int detect_files(const detect_options& options);

} // namespace tool
