// What charset a text is in: each candidate reads the text, and the reading that is the likeliest
// piece of writing wins.
#pragma once

#include "tools/pvzan/charset.h"

#include <string>
#include <vector>

namespace tool {

struct guess_candidate {
    pvzan_name charset;
    double score = 0; // all scores together are 1; candidates that read the same share theirs
};

struct charset_guess {
    bool known = false;                      // the candidates' first fits
    bool sure = false;                       // and no other comes near it
    bool binary = false;                     // no text at all
    bool mark = false;                       // a byte-order mark was found
    pvzan_name charset;                      // when known
    const char* breaks = "-";                // "LF", "CRLF", "CR", "mixed"; "-": none
    std::vector<guess_candidate> candidates; // best first; only those with a score worth telling
    std::string reason; // "needs 87 40 ①, not in Shift_JIS", "EUC-JP fits too"; or empty
};

// How much of the text is ASCII, and nothing that may be a set switch of ISO-2022-JP: so much is
// the same in all charsets that are guessed but UTF-16 and UTF-32, and tells nothing.
std::size_t plain_ascii(bytes_view text);

// The start of a text, or the whole of it. No names: UTF-8, UTF-16 and UTF-32 (without a mark only
// where zero bytes speak for them), ISO-2022-JP, Windows-31J, EUC-JP, their 2004 relatives, and
// ISO-8859-1, of which one is never sure.
charset_guess guess_charset(bytes_view text, bool whole, const std::vector<std::string>& names);

} // namespace tool
