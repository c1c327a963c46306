// Codes whose meaning sequences between them change, as the charset's definition says: ISO 2022 of
// all kinds, HZ, EBCDIC with shift out and in. cconv/registry/iso2022.h has what a definition says.
//
// Deliberate in the decoder:
// - A sequence and the code behind it are two things, but for a single shift, which is part of its
//   code: so nothing is pending between two calls.
// - In a set of two bytes, TAB and line breaks are the first set's where the definition lets a line
//   end so; in a set of single bytes, so are the controls, the blank and 7F that it lacks.
// - A byte that a sequence begins with is nothing else. Where there are escape sequences, that
//   holds for shift out and in too.
//
// Deliberate in the encoder:
// - Which set has a character does not depend on what stands before it: the first of the charset's
//   sets that has it, as everywhere.
// - Controls are the first set's. What a definition wants of a line's end is written before the
//   break, so that who resets there and who does not agree.
#include "cconv/rulefunc/iso2022.h"

#include "cconv/rulefunc/scanned.h"
#include "cconv/tables/table.h"

#include <optional>

namespace {

constexpr u32 first_set = 1;

constexpr bool is_line_break(u32 byte) {
    return byte == '\n' || byte == '\r';
}

const basic_set* member_of(const charset_group* group, u8 place) {
    return static_cast<const basic_set*>(getArray(group->memberSets, place));
}

bool has_code(const basic_set* set, u32 code) {
    return map_code(set->decodeTable, code) != 0 || (code == 0 && set->byteNum == 1) ||
           (set->setNo == PVZAN_SET_JIS_X_0213 && IsJISX0213Combining(code) != 0);
}

// ---- Reading -----------------------------------------------------------------------------------

struct iso2022_reading : scanned {
    const basic_set* set; // of a code
    u32 set_code;         // its code in that set
    u32 bytes;            // bytes of the code, as one number
};

class text_reader {
public:
    text_reader(const charset_group* group, u32 state, std::span<const u8> text)
        : group_(group), told_(*group->codes), state_(told_.state_of(state)), text_(text) {}

    [[nodiscard]] iso2022_reading read() const {
        const u8 byte = text_[0];
        if (told_.opens_sequence(byte)) {
            return read_sequence();
        }
        if (told_.escapes && (byte == escape_byte || byte == shift_out || byte == shift_in)) {
            return invalid(1, 1);
        }
        if (byte >= 0xA0 && told_.eight < register_count) {
            return read_code(set_in(state_, told_.eight), 0, 0x80);
        }
        const u32 set = set_in(state_, shifted(state_));
        const bool has = set != no_set && told_.set(set).may_be(byte, 0);
        return !has && may_be_first_set(set, byte) ? read_code(first_set, 0, 0)
                                                   : read_code(set, 0, 0);
    }

private:
    [[nodiscard]] iso2022_reading invalid(std::size_t length, std::size_t needed) const {
        return {{scanned::invalid, static_cast<u8>(length), static_cast<u8>(needed), state_},
                nullptr,
                0,
                0};
    }
    [[nodiscard]] iso2022_reading cut() const {
        return {{scanned::cut, 1, static_cast<u8>(text_.size()), state_}, nullptr, 0, 0};
    }
    [[nodiscard]] iso2022_reading silent(std::size_t length, u32 state) const {
        const auto taken = static_cast<u8>(length);
        return {{scanned::silent, taken, taken, state}, nullptr, 0, 0};
    }

    // Used in place of a set that lacks the byte.
    [[nodiscard]] bool may_be_first_set(u32 set, u8 byte) const {
        const bool two_bytes = set == no_set || told_.set(set).width > 1;
        return two_bytes
                   ? told_.lines != line_reading::refuse && (is_line_break(byte) || byte == '\t')
                   : byte <= ' ' || byte == 0x7F;
    }

    // Whether something may begin with the byte.
    [[nodiscard]] bool may_begin(u8 byte) const {
        const auto is_lead = [&](u32 which, u32 code) {
            const u32 set = which < register_count ? set_in(state_, which) : no_set;
            return set != no_set && told_.set(set).may_be(code, 0);
        };
        return told_.opens_sequence(byte) || is_lead(shifted(state_), byte) ||
               may_be_first_set(set_in(state_, shifted(state_)), byte) ||
               (byte >= 0xA0 && is_lead(told_.eight, byte & 0x7FU));
    }

