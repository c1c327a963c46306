#include "tools/pvzan/text_stream.h"

#include "tools/pvzan/marks.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace tool {

namespace {

constexpr std::size_t output_bytes = 64 * 1024;

// No character is longer. The library takes an unknown escape sequence for one that is cut, for
// ever.
constexpr std::size_t longest_character = 16;

std::uint32_t unit_at(bytes_view text, std::size_t index, const charset_name& charset) {
    const std::size_t width = charset.unit_bytes();
    std::uint32_t unit = 0;
    for (std::size_t i = 0; i < width; ++i) {
        unit = unit << 8 | text[index + (charset.big_endian ? i : width - 1 - i)];
    }
    return unit;
}

bool is_break(std::uint32_t unit) {
    return unit == '\n' || unit == '\r';
}

// The end of the last line break in text, 0 when there is none. Line feeds and carriage returns are
// never part of another character in the charsets of one-byte units.
std::size_t behind_last_break(bytes_view text, const charset_name& charset) {
    const std::size_t width = charset.unit_bytes();
    for (std::size_t end = text.size() / width * width; end > 0; end -= width) {
        if (is_break(unit_at(text, end - width, charset))) {
            return end;
        }
    }
    return 0;
}

// Counts a unit into the place's line: CR, LF and CR LF end one.
void count_break(text_place& place, std::uint32_t unit) {
    if (unit == '\r' || (unit == '\n' && !place.behind_cr)) {
        ++place.line;
        place.column = 1;
    } else if (unit == '\n') {
        place.column = 1;
    }
    place.behind_cr = unit == '\r';
}

void count_breaks(text_place& place, bytes_view text, const charset_name& charset) {
    const std::size_t width = charset.unit_bytes();
    if (width == 1 && !place.behind_cr && std::ranges::find(text, '\r') == text.end()) {
        place.line += static_cast<std::uint64_t>(std::ranges::count(text, '\n'));
        return;
    }
    for (std::size_t i = 0; i + width <= text.size(); i += width) {
        count_break(place, unit_at(text, i, charset));
    }
}

constexpr std::uint8_t escape = 0x1B;

bool is_iso2022(const charset_name& charset) {
    return charset.library.starts_with("iso-2022-jp");
}

// The end of the escape sequences that begin at an offset, and of the character behind them.
std::size_t behind_escapes(bytes_view text, std::size_t offset) {
    bool double_byte = false;
    while (offset < text.size() && text[offset] == escape) {
        double_byte = offset + 1 < text.size() && text[offset + 1] == '$';
        const bool four_bytes = double_byte && offset + 2 < text.size() && text[offset + 2] == '(';
        offset += four_bytes ? 4 : 3;
    }
    return offset + (double_byte ? 2 : 1);
}

// How much of a text may be given to the library in one piece: escape sequences stay with the
// character behind them, since it forgets the plane of ISO-2022-JP-2004 between two calls.
std::size_t whole_piece(bytes_view text, const charset_name& charset) {
    constexpr std::size_t longest_sequence = 4;
    if (!is_iso2022(charset)) {
        return text.size();
    }
    const std::size_t window = std::min(text.size(), longest_sequence + 2);
    for (std::size_t back = 1; back <= window; ++back) {
        const std::size_t at = text.size() - back;
        if (text[at] == escape) {
            return behind_escapes(text, at) > text.size() ? at : text.size();
        }
    }
    return text.size();
}

// Converts up to end for nobody.
std::uint32_t convert_step(pvzan_session& s, std::size_t end) {
    s.inLen = static_cast<std::int32_t>(end);
    std::uint32_t status = PVZAN_DONE;
    do {
        s.outPos = 0;
        status = cconvConvert(&s);
    } while (status == PVZAN_OUTPUT_FULL);
    return status;
}

} // namespace

text_stream::text_stream(charset_name from, charset_name to, text_sinks sinks)
    : from_(std::move(from)), to_(std::move(to)), sinks_(std::move(sinks)),
      session_(std::make_unique<pvzan_session>()), snapshot_(std::make_unique<pvzan_session>()),
      out_(output_bytes) {}

