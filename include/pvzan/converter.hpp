// Conversion of whole texts and of streams. Part of pvzan.hpp.
#ifndef PVZAN_CONVERTER_HPP
#define PVZAN_CONVERTER_HPP

#include "charset.hpp"

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

namespace pvzan {

enum class status : std::uint32_t {
    done = PVZAN_DONE,
    unknown_charset = PVZAN_UNKNOWN_CHARSET,
    incomplete = PVZAN_INPUT_INCOMPLETE,     // the text ends inside a character
    invalid = PVZAN_INVALID_INPUT,           // bytes that are no character
    unrepresentable = PVZAN_UNREPRESENTABLE, // the target lacks the character
    no_charset_directory = 1000              // none was found
};

inline const char* describe(status s) {
    switch (s) {
    case status::done: return "done";
    case status::unknown_charset: return "unknown charset";
    case status::incomplete: return "the text ends inside a character";
    case status::invalid: return "bytes that are no character";
    case status::unrepresentable: return "a character that the target lacks";
    case status::no_charset_directory: return "no charset directory";
    }
    return "?";
}

// Something in the text that cannot be converted.
struct fault {
    status why;
    std::uint64_t position; // of its first byte in the text
    std::string_view bytes; // they live as long as the call
    char32_t scalar;        // unrepresentable: the character, or 0 where it has none
    char32_t mark;          // the combining mark that is one character with it, or 0
};

// What to do about a fault: text in UTF-8 to write in its place, empty to drop it, nothing to stop.
// What the target lacks of the text is written as "?".
using fault_handler = std::function<std::optional<std::string>(const fault&)>;

inline fault_handler replace_with(std::string text) {
    return [text = std::move(text)](const fault&) { return text; };
}

enum class newline : std::uint32_t {
    as_it_is = 0,
    crlf = PVZAN_NEWLINE_CRLF,
    cr = PVZAN_NEWLINE_CR,
    lf = PVZAN_NEWLINE_LF
};

struct options {
    fault_handler on_fault = {};              // none: stop at the first
    newline newlines = newline::as_it_is;     // write every line break alike
    std::optional<bool> byte_order_mark = {}; // else as the target's name says
    // Substitutes of the library for what the target lacks: the one for characters of one byte, the
    // one for all others. They are written without a fault.
    std::optional<std::pair<char16_t, char16_t>> substitutes = {};
};

struct summary {
    status why = status::done;
    std::uint64_t position = 0;   // bytes converted; at a stop, where the fault begins
    std::uint64_t faults = 0;     // met, whatever became of them
    std::uint64_t characters = 0; // read, but for those at fault
    std::uint64_t codes = 0;      // written
    explicit operator bool() const { return why == status::done; }
};

#ifdef __cpp_exceptions
struct error : std::runtime_error {
    summary at;
    explicit error(const summary& s)
        : std::runtime_error(std::string(describe(s.why)) + " at byte " +
                             std::to_string(s.position)),
          at(s) {}
};
#endif

struct result : summary {
    std::string text; // what was converted before the stop, closed
#ifdef __cpp_exceptions
    // The text; throws error when there was a stop.
    const std::string& value() const& {
        return check(), text;
    }
    std::string value() && {
        return check(), std::move(text);
    }

private:
    void check() const {
        if (why != status::done) {
            throw error(*this);
        }
    }
#endif
};

// A conversion from one charset to another, to be used for any number of texts, one at a time.
// Strict: what the library reads or writes leniently is a fault here. One thread at a time.
class converter {
public:
    converter(charset from, charset to, options how = {})
        : from_(std::move(from)), to_(std::move(to)), how_(std::move(how)) {
        open();
    }

    // done, unknown_charset or no_charset_directory.
    status state() const { return opened_; }
    explicit operator bool() const { return opened_ == status::done; }

    result convert(std::string_view text) {
        result all;
        all.text.reserve(text.size());
        start([&all](std::string_view piece) { all.text += piece; });
        take(text, true);
        close();
        static_cast<summary&>(all) = so_far_;
        sink_ = nullptr;
        return all;
    }

private:
    friend class stream;
    using sink = std::function<void(std::string_view)>;

