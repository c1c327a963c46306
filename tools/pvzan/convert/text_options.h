// How a text is to be converted, beyond its charsets.
#pragma once

#include "pvzan_text.h"

#include <cstdint>
#include <limits>

namespace tool {

struct text_options {
    // What is written where the text has a problem: PVZAN_DROP to PVZAN_HEX. PVZAN_TELL: nothing,
    // and the conversion has failed.
    std::uint32_t on_error = PVZAN_TELL;
    char32_t substitute = 0; // 0: U+FFFD, U+3013 or "?", the first that the target has
    std::uint64_t most_errors = std::numeric_limits<std::uint64_t>::max();
    bool similar = false; // look-alikes are no problem
    std::uint32_t breaks = PVZAN_BREAKS_AS_FOUND, mark = PVZAN_MARK_BY_NAME;
    bool read_back = false; // convert back, and compare
    bool excerpts = false;  // tell the text around a problem
    bool count = false;     // count characters
};

} // namespace tool
