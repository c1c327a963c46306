// The conversion of one file: to an output shared with others, to nothing, or to one of its own.
#pragma once

#include "tools/pvzan/convert/convert_text.h"
#include "tools/pvzan/files/file_list.h"

#include <functional>
#include <string>

namespace tool {

enum class file_kind { converted, unchanged, binary, failed, unwritable };

struct file_outcome {
    int status;
    file_kind kind;
    std::uint64_t problems = 0;
    std::string what{}; // of a binary file, which is not told yet
};

// To an output that others may share; to none, as a check. lost: what becomes of the output when
// the file has a problem.
file_outcome convert_one(const listed_file& file, const text_conversion& conversion,
                         const byte_sink& output, std::string_view lost, const line_sink& sink);

// While an exception is handled: it is only its file's trouble, such as that there is no memory.
file_outcome outcome_of_exception(const listed_file& file, const line_sink& sink) noexcept;

// The outcome of work, which may throw.
template <typename work_type>
file_outcome guarded(const listed_file& file, const line_sink& sink, const work_type& work) {
    try {
        return work();
    } catch (...) {
        return outcome_of_exception(file, sink);
    }
}

struct file_task {
    const text_conversion& conversion;
    bool in_place;
    std::string backup_suffix; // in place; empty: none
    std::string directory;     // else: where the outputs go
};

// To a file of its own. converted is called once nothing is left but to wait for the disk.
file_outcome convert_own(const listed_file& file, const file_task& task, const line_sink& sink,
                         const std::function<void()>& converted);

} // namespace tool
