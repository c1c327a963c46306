// Letters with marks behind them, か and U+3099, for charsets that have no such marks: the
// character が is canonically the same, and they have it.
#pragma once

#include "tools/pvzan/unicode_text.h"

#include <map>

namespace tool {

struct composed_character {
    char32_t scalar = 0;   // 0: none
    std::size_t bytes = 0; // of the marks
    std::size_t marks = 0;
};

bool takes_composing_mark(char32_t letter);
bool is_composing_mark(char32_t scalar);

class composer {
public:
    explicit composer(charset_name to);

    // The character that the target has for the letter and as many marks behind it as can be, none
    // of which the target has.
    composed_character read(char32_t letter, bytes_view behind, const charset_name& form);

private:
    bool has(char32_t scalar);

    charset_name to_;
    std::map<char32_t, bool> known_; // what the target has been asked for
};

} // namespace tool
