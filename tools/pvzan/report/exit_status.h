// Exit statuses of the tool, all of them.
#pragma once

namespace tool {

enum exit_status : int {
    exit_converted = 0, // done as asked
    exit_bad_text = 1,  // the text had a problem
    exit_no_work = 2    // the tool could not work: usage, unknown charset, missing file, full disk
};

} // namespace tool
