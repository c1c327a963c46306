// How likely a reading is as a piece of writing.
#pragma once

#include "text/guess/models.h"

namespace text {

// A character as the models see it.
struct seen {
    u16 letter; // small; 0: beyond the models
    kind what;
    bool capital;
};
seen see(u32 scalar);

struct plausibility {
    u32 cost = 0; // of the likeliest language
    const char* language = "";
};

// Holds what it made of the models, some 100 KB, and lives as long as a guess.
class scorer {
public:
    scorer() = default;
    ~scorer();
    scorer(const scorer&) = delete;
    scorer& operator=(const scorer&) = delete;

    // By the likeliest of all languages; of those that are native (parted by blanks), the rest cost
    // more.
    plausibility judge(const seen* text, std::size_t size, const char* native);

private:
    u32 judge_letters(const seen* text, std::size_t size, u32 model, u32 most);
    u32 judge_characters(const seen* text, std::size_t size, u32 model, u32 most);

    static constexpr u32 most_alphabets = 40, most_characters = 4;
    u8* letters_[most_alphabets] = {};
    u8* characters_[most_characters] = {};
};

} // namespace text
