// What is known of languages: how common their letters, pairs of letters and characters are.
// Derived by scripts/derive-guess-models.
#pragma once

#include "platform/base.h"

namespace text {

// Kinds of characters, in the order of the rows of a character_model.
enum class kind : u8 {
    space, // and line breaks
    digit,
    letter, // of ASCII
    mark,   // of ASCII
    control,
    general_mark, // quotation marks, dashes, © and the like, in any language
    other_letter, // alphabets beyond ASCII
    half_katakana,
    hiragana,
    katakana,
    kanji,
    wide_mark,
    wide_letter,
    hangul,
    symbol,
    odd // private use, C1 controls
};
inline constexpr u32 kinds = 16;

// Costs are quarters of a bit, as characters from '#' on.
inline constexpr u32 bit = 4;
constexpr u32 cost_of(char c) {
    return static_cast<u32>(c - '#');
}

// What a letter (column) costs behind another (row). The first symbols are kinds, then the letters,
// small ones, follow.
inline constexpr u32 alphabet_kinds = 6; // space, digit, letter, mark, general_mark, all others
struct alphabet {
    const char* language;
    const char16_t* letters;
    const char* rows;
};

// What a kind costs behind another, and characters by how many bits they cost within their kind.
inline constexpr u32 most_common_bits = 17;
struct character_model {
    const char* language;
    const char* rows;
    const char16_t* common[most_common_bits + 1];
};

// Each ends in a null.
extern const alphabet* const latin_alphabets[];
extern const alphabet* const other_alphabets[];
extern const character_model* const japanese_characters[];
extern const character_model* const chinese_characters[];

} // namespace text