    static constexpr std::size_t whole_window = 16 * 1024; // of input, converted at once
    static constexpr std::size_t small_window = 128;       // behind a fault; more than any code
    static constexpr std::size_t most_growth = 8;          // of the output over the input
    static constexpr std::size_t longest_code = 4;
    static constexpr int stepped_characters = 64; // before the next window is tried
    static constexpr std::string_view plane2_escape = "\x1b$(P";

    void open();
    void start(sink to);
    void feed(std::string_view piece);
    void close();
    std::size_t take(std::string_view text, bool last);
    std::size_t skip_mark(std::string_view text);
    bool convert_window(std::string_view text, bool last, std::size_t& used);
    std::string_view settled(std::string_view text, bool last) const;
    bool is_clean(std::string_view text);
    std::size_t step_unicode(std::string_view text, bool last);
    std::size_t step_code(std::string_view text, bool last);
    bool may_continue(std::string_view text);
    void put(std::string_view spelled, fault at);
    void forget_plane();
    void report(const fault& what);
    void replace(std::string_view text);
    std::uint32_t run(std::string_view text);
    std::uint32_t probe(std::string_view text);
    void deliver();

    bool is_pair_kept(char32_t letter, char32_t mark) const;
    bool joins_pairs() const {
        return from_.form == unicode_form::utf8 || from_.form == unicode_form::utf16;
    }
    detail::sequence sequence_at(std::string_view text) const {
        return detail::read_sequence(text, from_.form, big_endian_);
    }
    std::string_view probed() const {
        return {reinterpret_cast<const char*>(probe_out_.data()),
                static_cast<std::size_t>(prober_->outPos)};
    }

    charset from_, to_;
    options how_;
    status opened_ = status::no_charset_directory;
    pvzan_target_options target_ = {};
    std::unique_ptr<pvzan_session> session_, saved_;
    std::unique_ptr<pvzan_session> prober_; // reads the source as UTF-8; for Unicode there is none
    std::vector<std::uint8_t> out_, probe_out_;
    sink sink_;
    summary so_far_;
    std::string tail_;       // of the text, not converted yet
    bool started_ = false;   // behind a byte-order mark
    bool big_endian_ = true; // the source
    bool plane2_ = false;    // its plane 2 is designated in the source
    std::size_t window_ = whole_window;
    int steps_ = 0;
};

// A text that comes piece by piece, cut anywhere. What is written goes to the sink at once; the
// output is closed by finish, or else with the stream. The converter and what the sink refers to
// outlive it; the sink does not throw.
class stream {
public:
    stream(converter& with, std::function<void(std::string_view)> sink) : with_(with) {
        with_.start(std::move(sink));
    }
    ~stream() { finish(); }
    stream(const stream&) = delete;
    stream& operator=(const stream&) = delete;

    // Converts what it can; a character that is cut waits for the next piece. False behind a stop.
    bool feed(std::string_view piece) {
        if (open_) {
            with_.feed(piece);
        }
        return static_cast<bool>(with_.so_far_);
    }
    // The same for a span of bytes.
    template <class Bytes, class = decltype(std::declval<const Bytes&>().data()[0] >> 1)>
    std::enable_if_t<!std::is_convertible_v<const Bytes&, std::string_view>, bool>
    feed(const Bytes& piece) {
        static_assert(sizeof(*piece.data()) == 1, "bytes are wanted");
        return feed({reinterpret_cast<const char*>(piece.data()), piece.size()});
    }
    const summary& so_far() const { return with_.so_far_; }
    // Takes what is left as the end of the text, and closes the output.
    summary finish() {
        if (open_) {
            open_ = false;
            const std::string rest = std::exchange(with_.tail_, {});
            with_.take(rest, true);
            with_.close();
        }
        return with_.so_far_;
    }

private:
    converter& with_;
    bool open_ = true;
};

// Converts a text once.
inline result convert(std::string_view text, charset from, charset to, options how = {}) {
    return converter(std::move(from), std::move(to), std::move(how)).convert(text);
}

} // namespace pvzan

#include "converter_inline.hpp"
#endif
