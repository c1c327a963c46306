// Characters, names and numbers as messages and a terminal may show them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// A character in UTF-8.
std::string utf8_of(char32_t scalar);

// The character that a text in UTF-8 begins with, and its bytes; nothing where they are none.
struct utf8_character {
    char32_t scalar;
    std::size_t bytes;
};
std::optional<utf8_character> first_character(std::string_view text);

// Whether it is a control character, or turns the direction of writing, or ends a line.
bool drives_terminal(char32_t scalar);

// "U+301C", and as people know it: "U+301C 〜 WAVE DASH".
std::string code_point(char32_t scalar);
std::string character_text(char32_t scalar);

// A part of a line, of which only the last columns are shown. Bytes that are no character stand in
// it as no_character.
inline constexpr char32_t no_character = 0xFFFFFFFF;
struct excerpt {
    std::string text;
    std::size_t columns = 0;
};
excerpt excerpt_of(std::u32string_view characters);

// Bytes in hex: "82 20".
std::string hex_bytes(std::span<const std::uint8_t> bytes, std::string_view between = " ");

// A file name or text as it may be shown: bytes that are no UTF-8 and what drives a terminal as
// \x1b. Of many such bytes only the first few.
std::string printable(std::string_view text);

// The name of a file, "-" being standard input.
std::string shown_name(const std::string& name);

// A number as people read it, 12,310; and so many things, "1 byte" or "2 bytes".
std::string grouped(std::uint64_t number);
std::string counted(std::uint64_t number, std::string_view thing);

std::string joined(const std::vector<std::string>& items, std::string_view between);

} // namespace tool
