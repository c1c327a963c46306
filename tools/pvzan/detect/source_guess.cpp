#include "tools/pvzan/detect/source_guess.h"

#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include <algorithm>
#include <memory>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

namespace {

constexpr std::size_t looked_at = 64 * 1024; // of a pipe
constexpr int pause_milliseconds = 100;

struct guesser_closer {
    void operator()(pvzan_guesser* open) const { pvzan_guess_close(open); }
};
using guesser = std::unique_ptr<pvzan_guesser, guesser_closer>;

guesser open_guesser(const guess_choice& choice) {
    std::string names;
    for (const std::string& name : choice.among) {
        names += (names.empty() ? "" : ",") + name;
    }
    return guesser(pvzan_guess_open(names.empty() ? nullptr : names.c_str(),
                                    choice.language.empty() ? nullptr : choice.language.c_str()));
}

source_guess end_guess(pvzan_guesser* open, bool complete) {
    constexpr std::size_t most = 8;
    source_guess guess;
    guess.candidates.assign(most, new_record<pvzan_candidate>());
    guess.candidates.resize(std::min(most, pvzan_guess_end(open, complete ? 1 : 0, &guess.result,
                                                           guess.candidates.data(), most)));
    return guess;
}

// Characters that mean the same in all charsets but UTF-16 and its like.
bool is_plain(bytes_view text) {
    return std::ranges::all_of(text, [](std::uint8_t byte) {
        return (byte >= 0x20 && byte < 0x7F) || (byte >= '\t' && byte <= '\r');
    });
}

bool has_wide(const std::vector<std::string>& names) {
    return std::ranges::any_of(names,
                               [](const std::string& name) { return charset_of(name).unit > 1; });
}

} // namespace

source_guess guess_text(bytes_view text, bool complete, const guess_choice& choice) {
    const guesser open = open_guesser(choice);
    pvzan_guess_feed(open.get(), text.data(), text.size());
    return end_guess(open.get(), complete);
}

std::optional<source_guess> guess_file(const input_file& file, const guess_choice& choice) {
    struct stat status {};
    const off_t begin = ::lseek(file.descriptor(), 0, SEEK_CUR);
    if (begin < 0 || ::fstat(file.descriptor(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    const guesser open = open_guesser(choice);
    const std::size_t room =
        std::clamp<std::size_t>(static_cast<std::size_t>(status.st_size), 1, looked_at * 4);
    std::vector<std::uint8_t> block(room);
    off_t at = begin;
    for (;;) {
        const ssize_t n = ::pread(file.descriptor(), block.data(), block.size(), at);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            return std::nullopt;
        }
        at += n;
        if (n == 0 ||
            pvzan_guess_feed(open.get(), block.data(), static_cast<std::size_t>(n)) == 0) {
            return end_guess(open.get(), true);
        }
    }
}

pipe_guess::pipe_guess(const input_file& file, const guess_choice& choice)
    : file_(file), choice_(choice) {}

// Until there is enough, the end, or a pause; false where nothing more has come.
bool pipe_guess::gather(std::vector<std::uint8_t>& buffer, const reader& read) {
    const std::size_t before = buffer.size();
    while (!ended_ && buffer.size() < looked_at) {
        if (buffer.size() > before) {
            pollfd input = {file_.descriptor(), POLLIN, 0};
            if (::poll(&input, 1, pause_milliseconds) == 0) {
                break;
            }
        }
        const std::size_t filled = buffer.size();
        buffer.resize(looked_at);
        const std::size_t n = read(std::span(buffer).subspan(filled));
        buffer.resize(filled + n);
        ended_ = n == 0;
    }
    return buffer.size() > before;
}

source_guess pipe_guess::run(std::vector<std::uint8_t>& buffer, const reader& read,
                             const taker& pass) {
    const bool wide = has_wide(choice_.among);
    bool passed = false;
    for (;;) {
        const bool more = gather(buffer, read);
        if (wide && !ended_ && buffer.size() < looked_at) {
            continue;
        }
        source_guess guess = guess_text(buffer, ended_, choice_);
        const bool named = !choice_.among.empty();
        const bool plain = is_plain(buffer) && guess.is_sure() &&
                           (named || guess.charset().kind == PVZAN_KIND_UTF_8);
        if (!more || ended_ || wide || !plain) {
            if (passed && guess.is_known() && guess.charset().unit > 1) {
                guess.result.verdict = PVZAN_GUESS_UNSURE; // the lines before it were none
            }
            return guess;
        }
        const auto behind_line = std::find(buffer.rbegin(), buffer.rend(), '\n').base();
        const bool full = buffer.size() == looked_at;
        const auto end =
            behind_line == buffer.begin() && full ? std::prev(buffer.end()) : behind_line;
        if (end != buffer.begin()) {
            pass(bytes_view(buffer).first(static_cast<std::size_t>(end - buffer.begin())));
            buffer.erase(buffer.begin(), end);
            passed = true;
        }
    }
}

std::string doubts_of(const source_guess& guess) {
    const pvzan_guess_result& result = guess.result;
    if (!guess.is_known()) {
        return "cannot tell the encoding: no charset fits; use --from";
    }
    const std::string first = printable(guess.charset().shown);
    if (*result.why != '\0') {
        return fmt::format("cannot tell the encoding: looks like {}, {}; use --from", first,
                           printable(result.why));
    }
    std::string readings;
    for (const pvzan_candidate& candidate : guess.candidates) {
        if (*candidate.reading != '\0') {
            readings += fmt::format("{}'{}' in {}", readings.empty() ? "" : ", ",
                                    printable(candidate.reading), printable(candidate.name.shown));
        }
    }
    if (readings.empty()) {
        return fmt::format("cannot tell the encoding (maybe {}); use --from", first);
    }
    return fmt::format("cannot tell the encoding: byte {} and what follows is {}; use --from",
                       result.doubt, readings);
}

} // namespace tool
