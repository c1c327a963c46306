// The names that people use for charsets, and what they mean to the library.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tool {

enum class unicode_form { none, utf8, utf16, ucs2, ucs4 };

struct charset_name {
    std::string asked;   // as the user wrote it
    std::string library; // as the library knows it
    unicode_form form = unicode_form::none;
    bool big_endian = true;
    bool marked = false; // the byte order may be told by a mark

    // Bytes of a code unit.
    [[nodiscard]] std::size_t unit_bytes() const;
    // Whether the charset holds the characters of JIS X 0213 that are base and mark in Unicode.
    [[nodiscard]] bool has_combined_characters() const;
};

// Aliases and byte orders resolved; a name that is none of ours is passed on as it is.
charset_name resolve_charset(std::string_view name);

} // namespace tool
