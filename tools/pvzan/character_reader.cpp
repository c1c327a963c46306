#include "tools/pvzan/character_reader.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace tool {

namespace {

using kind = text_character::kind_type;

constexpr std::size_t output_bytes = 4096; // at first; for single characters
constexpr std::uint8_t escape = 0x1B, shift_out = 0x0E, shift_in = 0x0F;
constexpr std::string_view plane2_escape = "\x1b$(P";

bool has_byte(bytes_view text, std::uint8_t byte) {
    return std::memchr(text.data(), byte, text.size()) != nullptr;
}

// CR, LF and TAB stand for themselves among two-byte codes.
bool is_single_among_pairs(std::uint8_t byte) {
    return byte == '\r' || byte == '\n' || byte == '\t';
}

// Charsets of which the library decodes codes without a look at their tables, and which hold
// letters with marks in one code. Where the target shares a set with them, it writes such codes as
// they are.
bool reads_leniently(const charset_name& charset) {
    return charset.library.starts_with("euc-") || charset.is_iso2022() || charset.is_jis_x0213();
}

fault why_ill_formed(std::uint8_t lead, const unicode_sequence& sequence, unicode_form form) {
    if (form == unicode_form::utf8) {
        const bool leads = lead >= 0xC2 && lead <= 0xF4;
        return leads ? fault::broken_off : fault::begins_nothing;
    }
    const bool surrogate =
        form != unicode_form::ucs4 || (sequence.scalar >= 0xD800 && sequence.scalar <= 0xDFFF);
    return surrogate ? fault::half_pair : fault::no_character;
}

// Which of the bytes is the first that no long code has there, of three bytes in EUC or of four in
// GB 18030; 0: none. The library tells only when it has seen that many.
std::size_t unfit_byte(bytes_view text, const charset_name& charset) {
    const bool four = charset.library == "gb18030";
    const bool euc = charset.library.starts_with("euc-") && charset.unit_bytes() == 1;
    const std::size_t length = four || euc ? std::min(text.size(), longest_code) : 0;
    for (std::size_t i = 1; i < length; ++i) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (four && i % 2 == 1 ? !digit : text[i] <= 0x80 || text[i] == 0xFF) {
            return i;
        }
    }
    return 0;
}

} // namespace

character_reader::character_reader(charset_name from, charset_name to)
    : from_(std::move(from)), to_(std::move(to)), session_(std::make_unique<pvzan_session>()),
      out_(output_bytes) {}

bool character_reader::open() {
    pvzan_target_options target{};
    target.dstBigEndian = 1;
    pvzan_source_options source{};
    source.srcBigEndian = from_.big_endian ? 1 : 0;
    if (cconvInitConvert(session_.get(), &target, "utf-8") != PVZAN_DONE ||
        cconvChgCharset(session_.get(), &source, from_.library.c_str()) != PVZAN_DONE) {
        return false;
    }
    first_state_ = state();
    return true;
}

void character_reader::set_state(const source_state& state) {
    session_->srcShiftSet = state.set;
    plane2_ = state.plane2;
}

void character_reader::set_byte_order(bool big_endian) {
    from_.big_endian = big_endian;
    session_->source.srcBigEndian = big_endian ? 1 : 0;
}

void character_reader::follow(const pvzan_session& conversion) {
    session_->srcShiftSet = conversion.srcShiftSet;
}

std::uint32_t character_reader::run(bytes_view text, std::size_t end) {
    session_->inBuf = text.data();
    session_->inLen = static_cast<std::int32_t>(end);
    session_->outBuf = out_.data();
    session_->outLen = static_cast<std::int32_t>(out_.size());
    return cconvConvert(session_.get());
}

// ---- One character -----------------------------------------------------------------------------

text_character character_reader::read(bytes_view text) {
    return from_.is_unicode() ? read_unicode(text) : read_code(text);
}

