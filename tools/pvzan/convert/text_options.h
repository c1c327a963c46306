// How a text is to be converted, beyond its charsets.
#pragma once

#include <cstdint>
#include <limits>

namespace tool {

// What is written where the text has a problem.
enum class error_policy {
    stop,  // nothing: the conversion has failed
    subst, // a substitute
    ref,   // a character reference, &#x1F600;
    hex,   // the bytes of the source, <82>
    skip   // nothing
};

enum class line_breaks { keep, lf, crlf, cr };

enum class mark_rule {
    usual, // a byte-order mark for utf-16, ucs-2 and ucs-4, the names without a byte order
    add,
    drop,
    keep // where the source has one
};

struct text_options {
    error_policy on_error = error_policy::stop;
    char32_t substitute = 0; // 0: U+FFFD, U+3013 or "?", the first that the target has
    std::uint64_t most_errors = std::numeric_limits<std::uint64_t>::max();
    bool similar = false; // look-alikes are no problem
    line_breaks breaks = line_breaks::keep;
    mark_rule mark = mark_rule::usual;
    bool read_back = false; // convert back, and compare
    bool excerpts = false;  // tell the text around a problem
    bool count = false;     // count characters
};

} // namespace tool
