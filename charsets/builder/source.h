// Source files of the charset directory, and how a fault in one of them is reported.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace charsets {

using u32 = std::uint32_t;

// A fault in a source file. Line 0: the file as a whole.
struct source_error : std::runtime_error {
    source_error(const std::filesystem::path& file, std::size_t line, const std::string& message);
};

struct source_file {
    std::filesystem::path path;
    std::string text; // well-formed UTF-8, LF line ends, ends with a line end

    [[noreturn]] void fail(std::size_t line, const std::string& message) const;
};

source_file read_source(const std::filesystem::path& path);

// The scalar at an offset of well-formed UTF-8; the offset moves behind it.
u32 next_scalar(std::string_view text, std::size_t& offset);

// All files, sorted by name; none may have another extension. Their names must be fit for the
// charset directory: lower case, no blank, no double hyphen.
std::vector<std::filesystem::path> list_sources(const std::filesystem::path& directory,
                                                std::initializer_list<std::string_view> extensions);

std::string lower_case(std::string text);
std::string hex(u32 value, int digits = 4);
// Reads all of text as a number: false when it is empty, too large or holds anything else.
bool parse_number(std::string_view text, int base, u32& value);

} // namespace charsets
