// Texts whose lines are in different charsets, such as logs that several programs have written.
#pragma once

#include "tools/pvzan/detect/source_guess.h"

namespace tool {

class line_charsets {
public:
    explicit line_charsets(const guess_choice& choice);

    // Why lines cannot be told apart among those charsets; or empty.
    [[nodiscard]] std::string obstacle() const;
    // Of a whole line. ASCII is in the charset of the line before it, and so is what more than one
    // charset reads, unless it is likelier to be in another. What none reads is in the first.
    const pvzan_name& charset_of_line(bytes_view line);

private:
    guess_choice choice_;
    std::vector<pvzan_name> charsets_;
    std::vector<converter> readers_;
    std::size_t now_ = 0;
};

} // namespace tool
