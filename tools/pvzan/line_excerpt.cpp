#include "tools/pvzan/line_excerpt.h"

#include <fmt/core.h>

namespace tool {

void line_excerpt::add(char32_t scalar) {
    constexpr char32_t last_short = 0xFF;
    if (is_visible(scalar)) {
        add({utf8_of(scalar), is_wide(scalar) ? 2U : 1U});
        return;
    }
    const auto value = static_cast<std::uint32_t>(scalar);
    const std::string code = scalar == '\t'         ? " "
                             : scalar <= last_short ? fmt::format("\\x{:02x}", value)
                                                    : fmt::format("\\u{{{:x}}}", value);
    add({code, code.size()});
}

void line_excerpt::add_fault() {
    add({"\u2592", 1});
}

void line_excerpt::add(cell c) {
    constexpr std::size_t most_columns = 50;
    columns_ += c.columns;
    shown_.push_back(std::move(c));
    while (columns_ > most_columns) {
        columns_ -= shown_.front().columns;
        shown_.pop_front();
    }
}

std::string line_excerpt::text() const {
    std::string whole;
    for (const cell& c : shown_) {
        whole += c.text;
    }
    return whole;
}

} // namespace tool
