#include "tools/pvzan/text_stream.h"

#include "tools/pvzan/error_policy.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace tool {

namespace {

constexpr std::size_t least_output = 4096; // at first; grows to what a piece becomes

// Between charsets of Japan the library hands codes on, and everything stays what it is. Other
// charsets go by way of UTF-8, where characters that would come back as others are seen, and so
// does all that becomes ISO-2022-JP, where ASCII would be left under JIS X 0201.
bool goes_by_utf8(const charset_name& from, const charset_name& to) {
    return !from.is_unicode() && !to.is_unicode() && (to.is_iso2022() || !from.is_japanese());
}

bool has_byte(bytes_view text, char byte) {
    return std::memchr(text.data(), byte, text.size()) != nullptr;
}

bool has_high_byte(bytes_view text) {
    return std::ranges::any_of(text, [](std::uint8_t byte) { return byte >= 0x80; });
}

// The start of the last sequence of text, whole or not.
std::size_t last_sequence(bytes_view text, const charset_name& charset) {
    const std::size_t width = charset.unit_bytes();
    if (width > 1) {
        std::size_t at = (text.size() - 1) / width * width;
        const bool low_half = charset.form == unicode_form::utf16 && at >= width &&
                              at + width <= text.size() &&
                              (text[charset.big_endian ? at : at + 1] & 0xFC) == 0xDC;
        return low_half ? at - width : at;
    }
    std::size_t at = text.size() - 1;
    for (int back = 0; back < 3 && at > 0 && (text[at] & 0xC0) == 0x80; ++back) {
        --at;
    }
    return at;
}

} // namespace

text_counts& text_counts::operator+=(const text_counts& more) {
    characters += more.characters;
    private_use += more.private_use;
    composed += more.composed;
    return *this;
}

text_stream::text_stream(charset_name from, charset_name to, text_sinks sinks, text_options options)
    : from_(std::move(from)), to_(std::move(to)), sinks_(std::move(sinks)), options_(options),
      by_utf8_(goes_by_utf8(from_, to_)), reader_(from_, to_), composer_(to_),
      session_(std::make_unique<pvzan_session>()), saved_(std::make_unique<pvzan_session>()),
      breaks_(options_.breaks, to_), out_(least_output) {}

bool text_stream::open() {
    pvzan_target_options target{};
    target.dstBigEndian = to_.big_endian ? 1 : 0;
    const bool marked = options_.mark == mark_rule::usual && to_.marked;
    target.dstWriteBom = to_.is_unicode() && (marked || options_.mark == mark_rule::add) ? 1 : 0;
    if (cconvInitConvert(session_.get(), &target, to_.library.c_str()) != PVZAN_DONE) {
        unknown_ = to_.shown;
    } else if (change_source(from_)) {
        substitute_ = options_.on_error == error_policy::subst
                          ? choose_substitute(to_, options_.substitute)
                          : 0;
    }
    return unknown_.empty();
}

bool text_stream::change_source(charset_name from) {
    from_ = std::move(from);
    by_utf8_ = goes_by_utf8(from_, to_);
    started_ = place_.offset > 0;
    reader_ = character_reader(from_, to_);
    if (options_.read_back) {
        back_.emplace(from_, to_);
    }
    pvzan_source_options source{};
    source.srcBigEndian = from_.big_endian ? 1 : 0;
    const char* library = by_utf8_ ? "utf-8" : from_.library.c_str();
    if (!reader_.open()) { // to UTF-8, by way of which places and characters are told
        unknown_ = from_.shown;
    } else if (cconvChgCharset(session_.get(), &source, library) != PVZAN_DONE ||
               (back_ && !back_->open())) {
        unknown_ = from_.shown;
    }
    return unknown_.empty();
}

void text_stream::begin_inside(const stream_state& state) {
    started_ = true;
    reader_.set_state(state.source);
    session_->srcShiftSet = by_utf8_ ? session_->srcShiftSet : state.source.set;
    session_->dstShiftSet = state.written_set;
    session_->target.dstWriteBom = 0;
}

