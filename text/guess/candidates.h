// The charsets that a guess chooses from.
#pragma once

#include "text/guess/data.h"

#include "pvzan_text.h"

namespace text {

enum class structure : u8 { several_bytes, single_byte, escapes, units, signs, ebcdic };

// A line of charsets.tsv, which says what the columns are.
struct charset_row {
    std::string_view name, family, languages, bytes;
    structure codes = structure::several_bytes;
    u8 rare = 0;
};

// Takes the next row off the list; false behind the last.
bool take_row(std::string_view& list, charset_row& row);

// What 80 to FF are in a charset of single bytes; U+FFFD: nothing.
void read_high(const charset_row& row, char16_t (&high)[128]);

// A few faults are damage, more are another charset.
inline constexpr u32 most_faults = 6;
constexpr bool is_too_faulty(u32 faults, u32 codes) {
    return faults > most_faults || faults * 4 > codes + 1;
}

// Whether the bytes may be codes of the row's charset by what they are, but for damage.
bool may_be_codes(const charset_row& row, std::span<const u8> bytes);

// The language that the environment asks for, as "ja" or "zh_TW"; empty: none.
void user_language(char (&language)[8]);
void read_language(const char* name, char (&language)[8]);

} // namespace text
