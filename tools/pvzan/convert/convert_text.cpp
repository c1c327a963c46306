#include "tools/pvzan/convert/convert_text.h"

#include "tools/pvzan/convert/parallel_text.h"
#include "tools/pvzan/convert/relative_hint.h"
#include "tools/pvzan/convert/repair_text.h"
#include "tools/pvzan/detect/line_charsets.h"
#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

namespace tool {

namespace {

constexpr std::size_t input_bytes = 64 * 1024;

class text_run {
public:
    text_run(const input_file& file, const text_conversion& conversion, const byte_sink& output,
             file_report& report)
        : file_(file), conversion_(conversion), report_(report), output_(output),
          from_(conversion.from) {}

    text_result run() {
        report_.set_source(from_);
        text_feed text(from_, conversion_.to, sinks(), conversion_.options);
        if (!text.open()) {
            throw std::bad_alloc(); // its names are known
        }
        if (conversion_.per_line) {
            pump_lines(text);
        } else if (conversion_.guess ? choose_source(text) : read_more()) {
            find_breaks(filled());
            result_.facts.controls = control_hint(filled(), from_);
            if (conversion_.jobs > 1 && !ended_) {
                run_parallel(text);
            }
            pump(text);
        }
        report_.flush();
        result_.failed = text.failed();
        result_.facts.counts = text.counts();
        return std::move(result_);
    }

private:
    text_sinks sinks() {
        return {[this](bytes_view bytes) { write(bytes); },
                [this](const problem& p) { report_.add(p); },
                [this](char32_t scalar) { report_.add_look_alike(scalar); }};
    }

    bool write(bytes_view bytes) {
        result_.facts.bytes_out += bytes.size();
        if (result_.end == text_end::whole && !output_(bytes)) {
            result_.end = text_end::unwritable;
        }
        return result_.end == text_end::whole;
    }

    [[nodiscard]] bytes_view filled() const { return buffer_.first(kept_); }

    // What there is, once; 0 at the end and on failure. Who waits for it has been told all.
    std::size_t read_into(std::span<std::uint8_t> into) {
        report_.flush();
        const ssize_t n = file_.read(into);
        if (n < 0) {
            result_.end = text_end::unreadable;
            result_.error = fmt::format("cannot read: {}", system_error_text(errno));
            return 0;
        }
        ended_ = n == 0;
        result_.facts.bytes_in += static_cast<std::uint64_t>(n);
        return static_cast<std::size_t>(n);
    }

    // False on failure.
    bool read_more() {
        kept_ += read_into(buffer_.subspan(kept_));
        return result_.end == text_end::whole;
    }

    bool fill() {
        while (!ended_ && kept_ < buffer_.size()) {
            if (!read_more()) {
                return false;
            }
        }
        return true;
    }

    void feed(text_feed& text, std::size_t size) {
        text.feed(filled().first(size));
        kept_ -= size;
        std::memmove(buffer_.data(), buffer_.data() + size, kept_);
    }

    // A file is looked at whole, and read again; of a pipe there is only what has come so far.
    bool choose_source(text_feed& text) {
        if (const auto guess = guess_file(file_, conversion_.choice)) {
            return change_source(text, *guess) && read_more();
        }
        pipe_guess pipe(file_, conversion_.choice);
        std::vector<std::uint8_t> head;
        const source_guess guess = pipe.run(
            head, [this](std::span<std::uint8_t> into) { return read_into(into); },
            [&](bytes_view lines) {
                find_breaks(lines);
                text.feed(lines);
                report_.flush();
            });
        if (result_.end != text_end::whole || !change_source(text, guess)) {
            return false;
        }
        std::ranges::copy(head, buffer_.begin());
        kept_ = head.size();
        return true;
    }