stream_state text_stream::behind_line_feed() const {
    const std::uint32_t ascii = to_.is_iso2022() ? PVZAN_SET_ISO_646_IRV : 0;
    return {reader_.first_state(), ascii};
}

stream_state text_stream::state() const {
    return {source_now(), to_.is_iso2022() ? session_->dstShiftSet : 0};
}

void text_stream::go_on(const stream_state& state, const text_place& place,
                        const text_counts& counts, bool written, bool failed) {
    begin_inside(state);
    place_ = place;
    counts_ += counts;
    session_->outCount += written ? 1 : 0; // there is something to close
    failed_ = failed;
}

source_state text_stream::source_now() const {
    source_state state = reader_.state();
    if (!by_utf8_) {
        state.set = session_->srcShiftSet;
    }
    return state;
}

// The library's own reading of UTF-16 marks is lenient and would take a character such as U+FF01
// for one.
std::size_t find_mark(bytes_view text, charset_name& charset) {
    struct byte_order_mark {
        unicode_form form;
        std::initializer_list<std::uint8_t> bytes;
        bool big_endian;
    };
    const std::array<byte_order_mark, 7> marks = {{
        {unicode_form::utf8, {0xEF, 0xBB, 0xBF}, true},
        {unicode_form::ucs4, {0x00, 0x00, 0xFE, 0xFF}, true},
        {unicode_form::ucs4, {0xFF, 0xFE, 0x00, 0x00}, false},
        {unicode_form::utf16, {0xFE, 0xFF}, true},
        {unicode_form::utf16, {0xFF, 0xFE}, false},
        {unicode_form::ucs2, {0xFE, 0xFF}, true},
        {unicode_form::ucs2, {0xFF, 0xFE}, false},
    }};
    for (const byte_order_mark& mark : marks) {
        const bool expected =
            mark.form == charset.form && (charset.marked || mark.form == unicode_form::utf8 ||
                                          mark.big_endian == charset.big_endian);
        if (expected && text.size() >= mark.bytes.size() &&
            std::equal(mark.bytes.begin(), mark.bytes.end(), text.begin())) {
            charset.big_endian = mark.big_endian;
            return mark.bytes.size();
        }
    }
    return 0;
}

std::size_t text_stream::skip_mark(bytes_view text) {
    const std::size_t length = find_mark(text, from_);
    if (length > 0) {
        session_->source.srcBigEndian = from_.big_endian ? 1 : 0;
        reader_.set_byte_order(from_.big_endian);
        had_mark_ = true;
        if (options_.mark == mark_rule::keep && to_.is_unicode()) {
            session_->target.dstWriteBom = 1;
        }
        if (back_) {
            back_.emplace(from_, to_);
            back_->open();
        }
    }
    return length;
}

// How much of a text that goes on may be converted now. Unicode text is cut between sequences, and
// not where a mark may follow its letter, so that the result does not hang on where it was cut.
std::size_t text_stream::whole_piece(bytes_view text) const {
    if (!from_.is_unicode()) {
        return text.size();
    }
    constexpr int most_held_back = 16; // sequences; nobody writes so many marks in a row
    std::size_t end = text.size();
    for (int held_back = 0; end > 0 && held_back < most_held_back; ++held_back) {
        const std::size_t at = last_sequence(text.first(end), from_);
        const unicode_sequence last = read_sequence(text.subspan(at, end - at), from_);
        const bool whole = last.kind == unicode_sequence::whole;
        const bool composes = whole && !to_.is_unicode();
        if (last.kind == unicode_sequence::ill_formed ||
            (whole && last.scalar < 0x80 && !(composes && takes_composing_mark(last.scalar)))) {
            return end; // no letter that takes a mark
        }
        end = at;
        if (whole && !is_joining_mark(last.scalar) &&
            !(composes && is_composing_mark(last.scalar))) {
            return end;
        }
    }
    return end;
}

