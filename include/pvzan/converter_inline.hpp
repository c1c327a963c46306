// How a converter works. Part of pvzan.hpp.
//
// Whole windows of the text go through the library at full speed. Only a window with something in
// it that is at fault, or that the library would treat leniently, is taken back and converted
// character by character.
#ifndef PVZAN_CONVERTER_INLINE_HPP
#define PVZAN_CONVERTER_INLINE_HPP

#include "converter.hpp"

namespace pvzan {

namespace detail {

inline void point_at(pvzan_session& s, std::string_view text) {
    s.inBuf = reinterpret_cast<const std::uint8_t*>(text.data());
    s.inPos = 0;
    s.inLen = static_cast<std::int32_t>(text.size());
}

inline void write_to(pvzan_session& s, std::vector<std::uint8_t>& out) {
    s.outBuf = out.data();
    s.outLen = static_cast<std::int32_t>(out.size());
}

inline bool has_byte(std::string_view text, char byte) {
    return text.find(byte) != std::string_view::npos;
}

// Control codes that the library writes and nothing reads back: in ISO-2022 text they switch sets,
// in EUC text DEL is no character.
inline bool is_lost_in(const charset& target, char32_t c) {
    return target.is_iso2022() ? c == 0x1B || c == 0x0E || c == 0x0F : target.is_euc() && c == 0x7F;
}

// How far to go on behind bytes at fault of which the library takes some: never over a character of
// ASCII, which may be a delimiter, and in two-byte units by whole units.
inline std::size_t fault_length(std::string_view text, std::size_t taken, const charset& c) {
    if (c.library == "euc-jp-fix") {
        return std::max<std::size_t>(taken, 2);
    }
    for (std::size_t i = 1; i < taken; ++i) {
        const std::uint8_t byte = byte_at(text, i);
        if (byte < 0x80 && !(c.is_iso2022() && byte > 0x20 && byte < 0x7F)) {
            return i;
        }
    }
    return std::max<std::size_t>(taken, 1);
}

} // namespace detail

// ---- Opening and closing -----------------------------------------------------------------------

inline void converter::open() {
    if (!detail::settle_directory()) {
        return;
    }
    opened_ = status::unknown_charset;
    session_ = std::make_unique<pvzan_session>();
    saved_ = std::make_unique<pvzan_session>();
    out_.resize(whole_window * most_growth);
    target_.dstBigEndian = to_.big_endian ? 1 : 0;
    target_.dstWriteBom = how_.byte_order_mark.value_or(to_.marked) ? 1 : 0;
    target_.convertNewline = how_.newlines != newline::as_it_is ? 1 : 0;
    target_.newlineMode = static_cast<std::uint32_t>(how_.newlines);
    if (how_.substitutes) {
        target_.useSubstitute = 1;
        target_.substChar1 = how_.substitutes->first;
        target_.substChar2 = how_.substitutes->second;
    }
    if (!from_.is_unicode()) {
        prober_ = std::make_unique<pvzan_session>();
        probe_out_.resize(whole_window * most_growth);
    }
    if (from_.library.find('\0') == std::string::npos &&
        to_.library.find('\0') == std::string::npos) {
        opened_ = status::done;
        start(nullptr);
        opened_ = so_far_.why;
    }
}

inline void converter::start(sink to) {
    sink_ = std::move(to);
    so_far_ = {};
    so_far_.why = opened_;
    tail_.clear();
    started_ = plane2_ = false;
    big_endian_ = from_.big_endian;
    window_ = whole_window;
    steps_ = 0;
    if (opened_ != status::done) {
        return;
    }
    pvzan_source_options source = {};
    source.srcBigEndian = big_endian_ ? 1 : 0;
    session_->inCount = session_->outCount = 0;
    session_->outPos = 0;
    pvzan_target_options plain = {};
    plain.dstBigEndian = 1;
    const bool known =
        cconvInitConvert(session_.get(), &target_, to_.library.c_str()) == PVZAN_DONE &&
        cconvChgCharset(session_.get(), &source, from_.library.c_str()) == PVZAN_DONE &&
        (!prober_ ||
         (cconvInitConvert(prober_.get(), &plain, "utf-8") == PVZAN_DONE &&
          cconvChgCharset(prober_.get(), &source, from_.library.c_str()) == PVZAN_DONE));
    if (!known) {
        so_far_.why = status::unknown_charset;
    }
}

inline void converter::deliver() {
    const auto length = static_cast<std::size_t>(session_->outPos);
    session_->outPos = 0;
    so_far_.characters += std::exchange(session_->inCount, 0U);
    so_far_.codes += std::exchange(session_->outCount, 0U);
    if (length > 0 && sink_) {
        sink_({reinterpret_cast<const char*>(out_.data()), length});
    }
}

// Text that was stopped at is closed too. An empty text stays empty.
inline void converter::close() {
    if (opened_ != status::done || so_far_.codes == 0) {
        return;
    }
    detail::write_to(*session_, out_);
    cconvTermConvert(session_.get());
    deliver();
}

// ---- The text ----------------------------------------------------------------------------------

inline void converter::feed(std::string_view piece) {
    while (!piece.empty() && so_far_) {
        if (tail_.empty()) {
            tail_.assign(piece.substr(take(piece, false)));
            return;
        }
        const std::size_t before = tail_.size();
        const std::size_t joined = std::min(piece.size(), small_window);
        tail_ += piece.substr(0, joined);
        const std::size_t used = take(tail_, false);
        if (used >= before) { // go on in the piece itself
            piece.remove_prefix(used - before);
            tail_.clear();
        } else {
            piece.remove_prefix(joined);
            tail_.erase(0, used);
        }
    }
}

// Converts what it can of the text, and returns how much that was.
inline std::size_t converter::take(std::string_view text, bool last) {
    std::size_t at = 0;
    if (!started_ && so_far_) {
        if (!last && detail::may_become_mark(text, from_.form)) {
            return 0;
        }
        started_ = true;
        at = skip_mark(text);
        so_far_.position += at;
    }
    while (at < text.size() && so_far_) {
        const std::string_view rest = text.substr(at);
        const std::string_view view = rest.substr(0, window_);
        const bool at_end = last && view.size() == rest.size();
        std::size_t used = 0;
        if (steps_ == 0 && convert_window(view, at_end, used) && used > 0) {
            window_ = std::min(window_ * 2, whole_window);
        } else {
            if (steps_ == 0) { // here something is wrong: look closely for a while
                steps_ = stepped_characters;
                window_ = small_window;
            }
            --steps_;
            used = from_.is_unicode() ? step_unicode(rest, last) : step_code(rest, last);
            deliver();
            if (used == 0) { // only cut
                steps_ = 0;
                window_ = whole_window;
                break;
            }
        }
        at += used;
        so_far_.position += so_far_ ? used : 0;
    }
    return at;
}

// The byte-order mark at the start. The library's own reading of marks is lenient.
inline std::size_t converter::skip_mark(std::string_view text) {
    const detail::known_mark* const found = detail::find_mark(text, from_);
    if (found == nullptr) {
        return 0;
    }
    big_endian_ = found->big_endian;
    session_->source.srcBigEndian = big_endian_ ? 1 : 0;
    return found->bytes.size();
}

// Runs the library over a text, which it is to take whole.
inline std::uint32_t converter::run(std::string_view text) {
    detail::point_at(*session_, text);
    detail::write_to(*session_, out_);
    return cconvConvert(session_.get());
}

inline std::uint32_t converter::probe(std::string_view text) {
    detail::point_at(*prober_, text);
    detail::write_to(*prober_, probe_out_);
    prober_->outPos = 0;
    return cconvConvert(prober_.get());
}

// ---- Whole windows -----------------------------------------------------------------------------

// Leaves out a sequence that is cut and, unless the text ends here, a letter that may be one with
// the mark behind it, so that the result does not hang on where the text was cut.
inline std::string_view converter::settled(std::string_view text, bool last) const {
    constexpr int most_held_back = 16; // tone letters; nobody writes so many in a row
    const std::size_t width = from_.form == unicode_form::utf8   ? 1
                              : from_.form == unicode_form::ucs4 ? 4
                                                                 : 2;
    std::size_t end = text.size();
    for (int held_back = 0; end > 0 && held_back < most_held_back; ++held_back) {
        std::size_t at = (end - 1) / width * width; // the last sequence
        if (from_.form == unicode_form::utf16 && at >= 2 && at + 2 <= end &&
            (detail::unit_at(text, at, 2, big_endian_) & 0xFC00) == 0xDC00) {
            at -= 2;
        }
        for (int back = 0;
             width == 1 && back < 3 && at > 0 && (detail::byte_at(text, at) & 0xC0) == 0x80;
             ++back) {
            --at;
        }
        const detail::sequence seen = sequence_at(text.substr(at, end - at));
        const bool whole = seen.kind == detail::sequence::whole;
        if (seen.kind == detail::sequence::ill_formed ||
            (whole && (last || !joins_pairs() || !detail::may_join(seen.scalar)))) {
            break;
        }
        end = at;
        if (whole && !detail::is_tone_letter(seen.scalar)) {
            break;
        }
    }
    return text.substr(0, end);
}

// Whether the library converts the text right without being watched.
inline bool converter::is_clean(std::string_view text) {
    if (to_.is_euc() && detail::has_byte(text, '\x7F')) {
        return false;
    }
    if (to_.is_iso2022() && (detail::has_byte(text, '\x0E') || detail::has_byte(text, '\x0F') ||
                             (!from_.is_iso2022() && detail::has_byte(text, '\x1B')))) {
        return false;
    }
    if (from_.is_iso2022() && from_.is_jis_x0213() &&
        (plane2_ || text.find(plane2_escape) != std::string_view::npos)) {
        return false;
    }
    if (from_.is_unicode()) {
        const bool pairs_welcome =
            to_.is_unicode() || !joins_pairs() || (to_.is_jis_x0213() && !to_.is_iso2022());
        for (std::size_t at = 0; at < text.size();) {
            if (from_.form == unicode_form::utf8) {
                at = detail::plain_utf8_end(text, at);
                if (at == text.size()) {
                    break;
                }
            }
            const detail::sequence next = sequence_at(text.substr(at));
            if (next.kind != detail::sequence::whole ||
                (!pairs_welcome && detail::is_joining_mark(next.scalar))) {
                return false;
            }
            at += next.bytes;
        }
        return true;
    }
    // These are decoded without a look at their tables, and where the target shares a set with
    // them, such codes are written as they are.
    const bool lenient = from_.is_euc() || from_.is_iso2022() || from_.is_jis_x0213();
    if (!lenient || to_.is_unicode()) {
        return true;
    }
    prober_->srcShiftSet = session_->srcShiftSet;
    const std::uint32_t found = probe(text);
    return (found == PVZAN_DONE || found == PVZAN_INPUT_INCOMPLETE) &&
           (to_.is_jis_x0213() || !detail::may_hold_joining_mark(probed()));
}

// False, and nothing has happened, when the text is to be looked at character by character.
inline bool converter::convert_window(std::string_view text, bool last, std::size_t& used) {
    if (from_.is_unicode()) {
        text = settled(text, last);
    }
    if (text.empty() || !is_clean(text)) {
        return false;
    }
    *saved_ = *session_;
    const std::uint32_t found = run(text);
    used = static_cast<std::size_t>(session_->inPos);
    const bool cut = found == PVZAN_INPUT_INCOMPLETE && !last && text.size() - used < longest_code;
    // ISO-2022-JP-2004: behind a code of JIS X 0213 the library does not go back to the set before.
    const bool wants_new_escape = to_.is_iso2022() && session_->dstShiftPlane != 0;
    if ((found != PVZAN_DONE && !cut) || wants_new_escape) {
        *session_ = *saved_;
        return false;
    }
    deliver();
    return true;
}

// ---- Single characters -------------------------------------------------------------------------

// ISO-2022-JP-2004 is written with JIS X 0208 first, so that the kana of its pairs would go without
// their marks.
inline bool converter::is_pair_kept(char32_t letter, char32_t mark) const {
    constexpr char32_t half_voiced = 0x309A, small_fu = 0x31F7;
    return to_.is_unicode() ||
           (to_.is_jis_x0213() && (!to_.is_iso2022() || mark != half_voiced || letter == small_fu));
}

inline std::size_t converter::step_unicode(std::string_view text, bool last) {
    const detail::sequence first = sequence_at(text);
    fault at = {status::invalid, so_far_.position, text.substr(0, first.bytes), first.scalar, 0};
    if (first.kind == detail::sequence::cut) {
        if (!last) {
            return 0;
        }
        at.why = status::incomplete;
        report(at);
        return text.size();
    }
    if (first.kind == detail::sequence::ill_formed) {
        report(at);
        return first.bytes;
    }
    if (joins_pairs() && detail::may_join(first.scalar)) {
        const std::string_view behind = text.substr(first.bytes);
        const detail::sequence next =
            behind.empty() ? detail::sequence{detail::sequence::cut, 0, 0} : sequence_at(behind);
        if (next.kind == detail::sequence::cut && !last) {
            return 0;
        }
        if (next.kind == detail::sequence::whole && detail::joins(first.scalar, next.scalar) &&
            is_pair_kept(first.scalar, next.scalar)) {
            at.bytes = text.substr(0, first.bytes + next.bytes);
            at.mark = next.scalar;
        }
    }
    put(at.bytes, at);
    return at.bytes.size();
}

// Whether any byte behind the text makes it more of a character.
inline bool converter::may_continue(std::string_view text) {
    std::string longer(text);
    longer += '\0';
    for (int next = 0; next <= 0xFF; ++next) {
        longer.back() = static_cast<char>(next);
        prober_->srcShiftSet = session_->srcShiftSet;
        if (probe(longer) != PVZAN_INVALID_INPUT) {
            return true;
        }
    }
    return false;
}

inline std::size_t converter::step_code(std::string_view text, bool last) {
    const char lead = text[0];
    const bool stands_alone = lead == '\x1B' || lead == '\r' || lead == '\n' || lead == '\t';
    std::string spelled; // a code of plane 2: the library forgets the plane behind the first
    if (plane2_ && !stands_alone) {
        spelled = plane2_escape;
    }
    prober_->srcShiftSet = session_->srcShiftSet;
    std::uint32_t found = PVZAN_INPUT_INCOMPLETE;
    std::size_t length = 0;
    const std::string prefix = spelled;
    while (found == PVZAN_INPUT_INCOMPLETE && length < std::min(text.size(), longest_code)) {
        spelled += text[length++];
        found = probe(spelled);
    }
    const auto read = static_cast<std::size_t>(prober_->inPos);
    std::size_t taken = read > prefix.size() ? read - prefix.size() : 0;
    fault at = {status::invalid, so_far_.position,
                text.substr(0, detail::fault_length(text, taken, from_)), 0, 0};
    if (found == PVZAN_INPUT_INCOMPLETE && length == text.size() && length < longest_code) {
        if (!last) {
            return 0;
        }
        at.why = may_continue(text) ? status::incomplete : status::invalid;
        at.bytes = text;
        report(at);
        return text.size();
    }
    if (found != PVZAN_DONE) { // that UTF-8 lacks a code means that it has no character
        report(at);
        return at.bytes.size();
    }
    const std::string_view utf8 = probed();
    if (utf8.empty()) { // an escape sequence
        plane2_ = from_.is_jis_x0213() && text.substr(0, taken) == plane2_escape;
        run(spelled);
        return taken;
    }
    const detail::sequence first = detail::read_utf8(utf8);
    at.scalar = first.scalar;
    if (first.bytes < utf8.size()) {
        at.mark = detail::read_utf8(utf8.substr(first.bytes)).scalar;
    }
    put(spelled, at);
    return taken;
}

// Behind a code of JIS X 0213 in ISO-2022 what follows is to be designated anew.
inline void converter::forget_plane() {
    if (to_.is_iso2022() && session_->dstShiftPlane != 0) {
        session_->dstShiftPlane = 0;
        session_->dstShiftSet = 0;
    }
}

// Writes one character, or reports that the target lacks it: by the library's word, or because
// nothing would read back what the library would write.
inline void converter::put(std::string_view spelled, fault at) {
    const bool lone_pair = at.mark != 0 && !to_.is_unicode() && !to_.is_jis_x0213();
    std::uint32_t found = PVZAN_UNREPRESENTABLE;
    if (!lone_pair && !detail::is_lost_in(to_, at.scalar)) {
        found = run(spelled);
        forget_plane();
    }
    if (found != PVZAN_DONE) {
        at.why = found == PVZAN_UNREPRESENTABLE ? status::unrepresentable : status::invalid;
        report(at);
    }
}

inline void converter::report(const fault& what) {
    session_->inCount = 0; // deliver has taken over what counts
    ++so_far_.faults;
    const std::optional<std::string> text =
        how_.on_fault ? how_.on_fault(what) : std::optional<std::string>();
    if (!text) {
        so_far_.why = what.why;
    } else if (!text->empty()) {
        replace(*text);
    }
}

inline void converter::replace(std::string_view text) {
    pvzan_session& s = *session_;
    const pvzan_source_options source = s.source;
    const std::uint32_t shift_set = s.srcShiftSet, previous = s.prevSrcCode;
    cconvChgCharset(&s, nullptr, "utf-8");
    while (!text.empty()) {
        const detail::sequence next = detail::read_utf8(text);
        if (next.kind != detail::sequence::whole || detail::is_lost_in(to_, next.scalar) ||
            run(text.substr(0, next.bytes)) != PVZAN_DONE) {
            run("?");
        }
        forget_plane();
        s.inCount = 0;
        deliver();
        text.remove_prefix(next.bytes);
    }
    cconvChgCharset(&s, &source, from_.library.c_str());
    s.srcShiftSet = shift_set;
    s.prevSrcCode = previous;
}

} // namespace pvzan
#endif
