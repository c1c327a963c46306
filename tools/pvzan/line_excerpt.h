// The part of a line around a problem, as a terminal may show it.
#pragma once

#include "tools/pvzan/unicode_text.h"

#include <deque>
#include <string>

namespace tool {

class line_excerpt {
public:
    void clear() { shown_.clear(), columns_ = 0; }
    // What is behind the rest; only the last columns are kept.
    void add(char32_t scalar);
    void add_fault();

    [[nodiscard]] std::string text() const;
    [[nodiscard]] std::size_t columns() const { return columns_; }

private:
    struct cell {
        std::string text;
        std::size_t columns;
    };
    void add(cell c);

    std::deque<cell> shown_;
    std::size_t columns_ = 0;
};

} // namespace tool
