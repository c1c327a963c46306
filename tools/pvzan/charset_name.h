// The names that people use for charsets, and what they mean to the library.
#pragma once

#include <cstddef>
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
    [[nodiscard]] bool is_unicode() const { return form != unicode_form::none; }
    [[nodiscard]] bool is_iso2022() const;
    // Whether it has the 25 characters of JIS X 0213 that are a letter and a mark in Unicode.
    [[nodiscard]] bool is_jis_x0213() const;
};

// Aliases and byte orders resolved; a name that is none of ours is passed on as it is.
charset_name resolve_charset(std::string_view name);

} // namespace tool
