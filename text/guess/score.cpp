#include "text/guess/score.h"

#include "platform/platform.h"
#include "text/guess/data.h"

#include <algorithm>
#include <bit>

namespace text {

namespace {

// What a character of a kind costs that a language's texts have not, or hardly, shown.
constexpr u32 rare_cost[kinds] = {1 * bit,  13,       15,       16,       14 * bit, 6 * bit,
                                  10 * bit, 10 * bit, 10 * bit, 11 * bit, 19 * bit, 12 * bit,
                                  11 * bit, 15 * bit, 10 * bit, 25 * bit};
// A letter that an alphabet's texts do not have; less, where many languages have it.
constexpr u32 foreign_cost = 6 * bit, foreign_and_rare_cost = 10 * bit, latin_1_end = 0x100;

// Case is paid for apart from letters, so that a text in capitals stays writing.
constexpr u32 capital_begins = 8, small_begins = 2, capital_inside = 32, second_capital = 14,
              capital_goes_on = 4, small_behind_capital = 4, other_capital_inside = 48;

u32 case_cost(const seen& older, const seen& before, const seen& now) {
    const bool inside = before.letter != 0;
    if (now.capital) {
        return !inside             ? capital_begins
               : before.capital    ? (older.capital ? capital_goes_on : second_capital)
               : now.scalar < 0x80 ? capital_inside
                                   : other_capital_inside;
    }
    return now.letter == 0 ? 0 : !inside ? small_begins : before.capital ? small_behind_capital : 0;
}

bool is_quote(const seen& c) {
    constexpr std::u16string_view marks = u"«»„“”‘’‚‹›";
    return marks.find(static_cast<char16_t>(c.letter)) != marks.npos;
}

bool is_letter(const seen& c) {
    return c.what == kind::letter || c.what == kind::other_letter;
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

// ---- The models --------------------------------------------------------------------------------

namespace {

constexpr u32 classes = 6; // of what is no letter of an alphabet
constexpr u32 letter_class = 2, mark_class = 4, other_class = 5;
constexpr u32 all_characters = 0x10000;
constexpr u32 latin_end = 0x370;
constexpr u32 boundary = '_'; // of a word
constexpr u32 two_letters(u32 first, u32 second) {
    return first << 16 | second;
}
constexpr u32 inside_a_word = 12 * bit; // a character alone between small letters: "Br端ssow"

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
        ZAN_free(m.common);
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
    load_common(m, rest);
    return true;
}

// The place of what is common behind that, or an empty one; null: there was no memory.
common_line* scorer::find_common(const model& m, u32 before) {
    u32 at = before * 0x9E3779B1U >> 16;
    while (m.common != nullptr) {
        common_line& line = m.common[at++ & m.common_last];
        if (line.before == before || line.before == 0) {
            return &line;
        }
    }
    return nullptr;
}

// How common characters are, and where what is common behind others is.
void scorer::load_common(model& m, std::string_view lines) {
    const auto count = static_cast<u32>(std::ranges::count(lines, '\n'));
    const u32 room = std::bit_ceil(2 * count + 1);
    m.common = static_cast<common_line*>(ZAN_calloc(static_cast<i32>(room), sizeof(common_line)));
    m.common_last = room - 1;
    while (!lines.empty()) {
        std::string_view line = take_line(lines);
        const bool digits = !line.empty() && line[0] >= '0' && line[0] <= '9';
        if (!digits) {
            const bool two = line.starts_with('>');
            line.remove_prefix(two ? 1 : 0);
            u32 before = take_character(line);
            before = two ? two_letters(before, take_character(line)) : before;
            u32 others = 0;
            if (two && !line.empty()) {
                others = cost_of(line[0]);
                line.remove_prefix(1);
            }
            if (m.common != nullptr) {
                *find_common(m, before) = {before, others, line};
            }
            continue;
        }
        u32 bits = 0;
        for (const char digit : take(line, '\t')) {
            bits = bits * 10 + static_cast<u32>(digit - '0');
        }
        while (const u32 c = take_character(line)) {
            m.symbols[c % all_characters] = static_cast<u8>(bits * bit);
        }
    }
}

// What that costs behind others, of which it is known what is common there.
u32 scorer::common_cost(const model& m, u32 before, u32 now, u32 alone) {
    const common_line* const found = find_common(m, before);
    if (found == nullptr || found->before != before) {
        return alone;
    }
    for (std::string_view rest = found->common; const u32 c = take_character(rest);) {
        if (c == now && !rest.empty()) {
            return std::min(alone, cost_of(rest[0]));
        }
        rest.remove_prefix(std::min<std::size_t>(rest.size(), 1));
    }
    return alone + found->others;
}

// ---- Judging -----------------------------------------------------------------------------------

namespace {

constexpr u32 unpaired = 6 * bit; // quotation marks
// To another language for the next line: a name from elsewhere changes it, and back.
constexpr u32 least_change = 8 * bit;
constexpr u32 no_word = 10 * bit; // only single letters: they are hardly a language's

// What capitals and marks cost, which is the same in all languages with letters.
u32 cost_in_all_languages(std::span<const seen> text) {
    u32 cost = 0, quotes = 0;     // that are open
    u32 run = 0, longest_run = 0; // of letters of another script than ASCII's
    seen older = see(' '), last = older;
    bool inside = false; // at a mark behind a letter
    for (const seen& c : text) {
        if (c.what == kind::none) {
            continue;
        }
        run = c.what == kind::other_letter && c.letter >= latin_end ? run + 1 : 0;
        longest_run = std::max(longest_run, run);
        cost += case_cost(older, last, c);
        const bool mark = c.what == kind::general_mark;
        if (last.what == kind::general_mark) {
            const bool opens = is_letter(c) && !inside;
            const bool apostrophe = last.letter == u'’';
            if (is_letter(c)) {
                cost += inside ? mark_inside_cost(last) : mark_before_cost(last);
            }
            if (is_quote(last)) {
                cost += !opens && quotes == 0 && inside && !apostrophe ? unpaired : 0;
                quotes = opens ? quotes + (apostrophe ? 0 : 1) : quotes - std::min(quotes, 1U);
            }
        }
        inside = mark && is_letter(last);
        cost += (mark ? mark_cost(c) : 0) + (inside ? mark_behind_cost(c) : 0);
        older = last;
        last = c;
    }
    return cost + (longest_run == 1 ? no_word : 0) + (quotes > 0 ? unpaired : 0);
}

} // namespace

// What a line's letters cost besides.
u32 scorer::judge_letters(std::span<const seen> line, const model& m) {
    constexpr u32 most_for_a_mark = 5 * bit; // not all the texts that were counted have them
    u32 cost = 0, before = 0;
    u32 two = two_letters(boundary, boundary); // the last ones
    for (const seen& c : line) {
        if (c.what == kind::none) {
            continue;
        }
        const u32 symbol = alphabet_symbol(m.symbols, c);
        u32 step = m.costs[before * m.width + symbol];
        const u32 third = symbol >= classes                                 ? c.letter
                          : symbol == letter_class || symbol == other_class ? 0
                                                                            : boundary;
        if ((symbol >= classes || symbol == 0) && two % two_letters(1, 0) != boundary) {
            step = common_cost(m, two, third, step);
        }
        two = two_letters(two % two_letters(1, 0), third);
        cost += symbol == mark_class ? std::min(step, most_for_a_mark) : step;
        cost += symbol < classes && symbol != 0 && symbol != mark_class
                    ? rare_cost[static_cast<u32>(c.what)]
                    : 0;
        cost += symbol != other_class    ? 0
                : c.letter < latin_1_end ? foreign_cost
                                         : foreign_and_rare_cost;
        before = symbol;
    }
    return cost;
}

// Where that is kept: many candidates read the same.
scorer::judged_line& scorer::find_line(std::span<const seen> line) {
    u64 hash = 0xCBF29CE484222325U;
    for (const seen& c : line) {
        hash = (hash ^ c.scalar) * 0x100000001B3U;
    }
    judged_line& found = lines_[hash % std::size(lines_)];
    if (found.hash != hash) {
        found = {hash, {}};
    }
    return found;
}

u32 scorer::judge_characters(std::span<const seen> text, const model& m, u32 most) {
    u32 cost = 0, before = 0;
    seen older = see(' '), last = older;
    bool inside = false; // of a word of small letters, at its last one
    for (const seen& c : text) {
        if (c.what == kind::none || cost >= most) {
            continue;
        }
        const u32 what = static_cast<u32>(c.what);
        const u32 common = c.letter != 0 ? m.symbols[c.letter] : 0;
        const u32 alone = m.costs[before * kinds + what] + (common != 0 ? common : rare_cost[what]);
        const bool pair = last.letter >= 0x80 && c.letter >= 0x80;
        cost += pair ? common_cost(m, last.letter, c.letter, alone) : alone;
        cost += case_cost(older, last, c);
        cost += c.what == kind::half_katakana ? sound_mark_cost(last, c) : 0;
        const bool small = c.what == kind::letter && !c.capital;
        cost += small && inside && last.what != kind::letter ? inside_a_word : 0;
        inside = small || (inside && last.what == kind::letter && c.what >= kind::general_mark &&
                           c.letter != 0x2019);
        before = what;
        older = last;
        last = c;
    }
    return cost;
}

// Each line in the likeliest language of those with letters, of which there are some.
u32 scorer::judge_lines(std::span<const seen> text, std::span<u32> among, standing* at, u32 most) {
    const auto by_cost = [&](u32 a, u32 b) { return at[a].cost < at[b].cost; };
    const u32 in_all = cost_in_all_languages(text);
    u32 likeliest = *std::ranges::min_element(among, by_cost);
    while (!text.empty() && at[likeliest].cost + in_all < most) {
        const auto end = std::ranges::find(text, U'\n', &seen::scalar);
        const auto size = static_cast<std::size_t>(end - text.begin());
        const std::span<const seen> line = text.first(std::min(size + 1, text.size()));
        text = text.subspan(line.size());
        judged_line& judged = find_line(line);
        const standing from = at[likeliest];
        for (const u32 i : among) {
            standing& s = at[i];
            s.cost = std::min(s.cost, from.cost + s.change);
            if (judged.costs[i] == 0) {
                judged.costs[i] = judge_letters(line, models_[i]);
            }
            s.cost += judged.costs[i];
        }
        likeliest = *std::ranges::min_element(among, by_cost);
    }
    return at[likeliest].cost + in_all;
}

u32 scorer::judge(std::span<const seen> text, std::string_view native, u32 foreigner, u32 most) {
    if (count_ == 0) {
        find_models();
    }
    const scripts found = scripts_of(text);
    const bool letters = found.latin || found.greek || found.cyrillic || found.other;
    standing at[most_models];
    u32 alphabets[most_models], count = 0;
    u32 best = most;
    for (u32 i = 0; i < count_; ++i) {
        model& m = models_[i];
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
        if (m.letters.empty()) {
            best = std::min(best, judge_characters(text, m, best - std::min(best, more)) + more);
            continue;
        }
        at[i] = {more, std::max(more, least_change)};
        alphabets[count++] = i;
    }
    return count > 0 ? std::min(best, judge_lines(text, {alphabets, count}, at, best)) : best;
}

} // namespace text
