// Output whose every write is checked, and which is not there when the conversion failed.
#pragma once

#include <cstdint>
#include <span>
#include <string>

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

    [[nodiscard]] const std::string& error() const { return error_; }

private:
    bool fail(const std::string& what);

    int descriptor_ = -1;
    std::string path_;      // empty: standard output
    std::string replaced_;  // the path behind links
    std::string temporary_; // empty: written in place
    std::string error_;
};

} // namespace tool
