#include "tools/pvzan/text_stream.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tool {

namespace {

constexpr std::size_t output_bytes = 256 * 1024; // grows where the output is much longer
constexpr std::size_t most_blamed = 8;

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

text_stream::text_stream(charset_name from, charset_name to, text_sinks sinks)
    : from_(std::move(from)), to_(std::move(to)), sinks_(std::move(sinks)), reader_(from_, to_),
      session_(std::make_unique<pvzan_session>()), saved_(std::make_unique<pvzan_session>()),
      out_(output_bytes) {}

bool text_stream::open() {
    pvzan_target_options target{};
    target.dstBigEndian = to_.big_endian ? 1 : 0;
    target.dstWriteBom = to_.marked ? 1 : 0;
    pvzan_source_options source{};
    source.srcBigEndian = from_.big_endian ? 1 : 0;
    if (cconvInitConvert(session_.get(), &target, to_.library.c_str()) != PVZAN_DONE) {
        unknown_ = to_.asked;
    } else if (cconvChgCharset(session_.get(), &source, from_.library.c_str()) != PVZAN_DONE) {
        unknown_ = from_.asked;
    } else if (!reader_.open()) {
        unknown_ = "utf-8"; // positions and characters are told by way of it
    }
    return unknown_.empty();
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
            reader_.set_byte_order(mark.big_endian);
            return mark.bytes.size();
        }
    }
    return 0;
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
        if (last.kind == unicode_sequence::ill_formed || (whole && last.scalar < 0x80)) {
            return end; // no letter of a pair
        }
        end = at;
        if (whole && !is_joining_mark(last.scalar)) {
            return end;
        }
    }
    return end;
}

void text_stream::deliver() {
    const auto length = static_cast<std::size_t>(session_->outPos);
    session_->outPos = 0;
    if (length > 0 && !failed_) {
        sinks_.output(bytes_view(out_).first(length));
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

void text_stream::report(problem_kind kind, bytes_view blamed, char32_t scalar, char32_t mark) {
    if (!failed_) {
        close();
        failed_ = true;
    }
    sinks_.problems(
        {kind, place_, blamed.first(std::min(blamed.size(), most_blamed)), scalar, mark});
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

// Converts the piece as a whole. False, and nothing has happened, when something in it must be
// looked at. A stop behind the last line break gives the count of characters that tells the column.
bool text_stream::convert_fast(bytes_view text, bool last, std::size_t& used) {
    pvzan_session& s = *session_;
    if (!reader_.reads_clean(text, s)) {
        return false;
    }
    *saved_ = s;
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
    // ISO-2022-JP-2004: behind a code of JIS X 0213 the library does not go back to the set before.
    const bool wants_new_escape = to_.is_iso2022() && s.dstShiftPlane != 0;
    if ((status != PVZAN_DONE && !cut) || wants_new_escape) {
        s = *saved_;
        return false;
    }
    const std::size_t tail =
        from_.is_unicode() ? count_sequences(text.subspan(line_start), from_) : s.inCount - count;
    pass(place_, text.first(used), from_, tail);
    return true;
}

std::size_t text_stream::convert_by_line(bytes_view text, bool last) {
    std::size_t at = 0;
    while (at < text.size()) {
        const bytes_view rest = text.subspan(at);
        const std::size_t behind_break = behind_first_break(rest, from_);
        const std::size_t line = behind_break > 0 ? behind_break : rest.size();
        std::size_t used = 0;
        const bool known_bad = line == text.size();
        if (known_bad || !convert_fast(rest.first(line), last && line == rest.size(), used) ||
            used == 0) {
            used = convert_by_character(rest, line, last);
        }
        if (used == 0) {
            break;
        }
        at += used;
    }
    return at;
}

// ---- Single characters -------------------------------------------------------------------------

// Converts the characters that begin before end.
std::size_t text_stream::convert_by_character(bytes_view text, std::size_t end, bool last) {
    reader_.follow(*session_);
    std::size_t at = 0;
    while (at < end) {
        const bytes_view rest = text.subspan(at);
        const text_character character = reader_.read(rest);
        if (character.kind == text_character::cut) {
            if (!last) {
                break;
            }
            report(problem_kind::incomplete, rest);
            place_.offset += rest.size();
            return text.size();
        }
        convert_character(character, rest);
        at += character.bytes;
    }
    return at;
}

// What the library would write although nothing reads it back: set switches as characters, and
// codes of a letter and its mark in a target that has only the letter.
bool text_stream::is_writable(const text_character& character) const {
    if (to_.is_iso2022() &&
        (character.scalar == 0x1B || character.scalar == 0x0E || character.scalar == 0x0F)) {
        return false;
    }
    return character.mark == 0 || from_.is_unicode() || to_.is_unicode() || to_.is_jis_x0213();
}

std::uint32_t text_stream::put(bytes_view spelled) {
    pvzan_session& s = *session_;
    const std::int32_t before = s.outPos;
    s.inPos = 0;
    const std::uint32_t status = run(spelled, spelled.size());
    if (status != PVZAN_DONE) {
        s.outPos = before;
    }
    if (to_.is_iso2022() && s.dstShiftPlane != 0) {
        s.dstShiftPlane = 0;
        s.dstShiftSet = 0; // the next character is to be designated anew
    }
    return status;
}

void text_stream::convert_character(const text_character& character, bytes_view text) {
    switch (character.kind) {
    case text_character::silent:
        put(character.spelled);
        place_.offset += character.bytes;
        return;
    case text_character::whole: break;
    default:
        report(problem_kind::invalid, text.first(character.blamed));
        step(place_, 0, character.bytes);
        return;
    }
    const bytes_view bytes = text.first(character.bytes);
    const std::uint32_t status =
        is_writable(character) ? put(character.spelled) : std::uint32_t{PVZAN_UNREPRESENTABLE};
    if (status == PVZAN_UNREPRESENTABLE) {
        report(problem_kind::unrepresentable, bytes, character.scalar, character.mark);
    } else if (status != PVZAN_DONE) {
        report(problem_kind::invalid, bytes);
    }
    step(place_, character.scalar, character.bytes);
    if (from_.is_unicode() && character.mark != 0) {
        step(place_, character.mark, 0);
    }
}

} // namespace tool
