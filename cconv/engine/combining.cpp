// The 25 characters of JIS X 0213 that Unicode writes as a base letter and a combining mark.
#include "cconv/engine/engine.h"
#include "cconv/tables/table.h"

#include <algorithm>

namespace {

constexpr u32 mark_grave = 0x0300, mark_acute = 0x0301, mark_semi_voiced = 0x309A;
constexpr u32 tone_extra_high = 0x02E5, tone_extra_low = 0x02E9;
constexpr u32 mark_bits = 16; // and as many for the letter, if both are in one number

std::span<const combining_row> rows() {
    return std::span(JISX0213CombiningTable).first<std::size(JISX0213CombiningTable) - 1>();
}

const combining_row* find_code(u32 code) {
    const auto row = std::ranges::find(rows(), code, &combining_row::code);
    return row != rows().end() ? &*row : nullptr;
}

// This is called for nearly every pair of characters in a text, so the marks are tested first.
const combining_row* find_pair(u32 base, u32 mark) {
    if (!is_combining_mark(mark)) {
        return nullptr;
    }
    const auto row = std::ranges::find_if(
        rows(), [=](const combining_row& r) { return r.base == base && r.mark == mark; });
    return row != rows().end() ? &*row : nullptr;
}

} // namespace

extern "C" {

const combining_row JISX0213CombiningTable[26] = {
    // kana with semi-voiced sound mark
    {0x2477, 0x304B, mark_semi_voiced},
    {0x2478, 0x304D, mark_semi_voiced},
    {0x2479, 0x304F, mark_semi_voiced},
    {0x247A, 0x3051, mark_semi_voiced},
    {0x247B, 0x3053, mark_semi_voiced},
    {0x2577, 0x30AB, mark_semi_voiced},
    {0x2578, 0x30AD, mark_semi_voiced},
    {0x2579, 0x30AF, mark_semi_voiced},
    {0x257A, 0x30B1, mark_semi_voiced},
    {0x257B, 0x30B3, mark_semi_voiced},
    {0x257C, 0x30BB, mark_semi_voiced},
    {0x257D, 0x30C4, mark_semi_voiced},
    {0x257E, 0x30C8, mark_semi_voiced},
    {0x2678, 0x31F7, mark_semi_voiced},
    // letters of the International Phonetic Alphabet with grave or acute accent
    {0x2B44, 0x00E6, mark_grave},
    {0x2B48, 0x0254, mark_grave},
    {0x2B49, 0x0254, mark_acute},
    {0x2B4A, 0x028C, mark_grave},
    {0x2B4B, 0x028C, mark_acute},
    {0x2B4C, 0x0259, mark_grave},
    {0x2B4D, 0x0259, mark_acute},
    {0x2B4E, 0x025A, mark_grave},
    {0x2B4F, 0x025A, mark_acute},
    // rising and falling tone
    {0x2B65, tone_extra_low, tone_extra_high},
    {0x2B66, tone_extra_high, tone_extra_low},
    {0, 0, 0},
};

u32 IsJISX0213Combining(u32 code) {
    return code != 0 && find_code(code) != nullptr;
}

u32 IsJISX0213CombiningUCS(u32 base, u32 mark) {
    return find_pair(base, mark) != nullptr;
}

u32 ConvJISX0213CombiningToUCS(u32 code, u32* base, u32* mark) {
    const combining_row* row = find_code(code);
    if (row == nullptr) {
        *mark = 0;
        return 0;
    }
    *base = row->base;
    *mark = row->mark;
    return 1;
}

u32 ConvJISX0213CombiningFromUCS(u32 base, u32 mark, u32* code) {
    const combining_row* row = find_pair(base, mark);
    if (row == nullptr) {
        return 0;
    }
    *code = row->code;
    return 1;
}

} // extern "C"

bool is_combining_mark(u32 mark) {
    return std::ranges::find(combining_marks, mark) != std::end(combining_marks);
}

bool is_mark_in_tables(u32 mark) {
    return std::ranges::binary_search(marks_in_tables, mark);
}

u32 in_one(u32 letter, u32 mark) {
    return is_mark_in_tables(mark) && letter != 0 && letter < 1U << mark_bits
               ? mark << mark_bits | letter
               : 0;
}

letter_and_mark taken_apart(u32 value) {
    const u32 mark = value >> mark_bits;
    return is_mark_in_tables(mark) ? letter_and_mark{value & ((1U << mark_bits) - 1), mark}
                                   : letter_and_mark{value, 0};
}

u32 code_of_pair(const basic_set* set, u32 letter, u32 mark) {
    const u32 both = set->encodeTable->maxKey > last_scalar ? in_one(letter, mark) : 0;
    return both != 0 ? find_value(set->encodeTable, both).value_or(0) : 0;
}

bool may_take_mark(u32 letter, const charset_group* target) {
    // Texts are full of what lies outside: ASCII and ideographs.
    constexpr u32 first_base = 0x00E6, last_base = 0x31F7;
    if (letter >= first_base && letter <= last_base &&
        std::ranges::find(rows(), letter, &combining_row::base) != rows().end()) {
        return true;
    }
    for (const basic_set* set : member_sets(target)) {
        if (set->encodeTable->maxKey > last_scalar &&
            std::ranges::any_of(marks_in_tables,
                                [=](u32 mark) { return code_of_pair(set, letter, mark) != 0; })) {
            return true;
        }
    }
    return false;
}
