#include "tools/pvzan/convert_text.h"

#include "tools/pvzan/guess.h"
#include "tools/pvzan/message.h"
#include "tools/pvzan/parallel_text.h"
#include "tools/pvzan/source_guess.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

namespace tool {

namespace {

constexpr std::size_t input_bytes = 64 * 1024;

// Leaves memory as it is: a short text touches a page of the input buffer, not all of it.
template <class T>
struct uncleared : std::allocator<T> {
    template <class U>
    struct rebind {
        using other = uncleared<U>;
    };
    template <class U>
    void construct(U* at) noexcept {
        ::new (static_cast<void*>(at)) U;
    }
};

class text_run {
public:
    text_run(const input_file& file, const text_conversion& conversion,
             const std::function<bool(bytes_view)>& output, file_report& report)
        : file_(file), conversion_(conversion), report_(report), output_(output),
          buffer_(input_bytes) {
        result_.from = conversion.guess ? resolve_charset("utf-8") : conversion.from;
        guessing_ = conversion.guess;
    }

    text_result run() {
        report_.set_source(result_.from);
        text_stream text(result_.from, conversion_.to, sinks(), conversion_.options);
        text.open();
        if (fill(mark_bytes()) && (!guessing_ || pass_ascii(text))) {
            find_breaks();
            if (conversion_.jobs > 1 && !ended_) {
                run_parallel(text);
            }
            pump(text);
        }
        report_.flush();
        result_.failed = result_.failed || text.failed();
        result_.facts.counts = text.counts();
        result_.facts.had_mark = text.had_mark();
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

    [[nodiscard]] bytes_view filled() const { return bytes_view(buffer_).first(kept_); }

    // Reads what there is, once; false on failure. Who waits for it has been told all.
    bool read_more() {
        report_.flush();
        const ssize_t n = file_.read(std::span(buffer_).subspan(kept_));
        if (n < 0) {
            result_.end = text_end::unreadable;
            result_.error = fmt::format("cannot read: {}", system_error_text(errno));
            return false;
        }
        ended_ = n == 0;
        kept_ += static_cast<std::size_t>(n);
        result_.facts.bytes_in += static_cast<std::uint64_t>(n);
        return true;
    }

    // What must be there to look for a byte-order mark.
    [[nodiscard]] std::size_t mark_bytes() const {
        constexpr std::size_t utf8_mark = 3;
        const bool utf8 = result_.from.form == unicode_form::utf8 && !guessing_;
        return utf8 ? utf8_mark : result_.from.unit_bytes();
    }

    bool fill(std::size_t least) {
        while (!ended_ && kept_ < least) {
            if (!read_more()) {
                return false;
            }
        }
        return true;
    }

    void drop(std::size_t used) {
        kept_ -= used;
        std::memmove(buffer_.data(), buffer_.data() + used, kept_);
    }

    // Text that is ASCII is the same in all charsets that are guessed, but for UTF-16 and UTF-32,
    // whose ASCII has NUL bytes; where these are named, nothing is taken for ASCII. What comes then
    // is looked at in a full buffer, so that the guess does not hang on how the input arrives.
    bool pass_ascii(text_stream& text) {
        const bool wide =
            std::ranges::any_of(conversion_.candidates, [](const std::string& candidate) {
                return resolve_charset(candidate).unit_bytes() > 1;
            });
        if (wide) {
            return fill(buffer_.size()) && change_source(text);
        }
        for (;;) {
            const std::size_t plain = plain_ascii(filled());
            if (plain < kept_) {
                // Before a NUL there may be UTF-16 that looks like ASCII: あ is "B0".
                constexpr std::size_t looked_at = 8192;
                const std::size_t sure =
                    buffer_[plain] == 0 ? plain / looked_at * looked_at : plain;
                if (sure > 0) {
                    drop(text.feed(filled().first(sure)));
                }
                return fill(buffer_.size()) && change_source(text);
            }
            if (ended_) {
                return true;
            }
            drop(text.feed(filled()));
            if (result_.end != text_end::whole || !read_more()) {
                return false;
            }
        }
    }

    bool change_source(text_stream& text) {
        source_guess guess = guess_source(filled(), conversion_.candidates);
        if (!guess.known) {
            result_.end = guess.binary ? text_end::binary : text_end::unknown;
            result_.error = guess.why;
            return false;
        }
        result_.from = std::move(guess.charset);
        report_.set_source(result_.from);
        if (!text.change_source(result_.from)) {
            result_.end = text_end::unknown;
            result_.error = fmt::format("looks like {}, of which the charset directory has no "
                                        "definition",
                                        printable(result_.from.shown));
            return false;
        }
        return true;
    }

    void find_breaks() {
        charset_name charset = result_.from;
        const std::size_t mark = find_mark(filled(), charset);
        if (const bool units = kept_ >= mark + charset.unit_bytes(); units) {
            result_.facts.breaks = kind_of_breaks(filled().subspan(mark), charset);
        }
    }

    // Reads the file through the stream; what a piece leaves over goes before the next one.
    void pump(text_stream& text) {
        while (result_.end == text_end::whole) {
            if (ended_) {
                text.finish(filled());
                return;
            }
            drop(text.feed(filled()));
            if (kept_ == buffer_.size()) {
                buffer_.resize(buffer_.size() * 2); // a sequence of marks without an end
            }
            if (result_.end == text_end::whole) {
                read_more();
            }
        }
    }

    // The first lines go through the stream itself, and so does what the parts leave.
    void run_parallel(text_stream& text) {
        if (!fill(buffer_.size()) || ended_) {
            return;
        }
        const std::size_t lines = behind_last_line_feed(filled(), result_.from);
        if (lines == 0) {
            return;
        }
        drop(text.feed(filled().first(lines)));
        parallel_text parts({conversion_.to, conversion_.options, conversion_.jobs}, text,
                            {[this](std::span<std::uint8_t> into) { return read_into(into); },
                             [this](bytes_view bytes) { return write(bytes); }, &report_});
        const std::vector<std::uint8_t> left =
            parts.run({buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(kept_)});
        buffer_.assign(left.begin(), left.end());
        std::size_t used = 0;
        while (result_.end == text_end::whole && buffer_.size() - used > input_bytes) {
            used += text.feed(bytes_view(buffer_).subspan(used, input_bytes));
        }
        kept_ = buffer_.size();
        drop(used);
        buffer_.resize(std::max(kept_, input_bytes));
    }

    // For another buffer; 0 at the end and on failure.
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

    const input_file& file_;
    const text_conversion& conversion_;
    file_report& report_;
    const std::function<bool(bytes_view)>& output_;
    text_result result_;
    std::vector<std::uint8_t, uncleared<std::uint8_t>> buffer_;
    std::size_t kept_ = 0;
    bool ended_ = false, guessing_ = false;
};

} // namespace

text_result convert_text(const input_file& file, const text_conversion& conversion,
                         const std::function<bool(bytes_view)>& output, file_report& report) {
    return text_run(file, conversion, output, report).run();
}

} // namespace tool