    [[nodiscard]] bool is_in_force(const control_sequence& s) const {
        return s.inside == no_set || s.inside == set_in(state_, shifted(state_));
    }
    [[nodiscard]] iso2022_reading read_sequence() const {
        std::size_t like = 1; // number of bytes that agree with a sequence
        for (const control_sequence& s : told_.sequences()) {
            if (s.bytes[0] != text_[0]) {
                continue;
            }
            const std::size_t seen = std::min<std::size_t>(s.length, text_.size());
            const auto same =
                std::ranges::mismatch(s.sequence().first(seen), text_.first(seen)).in1 -
                s.sequence().begin();
            if (!is_in_force(s)) {
                continue;
            }
            if (static_cast<std::size_t>(same) == seen) {
                return seen == s.length ? take(s) : cut();
            }
            like = std::max(like, static_cast<std::size_t>(same) + 1);
        }
        return invalid(1, std::min(like, text_.size()));
    }
    [[nodiscard]] iso2022_reading take(const control_sequence& s) const {
        const u32 held = set_in(state_, s.which);
        switch (s.kind) {
        case sequence_kind::designation: return silent(s.length, with_set(state_, s.which, s.set));
        case sequence_kind::shift:
            return held != no_set ? silent(s.length, with_shift(state_, s.which))
                                  : invalid(s.length, s.length);
        case sequence_kind::single:
            return held != no_set ? read_code(held, s.length, 0) : invalid(s.length, s.length);
        case sequence_kind::literal: break;
        }
        return s.silent ? silent(s.length, state_)
                        : character(told_.set(first_set), s.length, s.code);
    }

    // Reads a code after that many bytes; high is a bit that is also set in its bytes.
    [[nodiscard]] iso2022_reading read_code(u32 number, std::size_t begin, u32 high) const {
        if (number == no_set) {
            return invalid(begin + 1, begin + 1);
        }
        const graphic_set& set = told_.set(number);
        u32 bytes = 0;
        for (u32 i = 0; i < set.width; ++i) {
            if (begin + i == text_.size()) {
                return cut();
            }
            const u32 byte = text_[begin + i];
            if ((byte & 0x80) < high || !set.may_be(byte - high, i)) {
                const std::size_t length = begin + i + (may_begin(text_[begin + i]) ? 0U : 1U);
                return invalid(std::max<std::size_t>(length, 1), begin + i + 1);
            }
            bytes = bytes << 8 | (byte - high);
        }
        return character(set, begin + set.width, bytes);
    }
    [[nodiscard]] iso2022_reading character(const graphic_set& set, std::size_t length,
                                            u32 bytes) const {
        u32 behind = state_;
        if (set.width == 1 && is_line_break(bytes)) {
            if (told_.lines == line_reading::refuse && !told_.line.holds_in(state_)) {
                return invalid(1, 1);
            }
            behind = told_.lines == line_reading::keep ? state_ : told_.line.applied_to(state_);
        }
        for (const u8 place : set.member_places()) {
            const basic_set* member = member_of(group_, place);
            if (member != nullptr && has_code(member, bytes + set.add)) {
                const auto taken = static_cast<u8>(length);
                return {{scanned::code, taken, taken, behind}, member, bytes + set.add, bytes};
            }
        }
        return invalid(length, length);
    }

    const charset_group* group_;
    const iso2022& told_;
    u32 state_;
    std::span<const u8> text_;
};

// ---- Writing -----------------------------------------------------------------------------------

// The bytes to write for one code, beginning with sequences.
class writer {
public:
    writer(const charset_group* group, u32 state)
        : group_(group), told_(*group->codes), state_(told_.state_of(state)) {}

    void write_headers() {
        for (const control_sequence& s : told_.sequences()) {
            if (s.header && set_in(state_, s.which) == no_set) {
                designate(s);
            }
        }
    }
    // False if the charset has no way to write it.
    bool write_code(u32 setNo, u32 code) {
        write_headers();
        const bool control = code < ' ' || code == 0x7F;
        const bool breaks = is_line_break(code);
        if (breaks && !bring(told_.line)) {
            return false;
        }
        const bool done = control && told_.set(first_set).may_hold(code)
                              ? write_in(first_set, code)
                              : write_in_any(setNo, code);
        if (done && breaks) {
            state_ = told_.line.applied_to(state_);
        }
        return done;
    }
    // Establishes the required state.
    bool bring(const wanted_state& to) {
        for (u32 which = 0; which < register_count; ++which) {
            const u32 set = set_in(to.value, which);
            if ((to.mask & register_mask(which)) != 0 && set != no_set &&
                set != set_in(state_, which) && !designate(which, set)) {
                return false;
            }
        }
        return (to.mask & shift_mask) == 0 || shift(shifted(to.value));
    }

