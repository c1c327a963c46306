// The charset of a text that nobody has named, as the library guesses it.
#pragma once

#include "tools/pvzan/detect/line_breaks.h"
#include "tools/pvzan/files/input_file.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tool {

struct guess_choice {
    std::vector<std::string> among; // none: all charsets
    std::string language;           // empty: as the environment has it
};

struct source_guess {
    pvzan_guess_result result = new_record<pvzan_guess_result>();
    std::vector<pvzan_candidate> candidates; // the likeliest first

    [[nodiscard]] bool is_sure() const { return result.verdict == PVZAN_GUESS_SURE; }
    [[nodiscard]] bool is_binary() const { return result.verdict == PVZAN_GUESS_BINARY; }
    [[nodiscard]] bool is_known() const { return !candidates.empty(); }
    [[nodiscard]] const pvzan_name& charset() const { return candidates.front().name; }
};

// complete: the text ends behind it.
source_guess guess_text(bytes_view text, bool complete, const guess_choice& choice);

// By all of a file that lies on a disk, from where it is read next, and which stays there. Nothing
// for pipes and the like, and where it cannot be read.
std::optional<source_guess> guess_file(const input_file& file, const guess_choice& choice);

// By the beginning of a pipe: 64 KiB, its end, or what has come before a pause. Lines that are
// plain ASCII wait for nothing more and are passed, before the guess.
class pipe_guess {
public:
    using reader = std::function<std::size_t(std::span<std::uint8_t>)>; // 0 at the end
    using taker = std::function<void(bytes_view)>;

    pipe_guess(const input_file& file, const guess_choice& choice);
    // What was not passed stays in the buffer.
    source_guess run(std::vector<std::uint8_t>& buffer, const reader& read, const taker& pass);
    [[nodiscard]] bool ended() const { return ended_; }

private:
    bool gather(std::vector<std::uint8_t>& buffer, const reader& read);

    const input_file& file_;
    const guess_choice& choice_;
    bool ended_ = false;
};

// Why a guess is not sure, and what to do: for people.
std::string doubts_of(const source_guess& guess);

} // namespace tool
