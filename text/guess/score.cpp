#include "text/guess/score.h"

#include "platform/platform.h"

#include <algorithm>
#include <string_view>

namespace text {

namespace {

constexpr bool within(u32 c, u32 first, u32 last) {
    return c >= first && c <= last;
}

// The small letter of a capital, as the models have them.
u32 small_of(u32 c) {
    if (c < 0x80) {
        return within(c, 'A', 'Z') ? c + 0x20 : c;
    }
    if (c < 0x100) {
        return within(c, 0xC0, 0xDE) && c != 0xD7 ? c + 0x20 : c;
    }
    if (c < 0x180) {
        if (c == 0x130) {
            return 'i';
        }
        if (c == 0x178) {
            return 0xFF;
        }
        const bool odd = within(c, 0x139, 0x148) || within(c, 0x179, 0x17E);
        const bool alone = c == 0x131 || c == 0x138 || c == 0x149 || c == 0x17F;
        return !alone && (c & 1) == (odd ? 1U : 0U) ? c + 1 : c;
    }
    if (c == 0x1A0 || c == 0x1AF || within(c, 0x1CD, 0x1DC)) {
        return c == 0x1A0 || c == 0x1AF ? c + 1 : c + (c & 1);
    }
    if (within(c, 0x1DE, 0x24F) || within(c, 0x1E00, 0x1EFF) || within(c, 0x460, 0x481) ||
        within(c, 0x48A, 0x4BF) || within(c, 0x4D0, 0x52F)) {
        return c | 1;
    }
    if (within(c, 0x386, 0x3AB)) {
        return c == 0x386                 ? 0x3AC
               : within(c, 0x388, 0x38A)  ? c + 37
               : c == 0x38C               ? 0x3CC
               : within(c, 0x38E, 0x38F)  ? c + 63
               : c >= 0x391 && c != 0x3A2 ? c + 0x20
                                          : c;
    }
    return within(c, 0x400, 0x40F) ? c + 0x50 : within(c, 0x410, 0x42F) ? c + 0x20 : c;
}

bool is_general_mark(u32 c) {
    constexpr std::u16string_view marks =
        u"\u00A0¡¢£¥¦§¨©ª«¬\u00AD®¯°±²³´µ¶·¸¹º»¼½¾¿×÷–—‘’‚“”„†‡•…‰‹›€™←↑→↓−≠≤≥■□▲△○●★☆";
    return c < 0x10000 && marks.find(static_cast<char16_t>(c)) != marks.npos;
}

kind kind_of(u32 c) {
    if (c < 0x80) {
        return c == ' ' || within(c, '\t', '\n') || c == '\r' ? kind::space
               : c < 0x20 || c == 0x7F                        ? kind::control
               : within(c, '0', '9')                          ? kind::digit
               : within(c, 'a', 'z') || within(c, 'A', 'Z')   ? kind::letter
                                                              : kind::mark;
    }
    if (c < 0xA0 || within(c, 0xE000, 0xF8FF) || c >= 0xF0000 || (c & 0xFFFE) == 0xFFFE) {
        return kind::odd;
    }
    if (is_general_mark(c)) {
        return kind::general_mark;
    }
    if (c < 0x700 || within(c, 0xE00, 0xE7F) || within(c, 0x1E00, 0x1FFF)) {
        return kind::other_letter;
    }
    if (within(c, 0x3041, 0x30FF)) {
        return c < 0x30A0 ? kind::hiragana : kind::katakana;
    }
    if (within(c, 0x3400, 0x9FFF) || within(c, 0x20000, 0x3FFFF) || c == 0x3005 ||
        within(c, 0xF900, 0xFAFF)) {
        return kind::kanji;
    }
    if (within(c, 0xAC00, 0xD7A3)) {
        return kind::hangul;
    }
    if (within(c, 0xFF00, 0xFFEF)) {
        const bool plain =
            within(c, 0xFF10, 0xFF19) || within(c, 0xFF21, 0xFF3A) || within(c, 0xFF41, 0xFF5A);
        return within(c, 0xFF61, 0xFF9F) ? kind::half_katakana
               : plain                   ? kind::wide_letter
                                         : kind::wide_mark;
    }
    const bool known = within(c, 0x2000, 0x2BFF) || within(c, 0x3200, 0x33FF) ||
                       within(c, 0x1F000, 0x1FAFF) || within(c, 0xFE00, 0xFE6F);
    return within(c, 0x3000, 0x303F) ? kind::wide_mark : known ? kind::symbol : kind::odd;
}

// What a character of a kind costs that a language's texts have not, or hardly, shown.
constexpr u32 rare_cost[kinds] = {1 * bit,  13,       15,       16,       14 * bit, 6 * bit,
                                  10 * bit, 10 * bit, 10 * bit, 11 * bit, 19 * bit, 12 * bit,
                                  11 * bit, 15 * bit, 10 * bit, 25 * bit};
constexpr u32 foreign_cost = 6 * bit; // a script that an alphabet's texts do not have

constexpr std::u16string_view usual_marks = u"’“”«»–—„…·°©®§‘€\u00A0";

// Case is paid for apart from letters, so that a text in capitals stays writing.
constexpr u32 capital_begins = 8, small_begins = 2, capital_inside = 32, capital_goes_on = 4,
              small_behind_capital = 4;

u32 case_cost(const seen& before, const seen& now) {
    const bool inside = before.letter != 0;
    if (now.capital) {
        return !inside ? capital_begins : before.capital ? capital_goes_on : capital_inside;
    }
    return now.letter == 0 ? 0 : !inside ? small_begins : before.capital ? small_behind_capital : 0;
}

// Sound marks stand behind kana that have a voiced or half-voiced form, and behind no others.
u32 sound_mark_cost(const seen& before, const seen& now) {
    constexpr u32 misplaced = 8 * bit;
    constexpr u16 voiced = 0xFF9E, half_voiced = 0xFF9F;
    const bool h = within(before.letter, 0xFF8A, 0xFF8E);
    const bool k = within(before.letter, 0xFF76, 0xFF84) || before.letter == 0xFF73;
    return (now.letter == voiced && !h && !k) || (now.letter == half_voiced && !h) ? misplaced : 0;
}

// Letters by numbers without large gaps.
constexpr u32 compact_size = 0x250 + 0x120 + 0x390 + 0x80 + 0x200;
u32 compact(u32 c) {
    return c < 0x700                   ? c
           : within(c, 0xE00, 0xE7F)   ? 0x700 + (c - 0xE00)
           : within(c, 0x1E00, 0x1FFF) ? 0x780 + (c - 0x1E00)
                                       : 0;
}
static_assert(compact_size == 0x980);

u32 alphabet_symbol(const u8* symbols, const seen& c) {
    const u32 found = c.letter != 0 ? symbols[compact(c.letter)] : 0;
    if (found != 0) {
        return found;
    }
    switch (c.what) {
    case kind::space: return 0;
    case kind::digit: return 1;
    case kind::letter: return 2;
    case kind::mark: return 3;
    case kind::general_mark: return 4;
    default: return 5;
    }
}

// Languages by what is not ASCII in a text.
struct scripts {
    bool latin = false, greek = false, cyrillic = false, other = false, characters = false;
    bool marks = false;
};

scripts scripts_of(const seen* text, std::size_t size) {
    scripts found;
    for (std::size_t i = 0; i < size; ++i) {
        const u32 c = text[i].letter;
        switch (text[i].what) {
        case kind::space:
        case kind::digit:
        case kind::letter:
        case kind::mark:
        case kind::control: break;
        case kind::general_mark:
        case kind::symbol:
        case kind::odd: found.marks = true; break;
        case kind::other_letter:
            (c < 0x370 || c >= 0x1E00 ? found.latin
             : c < 0x400              ? found.greek
             : c < 0x530              ? found.cyrillic
                                      : found.other) = true;
            break;
        default: found.characters = true;
        }
    }
    return found;
}

bool is_native(const char* native, const char* language) {
    const std::size_t length = std::strlen(language);
    for (const char* at = native; (at = std::strstr(at, language)) != nullptr; at += length) {
        const bool begins = at == native || at[-1] == ' ';
        if (begins && (at[length] == ' ' || at[length] == '\0')) {
            return true;
        }
    }
    return false;
}

} // namespace

// Japanese charsets read some marks in either of two ways, which tells nothing.
static u32 usual_form(u32 c) {
    switch (c) {
    case 0x301C: return 0xFF5E;
    case 0x2015: return 0x2014;
    case 0x2225: return 0x2016;
    case 0xFF0D: return 0x2212;
    case 0xFFE0: return 0xA2;
    case 0xFFE1: return 0xA3;
    case 0xFFE2: return 0xAC;
    default: return c;
    }
}

seen see(u32 scalar) {
    scalar = usual_form(scalar);
    const kind what = kind_of(scalar);
    const bool letter = what == kind::letter || what == kind::other_letter;
    const u32 small = letter ? small_of(scalar) : scalar;
    const bool counts = letter || what >= kind::general_mark;
    return {static_cast<u16>(counts && scalar < 0x10000 ? small : 0), what, small != scalar};
}

scorer::~scorer() {
    for (u8* table : letters_) {
        ZAN_free(table);
    }
    for (u8* table : characters_) {
        ZAN_free(table);
    }
}

namespace {

const alphabet* alphabet_at(u32 index) {
    u32 latin = 0;
    while (latin_alphabets[latin] != nullptr) {
        ++latin;
    }
    return index < latin ? latin_alphabets[index] : other_alphabets[index - latin];
}

const character_model* characters_at(u32 index) {
    u32 japanese = 0;
    while (japanese_characters[japanese] != nullptr) {
        ++japanese;
    }
    return index < japanese ? japanese_characters[index] : chinese_characters[index - japanese];
}

std::size_t length_of(const char16_t* text) {
    return std::char_traits<char16_t>::length(text);
}

} // namespace

u32 scorer::judge_letters(const seen* text, std::size_t size, u32 model, u32 most) {
    const alphabet& a = *alphabet_at(model);
    const u32 count = static_cast<u32>(length_of(a.letters));
    if (letters_[model] == nullptr) {
        letters_[model] = static_cast<u8*>(ZAN_calloc(1, compact_size));
        if (letters_[model] == nullptr) {
            return most;
        }
        for (u32 i = 0; i < count; ++i) {
            letters_[model][compact(a.letters[i])] = static_cast<u8>(alphabet_kinds + i);
        }
    }
    const u8* symbols = letters_[model];
    const u32 width = alphabet_kinds + count;
    u32 cost = 0, before = 0;
    seen last = see(' ');
    for (std::size_t i = 0; i < size && cost < most; ++i) {
        const seen& c = text[i];
        const u32 symbol = alphabet_symbol(symbols, c);
        const u32 step = cost_of(a.rows[before * width + symbol]);
        // Not all the texts that were counted have typographic marks.
        constexpr u32 most_for_a_mark = 5 * bit;
        cost += (symbol == 4 ? std::min(step, most_for_a_mark) : step) + case_cost(last, c);
        if (symbol < alphabet_kinds && symbol != 0) {
            const bool usual = symbol == 4 && usual_marks.find(static_cast<char16_t>(c.letter)) !=
                                                  usual_marks.npos;
            cost += usual ? 4 * bit : rare_cost[static_cast<u32>(c.what)];
            cost += symbol == 5 ? foreign_cost : 0;
        }
        before = symbol;
        last = c;
    }
    return cost;
}

u32 scorer::judge_characters(const seen* text, std::size_t size, u32 model, u32 most) {
    const character_model& m = *characters_at(model);
    constexpr i32 table_size = 0x10000;
    if (characters_[model] == nullptr) {
        characters_[model] = static_cast<u8*>(ZAN_calloc(1, table_size));
        if (characters_[model] == nullptr) {
            return most;
        }
        for (u32 bits = 0; bits <= most_common_bits; ++bits) {
            for (const char16_t* c = m.common[bits]; *c != 0; ++c) {
                characters_[model][*c] = static_cast<u8>(bits * bit);
            }
        }
    }
    const u8* costs = characters_[model];
    u32 cost = 0, before = 0;
    seen last = see(' ');
    for (std::size_t i = 0; i < size && cost < most; ++i) {
        const seen& c = text[i];
        const u32 what = static_cast<u32>(c.what);
        const u32 common = c.letter != 0 ? costs[c.letter] : 0;
        cost += cost_of(m.rows[before * kinds + what]) + case_cost(last, c);
        cost += common != 0 ? common : rare_cost[what];
        cost += c.what == kind::half_katakana ? sound_mark_cost(last, c) : 0;
        before = what;
        last = c;
    }
    return cost;
}

plausibility scorer::judge(const seen* text, std::size_t size, const char* native) {
    constexpr u32 foreigner = 10 * bit; // a language that the charset is not made for
    const scripts found = scripts_of(text, size);
    plausibility best{~0U >> 1, ""};
    const auto offer = [&](u32 cost, const char* language) {
        const u32 all = cost + (is_native(native, language) ? 0 : foreigner);
        if (all < best.cost) {
            best = {all, language};
        }
    };
    const bool letters = found.latin || found.greek || found.cyrillic || found.other;
    for (u32 i = 0; alphabet_at(i) != nullptr; ++i) {
        const u32 first = alphabet_at(i)->letters[length_of(alphabet_at(i)->letters) - 1];
        const bool wanted = first < 0x370 || first >= 0x1E00 ? found.latin || !letters
                            : first < 0x400                  ? found.greek
                            : first < 0x530                  ? found.cyrillic
                                                             : found.other;
        if (wanted && (!found.characters || letters)) {
            offer(judge_letters(text, size, i, best.cost), alphabet_at(i)->language);
        }
    }
    if (found.characters || found.marks) {
        for (u32 i = 0; characters_at(i) != nullptr; ++i) {
            offer(judge_characters(text, size, i, best.cost), characters_at(i)->language);
        }
    }
    return best;
}

} // namespace text
