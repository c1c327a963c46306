#include "text/guess/score.h"

#include "platform/platform.h"
#include "text/guess/data.h"

#include <algorithm>

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
    return within(c, 0x400, 0x40F)   ? c + 0x50
           : within(c, 0x531, 0x556) ? c + 0x30
           : within(c, 0x410, 0x42F) ? c + 0x20
                                     : c;
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
    if (c < 0x700 || within(c, 0xE00, 0xE7F) || within(c, 0x10D0, 0x10FF) ||
        within(c, 0x1E00, 0x1FFF)) {
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
    // Numbers in circles, Roman ones, units and the like, as Japanese charsets of Windows have
    // them.
    if (within(c, 0x2160, 0x216B) || within(c, 0x2460, 0x2473) || within(c, 0x3220, 0x33FF)) {
        return kind::wide_mark;
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
constexpr u32 compact_size = 0x9B0;
u32 compact(u32 c) {
    return c < 0x700                   ? c
           : within(c, 0xE00, 0xE7F)   ? 0x700 + (c - 0xE00)
           : within(c, 0x1E00, 0x1FFF) ? 0x780 + (c - 0x1E00)
           : within(c, 0x10D0, 0x10FF) ? 0x980 + (c - 0x10D0)
                                       : 0;
}

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

scripts scripts_of(std::span<const seen> text) {
    scripts found;
    for (const seen& one : text) {
        const u32 c = one.letter;
        switch (one.what) {
        case kind::none:
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

bool is_native(std::string_view native, std::string_view language) {
    while (!native.empty()) {
        const std::string_view word = take(native, ' ');
        if (word == language || word == "*") {
            return true;
        }
    }
    return false;
}

} // namespace

// The models have letters of Arabic, some charsets their shapes. Japanese charsets read some marks
// in either of two ways, which tells nothing.
static u32 usual_form(u32 c) {
    if (within(c, 0xFE80, 0xFEFC)) {
        constexpr std::u16string_view letters = // of the shapes
            u"\u0621\u0622\u0622\u0623\u0623\u0624\u0624\u0625\u0625\u0626\u0626\u0626\u0626\u0627"
            u"\u0627\u0628\u0628\u0628\u0628\u0629\u0629\u062A\u062A\u062A\u062A\u062B\u062B\u062B"
            u"\u062B\u062C\u062C\u062C\u062C\u062D\u062D\u062D\u062D\u062E\u062E\u062E\u062E\u062F"
            u"\u062F\u0630\u0630\u0631\u0631\u0632\u0632\u0633\u0633\u0633\u0633\u0634\u0634\u0634"
            u"\u0634\u0635\u0635\u0635\u0635\u0636\u0636\u0636\u0636\u0637\u0637\u0637\u0637\u0638"
            u"\u0638\u0638\u0638\u0639\u0639\u0639\u0639\u063A\u063A\u063A\u063A\u0641\u0641\u0641"
            u"\u0641\u0642\u0642\u0642\u0642\u0643\u0643\u0643\u0643\u0644\u0644\u0644\u0644\u0645"
            u"\u0645\u0645\u0645\u0646\u0646\u0646\u0646\u0647\u0647\u0647\u0647\u0648\u0648\u0649"
            u"\u0649\u064A\u064A\u064A\u064A\u0644\u0644\u0644\u0644\u0644\u0644\u0644\u0644";
        return letters[c - 0xFE80];
    }
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

seen see(u32 scalar, u32 at) {
    const u32 usual = usual_form(scalar);
    const kind what = kind_of(usual);
    const bool letter = what == kind::letter || what == kind::other_letter;
    const u32 small = letter ? small_of(usual) : usual;
    const bool counts = letter || what >= kind::general_mark;
    return {at, scalar, static_cast<u16>(counts && usual < 0x10000 ? small : 0), what,
            small != usual};
}

// ---- The models --------------------------------------------------------------------------------

namespace {

constexpr u32 classes = 6; // of what is no letter of an alphabet
constexpr u32 mark_class = 4, other_class = 5;
constexpr u32 all_characters = 0x10000;

u32 cost_of(char digit) {
    return static_cast<u32>(digit >= 'a'   ? digit - 'a' + 36
                            : digit >= 'A' ? digit - 'A' + 10
                            : digit >= '0' ? digit - '0'
                            : digit == '+' ? 62
                                           : 63);
}

} // namespace

scorer::~scorer() {
    for (model& m : std::span(models_, count_)) {
        ZAN_free(m.costs);
    }
}

void scorer::find_models() {
    std::string_view rest = language_list;
    for (const char* end = nullptr; !rest.empty(); end = rest.data()) {
        std::string_view line = take_line(rest);
        const std::string_view word = take(line, '\t');
        const bool alphabet = word == "alphabet";
        if ((!alphabet && word != "characters") || count_ == most_models) {
            continue;
        }
        if (count_ > 0) {
            model& before = models_[count_ - 1];
            before.lines = {before.lines.data(),
                            static_cast<std::size_t>(end - before.lines.data())};
        }
        model& m = models_[count_++];
        m.language = take(line, '\t');
        m.letters = line;
        m.lines = rest;
        for (std::string_view letters = line; const u32 c = take_character(letters);) {
            m.script = c;
            ++m.width;
        }
        m.width = alphabet ? m.width + classes : kinds;
    }
}

// Makes tables of its lines; false: there is no memory.
bool scorer::load(model& m) {
    if (m.costs != nullptr) {
        return true;
    }
    const u32 size = m.width * m.width, symbols = m.letters.empty() ? all_characters : compact_size;
    m.costs = static_cast<u8*>(ZAN_calloc(1, static_cast<i32>(size + symbols)));
    if (m.costs == nullptr) {
        return false;
    }
    m.symbols = m.costs + size;
    u8 symbol = classes;
    for (std::string_view letters = m.letters; const u32 c = take_character(letters);) {
        m.symbols[compact(c)] = symbol++;
    }
    std::string_view rest = m.lines;
    for (u32 row = 0; row < m.width; ++row) {
        std::string_view line = take_line(rest);
        take(line, '\t');
        for (u32 i = 0; i < std::min<std::size_t>(m.width, line.size()); ++i) {
            m.costs[row * m.width + i] = static_cast<u8>(cost_of(line[i]));
        }
    }
    while (m.letters.empty() && !rest.empty()) {
        std::string_view line = take_line(rest);
        u32 bits = 0;
        for (const char digit : take(line, '\t')) {
            bits = bits * 10 + static_cast<u32>(digit - '0');
        }
        while (const u32 c = take_character(line)) {
            m.symbols[c % all_characters] = static_cast<u8>(bits * bit);
        }
    }
    return true;
}

// ---- Judging -----------------------------------------------------------------------------------

u32 scorer::judge_letters(std::span<const seen> text, model& m, u32 most) {
    u32 cost = 0, before = 0;
    seen last = see(' ');
    for (const seen& c : text) {
        if (c.what == kind::none || cost >= most) {
            continue;
        }
        const u32 symbol = alphabet_symbol(m.symbols, c);
        const u32 step = m.costs[before * m.width + symbol];
        // Not all the texts that were counted have typographic marks.
        constexpr u32 most_for_a_mark = 5 * bit;
        cost +=
            (symbol == mark_class ? std::min(step, most_for_a_mark) : step) + case_cost(last, c);
        if (symbol < classes && symbol != 0) {
            const bool usual =
                symbol == mark_class &&
                usual_marks.find(static_cast<char16_t>(c.letter)) != usual_marks.npos;
            cost += usual ? 4 * bit : rare_cost[static_cast<u32>(c.what)];
            cost += symbol == other_class ? foreign_cost : 0;
        }
        before = symbol;
        last = c;
    }
    return cost;
}

u32 scorer::judge_characters(std::span<const seen> text, model& m, u32 most) {
    u32 cost = 0, before = 0;
    seen last = see(' ');
    for (const seen& c : text) {
        if (c.what == kind::none || cost >= most) {
            continue;
        }
        const u32 what = static_cast<u32>(c.what);
        const u32 common = c.letter != 0 ? m.symbols[c.letter] : 0;
        cost += m.costs[before * kinds + what] + case_cost(last, c);
        cost += common != 0 ? common : rare_cost[what];
        cost += c.what == kind::half_katakana ? sound_mark_cost(last, c) : 0;
        before = what;
        last = c;
    }
    return cost;
}

u32 scorer::judge(std::span<const seen> text, std::string_view native) {
    constexpr u32 foreigner = 10 * bit; // a language that the charset is not made for
    if (count_ == 0) {
        find_models();
    }
    const scripts found = scripts_of(text);
    const bool letters = found.latin || found.greek || found.cyrillic || found.other;
    u32 best = ~0U >> 1;
    for (model& m : std::span(models_, count_)) {
        const bool wanted = m.letters.empty()              ? found.characters || found.marks
                            : found.characters && !letters ? false
                            : m.script < 0x370 || m.script >= 0x1E00 ? found.latin || !letters
                            : m.script < 0x400                       ? found.greek
                            : m.script < 0x530                       ? found.cyrillic
                                                                     : found.other;
        if (!wanted || !load(m)) {
            continue;
        }
        const u32 more = is_native(native, m.language) ? 0 : foreigner;
        const u32 most = best - std::min(best, more);
        best = std::min(best, (m.letters.empty() ? judge_characters(text, m, most)
                                                 : judge_letters(text, m, most)) +
                                  more);
    }
    return best;
}

} // namespace text
