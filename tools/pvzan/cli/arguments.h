// The command line.
#pragma once

#include "tools/pvzan/convert/convert_file.h"
#include "tools/pvzan/detect/detect_file.h"
#include "tools/pvzan/directory/list_charsets.h"
#include "tools/pvzan/report/message.h"

#include <optional>

namespace tool {

enum class verb { convert, check, detect, list };

struct command {
    verb what = verb::convert;
    convert_options convert; // and check
    detect_options detect;
    list_options list;
    message_style style;
};

// Nothing, when there is nothing to do any more; then the exit_status is set. Prints help and
// version, and complains.
std::optional<command> read_arguments(int argc, char** argv, int& status);

} // namespace tool
