// What is written in place of what cannot be converted.
#pragma once

#include "tools/pvzan/text_options.h"
#include "tools/pvzan/unicode_text.h"

#include <string>

namespace tool {

// Whether the library can write a character in a charset.
bool can_write(const charset_name& to, char32_t scalar);

// The substitute to use: the one asked for, else the first of the usual ones that the target has.
char32_t choose_substitute(const charset_name& to, char32_t asked);

// In UTF-8. A letter and its mark stand in one code; scalar 0: the bytes are no character. Never
// holds a line break or what data are commonly parted by.
std::string replacement(error_policy policy, char32_t substitute, bytes_view bytes, char32_t scalar,
                        char32_t mark);

} // namespace tool