// ISO-2022-JP-2004 is written with JIS X 0208 first, so that the kana of its pairs go without their
// marks.
bool character_reader::holds_pair(char32_t letter, char32_t mark) const {
    constexpr char32_t small_fu = 0x31F7, half_voiced = 0x309A;
    if (to_.is_iso2022()) {
        return to_.is_jis_x0213() && (mark != half_voiced || letter == small_fu);
    }
    return to_.is_unicode() || to_.is_jis_x0213();
}

bool character_reader::is_one_character(bytes_view text) {
    const std::uint32_t before = session_->inCount;
    session_->inPos = 0;
    session_->outPos = 0;
    return run(text, text.size()) == PVZAN_DONE && session_->inCount - before == 1;
}

text_character character_reader::read_unicode(bytes_view text) {
    const unicode_sequence first = read_sequence(text, from_);
    switch (first.kind) {
    case unicode_sequence::cut: return cut(text);
    case unicode_sequence::ill_formed:
        return {.kind = kind::invalid,
                .bytes = first.bytes,
                .blamed = first.bytes,
                .why = why_ill_formed(text[0], first, from_.form)};
    case unicode_sequence::whole: break;
    }
    text_character character = {.kind = kind::whole, .bytes = first.bytes, .scalar = first.scalar};
    if (first.bytes < text.size()) {
        const unicode_sequence next = read_sequence(text.subspan(first.bytes), from_);
        if (next.kind == unicode_sequence::whole && is_joining_mark(next.scalar) &&
            holds_pair(first.scalar, next.scalar) &&
            is_one_character(text.first(first.bytes + next.bytes))) {
            character.bytes += next.bytes;
            character.mark = next.scalar;
        }
    }
    character.spelled = text.first(character.bytes);
    return character;
}

bool character_reader::is_pair(std::uint8_t first, std::uint8_t second) {
    const std::array<std::uint8_t, 2> code = {first, second};
    const source_state before = state();
    session_->inPos = 0;
    session_->outPos = 0;
    const std::uint32_t status = run(code, code.size());
    const bool pair = status == PVZAN_DONE || status == PVZAN_INPUT_INCOMPLETE;
    set_state(before);
    return pair;
}

// Whether the byte is the first of no code of two or more bytes.
bool character_reader::begins_nothing(std::uint8_t byte) {
    std::optional<bool>& known = begins_nothing_[byte];
    for (unsigned second = 0; !known && second <= 0xFF; ++second) {
        if (is_pair(byte, static_cast<std::uint8_t>(second))) {
            known = false;
        }
    }
    if (!known) {
        known = true;
    }
    return *known;
}

// Whether the byte is the second of no two-byte code.
bool character_reader::ends_nothing(std::uint8_t byte) {
    std::optional<bool>& known = ends_nothing_[byte];
    for (unsigned first = 0x21; !known && first <= 0xFF; ++first) {
        const auto lead = static_cast<std::uint8_t>(first);
        session_->inPos = 0;
        const bool alone = run({&lead, 1}, 1) != PVZAN_INPUT_INCOMPLETE; // a character of its own
        if (!alone && is_pair(lead, byte)) {
            known = false;
        }
    }
    if (!known) {
        known = true;
    }
    return *known;
}

// How far to go on behind invalid bytes of which the library takes some: never over a character of
// ASCII, which may be a delimiter, and in two-byte units by whole units.
std::size_t character_reader::step_over(bytes_view text, std::size_t taken) const {
    if (from_.unit_bytes() > 1) {
        return std::min(std::max(taken, from_.unit_bytes()), text.size());
    }
    for (std::size_t i = 1; i < taken; ++i) {
        const bool second_half = from_.is_iso2022() && text[i] > 0x20 && text[i] < 0x7F;
        if (text[i] < 0x80 && !second_half) {
            return i;
        }
    }
    return std::max<std::size_t>(taken, 1);
}

