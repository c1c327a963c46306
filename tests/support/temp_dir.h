// Temporary directories, and files in the encodings of definitions and tables.
#pragma once

#include <string>
#include <string_view>

namespace test {

struct without_caches_t {};
inline constexpr without_caches_t without_caches{};

// A directory that goes with its owner, with everything in it; with inside, a path deep in it, so
// that what climbs does not climb out.
class temp_dir {
public:
    explicit temp_dir(std::string_view inside = {});
    // The shipped charset directory, whose tables are to be read as text.
    explicit temp_dir(without_caches_t);
    ~temp_dir();
    temp_dir(const temp_dir&) = delete;
    temp_dir& operator=(const temp_dir&) = delete;

    // The path, with a final "/".
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string file(std::string_view name) const;

    void write(std::string_view name, std::string_view bytes) const;
    // Writes ASCII text as UTF-16, least significant byte first, with a byte-order mark.
    void write_utf16(std::string_view name, std::string_view text) const;
    [[nodiscard]] std::string read(std::string_view name) const;
    [[nodiscard]] bool has(std::string_view name) const;
    void clear() const;

private:
    std::string top_, path_;
};

// ASCII text in units of 2 or 4 bytes.
std::string widen(std::string_view text, std::size_t unit_bytes, bool big_endian);

} // namespace test
