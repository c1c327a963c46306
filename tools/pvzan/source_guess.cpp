#include "tools/pvzan/source_guess.h"

#include "tools/pvzan/guess.h"
#include "tools/pvzan/message.h"

#include <algorithm>

namespace tool {

namespace {

// So much well-formed UTF-8 without controls is nothing else, and not worth another reading.
bool is_plainly_utf8(bytes_view head) {
    constexpr std::ptrdiff_t enough = 64;
    const pvzan_name utf8 = charset_of("utf-8");
    const converter reads = open_converter(utf8, utf8);
    if (!reads || !passes(*reads, head)) {
        return false;
    }
    const auto is_control = [](std::uint8_t b) {
        const bool space = b == '\t' || b == '\n' || b == '\r';
        return (b < 0x20 && !space) || b == 0x7F || b == 0xC2; // C2 80 to C2 9F are controls, too
    };
    return std::ranges::count_if(head, [](std::uint8_t b) { return b >= 0x80; }) >= enough &&
           std::ranges::none_of(head, is_control);
}

} // namespace

source_guess guess_source(bytes_view head, const std::vector<std::string>& candidates) {
    source_guess guess;
    if (candidates.empty() && is_plainly_utf8(head)) {
        guess.known = true;
        guess.charset = charset_of("utf-8");
        return guess;
    }
    const charset_guess found = guess_charset(head, false, candidates);
    guess.known = found.known && found.sure;
    guess.charset = found.charset;
    guess.binary = found.binary;
    std::string names;
    if (found.known && found.candidates.size() > 1) {
        names = fmt::format(" ({} or {})", found.candidates[0].charset.shown,
                            found.candidates[1].charset.shown);
    } else if (found.known) {
        names = fmt::format(" (maybe {})", found.charset.shown);
    }
    guess.why = fmt::format("cannot tell the encoding{}; use --from", names);
    return guess;
}

} // namespace tool