// An escape sequence that is cut off is one byte of ESC, and text.
text_character character_reader::cut(bytes_view text) const {
    return {.kind = kind::cut,
            .bytes = from_.is_iso2022() ? 1 : step_over(text, text.size()),
            .blamed = text.size()};
}

// What is wrong with bytes that the library refused when it had been given that many.
text_character character_reader::judge(bytes_view text, std::size_t given, std::size_t taken) {
    text_character character = {
        .kind = kind::invalid, .bytes = step_over(text, taken), .blamed = given};
    if (text[0] == escape && from_.is_iso2022()) {
        character.why = fault::escape;
    } else if (given == 1) {
        character.why = fault::begins_nothing;
    } else if (!from_.is_iso2022() && begins_nothing(text[0])) {
        character.bytes = step_over(text, 1);
        character.blamed = 1;
        character.why = fault::begins_nothing;
    } else if (!from_.is_iso2022() && from_.unit_bytes() == 1 && ends_nothing(text[1])) {
        character.blamed = 2;
        character.why = fault::cannot_follow;
    } else {
        character.why = fault::no_character;
        if (!from_.is_iso2022()) { // its second half must not be taken for a first one
            character.bytes = step_over(text, std::max(taken, given));
        }
    }
    return character;
}

text_character character_reader::read_code(bytes_view text) {
    bytes_view given = text;
    // The library forgets the plane behind the first code.
    if (plane2_ && text[0] != escape && !is_single_among_pairs(text[0])) {
        if (text.size() < 2) {
            return cut(text);
        }
        std::ranges::copy(plane2_escape, respelled_.begin());
        std::ranges::copy(text.first(2), respelled_.begin() + plane2_escape.size());
        given = respelled_;
    }
    const bool respelled = given.data() != text.data();
    session_->inPos = 0;
    session_->outPos = 0;
    std::size_t end = respelled ? given.size() : 1;
    std::uint32_t status = run(given, end);
    while (status == PVZAN_INPUT_INCOMPLETE && end < std::min(given.size(), longest_code)) {
        status = run(given, ++end);
    }
    const auto taken = static_cast<std::size_t>(session_->inPos);
    const std::size_t bytes = respelled ? 2 : taken;
    const std::size_t unfit = unfit_byte(text, from_);
    if (unfit > 0 && unfit < end && (status == PVZAN_INPUT_INCOMPLETE || end > 2)) {
        return {.kind = kind::invalid,
                .bytes = step_over(text, unfit),
                .blamed = unfit + 1,
                .why = fault::cannot_follow};
    }
    switch (status) {
    case PVZAN_DONE: break;
    case PVZAN_INPUT_INCOMPLETE: {
        if (end == 1 && !reads_leniently(from_) && begins_nothing(text[0])) {
            return judge(text, 1, 1);
        }
        if (end == given.size() && end < longest_code) {
            return cut(text);
        }
        const bool escapes = text[0] == escape;
        return {.kind = kind::invalid,
                .bytes = 1,
                .blamed = escapes ? 3 : std::min(end, text.size()),
                .why = escapes ? fault::escape : fault::cannot_follow};
    }
    case PVZAN_UNREPRESENTABLE: // by UTF-8: the code has no character
        return {.kind = kind::invalid,
                .bytes = step_over(text, bytes),
                .blamed = bytes,
                .why = fault::no_character};
    default: return judge(text, respelled ? bytes : end, bytes);
    }
    const bytes_view written = bytes_view(out_).first(static_cast<std::size_t>(session_->outPos));
    if (written.empty()) {
        const std::string_view sequence(reinterpret_cast<const char*>(text.data()), bytes);
        plane2_ = from_.is_jis_x0213() && sequence == plane2_escape;
        return {.kind = kind::silent, .bytes = bytes, .spelled = given.first(taken)};
    }
    text_character character = {.kind = kind::whole, .bytes = bytes, .spelled = given.first(taken)};
    const charset_name utf8 = utf8_name();
    const unicode_sequence first = read_sequence(written, utf8);
    character.scalar = first.scalar;
    if (first.bytes < written.size()) {
        character.mark = read_sequence(written.subspan(first.bytes), utf8).scalar;
    }
    return character;
}

