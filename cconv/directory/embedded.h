// A charset directory inside the library, for programs that are a single file. A build either links
// one in, which build_charsets writes, or has none.
#pragma once

#include "platform/platform.h"

struct embedded_file {
    const char* name;
    std::span<const u8> bytes; // a document as it is, or the pairs of a cache, packed
};

// In the order of their names' bytes; empty where none is linked in.
extern const std::span<const embedded_file> embedded_files;

// The directory's path: what is no path elsewhere.
inline constexpr char embedded_directory[] = ":embedded:/";

// Whether a path leads into it.
bool is_embedded(const char* path);
// The file at such a path; null when there is none.
const embedded_file* find_embedded(const char* path);

// read_regular, inside the library or outside.
bool read_charset_file(const char* path, owned_memory<u8>& data, std::size_t& size);

// Codes and their Unicode values, packed: runs of consecutive codes, of which each begins with its
// length and its distance from where the one before ended; then follows, for each code, the
// distance of its value from the one behind the value before. Numbers have seven bits a byte, the
// lowest first; distances have their sign in the lowest bit. What is cut ends the pairs.
class packed_pairs {
public:
    explicit packed_pairs(std::span<const u8> bytes) : rest_(bytes) {}
    // The next pair, or false.
    bool next(u32& code, u32& ucs);

private:
    u32 number();
    u32 distance();

    std::span<const u8> rest_;
    u32 left_ = 0, code_ = 0, ucs_ = 0;
};
