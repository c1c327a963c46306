// Converts output back, to prove that nothing is lost.
#pragma once

#include "tools/pvzan/unicode_text.h"

#include "pvzan.h"

#include <memory>
#include <string>
#include <vector>

namespace tool {

class read_back {
public:
    read_back(const charset_name& from, const charset_name& to);

    bool open();

    // Whether output comes back as the text; with the sets that are designated before them, 0 for
    // none.
    bool comes_back(bytes_view output, std::uint32_t output_set, bytes_view text,
                    std::uint32_t text_set);

    // What one character comes back as; empty where it comes back as itself, or does not go. It is
    // spelled in a charset without set switches.
    std::vector<std::uint8_t> other_than(bytes_view spelled, const charset_name& source);

private:
    // One way: its session, and what came out of it last.
    struct way {
        std::unique_ptr<pvzan_session> session = std::make_unique<pvzan_session>();
        std::vector<std::uint8_t> out;
    };
    bool convert(way& w, bytes_view text);
    bool begin(way& w, const charset_name& source, const charset_name& target);

    charset_name from_, to_;
    charset_name compared_; // what both are compared in: the source, unless it has set switches
    way back_;              // of output
    way plain_;             // of text, where it is compared as UTF-8
    std::uint32_t first_set_ = 0, first_plain_set_ = 0;
    way there_, again_;
    // What is known to come back as itself, or not to go, by a hash of the spelling: asking takes
    // two sessions.
    std::vector<std::uint64_t> sound_;
};

} // namespace tool