// ---- Whole pieces ------------------------------------------------------------------------------

// The reading of the whole text as UTF-8 meets neither a problem nor, where the target lacks them,
// letters with marks in one code.
bool character_reader::converts_clean(bytes_view text) {
    const charset_name utf8 = utf8_name();
    const bool pairs_welcome = to_.is_jis_x0213();
    constexpr std::size_t piece = 64 * 1024;
    out_.resize(std::max(out_.size(), piece));
    session_->inPos = 0;
    session_->outPos = 0;
    for (;;) {
        const std::uint32_t status = run(text, text.size());
        const auto length = static_cast<std::size_t>(session_->outPos);
        if (!pairs_welcome && may_hold_joining_mark(bytes_view(out_).first(length), utf8)) {
            return false;
        }
        session_->outPos = 0;
        if (status != PVZAN_OUTPUT_FULL) {
            return status == PVZAN_DONE || status == PVZAN_INPUT_INCOMPLETE;
        }
    }
}

bool character_reader::is_lost(char32_t scalar) const {
    if (to_.is_iso2022()) {
        return scalar == escape || scalar == shift_out || scalar == shift_in;
    }
    return (scalar == 0x7F && to_.library.starts_with("euc-")) ||
           (scalar == 0 && to_.library == "oasys-online");
}

bool character_reader::writes_clean(bytes_view text) const {
    for (const std::uint8_t byte :
         {escape, shift_out, shift_in, std::uint8_t{0x7F}, std::uint8_t{0}}) {
        if (is_lost(byte) && has_byte(text, byte)) {
            return false;
        }
    }
    return true;
}

bool character_reader::reads_clean(bytes_view text, const pvzan_session& conversion) {
    if (text.empty()) {
        return true;
    }
    if (!writes_clean(text)) {
        return false;
    }
    if (from_.is_unicode()) {
        const bool joins = from_.form == unicode_form::utf8 || from_.form == unicode_form::utf16;
        const bool holds_all = to_.is_unicode() || (to_.is_jis_x0213() && !to_.is_iso2022());
        return well_formed_length(text, from_) == text.size() &&
               (!joins || holds_all || !may_hold_joining_mark(text, from_));
    }
    if (from_.is_iso2022() && from_.is_jis_x0213() &&
        (plane2_ || ::memmem(text.data(), text.size(), plane2_escape.data(),
                             plane2_escape.size()) != nullptr)) {
        return false;
    }
    if (to_.is_unicode() || !reads_leniently(from_)) {
        return true;
    }
    follow(conversion);
    return converts_clean(text);
}

bool character_reader::decode(bytes_view text, bool last, std::size_t& used, bytes_view& utf8) {
    const source_state before = state();
    const bool planes = from_.is_iso2022() && from_.is_jis_x0213();
    if (planes && (plane2_ || ::memmem(text.data(), text.size(), plane2_escape.data(),
                                       plane2_escape.size()) != nullptr)) {
        return false;
    }
    constexpr std::size_t growth = 3; // no charset's text is longer in UTF-8
    out_.resize(std::max(out_.size(), text.size() * growth + longest_code * growth));
    session_->inPos = 0;
    session_->outPos = 0;
    const std::uint32_t status = run(text, text.size());
    used = static_cast<std::size_t>(session_->inPos);
    utf8 = bytes_view(out_).first(static_cast<std::size_t>(session_->outPos));
    const bool cut = status == PVZAN_INPUT_INCOMPLETE && !last && text.size() - used < longest_code;
    if ((status == PVZAN_DONE || cut) && !may_hold_joining_mark(utf8, utf8_name())) {
        return true;
    }
    set_state(before);
    return false;
}

} // namespace tool
