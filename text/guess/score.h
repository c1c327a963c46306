// How likely a reading is as a piece of writing.
#pragma once

#include "platform/base.h"

#include <string_view>

namespace text {

// Costs are quarters of a bit.
inline constexpr u32 bit = 4;
inline constexpr u32 any_cost = ~0U >> 1;

constexpr bool within(u32 c, u32 first, u32 last) {
    return c >= first && c <= last;
}

// Kinds of characters, in the order in which languages.tsv has them.
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
    odd, // private use, C1 controls
    none // a fault
};
inline constexpr u32 kinds = 16;

// A character as the models see it, and where it was read.
struct seen {
    u32 at;
    u32 scalar;
    u16 letter; // small; 0: beyond the models
    kind what;
    bool capital;
};
seen see(u32 scalar, u32 at = 0);

// What a mark that is used in any language costs among such marks, by how often it is met.
u32 mark_cost(const seen& mark);
// What it costs besides before a letter that it does not follow, where it closes something.
u32 mark_before_cost(const seen& mark);
// What it costs besides behind a letter, where some marks hardly ever stand; and where another
// letter follows, as behind no mark but the apostrophe.
u32 mark_behind_cost(const seen& mark);
u32 mark_inside_cost(const seen& mark);

constexpr seen seen_fault(u32 at) {
    return {at, 0xFFFD, 0, kind::none, false};
}

// What is common behind a character, or behind two letters, each with its cost.
struct common_line {
    u32 before;
    u32 others; // what all others cost besides
    std::string_view common;
};

// Holds what it made of the models and of words, 1 MB at most, and lives as long as a guess.
class scorer {
public:
    scorer() = default;
    ~scorer();
    scorer(const scorer&) = delete;
    scorer& operator=(const scorer&) = delete;

    // What the reading costs, each of its lines in the likeliest of all languages; where that is
    // "most" or more, anything from there on. To begin with one that is not native (parted by
    // blanks; "*": any) costs so much more.
    u32 judge(std::span<const seen> text, std::string_view native, u32 foreigner, u32 most);

private:
    static constexpr u32 most_models = 48;
    struct model {
        std::string_view language, letters; // no letters: characters
        std::string_view lines;
        u32 script; // the last letter
        u8* symbols;
        u8* costs; // of what is behind what; then, of characters within their kind
        u32 width;
        common_line* common; // by a hash of what stands before
        u32 common_last;
    };
    void find_models();
    bool load(model& m);
    static void load_common(model& m, std::string_view lines);
    static common_line* find_common(const model& m, u32 before);
    static u32 common_cost(const model& m, u32 before, u32 now, u32 alone);
    // What a reading has cost in a language, and what it costs to change to that.
    struct standing {
        u32 cost, change;
    };
    struct judged_line {
        u64 hash;
        u32 costs[most_models]; // 0: not judged yet
    };
    static u32 judge_letters(std::span<const seen> line, const model& m);
    judged_line& find_line(std::span<const seen> line);
    u32 judge_lines(std::span<const seen> text, std::span<u32> among, standing* at, u32 most);
    static u32 judge_characters(std::span<const seen> text, const model& m, u32 most);

    model models_[most_models] = {};
    u32 count_ = 0;
    judged_line lines_[1024] = {};
};

} // namespace text
