// How common characters, and pairs of their kinds, are in Japanese and Western text.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tool {

enum class character_kind : std::uint8_t {
    start, // before the first character
    space, // line breaks too
    digit,
    letter,
    ascii_mark,
    control,
    latin, // letters and marks of ISO-8859, above ASCII
    half_katakana,
    hiragana,
    katakana,
    kanji,
    wide_mark, // punctuation and full-width ASCII
    wide_letter,
    other, // Greek, Cyrillic, symbols
    odd    // all the rest, private characters too
};
inline constexpr std::size_t character_kinds = 15;

inline constexpr unsigned bit_cost = 16; // costs are in sixteenths of a bit

extern const std::array<std::array<std::uint16_t, character_kinds>, character_kinds> pair_costs;
extern const std::array<std::u16string_view, 16> common_characters;

} // namespace tool
