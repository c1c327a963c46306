// Characters as messages and a terminal may show them.
#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

namespace tool {

// A character in UTF-8.
std::string utf8_of(char32_t scalar);

// The character that a text in UTF-8 begins with, and its bytes; nothing where they are none.
struct utf8_character {
    char32_t scalar;
    std::size_t bytes;
};
std::optional<utf8_character> first_character(std::string_view text);

// Whether a terminal may show it.
bool is_visible(char32_t scalar);

// "U+301C", and as people know it: "U+301C 〜 WAVE DASH".
std::string code_point(char32_t scalar);
std::string character_text(char32_t scalar);

// A part of a line.
class line_excerpt {
public:
    // Behind the rest; only the last columns are kept.
    void add(char32_t scalar);
    void add_fault();

    [[nodiscard]] std::string text() const;
    [[nodiscard]] std::size_t columns() const { return columns_; }

private:
    struct cell {
        std::string text;
        std::size_t columns;
    };
    void add(cell c);

    std::deque<cell> shown_;
    std::size_t columns_ = 0;
};

} // namespace tool
