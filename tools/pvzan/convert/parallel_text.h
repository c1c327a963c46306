// The conversion of one long text by several threads, byte for byte as by one.
//
// The text is cut behind line feeds: no charset has one inside a character, and what is before it
// hardly ever matters to what follows. Where it does, since a set switch stands open, the part is
// converted again from where the one before it really ended.
#pragma once

#include "tools/pvzan/convert/file_report.h"
#include "tools/pvzan/convert/text_feed.h"

#include <deque>
#include <functional>
#include <future>
#include <map>
#include <span>
#include <vector>

namespace tool {

class parallel_text {
public:
    struct ends {
        std::function<std::size_t(std::span<std::uint8_t>)> read; // 0 at the end
        std::function<bool(bytes_view)> write;                    // false to end it all
        file_report* report;
    };

    // The text stands where a line begins, and holds the beginning of it all.
    parallel_text(text_feed& text, unsigned jobs, ends where);

    // Converts the text, of which begun has been read already, up to its last line feed or up to a
    // line that is too long; returns what it has read beyond. The text is there, then.
    std::vector<std::uint8_t> run(std::vector<std::uint8_t> begun);

private:
    using block = std::vector<std::uint8_t>;
    struct part_result {
        block output;
        std::vector<problem> problems;
        std::map<std::pair<problem_kind, char32_t>, std::uint64_t> untold;
        std::vector<char32_t> look_alikes;
        text_state end;
        pvzan_counts counts;
        bool failed = false, ends_as_usual = false;
    };
    struct part {
        block text;
        std::future<part_result> result;
    };

    [[nodiscard]] part_result convert(const block& text, const text_state& begin,
                                      block output) const;
    void deliver(part& p);
    bool read_block(block& rest, block& text);
    block spare_block();

    text_feed& text_;
    unsigned jobs_;
    ends ends_;
    std::deque<part> running_;
    std::vector<block> spare_; // memory that the system need not give and clear again
    const text_state usual_;   // how parts are thought to begin
    text_state at_;            // how the next one really begins
    bool as_usual_ = true;     // which is the same
    pvzan_counts counts_;
    bool failed_, refused_ = false;
};

} // namespace tool