bool text_stream::open() {
    pvzan_target_options target{};
    target.dstBigEndian = to_.big_endian ? 1 : 0;
    target.dstWriteBom = to_.marked ? 1 : 0;
    pvzan_source_options source{};
    source.srcBigEndian = from_.big_endian ? 1 : 0;
    if (cconvInitConvert(session_.get(), &target, to_.library.c_str()) != PVZAN_DONE) {
        unknown_ = to_.asked;
        return false;
    }
    if (cconvChgCharset(session_.get(), &source, from_.library.c_str()) != PVZAN_DONE) {
        unknown_ = from_.asked;
        return false;
    }
    return true;
}

// The byte-order mark at the start of the text. The library's own reading of UTF-16 marks is
// lenient and would take a character such as U+FF01 for one.
std::size_t text_stream::skip_mark(bytes_view text) {
    const auto starts_with = [text](std::initializer_list<std::uint8_t> mark) {
        return text.size() >= mark.size() && std::equal(mark.begin(), mark.end(), text.begin());
    };
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
            mark.form == from_.form && (from_.marked || mark.form == unicode_form::utf8 ||
                                        mark.big_endian == from_.big_endian);
        if (expected && starts_with(mark.bytes)) {
            from_.big_endian = mark.big_endian;
            session_->source.srcBigEndian = mark.big_endian ? 1 : 0;
            return mark.bytes.size();
        }
    }
    return 0;
}

void text_stream::deliver() {
    const auto length = static_cast<std::size_t>(session_->outPos);
    session_->outPos = 0;
    if (length > 0 && !stopped_) {
        stopped_ = !sinks_.output(bytes_view(out_).first(length));
    }
}

// Converts up to end, and counts what was wrong.
void text_stream::convert_part(bytes_view text, std::size_t end, std::size_t& faults) {
    pvzan_session& s = *session_;
    s.inBuf = text.data();
    s.inLen = static_cast<std::int32_t>(end);
    s.outBuf = out_.data();
    s.outLen = static_cast<std::int32_t>(out_.size());
    for (;;) {
        const std::int32_t before = s.inPos;
        switch (cconvConvert(&s)) {
        case PVZAN_DONE: return;
        case PVZAN_OUTPUT_FULL: deliver(); break;
        case PVZAN_INPUT_INCOMPLETE:
            if (static_cast<std::size_t>(s.inLen - s.inPos) <= longest_character) {
                return;
            }
            ++s.inPos;
            ++faults;
            break;
        case PVZAN_INVALID_INPUT:
            s.inPos += s.inPos == before ? 1 : 0;
            ++faults;
            break;
        default: ++faults; break;
        }
    }
}

// Converts the text in parts: cut before marks that must not be joined, and behind the last line
// break, so that the count of characters there gives the column. Returns how much was used up.
std::size_t text_stream::convert(bytes_view text, std::size_t& faults) {
    std::uint32_t at_line_start = session_->inCount;
    const std::size_t line_start = behind_last_break(text, from_);
    const bool keeps_marks = to_.has_combined_characters();
    session_->inPos = 0;
    for (std::size_t begin = 0; begin < text.size();) {
        std::size_t end = text.size();
        if (!keeps_marks) {
            end = begin + find_mark(text.subspan(begin), from_);
        }
        if (begin < line_start) {
            end = std::min(end, line_start);
        }
        convert_part(text, end, faults);
        if (end == line_start) {
            at_line_start = session_->inCount;
        }
        begin = end;
    }
    const auto used = static_cast<std::size_t>(session_->inPos);
    if (faults == 0) {
        count_breaks(place_, text.first(used), from_);
        const std::uint64_t line_begin_column = line_start > 0 ? 1 : place_.column;
        place_.column = line_begin_column + (session_->inCount - at_line_start);
        place_.offset += used;
    }
    return used;
}

std::size_t text_stream::feed(bytes_view text) {
    return convert_piece(text.first(whole_piece(text, from_)));
}

std::size_t text_stream::convert_piece(bytes_view text) {
    std::size_t skipped = 0;
    if (!started_) {
        started_ = true;
        skipped = skip_mark(text);
        place_.offset += skipped;
        text = text.subspan(skipped);
    }
    *snapshot_ = *session_;
    std::size_t faults = 0;
    const std::size_t used = convert(text, faults);
    characters_ += session_->inCount - snapshot_->inCount;
    if (faults > 0) {
        locate(text.first(used), *snapshot_);
        place_.offset += used;
    }
    deliver();
    return skipped + used;
}

