// Unicode text as it lies in memory: its sequences, and whether they are well-formed.
#pragma once

#include "tools/pvzan/charset_name.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace tool {

using bytes_view = std::span<const std::uint8_t>;

// The form that all texts are looked at in.
charset_name utf8_name();

struct unicode_sequence {
    enum kind_type { whole, cut, ill_formed } kind; // cut: the text ends inside it
    std::size_t bytes;                              // ill-formed: those that cannot be continued
    char32_t scalar;
};

// The sequence at the start of text, which is not empty, in one of the Unicode forms.
unicode_sequence read_sequence(bytes_view text, const charset_name& charset);

// How much of text is well-formed, counted from its start and in whole sequences.
std::size_t well_formed_length(bytes_view text, const charset_name& charset);

// Sequences in well-formed text.
std::size_t count_sequences(bytes_view text, const charset_name& charset);

// Whether nobody but those who exchange the text say what the character is; and how many such are
// in well-formed text.
bool is_private_use(char32_t scalar);
std::size_t count_private_use(bytes_view text, const charset_name& charset);

// A character in UTF-8.
std::string utf8_of(char32_t scalar);

// Whether it takes two columns of a terminal, and whether it may be shown there.
bool is_wide(char32_t scalar);
bool is_visible(char32_t scalar);

// The marks that the library joins with the letter before them: with 25 letters they are one
// character in JIS X 0213.
bool is_joining_mark(char32_t scalar);

// Whether such a mark may be in the text.
bool may_hold_joining_mark(bytes_view text, const charset_name& charset);

} // namespace tool
