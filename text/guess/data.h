// The lists that guesses rest on: charsets.tsv and languages.tsv, which say what their columns are.
#pragma once

#include "platform/base.h"

#include <string_view>

namespace text {

extern const std::string_view charset_list, language_list;

// What stands before a separator, which is taken off with it.
std::string_view take(std::string_view& text, char separator);

// The next line that is no comment; empty behind the last.
std::string_view take_line(std::string_view& text);

// The next character of UTF-8, or of an escape "\u" with four digits; 0 at the end.
u32 take_character(std::string_view& text);

} // namespace text
