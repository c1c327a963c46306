// The conversion of one long text by several threads, byte for byte as by one.
//
// The text is cut behind line feeds: no charset has one inside a character, and what is before it
// hardly ever matters to what follows. Where it does, since a set switch stands open, the part is
// converted again from where the one before it really ended.
#pragma once

#include "tools/pvzan/file_report.h"
#include "tools/pvzan/text_stream.h"

#include <deque>
#include <functional>
#include <future>
#include <span>
#include <vector>

namespace tool {

class parallel_text {
public:
    struct task {
        charset_name to;
        text_options options;
        unsigned jobs = 2;
    };
    struct ends {
        std::function<std::size_t(std::span<std::uint8_t>)> read; // 0 at the end
        std::function<bool(bytes_view)> write;                    // false to end it all
        file_report* report;
    };

    // The stream is where a line begins, and holds the beginning of the text.
    parallel_text(task what, text_stream& text, ends where);

    // Converts the text, of which begun has been read already, up to its last line feed or up to a
    // line that is too long; returns what it has read beyond. The stream is there, then.
    std::vector<std::uint8_t> run(std::vector<std::uint8_t> begun);

private:
    using block = std::vector<std::uint8_t>;
    struct kept_problem {
        problem told;
        std::vector<std::uint8_t> bytes, comes_back;
    };
    struct part_result {
        block output;
        std::vector<kept_problem> problems;
        std::map<std::pair<problem_kind, char32_t>, std::uint64_t> untold;
        std::vector<char32_t> look_alikes;
        stream_state end;
        text_place place;
        text_counts counts;
        bool failed = false;
    };
    struct part {
        block text;
        std::future<part_result> result;
    };

    [[nodiscard]] part_result convert(const block& text, const stream_state& begin,
                                      block output) const;
    void deliver(part& p);
    bool read_block(block& rest, block& text);
    block spare_block();

    task task_;
    text_stream& text_;
    ends ends_;
    charset_name from_;
    std::deque<part> running_;
    std::vector<block> spare_; // memory that the system need not give and clear again
    stream_state at_;
    text_place place_;
    text_counts counts_;
    bool written_ = false, failed_, refused_ = false;
};

} // namespace tool
