#include "tools/pvzan/character_reader.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace tool {

namespace {

using kind = text_character::kind_type;

constexpr std::size_t output_bytes = 256 * 1024;
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

charset_name utf8_name() {
    charset_name name;
    name.form = unicode_form::utf8;
    return name;
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
    return cconvInitConvert(session_.get(), &target, "utf-8") == PVZAN_DONE &&
           cconvChgCharset(session_.get(), &source, from_.library.c_str()) == PVZAN_DONE;
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
    case unicode_sequence::cut: return {.kind = kind::cut, .bytes = text.size()};
    case unicode_sequence::ill_formed:
        return {.kind = kind::invalid, .bytes = first.bytes, .blamed = first.bytes};
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

// Whether the byte is the first of no two-byte code.
bool character_reader::begins_nothing(std::uint8_t byte) {
    for (unsigned second = 0; second <= 0xFF; ++second) {
        const std::array<std::uint8_t, 2> code = {byte, static_cast<std::uint8_t>(second)};
        session_->inPos = 0;
        session_->outPos = 0;
        if (run(code, code.size()) == PVZAN_DONE) {
            return false;
        }
    }
    return true;
}

text_character character_reader::read_code(bytes_view text) {
    bytes_view given = text;
    // The library forgets the plane behind the first code.
    if (plane2_ && text[0] != escape && !is_single_among_pairs(text[0])) {
        if (text.size() < 2) {
            return {.kind = kind::cut, .bytes = text.size()};
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
    switch (status) {
    case PVZAN_DONE: break;
    case PVZAN_INPUT_INCOMPLETE:
        if (end == given.size() && end < longest_code) {
            return {.kind = kind::cut, .bytes = text.size()};
        }
        return {.kind = kind::invalid, .bytes = 1, .blamed = text[0] == escape ? 3 : end};
    case PVZAN_UNREPRESENTABLE: // by UTF-8: the code has no character
        return {.kind = kind::invalid, .bytes = bytes, .blamed = bytes};
    default: {
        const bool lone = end == 2 && begins_nothing(text[0]);
        return {.kind = kind::invalid,
                .bytes = std::max<std::size_t>(bytes, 1),
                .blamed = lone        ? 1
                          : respelled ? bytes
                                      : end};
    }
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

bool character_reader::reads_clean(bytes_view text, const pvzan_session& conversion) {
    if (text.empty()) {
        return true;
    }
    if (to_.is_iso2022()) {
        const bool shifts = has_byte(text, shift_out) || has_byte(text, shift_in);
        if (shifts || (!from_.is_iso2022() && has_byte(text, escape))) {
            return false;
        }
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

} // namespace tool