    bool change_source(text_feed& text, const source_guess& guess) {
        if (!guess.is_sure()) {
            result_.end = guess.is_binary() ? text_end::binary : text_end::unknown;
            result_.error = guess.is_binary() ? guess.result.why : doubts_of(guess);
            return false;
        }
        if (same_charset(guess.charset(), from_)) {
            return true;
        }
        from_ = guess.charset();
        report_.set_source(from_);
        if (!text.change_source(from_)) {
            result_.end = text_end::unknown;
            result_.error =
                fmt::format("looks like {}, which the charset directory does not define",
                            printable(from_.shown));
            return false;
        }
        return true;
    }

    void find_breaks(bytes_view text) {
        if (result_.facts.breaks.empty()) {
            result_.facts.breaks = kind_of_breaks(text, unit_of(from_, text));
        }
    }

    void pump(text_feed& text) {
        while (result_.end == text_end::whole) {
            feed(text, kept_);
            if (ended_) {
                text.finish();
                return;
            }
            if (result_.end == text_end::whole) {
                read_more();
            }
        }
    }

    // Whole lines, as many at once as are in one charset.
    void pump_lines(text_feed& text) {
        line_charsets charsets(conversion_.choice);
        bool first = true;
        while (read_more()) {
            find_breaks(filled());
            const bool full = kept_ == buffer_.size();
            const std::size_t whole = behind_last_line_feed(filled(), {});
            const std::size_t end = ended_ || (whole == 0 && full) ? kept_ : whole;
            for (std::size_t at = 0; at < end && result_.end == text_end::whole;) {
                const bytes_view rest = filled().subspan(at, end - at);
                const auto feeds = std::ranges::find(rest, '\n');
                const auto size =
                    static_cast<std::size_t>(feeds - rest.begin()) + (feeds != rest.end() ? 1 : 0);
                const pvzan_name& charset = charsets.charset_of_line(rest.first(size));
                if (first || !same_charset(charset, from_)) {
                    enter(text, charset, first);
                    first = false;
                }
                text.feed(rest.first(size));
                at += size;
            }
            kept_ -= end;
            std::memmove(buffer_.data(), buffer_.data() + end, kept_);
            if (ended_ || result_.end != text_end::whole) {
                break;
            }
        }
        if (result_.end == text_end::whole) {
            text.finish();
        }
    }

    void enter(text_feed& text, const pvzan_name& charset, bool first) {
        if (!first || !same_charset(charset, from_)) {
            from_ = charset;
            text.change_source(from_);
        }
        report_.enter_line(text.counts().line, from_);
    }

    // The first lines go through the feed itself, and so does what the parts leave.
    void run_parallel(text_feed& text) {
        if (!fill() || ended_) {
            return;
        }
        const std::size_t lines = behind_last_line_feed(filled(), unit_of(from_, filled()));
        if (lines == 0) {
            return;
        }
        feed(text, lines);
        parallel_text parts(text, conversion_.jobs,
                            {[this](std::span<std::uint8_t> into) { return read_into(into); },
                             [this](bytes_view bytes) { return write(bytes); }, &report_});
        const std::vector<std::uint8_t> left =
            parts.run({buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(kept_)});
        kept_ = 0;
        text.feed(left);
    }

    const input_file& file_;
    const text_conversion& conversion_;
    file_report& report_;
    const byte_sink& output_;
    pvzan_name from_;
    text_result result_;
    // Memory as it is: a short text touches a page of it, not all of it.
    std::unique_ptr<std::uint8_t[]> memory_ =
        std::make_unique_for_overwrite<std::uint8_t[]>(input_bytes);
    std::span<std::uint8_t> buffer_{memory_.get(), input_bytes};
    std::size_t kept_ = 0; // in it
    bool ended_ = false;
};

} // namespace

text_result convert_text(const input_file& file, const text_conversion& conversion,
                         const byte_sink& output, file_report& report) {
    return conversion.repair ? repair_text(file, output, report)
                             : text_run(file, conversion, output, report).run();
}

} // namespace tool
