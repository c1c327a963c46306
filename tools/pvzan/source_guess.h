// The charset of a text that nobody has named.
#pragma once

#include "tools/pvzan/charset.h"

#include <string>
#include <vector>

namespace tool {

struct source_guess {
    bool known = false;
    pvzan_name charset;  // when known
    bool binary = false; // no text at all
    std::string why;     // when not known: "cannot tell the encoding (A or B); use --from"
};

// By the beginning of the text, from where it is no longer ASCII; among the charsets named, or the
// usual ones where there are none.
source_guess guess_source(bytes_view head, const std::vector<std::string>& candidates);

} // namespace tool
