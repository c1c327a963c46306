// A charset directory inside the library, for programs that consist of a single file.
// build_charsets writes it; a build either contains one or not.
#pragma once

#include "platform/platform.h"

struct embedded_file {
    const char* name;
    std::span<const u8> bytes; // a document, or the packed pairs of a cache
};

// Ordered by the bytes of their names; empty if none is linked in.
extern const std::span<const embedded_file> embedded_files;

// The path of this directory, which cannot be the path of a real one.
inline constexpr char embedded_directory[] = ":embedded:/";

// Whether a path is in this directory.
bool is_embedded(const char* path);
// The file with such a path, or null.
const embedded_file* find_embedded(const char* path);

// Like read_regular, for files inside the library or outside.
bool read_charset_file(const char* path, owned_memory<u8>& data, std::size_t& size);

// Codes and their Unicode values, packed as runs of consecutive codes. Each run begins with its
// length and its distance from the end of the previous run; then comes, for each code, the
// difference between its value and the value before plus one. Numbers are stored seven bits per
// byte, lowest first; differences have their sign in the lowest bit. If the data is truncated, the
// pairs end there.
class packed_pairs {
public:
    explicit packed_pairs(std::span<const u8> bytes) : rest_(bytes) {}
    // Reads the next pair; false if there is none.
    bool next(u32& code, u32& ucs);

private:
    u32 number();
    u32 distance();

    std::span<const u8> rest_;
    u32 left_ = 0, code_ = 0, ucs_ = 0;
};
