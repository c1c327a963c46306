// Output whose every write is checked, and which is not there when the conversion failed.
#pragma once

#include "tools/pvzan/files/temporary_file.h"

#include <cstdint>
#include <span>
#include <string>
#include <sys/types.h>

namespace tool {

// For the whole process, before it has threads: learns the mode of new files, and makes a file
// that grows beyond its limit an error like others.
void prepare_output();

// Standard output, or a file. A file is written under another name beside its own and takes its
// name with commit(); without that it goes.
class output_file {
public:
    output_file() = default;
    ~output_file();
    output_file(const output_file&) = delete;
    output_file& operator=(const output_file&) = delete;

    // Empty path: standard output. False on failure, as with all of these; error() says why.
    // A file that is there is replaced, when all that belongs to it can be kept; else the text
    // is written into it, once it is whole.
    bool open(const std::string& path);
    // To replace a file that is open, and is only ever replaced.
    bool open_in_place(const std::string& path, int original);
    bool write(std::span<const std::uint8_t> bytes);
    // After the last write: gives it what belongs to the file that it replaces, and waits until it
    // is on the disk, so that there is one or the other even when the system stops.
    bool flush();
    // Whether the name is still that of the file that it replaces.
    [[nodiscard]] bool has_its_name() const;
    // In place, keeps the file that was there under the backup's name, when that is not empty.
    bool commit(const std::string& backup = {});

    [[nodiscard]] int descriptor() const { return descriptor_; }
    [[nodiscard]] const std::string& error() const { return error_; }

private:
    bool fail(const std::string& what);
    bool write_to(int descriptor, std::span<const std::uint8_t> bytes);
    bool write_over();

    int descriptor_ = -1;
    int original_ = -1; // what has the name now
    bool in_place_ = false, writes_over_ = false;
    std::string path_;   // empty: standard output
    std::string target_; // the path behind links
    temporary_file temporary_;
    std::string error_;
};

} // namespace tool
