#include "tools/pvzan/convert/parallel_text.h"

#include "tools/pvzan/files/temporary_file.h"
#include "tools/pvzan/report/message.h"

#include <algorithm>
#include <new>
#include <thread>
#include <utility>

namespace tool {

namespace {

constexpr std::size_t block_bytes = 1024 * 1024;
constexpr std::size_t longest_line = 16 * block_bytes; // longer ones are left to the stream
constexpr std::size_t most_kept = 20; // problems of a part, as many as are told of a file

} // namespace

parallel_text::parallel_text(text_feed& text, unsigned jobs, ends where)
    : text_(text), jobs_(jobs), ends_(std::move(where)), usual_(text.state()), at_(usual_),
      counts_(text.counts()), failed_(text.failed()) {}

parallel_text::block parallel_text::spare_block() {
    block found;
    if (!spare_.empty()) {
        found = std::move(spare_.back());
        spare_.pop_back();
        found.clear();
    }
    return found;
}

parallel_text::part_result parallel_text::convert(const block& text, const text_state& begin,
                                                  block output) const {
    part_result result;
    result.output = std::move(output);
    const auto keep = [&](const problem& p) {
        if (result.problems.size() >= most_kept && !current_style().json) {
            ++result.untold[{kind_of(p.fault), p.fault.scalars[0]}];
        } else {
            result.problems.push_back(p);
        }
    };
    text_feed feed(text_.source(), text_.target(),
                   {[&](bytes_view bytes) {
                        result.output.insert(result.output.end(), bytes.begin(), bytes.end());
                    },
                    keep, [&](char32_t scalar) { result.look_alikes.push_back(scalar); }},
                   text_.options());
    if (!feed.open_as(text_)) {
        throw std::bad_alloc();
    }
    feed.begin_inside(begin, text_.unit());
    constexpr std::size_t piece = 64 * 1024; // stays in the processor's cache
    for (std::size_t at = 0; at < text.size(); at += piece) {
        feed.feed(bytes_view(text).subspan(at, std::min(piece, text.size() - at)));
    }
    result.end = feed.state();
    result.ends_as_usual = feed.stands_as(usual_);
    result.counts = feed.counts();
    result.failed = feed.failed();
    return result;
}

// The next block, up to its last line feed; what is behind it goes to the rest. False, and all is
// in the rest, when there is no line feed in as much as a line may have, or up to the end.
bool parallel_text::read_block(block& rest, block& text) {
    text = std::exchange(rest, spare_block());
    for (std::size_t wanted = block_bytes; wanted <= longest_line; wanted *= 2) {
        std::size_t filled = text.size();
        text.resize(std::max(wanted, filled));
        std::size_t n = 1;
        while (filled < text.size() && n > 0) {
            n = ends_.read(std::span(text).subspan(filled));
            filled += n;
        }
        text.resize(filled);
        const std::size_t cut = behind_last_line_feed(text, text_.unit());
        if (cut > 0) {
            rest.assign(text.begin() + static_cast<std::ptrdiff_t>(cut), text.end());
            text.resize(cut);
            return true;
        }
        if (n == 0) {
            break;
        }
    }
    rest = std::move(text);
    return false;
}

void parallel_text::deliver(part& p) {
    part_result result = p.result.get();
    if (!as_usual_) {
        result = convert(p.text, at_, {}); // it does not begin as was thought
    }
    if (!failed_ && !result.output.empty()) {
        refused_ = refused_ || !ends_.write(result.output);
    }
    for (problem& told : result.problems) {
        told.fault.line += counts_.line - 1;
        told.fault.offset += counts_.in;
        ends_.report->add(told);
    }
    for (const auto& [key, count] : result.untold) {
        ends_.report->count(key.first, key.second, count);
    }
    for (const char32_t scalar : result.look_alikes) {
        ends_.report->add_look_alike(scalar);
    }
    counts_ = behind(counts_, no_counts(), result.counts);
    at_ = result.end;
    as_usual_ = result.ends_as_usual;
    failed_ = failed_ || result.failed;
    spare_.push_back(std::move(p.text));
    spare_.push_back(std::move(result.output));
}

std::vector<std::uint8_t> parallel_text::run(std::vector<std::uint8_t> begun) {
    block text;
    // Where the system gives no thread, a part is converted when its turn comes.
    constexpr std::launch how = std::launch::async | std::launch::deferred;
    const std::thread::id caller = std::this_thread::get_id();
    while (!refused_ && read_block(begun, text)) {
        part& added = running_.emplace_back(part{std::move(text), {}});
        added.result = std::async(how, [this, &added, caller, output = spare_block()]() mutable {
            if (std::this_thread::get_id() != caller) {
                hold_ending_signals();
            }
            return convert(added.text, usual_, std::move(output));
        });
        if (running_.size() >= jobs_) {
            deliver(running_.front());
            running_.pop_front();
        }
    }
    for (part& p : running_) {
        deliver(p);
    }
    text_.go_on(at_, counts_, failed_);
    return begun;
}

} // namespace tool
