// The part of a text_stream that converts single characters, and tells what is wrong with them.
#include "tools/pvzan/error_policy.h"
#include "tools/pvzan/text_stream.h"

#include <algorithm>

namespace tool {

namespace {

constexpr std::size_t most_blamed = 8;
constexpr std::uint64_t most_excerpts = 20;

} // namespace

// The text begins with what is told, bytes that are stepped over.
void text_stream::report(problem told, bytes_view text, std::size_t bytes, std::size_t blamed) {
    told.place = place_;
    told.bytes = text.first(std::min({blamed, text.size(), most_blamed}));
    told.follower = blamed < text.size() ? text[blamed] : -1;
    ++problems_;
    const bool stops = options_.on_error == error_policy::stop || problems_ > options_.most_errors;
    if (stops && !failed_) {
        close();
        failed_ = true;
    }
    if (options_.excerpts && problems_ <= most_excerpts) {
        add_excerpt(told, text.subspan(bytes));
    }
    sinks_.problems(told);
    if (!failed_) {
        put_utf8(replacement(options_.on_error, substitute_,
                             text.first(std::min(bytes, most_blamed)), told.scalar, told.mark));
    }
}

// A text that does not go back to one-byte codes has lost its end.
void text_stream::report_open_set() {
    const std::uint32_t set = source_now().set;
    const bool one_byte = set == reader_.first_state().set || set == PVZAN_SET_ISO_646_IRV ||
                          set == PVZAN_SET_JIS_X_0201_LATIN;
    if (from_.is_iso2022() && !one_byte) {
        report({.kind = problem_kind::incomplete, .why = fault::open_set}, {}, 0, 0);
    }
}

// Reads on to the end of the line, and goes back.
void text_stream::add_excerpt(problem& told, bytes_view behind) {
    constexpr int most_characters = 20;
    told.before = line_.text();
    told.columns = line_.columns();
    const source_state state = reader_.state();
    line_excerpt after;
    if (told.scalar != 0) {
        after.add(told.scalar);
    } else {
        after.add_fault();
    }
    for (int i = 0; i < most_characters && !behind.empty(); ++i) {
        const text_character next = reader_.read(behind);
        if (next.kind == text_character::cut || next.scalar == '\n' || next.scalar == '\r') {
            break;
        }
        if (next.kind == text_character::invalid) {
            after.add_fault();
        } else if (next.kind == text_character::whole) {
            after.add(next.scalar);
        }
        behind = behind.subspan(next.bytes);
    }
    told.after = after.text();
    reader_.set_state(state);
}

// ---- Single characters -------------------------------------------------------------------------

// A letter and its marks are one character where the target has nothing else for them.
text_character text_stream::read_character(bytes_view text) {
    text_character character = reader_.read(text);
    if (character.kind == text_character::whole && character.mark == 0 && from_.is_unicode() &&
        !to_.is_unicode()) {
        const composed_character composed =
            composer_.read(character.scalar, text.subspan(character.bytes), from_);
        if (composed.scalar != 0) {
            character.scalar = composed.scalar;
            character.bytes += composed.bytes;
            character.marks = composed.marks;
        }
    }
    return character;
}

// Converts the characters that begin before end.
std::size_t text_stream::convert_by_character(bytes_view text, std::size_t end, bool last) {
    if (!by_utf8_) {
        reader_.follow(*session_);
    }
    std::size_t at = 0;
    while (at < end) {
        const bytes_view rest = text.subspan(at);
        const text_character character = read_character(rest);
        if (character.kind == text_character::cut) {
            if (!last) {
                break;
            }
            report({.kind = problem_kind::incomplete}, rest, character.bytes, character.blamed);
            step(place_, 0, character.bytes);
        } else {
            convert_character(character, rest);
        }
        at += character.bytes;
    }
    return at;
}

// What the library would write although nothing reads it back: set switches as characters, DEL in
// EUC, and codes of a letter and its mark in a target that has only the letter.
bool text_stream::is_writable(const text_character& character) const {
    return !reader_.is_lost(character.scalar) &&
           (character.mark == 0 || from_.is_unicode() || to_.is_unicode() || to_.is_jis_x0213());
}

std::uint32_t text_stream::put(bytes_view spelled) {
    pvzan_session& s = *session_;
    const std::int32_t before = s.outPos;
    const std::uint32_t set = s.dstShiftSet;
    s.inPos = 0;
    const std::uint32_t status = run(spelled, spelled.size());
    if (status != PVZAN_DONE) {
        s.outPos = before;
        s.dstShiftSet = set;
    }
    if (to_.is_iso2022() && s.dstShiftPlane != 0) {
        s.dstShiftPlane = 0;
        s.dstShiftSet = 0; // the next character is to be designated anew
    }
    return status;
}

// What stands for a character of the text, in a text of another charset.
void text_stream::put_utf8(const std::string& text) {
    if (text.empty()) {
        return;
    }
    pvzan_session& s = *session_;
    const bytes_view bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    if (by_utf8_) {
        put(bytes);
        return;
    }
    const std::uint32_t set = s.srcShiftSet;
    pvzan_source_options source = s.source;
    cconvChgCharset(&s, &source, "utf-8");
    put(bytes);
    cconvChgCharset(&s, &source, from_.library.c_str());
    s.srcShiftSet = set;
}

void text_stream::convert_character(const text_character& character, bytes_view text) {
    if (character.kind == text_character::silent) {
        if (!by_utf8_) {
            put(character.spelled);
        }
        place_.offset += character.bytes;
        return;
    }
    if (character.kind == text_character::invalid) {
        report({.kind = problem_kind::invalid, .why = character.why}, text, character.bytes,
               character.blamed);
        step(place_, 0, character.bytes);
        if (options_.excerpts) {
            line_.add_fault();
        }
        return;
    }
    if (!convert_known(character, text)) {
        report({.kind = problem_kind::unrepresentable,
                .scalar = character.scalar,
                .mark = character.mark},
               text, character.bytes, character.bytes);
    }
    ++counts_.characters;
    counts_.private_use += is_private_use(character.scalar) ? 1U : 0U;
    step(place_, character.scalar, character.bytes);
    if (from_.is_unicode() && character.mark != 0) {
        step(place_, character.mark, 0);
        ++counts_.characters;
    }
    for (std::size_t i = 0; i < character.marks; ++i) {
        step(place_, character.scalar, 0);
        ++counts_.characters;
    }
    counts_.composed += character.marks > 0 ? 1U : 0U;
    if (options_.excerpts) {
        line_.add(character.scalar);
    }
}

// False when the target lacks the character.
bool text_stream::convert_known(const text_character& character, bytes_view text) {
    if (!is_writable(character)) {
        return false;
    }
    know_one_way(character.scalar >= 0x80, character.scalar == '\\' || character.scalar == '~');
    const std::string utf8 =
        utf8_of(character.scalar) + (character.mark != 0 ? utf8_of(character.mark) : "");
    const bytes_view as_utf8(reinterpret_cast<const std::uint8_t*>(utf8.data()), utf8.size());
    const bool as_utf8_only = from_.is_iso2022() || character.marks > 0;
    const char32_t again = character.mark == 0 ? one_way_.comes_back(character.scalar) : 0;
    std::vector<std::uint8_t> other;
    if (back_ && again == 0) {
        other = as_utf8_only ? back_->other_than(as_utf8, utf8_name())
                             : back_->other_than(character.spelled, from_);
    }
    if (!other.empty() || (again != 0 && !options_.similar)) {
        report({.kind = problem_kind::one_way,
                .scalar = character.scalar,
                .mark = character.mark,
                .comes_back = other,
                .again = again},
               text, character.bytes, character.bytes);
        return true;
    }
    // A yen sign that becomes a backslash is alike to nobody's program.
    const bool becomes_ascii = again != 0 && again < 0x80;
    if (character.marks > 0) {
        put_utf8(utf8);
        return true;
    }
    if (!becomes_ascii && put(by_utf8_ ? as_utf8 : character.spelled) == PVZAN_DONE) {
        if (again != 0 && sinks_.look_alikes) {
            sinks_.look_alikes(character.scalar);
        }
        return true;
    }
    const char32_t like = options_.similar && character.mark == 0 ? stand_in(character.scalar) : 0;
    if (like == 0 || !can_write(to_, like)) {
        return false;
    }
    put_utf8(utf8_of(like));
    if (sinks_.look_alikes) {
        sinks_.look_alikes(character.scalar);
    }
    return true;
}

} // namespace tool
