// The names that people use for charsets, and what they mean to the library.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

enum class unicode_form { none, utf8, utf16, ucs2, ucs4 };

struct charset_name {
    std::string shown;   // as messages tell it
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
    // Whether it is one of the Japanese charsets that are not Unicode.
    [[nodiscard]] bool is_japanese() const;
};

// Aliases and byte orders resolved; a name that is none of ours is passed on as it is.
charset_name resolve_charset(std::string_view name);

// Whether two names differ in case and separators at most.
bool same_name(std::string_view a, std::string_view b);

// Letters to add, drop, change or swap to make one word of the other.
std::size_t spelling_distance(std::string_view a, std::string_view b);

// The known name that is most like one that is not, with the same number in it; empty when none is.
std::string similar_name(std::string_view name);

// Other names of a charset, by its name in the library.
std::vector<std::string_view> other_names(std::string_view library);

// Where a charset, by its name in the library, stands among those that people name most.
std::size_t charset_rank(std::string_view library);

// The Windows code page that a charset is; 0 for none.
int code_page(std::string_view library);

} // namespace tool
