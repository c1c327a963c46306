// By how much readings must differ, and what speaks for a charset before it is read. In quarters of
// a bit. They were chosen with the texts of the part "margins" (scripts/guess_texts.py), which the
// models have not seen and scripts/guess-figures does not measure.
#pragma once

#include "text/guess/score.h"

namespace text {

constexpr i32 bits(i32 count) {
    return count * static_cast<i32>(bit);
}

// ---- The lead that makes a guess sure ----------------------------------------------------------

// Of the pieces in which the best reading was ahead by 8 to 11 bits, 2 in 100 were wrong, nearly
// all with at most four characters beyond ASCII; where there are more, there was hardly a wrong one
// from 5 bits on.
inline constexpr i32 lead_by_few = bits(8), lead_by_more = bits(7);
inline constexpr u32 few_letters = 4;
// A word must do with less, in the user's language: with 5 bits, 1.5 in 100 are wrong, and 84
// right; with 7, 0.8 and 80. A single letter of another language is nearly always a wrong guess.
inline constexpr i32 lead_of_a_word = bits(5), lead_of_a_foreign_word = bits(7),
                     lead_of_a_foreign_letter = bits(16);
inline constexpr u32 longest_word = 7; // characters
// Without what charsets have by being met often or seldom, in all that is longer than a word:
// without this rule 0.13 in 100 pieces are wrong instead of 0.10.
inline constexpr i32 lead_by_text = bits(7);
// Between readings of a long text that differ in hardly any character, for each of those: it may be
// in a name from elsewhere, which costs up to so much. Of 438 texts of both "margins" and
// "figures", all that a language has in a charset, 7 were wrong without this rule, and none with
// it.
inline constexpr i32 lead_by_chance_letter = bits(50);
inline constexpr u32 chance_letters = 2, long_reading = 100; // characters beyond ASCII
// Between UTF-16 and readings byte by byte: each pair of bytes may be some character by chance.
inline constexpr i32 lead_of_units = bits(7);
// In a text of some length, much speaks for UTF-8 already: with this one, 3 of 2,581 files of a
// system are unsure; with the others, 9.
inline constexpr i32 lead_of_utf8_in_a_text = bits(4);
// Damage is rarer than the text that it happens to.
inline constexpr i32 damage = bits(24), lead_before_damage = bits(4);
// Characters of private use that only come late, whatever their number: a relative may be meant.
inline constexpr i32 late_private_use = bits(25);
// A letter that a language does not have costs up to 40 bits, and is a name from another one: the
// charset that has none in its place is not likelier.
inline constexpr i32 no_letter = bits(40);

// ---- What speaks for a charset by itself -------------------------------------------------------

// The charsets that the user's language is written in, in texts with few characters beyond ASCII.
inline constexpr i32 favour = bits(6);
inline constexpr u32 few_characters = 8;
// A language that a charset is not made for is so much less likely in it.
inline constexpr u32 foreigner_cost = 16 * bit;

// Well-formed UTF-8 is hardly ever anything else; with each character that is, less so.
inline constexpr i32 utf8_for_each = bits(4);
inline constexpr u32 utf8_most_counted = 10;
// What is known of the first of them: that it cannot be two bytes by chance; that it can, in a text
// of some length, in which a legacy charset would show more of itself; or in hardly any text.
inline constexpr i32 utf8_sequences = bits(20), utf8_sequence_alone = bits(15);
inline constexpr i32 utf8_chance_in_long_text = bits(24), utf8_chance_in_text = bits(12),
                     utf8_chance_alone = bits(8);
inline constexpr u32 utf8_few = 2;   // characters, which may be chance
inline constexpr u64 in_a_text = 64; // bytes: more than a word
inline constexpr u64 long_text = 1024;
// So many, or so many of three bytes, are UTF-8 without comparison, whatever they are: of 400,000
// short pieces in other charsets, none was well-formed UTF-8 with six characters.
inline constexpr u32 utf8_enough = 6, utf8_enough_long_ones = 4;

// ---- What is left out --------------------------------------------------------------------------

// Candidates so far behind are not asked any more, and those so far behind are not told.
inline constexpr i32 far_behind = bits(100), worth_telling = bits(14);
// A member of a family that is met so seldom is not looked for while a commoner one reads all.
inline constexpr u32 hardly_ever_met = 45;
// Bytes at random cost so much each; the rarest writing by units costs less than this for each
// character.
inline constexpr i32 random_byte = bits(9), most_for_writing = bits(16);

} // namespace text
