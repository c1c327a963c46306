// Conversion of whole texts and of streams. Part of pvzan.hpp.
#ifndef PVZAN_CONVERTER_HPP
#define PVZAN_CONVERTER_HPP

#include "charset.hpp"

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace pvzan {

enum class status : std::uint32_t {
    done,
    unknown_charset,
    incomplete,      // the text ends inside a character, or without returning to ASCII
    invalid,         // invalid bytes
    unrepresentable, // the target lacks the character, or it would come back as a different one
    no_charset_directory, // none was found
    unusable              // not enough memory, or an unknown option
};

inline const char* describe(status s) {
    switch (s) {
    case status::done: return "done";
    case status::unknown_charset: return "unknown charset";
    case status::incomplete: return "the text ends inside a character";
    case status::invalid: return "invalid bytes";
    case status::unrepresentable: return "a character that the target lacks";
    case status::no_charset_directory: return "no charset directory";
    case status::unusable: return "not enough memory, or an unknown option";
    }
    return "?";
}

// A part of the text that cannot be converted.
struct fault {
    status why;
    std::uint64_t position;     // of its first byte in the text
    std::string_view bytes;     // they live as long as the call
    char32_t scalar;            // unrepresentable: the character, or 0
    char32_t mark;              // the combining mark that is part of the character, or 0
    std::uint64_t line, column; // from 1, in characters
    std::string_view words;     // what is wrong; they live as long as the call
};

// Decides about a fault: returns text in UTF-8 to write in its place, empty text to drop it, or
// nothing to stop. Characters of the text that the target lacks are written as "?".
using fault_handler = std::function<std::optional<std::string>(const fault&)>;

inline fault_handler replace_with(std::string text) {
    return [text = std::move(text)](const fault&) { return text; };
}

enum class newline : std::uint32_t {
    as_it_is = PVZAN_BREAKS_AS_FOUND,
    crlf = PVZAN_BREAKS_CRLF,
    cr = PVZAN_BREAKS_CR,
    lf = PVZAN_BREAKS_LF
};

struct options {
    fault_handler on_fault = {};              // none: stop at the first fault
    newline newlines = newline::as_it_is;     // write all line breaks in the same way
    std::optional<bool> byte_order_mark = {}; // by default, the target's name decides
    // Written for characters that the target lacks: one for Latin-1, half-width katakana and ASCII,
    // one for all others. These characters are not reported as faults.
    std::optional<std::pair<char16_t, char16_t>> substitutes = {};
};

struct summary {
    status why = status::done;
    std::uint64_t position = 0;   // bytes converted; after a fault, where it begins
    std::uint64_t faults = 0;     // number of faults, however they were handled
    std::uint64_t characters = 0; // number of characters, without invalid bytes
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
    std::string text; // what was converted before the conversion stopped, closed
#ifdef __cpp_exceptions
    // The text; throws error if the conversion stopped.
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

// A conversion from one charset to another. It can be used for any number of texts, one at a time,
// by one thread at a time.
class converter {
public:
    converter(const charset& from, const charset& to, options how = {})
        : to_(to), how_(std::move(how)) {
        open(from);
    }

    // done, unknown_charset, no_charset_directory or unusable.
    status state() const { return opened_; }
    explicit operator bool() const { return opened_ == status::done; }

    result convert(std::string_view text) {
        result all;
        all.text.reserve(text.size());
        start([&all](std::string_view piece) { all.text += piece; });
        feed(text, PVZAN_LAST);
        static_cast<summary&>(all) = so_far_;
        sink_ = nullptr;
        return all;
    }

private:
    friend class stream;

    void open(const charset& from);
    void start(std::function<void(std::string_view)> sink);
    void feed(std::string_view text, std::int32_t how);
    void meet_fault();
    bool substitute(const pvzan_fault& what);
    void replace(std::string_view text);
    std::string readable(std::string_view text) const;
    std::int32_t answer(std::int32_t how, std::string_view text);
    void deliver(const std::uint8_t* end);

    struct closer {
        void operator()(pvzan_converter* handle) const { pvzan_close(handle); }
    };
    charset to_;
    options how_;
    status opened_ = status::unknown_charset;
    std::unique_ptr<pvzan_converter, closer> handle_;
    std::function<void(std::string_view)> sink_;
    summary so_far_;
    std::array<std::uint8_t, 32768> room_;
};

// A text that arrives in pieces that may be cut anywhere. Output is passed to the sink immediately.
// finish closes the output, or else the destructor does. The converter, and what the sink refers
// to, must live longer; the sink must not throw.
class stream {
public:
    stream(converter& with, std::function<void(std::string_view)> sink) : with_(with) {
        with_.start(std::move(sink));
    }
    ~stream() { finish(); }
    stream(const stream&) = delete;
    stream& operator=(const stream&) = delete;

    // Converts what it can; a cut character waits for the next piece. False if the conversion
    // stopped.
    bool feed(std::string_view piece) {
        if (open_) {
            with_.feed(piece, PVZAN_PART);
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
    // Handles the rest as the end of the text, and closes the output.
    summary finish() {
        if (open_) {
            open_ = false;
            with_.feed({}, PVZAN_LAST);
        }
        return with_.so_far_;
    }

private:
    converter& with_;
    bool open_ = true;
};

// Converts a text once.
inline result convert(std::string_view text, const charset& from, const charset& to,
                      options how = {}) {
    return converter(from, to, std::move(how)).convert(text);
}

inline void converter::open(const charset& from) {
    if (from.find('\0') != charset::npos || to_.find('\0') != charset::npos) {
        return;
    }
    pvzan_open_options wanted = {};
    wanted.size = sizeof wanted;
    wanted.breaks = static_cast<std::uint32_t>(how_.newlines);
    if (how_.byte_order_mark) {
        wanted.mark = *how_.byte_order_mark ? PVZAN_MARK_ADD : PVZAN_MARK_STRIP;
    }
    pvzan_error fault = {};
    fault.size = sizeof fault;
    charset_directory(); // chooses it
    handle_.reset(pvzan_open(from.c_str(), to_.c_str(), &wanted, &fault));
    switch (fault.code) {
    case PVZAN_ERROR_NONE: opened_ = status::done; break;
    case PVZAN_ERROR_UNKNOWN_FROM:
    case PVZAN_ERROR_UNKNOWN_TO: opened_ = status::unknown_charset; break;
    case PVZAN_ERROR_NO_DIRECTORY: opened_ = status::no_charset_directory; break;
    default: opened_ = status::unusable;
    }
}

inline void converter::start(std::function<void(std::string_view)> sink) {
    sink_ = std::move(sink);
    so_far_ = {};
    so_far_.why = opened_;
    if (handle_) {
        pvzan_reset(handle_.get());
    }
}

inline void converter::deliver(const std::uint8_t* end) {
    if (end != room_.data()) {
        sink_({reinterpret_cast<const char*>(room_.data()),
               static_cast<std::size_t>(end - room_.data())});
    }
}

inline void converter::feed(std::string_view text, std::int32_t how) {
    const auto* in = reinterpret_cast<const std::uint8_t*>(text.data());
    std::size_t left = text.size();
    pvzan_outcome said = PVZAN_FEED_MORE_ROOM;
    while (so_far_.why == status::done &&
           (said == PVZAN_FEED_MORE_ROOM || said == PVZAN_FEED_FAULT)) {
        std::uint8_t* out = room_.data();
        std::size_t room = room_.size();
        said = pvzan_feed(handle_.get(), &in, &left, &out, &room, how);
        deliver(out);
        if (said == PVZAN_FEED_FAULT) {
            meet_fault();
        }
    }
    if (so_far_.why == status::done) {
        pvzan_counts counts = {};
        counts.size = sizeof counts;
        pvzan_count(handle_.get(), &counts);
        so_far_.position = counts.in;
        so_far_.characters = counts.characters;
    }
}

inline void converter::meet_fault() {
    constexpr status meanings[] = {status::invalid,         status::invalid,
                                   status::incomplete,      status::unrepresentable,
                                   status::unrepresentable, status::incomplete};
    pvzan_fault what = {};
    what.size = offsetof(pvzan_fault, relative); // which takes time, and is told to nobody
    pvzan_last_fault(handle_.get(), &what);
    const std::size_t shown = what.length < sizeof what.bytes ? what.length : sizeof what.bytes;
    const fault told = {meanings[what.kind < std::size(meanings) ? what.kind : 0],
                        what.offset,
                        {reinterpret_cast<const char*>(what.bytes), shown},
                        what.scalars_count > 0 ? what.scalars[0] : 0U,
                        what.scalars_count > 1 ? what.scalars[1] : 0U,
                        what.line,
                        what.column,
                        what.why};
    if (told.why == status::unrepresentable && substitute(what)) {
        return;
    }
    ++so_far_.faults;
    const std::optional<std::string> text =
        how_.on_fault ? how_.on_fault(told) : std::optional<std::string>();
    if (text) {
        replace(*text);
        return;
    }
    // Closes what was converted before.
    answer(PVZAN_DROP, {});
    feed({}, PVZAN_FLUSH);
    so_far_.why = told.why;
    so_far_.position = told.position;
}

inline std::int32_t converter::answer(std::int32_t how, std::string_view text) {
    const auto* in = reinterpret_cast<const std::uint8_t*>(text.data());
    std::size_t left = text.size();
    for (;;) {
        std::uint8_t* out = room_.data();
        std::size_t room = room_.size();
        const pvzan_outcome said = pvzan_answer(handle_.get(), how, &in, &left, &out, &room);
        deliver(out);
        if (said != PVZAN_FEED_MORE_ROOM) {
            return said;
        }
    }
}

inline void converter::replace(std::string_view text) {
    if (answer(PVZAN_WRITE_UTF8, text) != PVZAN_FEED_DONE &&
        answer(PVZAN_WRITE_UTF8, readable(text)) != PVZAN_FEED_DONE) {
        answer(PVZAN_DROP, {});
    }
}

// The text with "?" for what the target lacks: what comes back from it.
inline std::string converter::readable(std::string_view text) const {
    options how;
    how.on_fault = [](const fault&) { return "?"; };
    return pvzan::convert(pvzan::convert(text, "utf-8", to_, how).text, to_, "utf-8", how).text;
}

inline bool converter::substitute(const pvzan_fault& what) {
    constexpr std::uint32_t narrow = 0xFF, half_width_first = 0xFF61, half_width_last = 0xFF9F;
    if (!how_.substitutes) {
        return false;
    }
    const std::uint32_t c = what.scalars[0];
    const bool is_narrow = c <= narrow || (c >= half_width_first && c <= half_width_last);
    const char16_t chosen = is_narrow ? how_.substitutes->first : how_.substitutes->second;
    const char bytes[] = {static_cast<char>(chosen & 0xFF), static_cast<char>(chosen >> 8)};
    const result text = pvzan::convert({bytes, sizeof bytes}, "utf-16le", "utf-8");
    return text && answer(PVZAN_WRITE_UTF8, text.text) == PVZAN_FEED_DONE;
}

} // namespace pvzan
#endif