void text_stream::finish(bytes_view rest) {
    if (!started_ || !rest.empty()) {
        rest = rest.subspan(convert_piece(rest));
    }
    if (!rest.empty()) {
        sinks_.problems({problem_kind::incomplete, place_.line, place_.column, place_.offset,
                         std::vector<std::uint8_t>(rest.begin(), rest.end()), 0});
    }
    session_->outBuf = out_.data();
    session_->outLen = static_cast<std::int32_t>(out_.size());
    while (cconvTermConvert(session_.get()) == PVZAN_OUTPUT_FULL) {
        deliver();
    }
    deliver();
}

// The Unicode value of a character, whatever its charset: another conversion of its bytes tells.
char32_t text_stream::unicode_value(bytes_view character, const pvzan_session& at) {
    if (probe_ == nullptr) {
        probe_ = std::make_unique<pvzan_session>();
    }
    pvzan_session& s = *probe_;
    pvzan_target_options target{};
    target.dstBigEndian = 1;
    const pvzan_source_options source = at.source;
    std::array<std::uint8_t, 16> out{};
    if (cconvInitConvert(&s, &target, "iso-10646-ucs-4") != PVZAN_DONE ||
        cconvChgCharset(&s, &source, from_.library.c_str()) != PVZAN_DONE) {
        return 0;
    }
    s.srcShiftSet = at.srcShiftSet;
    s.inBuf = character.data();
    s.inPos = 0;
    s.inLen = static_cast<std::int32_t>(character.size());
    s.outBuf = out.data();
    s.outPos = 0;
    s.outLen = out.size();
    cconvConvert(&s);
    if (s.outPos < 4) {
        return 0;
    }
    return char32_t{out[0]} << 24 | char32_t{out[1]} << 16 | char32_t{out[2]} << 8 | out[3];
}

// The shortest end of the step that begins at an offset: as much as the library must see at once to
// read the character right. It forgets the plane of ISO-2022-JP-2004 between two calls.
std::size_t text_stream::step_end(bytes_view text, std::size_t begin) const {
    if (is_iso2022(from_) && text[begin] == escape) {
        const std::size_t behind = behind_escapes(text, begin);
        return std::min(behind, text.size());
    }
    const bool joins = to_.has_combined_characters();
    const std::size_t joined = joins ? joined_length(text.subspan(begin), from_) : 0;
    return begin + std::max<std::size_t>(joined, 1);
}

void text_stream::report(bool invalid, const text_place& at, bytes_view blamed,
                         const pvzan_session& s) {
    sinks_.problems({invalid ? problem_kind::invalid : problem_kind::unrepresentable, at.line,
                     at.column, at.offset, std::vector<std::uint8_t>(blamed.begin(), blamed.end()),
                     invalid ? 0 : unicode_value(blamed, s)});
}

// Goes through a piece again from where it started, giving the library one byte more at a time, so
// that each character and each problem is met alone.
void text_stream::locate(bytes_view text, const pvzan_session& start) {
    const auto stepping = std::make_unique<pvzan_session>(start);
    pvzan_session& s = *stepping;
    std::array<std::uint8_t, 64> out{};
    s.inBuf = text.data();
    s.inPos = 0;
    s.outBuf = out.data();
    s.outPos = 0;
    s.outLen = out.size();
    const std::uint64_t base = place_.offset;
    for (std::size_t begin = 0; begin < text.size(); begin = static_cast<std::size_t>(s.inPos)) {
        place_.offset = base + begin;
        std::size_t end = step_end(text, begin);
        const std::uint32_t count = s.inCount;
        std::uint32_t status = convert_step(s, end);
        while (status == PVZAN_INPUT_INCOMPLETE && end < text.size() &&
               end - begin <= longest_character) {
            status = convert_step(s, ++end);
        }
        const auto next = static_cast<std::size_t>(s.inPos);
        if (status == PVZAN_DONE || status == PVZAN_UNREPRESENTABLE) {
            if (status == PVZAN_UNREPRESENTABLE) {
                report(false, place_, text.subspan(begin, next - begin), s);
            }
            if (is_break(s.srcCode) && s.inCount != count) {
                count_break(place_, s.srcCode);
            } else if (s.inCount != count) {
                ++place_.column;
                place_.behind_cr = false;
            }
            continue;
        }
        report(true, place_, text.subspan(begin, std::min<std::size_t>(end - begin, 4)), s);
        s.inPos += next == begin ? 1 : 0;
        ++place_.column;
        place_.behind_cr = false;
    }
    place_.offset = base;
}

} // namespace tool