void text_stream::deliver() {
    const auto length = static_cast<std::size_t>(session_->outPos);
    session_->outPos = 0;
    if (length > 0 && !failed_) {
        sinks_.output(breaks_(bytes_view(out_).first(length)));
    }
}

void text_stream::close() {
    if (session_->outCount == 0) {
        return; // nothing to close: an empty text stays empty
    }
    session_->outBuf = out_.data();
    session_->outLen = static_cast<std::int32_t>(out_.size());
    while (cconvTermConvert(session_.get()) == PVZAN_OUTPUT_FULL) {
        deliver();
    }
    deliver();
}

std::size_t text_stream::take(bytes_view text, bool last) {
    std::size_t skipped = 0;
    if (!started_) {
        started_ = true;
        skipped = skip_mark(text);
        place_.offset += skipped;
        text = text.subspan(skipped);
    }
    if (!last) {
        text = text.first(whole_piece(text));
    }
    std::size_t used = 0;
    if (!convert_fast(text, last, used)) {
        used = convert_by_line(text, last);
    }
    deliver();
    return skipped + used;
}

void text_stream::finish(bytes_view rest) {
    take(rest, true);
    report_open_set();
    if (!failed_) {
        close();
    }
}

// ---- Whole pieces ------------------------------------------------------------------------------

// Converts up to end, making room as needed.
std::uint32_t text_stream::run(bytes_view text, std::size_t end) {
    pvzan_session& s = *session_;
    s.inBuf = text.data();
    s.inLen = static_cast<std::int32_t>(end);
    for (;;) {
        s.outBuf = out_.data();
        s.outLen = static_cast<std::int32_t>(out_.size());
        const std::uint32_t status = cconvConvert(&s);
        if (status != PVZAN_OUTPUT_FULL) {
            return status;
        }
        out_.resize(out_.size() * 2);
    }
}

// Asked as late as can be: before a text with characters beyond ASCII, or with the odd ones in it.
void text_stream::know_one_way(bool high, bool ascii) {
    if (!by_utf8_ && !from_.is_unicode()) {
        return;
    }
    if (high && !one_way_known_) {
        one_way_known_ = true;
        one_way_.open(to_);
    }
    if (ascii && !one_way_ascii_known_) {
        one_way_ascii_known_ = true;
        one_way_.open_ascii(to_);
    }
}

// Whether no character of the text, which is in this form, must be looked at.
bool text_stream::is_clean(bytes_view text, const charset_name& form) {
    if (to_.is_unicode() || !form.is_unicode()) {
        return true;
    }
    const bool wide = form.unit_bytes() > 1;
    know_one_way(wide || has_high_byte(text),
                 one_way_ascii_known_ || wide || has_byte(text, '\\') || has_byte(text, '~'));
    return !one_way_.may_be_in(text, form);
}

// Converts the piece as a whole. False, and nothing has happened, when something in it must be
// looked at.
bool text_stream::convert_fast(bytes_view text, bool last, std::size_t& used) {
    pvzan_session& s = *session_;
    const source_state before = source_now();
    if (!is_clean(text, from_)) {
        return false;
    }
    *saved_ = s;
    std::size_t tail = 0;
    const text_counts counted = counts_;
    bool right =
        by_utf8_ ? convert_by_utf8(text, last, used, tail) : convert_whole(text, last, used, tail);
    // ISO-2022-JP-2004: behind a code of JIS X 0213 the library does not go back to the set before.
    right = right && !(to_.is_iso2022() && s.dstShiftPlane != 0);
    if (right && back_ && used > 0) {
        bytes_view output = bytes_view(out_).first(static_cast<std::size_t>(s.outPos));
        output = output.subspan(static_cast<std::size_t>(saved_->outPos));
        if (saved_->target.dstWriteBom != 0 && s.target.dstWriteBom == 0) {
            output = output.subspan(to_.form == unicode_form::utf8 ? 3 : to_.unit_bytes());
        }
        right = back_->comes_back(output, saved_->dstShiftSet, text.first(used), before.set);
    }
    if (!right) {
        s = *saved_;
        reader_.set_state(before);
        counts_ = counted;
        return false;
    }
    pass(place_, text.first(used), from_, tail);
    return true;
}

