// Output whose every write is checked, and which is not there when the conversion failed.
#pragma once

#include "tools/pvzan/temporary_file.h"

#include <cstdint>
#include <span>
#include <string>
#include <sys/types.h>

namespace tool {

// Standard output, or a file. A file is written under another name beside its own and takes its
// name with commit(); without that it goes.
class output_file {
public:
    output_file() = default;
    ~output_file();
    output_file(const output_file&) = delete;
    output_file& operator=(const output_file&) = delete;

    // Empty path: standard output. False on failure, as with all of these; error() says why.
    bool open(const std::string& path);
    bool write(std::span<const std::uint8_t> bytes);
    bool commit();

    // For a file that replaces another, with its mode, owner, attributes and links: keeps the other
    // one under a name of its own, when that is not empty. The new file is on the disk before it
    // has the name.
    bool replace(const std::string& path, const std::string& backup);
    [[nodiscard]] const std::string& temporary_name() const { return temporary_.name(); }

    [[nodiscard]] const std::string& error() const { return error_; }

private:
    bool fail(const std::string& what);
    bool keep_owner();
    bool keep_attributes(mode_t mode);

    int descriptor_ = -1;
    std::string path_;     // empty: standard output
    std::string replaced_; // the path behind links
    temporary_file temporary_;
    std::string error_;
};

} // namespace tool