    // Finds the bytes that must be written before a code of the set, or before a line break.
    bool make_way(u32 set) {
        write_headers();
        if (set != line_way) {
            return invoke(set);
        }
        const bool done = bring(told_.line) && invoke(first_set);
        state_ = told_.line.applied_to(state_);
        return done;
    }

    [[nodiscard]] u32 state() const { return state_; }
    [[nodiscard]] std::span<const u8> bytes() const { return std::span(bytes_).first(size_); }

private:
    bool write_in_any(u32 setNo, u32 code) {
        for (u32 number = 1; number <= told_.set_count; ++number) {
            const graphic_set& set = told_.set(number);
            for (const u8 place : set.member_places()) {
                const basic_set* member = member_of(group_, place);
                if (member != nullptr && member->setNo == setNo && code >= set.add &&
                    set.may_hold(code - set.add) && write_in(number, code - set.add)) {
                    return true;
                }
            }
        }
        return false;
    }
    bool write_in(u32 number, u32 code) {
        const graphic_set& set = told_.set(number);
        const u32 lead = set.width == 1 ? code : code >> 8;
        if (told_.opens_sequence(lead) ||
            (told_.escapes && (lead == escape_byte || lead == shift_out || lead == shift_in))) {
            return number == first_set && write_literal(code);
        }
        if (!invoke(number)) {
            return false;
        }
        if (set.width > 1) {
            put(static_cast<u8>(lead));
        }
        put(static_cast<u8>(code));
        return true;
    }
    bool write_literal(u32 code) {
        for (const control_sequence& s : told_.sequences()) {
            if (s.kind == sequence_kind::literal && !s.silent && s.code == code &&
                invoke(s.inside != no_set ? s.inside : first_set)) {
                put(s);
                return true;
            }
        }
        return false;
    }

    // Gives the next bytes the meaning of the set: with the registers as they are, or else with the
    // first designation that does.
    bool invoke(u32 number) {
        for (u32 which = 0; which < register_count; ++which) {
            if (set_in(state_, which) == number && reach(which)) {
                return true;
            }
        }
        for (const control_sequence& s : told_.sequences()) {
            if (s.kind == sequence_kind::designation && s.set == number && can_reach(s.which) &&
                designate(s)) {
                return reach(s.which);
            }
        }
        return false;
    }
    [[nodiscard]] const control_sequence* sequence_to(sequence_kind kind, u32 which) const {
        const auto all = told_.sequences();
        const auto found = std::ranges::find_if(
            all, [=](const control_sequence& s) { return s.kind == kind && s.which == which; });
        return found != all.end() ? &*found : nullptr;
    }
    [[nodiscard]] bool can_reach(u32 which) const {
        return shifted(state_) == which || sequence_to(sequence_kind::shift, which) != nullptr ||
               sequence_to(sequence_kind::single, which) != nullptr;
    }
    // At least for the next code.
    bool reach(u32 which) {
        if (shift(which)) {
            return true;
        }
        const control_sequence* single = sequence_to(sequence_kind::single, which);
        if (single != nullptr) {
            put(*single);
        }
        return single != nullptr;
    }
    bool shift(u32 which) {
        if (shifted(state_) == which) {
            return true;
        }
        const control_sequence* s = sequence_to(sequence_kind::shift, which);
        if (s != nullptr) {
            put(*s);
            state_ = with_shift(state_, which);
        }
        return s != nullptr;
    }
    bool designate(const control_sequence& s) {
        if (s.inside != no_set && s.inside != set_in(state_, shifted(state_))) {
            return false;
        }
        put(s);
        state_ = with_set(state_, s.which, s.set);
        return true;
    }
    bool designate(u32 which, u32 set) {
        return std::ranges::any_of(told_.sequences(), [&](const control_sequence& s) {
            return s.kind == sequence_kind::designation && s.which == which && s.set == set &&
                   designate(s);
        });
    }

    void put(const control_sequence& s) {
        for (const u8 byte : s.sequence()) {
            put(byte);
        }
    }
    void put(u8 byte) {
        if (size_ < sizeof bytes_) {
            bytes_[size_++] = byte;
        }
    }