void text_stream::count_characters(bytes_view unicode, const charset_name& form) {
    if (options_.count) {
        counts_.characters += count_sequences(unicode, form);
        counts_.private_use += count_private_use(unicode, form);
    }
}

// By the library in one go. A stop behind the last line break gives the count of characters that
// tells the column.
bool text_stream::convert_whole(bytes_view text, bool last, std::size_t& used, std::size_t& tail) {
    pvzan_session& s = *session_;
    if (!reader_.reads_clean(text, s)) {
        return false;
    }
    s.inPos = 0;
    std::uint32_t status = PVZAN_DONE;
    const std::size_t line_start = behind_last_break(text, from_);
    if (line_start > 0 && !from_.is_unicode()) {
        status = run(text, line_start);
    }
    const std::uint32_t count = s.inCount;
    if (status == PVZAN_DONE || status == PVZAN_INPUT_INCOMPLETE) {
        status = run(text, text.size());
    }
    used = static_cast<std::size_t>(s.inPos);
    const bool cut = status == PVZAN_INPUT_INCOMPLETE && !last && used >= line_start &&
                     text.size() - used < longest_code;
    if (status != PVZAN_DONE && !cut) {
        return false;
    }
    tail =
        from_.is_unicode() ? count_sequences(text.subspan(line_start), from_) : s.inCount - count;
    if (from_.is_unicode()) {
        count_characters(text, from_);
    } else if (to_.is_unicode()) {
        const auto begin = static_cast<std::size_t>(saved_->outPos);
        count_characters(
            bytes_view(out_).subspan(begin, static_cast<std::size_t>(s.outPos) - begin), to_);
    } else {
        counts_.characters += s.inCount - saved_->inCount;
    }
    return true;
}

bool text_stream::convert_by_utf8(bytes_view text, bool last, std::size_t& used,
                                  std::size_t& tail) {
    const charset_name form = utf8_name();
    bytes_view utf8;
    if (!reader_.decode(text, last, used, utf8) || !reader_.writes_clean(utf8) ||
        !is_clean(utf8, form)) {
        return false;
    }
    session_->inPos = 0;
    if (run(utf8, utf8.size()) != PVZAN_DONE) {
        return false;
    }
    tail = count_sequences(utf8.subspan(behind_last_break(utf8, form)), form);
    count_characters(utf8, form);
    return true;
}

// Lines in large and small numbers: fewer when something is wrong in them, down to the one in which
// it is, and then more again.
std::size_t text_stream::convert_by_line(bytes_view text, bool last) {
    const std::size_t width = from_.unit_bytes();
    std::size_t at = 0, step = text.size() / 2;
    while (at < text.size()) {
        const bytes_view rest = text.subspan(at);
        const auto behind_break = [&](std::size_t from) {
            const std::size_t begin = std::min(from, rest.size()) / width * width;
            const std::size_t found = behind_first_break(rest.subspan(begin), from_);
            return found > 0 ? begin + found : rest.size();
        };
        const std::size_t line = behind_break(0);
        const std::size_t end = step <= line ? line : behind_break(step);
        std::size_t used = 0;
        const bool known_bad = end == text.size();
        if (!known_bad && convert_fast(rest.first(end), last && end == rest.size(), used) &&
            used > 0) {
            at += used;
            step = std::max(step, end) * 2;
            continue;
        }
        step = std::min(step, end) / 4;
        if (end > line) {
            continue;
        }
        line_.clear();
        used = convert_by_character(rest, line, last);
        if (used == 0) {
            break;
        }
        at += used;
    }
    return at;
}

} // namespace tool
