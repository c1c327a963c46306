#include "tools/pvzan/detect/line_charsets.h"

#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include <algorithm>

namespace tool {

line_charsets::line_charsets(const guess_choice& choice) : choice_(choice) {
    const pvzan_name utf8 = charset_of("utf-8");
    for (const std::string& name : choice.among) {
        charsets_.push_back(charset_of(name));
        readers_.push_back(open_converter(charsets_.back(), utf8));
    }
}

std::string line_charsets::obstacle() const {
    if (charsets_.size() < 2) {
        return "--per-line needs several charsets to choose from: -f NAME,NAME";
    }
    for (std::size_t i = 0; i < charsets_.size(); ++i) {
        const std::string_view shown = charsets_[i].shown;
        const bool escapes = shown.find("2022") != shown.npos || shown.starts_with("CP5022") ||
                             shown == "HZ" || shown == "UTF-7";
        if (charsets_[i].unit > 1 || escapes || readers_[i] == nullptr) {
            return fmt::format("--per-line cannot be used with {}", printable(shown));
        }
    }
    return {};
}

const pvzan_name& line_charsets::charset_of_line(bytes_view line) {
    const auto beyond = std::ranges::count_if(line, [](std::uint8_t byte) { return byte >= 0x80; });
    if (beyond == 0) {
        return charsets_[now_];
    }
    std::vector<std::size_t> fits;
    for (std::size_t i = 0; i < charsets_.size(); ++i) {
        pvzan_reset(readers_[i].get());
        if (passes(*readers_[i], line, PVZAN_LAST)) {
            fits.push_back(i);
        }
    }
    constexpr std::ptrdiff_t surely_utf8 = 8; // bytes beyond ASCII
    for (const std::size_t i : fits) {
        if (fits.size() == 1 || (charsets_[i].kind == PVZAN_KIND_UTF_8 && beyond >= surely_utf8)) {
            now_ = i;
            return charsets_[now_];
        }
    }
    if (fits.empty()) {
        now_ = 0;
        return charsets_[now_];
    }
    const source_guess guess = guess_text(line, true, choice_);
    const bool stays = std::ranges::find(fits, now_) != fits.end();
    if (guess.is_sure() || !stays) {
        const std::size_t best = fits.front();
        now_ = stays ? now_ : best;
        for (const std::size_t i : fits) {
            now_ = guess.is_known() && same_charset(guess.charset(), charsets_[i]) ? i : now_;
        }
    }
    return charsets_[now_];
}

} // namespace tool