    const charset_group* group_;
    const iso2022& told_;
    u32 state_;
    // At most: a header; before a line break a designation for each register, and a shift; before a
    // code one of each.
    u8 bytes_[4 * (1 + register_count + 1 + 2) + 2];
    std::size_t size_ = 0;
};

u32 put_iso2022(session* s, u32 code) {
    writer w(s->dstGroup, s->dstShiftSet);
    if (!w.write_code(s->outSetNo, code)) {
        return stop_with(s, PVZAN_UNREPRESENTABLE);
    }
    if (put_whole(s, w.bytes()) == 0) {
        return 0;
    }
    s->dstShiftSet = w.state();
    return 1;
}

u32 close_output(session* s) {
    writer w(s->dstGroup, s->dstShiftSet);
    w.bring(s->dstGroup->codes->close);
    if (!emit_bytes(s, w.bytes())) {
        return 0;
    }
    s->dstShiftSet = w.state();
    return stop_with(s, PVZAN_DONE);
}

// What is at the beginning of the text, which must not be empty.
iso2022_reading read_text(const charset_group* group, u32 state, std::span<const u8> text) {
    return text_reader(group, state, text).read();
}

bool find_way(const charset_group* group, u32 state, u32 set, iso2022_way& way) {
    writer w(group, state);
    if (!w.make_way(set) || w.bytes().size() > iso2022_way::most_bytes) {
        return false;
    }
    way = {0, static_cast<u32>(w.bytes().size()), w.state()};
    for (u32 i = way.size; i > 0; --i) {
        way.bytes = way.bytes << 8 | w.bytes()[i - 1];
    }
    return true;
}

scanned scan(const charset_group* group, u32 state, std::span<const u8> text) {
    return read_text(group, state, text);
}

bool is_in_use(const charset_group* group, u32 word) {
    u32 sets = 0;
    for (u32 which = 0; which < register_count; ++which) {
        sets = std::max(sets, set_in(word, which));
    }
    return word >> (shift_place + 2) == is_state >> (shift_place + 2) &&
           sets <= group->codes->set_count;
}

bool may_end(const charset_group* group, u32 state) {
    return group->codes->close.holds_in(group->codes->state_of(state));
}

constexpr iso2022_codec told_states{
    .codes = [](const charset_group* group) -> const iso2022* { return group->codes; },
    .state_of = [](const charset_group* group, u32 word) { return group->codes->state_of(word); },
    .word_of = [](u32 state) { return state; },
    .scan = scan,
    .find_way = find_way,
};

} // namespace

u32 set_at_hand(const iso2022& codes, u32 state) {
    for (const control_sequence& s : codes.sequences()) {
        if (s.header && set_in(state, s.which) == no_set) {
            return no_set;
        }
    }
    return set_in(state, shifted(state));
}

extern "C" {

u32 destISO_2022(session* s) {
    if (s->srcGroup == nullptr || s->srcGroup->codes == nullptr) {
        return stop_with(s, PVZAN_INVALID_INPUT);
    }
    return decode_scanned(s, read_text, [s](const iso2022_reading& found, i32) {
        return deliver_character(s, found.set, found.bytes, found.set_code, 0);
    });
}

u32 constISO_2022(session* s) {
    if (s->dstGroup == nullptr || s->dstGroup->codes == nullptr) {
        return stop_with(s, s->status == PVZAN_TERMINATE ? PVZAN_DONE : PVZAN_UNREPRESENTABLE);
    }
    if (s->status == PVZAN_TERMINATE) {
        return close_output(s);
    }
    if (encode_scanned(s, put_iso2022) != 0) {
        return 1;
    }
    // The set that the character was read from is only read in this charset, and written by another
    // set.
    if (s->status == PVZAN_UNREPRESENTABLE && s->charSetNo == s->outSetNo) {
        if (s->ucsCode == 0) {
            derive_unicode(s);
        }
        const u32 read_from = s->charSetNo;
        s->charSetNo = ~0U;
        const bool done = s->ucsCode != 0 && encode_scanned(s, put_iso2022) != 0;
        s->charSetNo = read_from;
        return done ? 1 : 0;
    }
    return 0;
}

} // extern "C"

const codec_traits iso_2022_traits{
    .decode = destISO_2022,
    .encode = constISO_2022,
    .read = reading::scanned,
    .scan = scan,
    .is_in_use = is_in_use,
    .may_end = may_end,
    .states = &told_states,
    .designates = true,
};
