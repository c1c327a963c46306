// The charsets that a guess chooses from.
#pragma once

#include "text/guess/data.h"

#include "pvzan_text.h"

namespace text {

enum class structure : u8 { several_bytes, single_byte, escapes, units, signs, ebcdic };

// A row of charsets.tsv, which explains its columns.
struct charset_row {
    std::string_view name, family, languages, bytes;
    structure codes = structure::several_bytes;
    u8 rare = 0;
};

// Removes the next row from the list; false if there is none.
bool take_row(std::string_view& list, charset_row& row);

// Fills in the characters 80 to FF of a single-byte charset; U+FFFD for none.
void read_high(const charset_row& row, char16_t (&high)[128]);

// A few faults are damage; with more of them it is another charset.
inline constexpr u32 most_faults = 6;
constexpr bool is_too_faulty(u32 faults, u32 codes) {
    return faults > most_faults || faults * 4 > codes + 1;
}

// Returns true if the bytes can be codes of the row's charset, apart from damage.
bool may_be_codes(const charset_row& row, std::span<const u8> bytes);

// The language of the environment, such as "ja" or "zh_TW"; empty if there is none.
void user_language(char (&language)[8]);
void read_language(const char* name, char (&language)[8]);

} // namespace text
