// Many files, by several threads; what is said comes in the order of the files.
//
// So many threads as there are jobs convert. More of them only wait for the disk with what they
// have converted: it takes about as long for one file as for many at once.
#pragma once

#include "tools/pvzan/convert/one_file.h"

#include <functional>
#include <vector>

namespace tool {

struct queue_totals {
    int worst = 0; // exit_status
    std::uint64_t converted = 0, unchanged = 0, binary = 0, failed = 0;
};

// It calls converted when nothing is left but to wait for the disk.
using file_work = std::function<file_outcome(const listed_file& file, const line_sink& sink,
                                             const std::function<void()>& converted)>;

// skips_binary: a binary file is no error. on_output: nothing is written but what is said, which
// goes to standard output.
queue_totals run_queue(const std::vector<listed_file>& files, unsigned jobs, bool skips_binary,
                       bool on_output, const file_work& work);

} // namespace tool
