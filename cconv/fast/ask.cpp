// Asking the rules about a character: the only place that runs them, and the only one that writes
// what threads share.
#include "cconv/composition.h"
#include "cconv/fast/readers.h"
#include "cconv/rulefunc/designations.h"
#include "cconv/step.h"
#include "cconv/strict.h"
#include "cconv/table.h"
#include "platform/platform.h"

#include <algorithm>
#include <array>

namespace fast {

namespace {

class pair_guard {
public:
    explicit pair_guard(pair& p) : p_(p) { pthread_mutex_lock(&p_.lock); }
    ~pair_guard() { pthread_mutex_unlock(&p_.lock); }
    pair_guard(const pair_guard&) = delete;
    pair_guard& operator=(const pair_guard&) = delete;

private:
    pair& p_;
};

constexpr u32 nobody = ~0U; // what no rule fills in
constexpr std::size_t output_bytes = 32;

enum class verdict : u8 { plain, by_rules, cut };

// ---- Running the rules -------------------------------------------------------------------------

// The state between two characters, with nothing in it that a rule could take for its own.
void reset(session& s, std::span<const u8> k, std::span<u8> out, u32 source_set, u32 target_set) {
    s.inBuf = k.data();
    s.inPos = 0;
    s.inLen = static_cast<i32>(k.size());
    s.inCount = 0;
    s.outBuf = out.data();
    s.outPos = 0;
    s.outLen = static_cast<i32>(out.size());
    s.outCount = 0;
    s.status = PVZAN_WRITTEN;
    s.charSetNo = nobody;
    s.charSetType = static_cast<u16>(nobody);
    s.srcShiftSet = source_set;
    s.outSetNo = nobody;
    s.outSetType = static_cast<u16>(nobody);
    s.dstShiftSet = target_set;
    s.dstShiftPlane = 0;
    s.srcCode = 0;
}

// Runs D on k: whether it read one character, and all of k. A strict pair goes on with the
// character of Unicode.
verdict decode(pair& p, std::span<const u8> k, u32 source_set) {
    session& s = p.neutral;
    decode_step(&s);
    if (s.status == PVZAN_INPUT_INCOMPLETE) {
        return verdict::cut;
    }
    const bool one = s.status == PVZAN_DECODED && s.inCount == 1 &&
                     s.inPos == static_cast<i32>(k.size()) && s.charSetNo != nobody &&
                     s.charSetType != static_cast<u16>(nobody) && s.srcShiftSet == source_set;
    if (one && p.strict != strictness::none) {
        character c{0, 0};
        const bool designates =
            p.plan.target->designates || p.plan.source->read == reading::escapes;
        if (!read_character(&s, c) || (designates && switches_sets(c.letter))) {
            return verdict::by_rules;
        }
        put_character(&s, c);
    }
    return one ? verdict::plain : verdict::by_rules;
}

// Runs E on what D read: whether it wrote whole codes, and filled in every field.
bool encode(session& s) {
    encode_step(&s);
    return s.status == PVZAN_WRITTEN && s.outPos > 0 && s.outCount > 0 && s.outSetNo != nobody &&
           s.outSetType != static_cast<u16>(nobody) && s.dstShiftPlane == 0;
}

// The place of what the target designates, found or added; 0 when there are too many.
u8 slot_of(pair& p, u32 setNo, std::span<const u8> sequence) {
    const u32 count = p.slot_count.load(std::memory_order_relaxed);
    for (u32 i = 1; i <= count; ++i) {
        const slot_designation& d = p.slots[i];
        if (d.setNo == setNo && std::ranges::equal(std::span(d.bytes).first(d.length), sequence)) {
            return static_cast<u8>(i);
        }
    }
    if (count + 1 == most_slots || sequence.size() > sizeof p.slots[0].bytes) {
        return 0;
    }
    slot_designation& added = p.slots[count + 1];
    added.setNo = setNo;
    added.length = static_cast<u8>(sequence.size());
    std::ranges::copy(sequence, added.bytes);
    p.slot_count.store(count + 1, std::memory_order_release);
    return static_cast<u8>(count + 1);
}

// With a rule that designates sets: k once more where its set is designated already. What the first
// time wrote before the code is the designation.
bool separate_designation(pair& p, std::span<const u8> k, u32 source_set, std::span<u8>& written,
                          std::span<u8> once_more, answer& a) {
    session& s = p.neutral;
    const u32 designated = s.dstShiftSet;
    if (designated != s.outSetNo) {
        return false;
    }
    reset(s, k, once_more, source_set, designated);
    if (decode(p, k, source_set) != verdict::plain || !encode(s) || s.dstShiftSet != designated) {
        return false;
    }
    const auto length = static_cast<std::size_t>(s.outPos);
    if (length >= written.size() ||
        !std::ranges::equal(written.last(length), once_more.first(length))) {
        return false;
    }
    a.slot = slot_of(p, designated, written.first(written.size() - length));
    written = written.last(length);
    return a.slot != 0;
}

void note_session(answer& a, const session& s) {
    a.codes = static_cast<u8>(s.outCount);
    a.charSetType = s.charSetType;
    a.outSetType = s.outSetType;
    a.outBytes = s.outBytes;
    a.outDone = s.outDone;
    a.charSetNo = s.charSetNo;
    a.srcCode = s.srcCode;
    a.setCode = s.setCode;
    a.ucsCode = s.ucsCode;
    a.outSetNo = s.outSetNo;
    a.outCode = s.outCode;
    a.outCode2 = s.outCode2;
}

// Whether a mark may join the letters before it: as the source's rule does, or, in a strict pair,
// as the target may have them in one code.
bool joins_marks(const pair& p) {
    if (p.strict == strictness::none) {
        return p.plan.source->joins_marks;
    }
    return p.plan.source->form != unicode_form::none && p.plan.target->form == unicode_form::none;
}

// Whether what was written for the character is that again, or the line break that was asked for;
// U+2028 and U+2029 are none here.
bool comes_back(pair& p, std::span<const u8> k, std::span<const u8> written, const character& c) {
    session& s = p.neutral;
    const character back = read_back(&s, written, PVZAN_SET_ISO_646_IRV);
    if (p.plan.normalises && (c.letter == '\r' || c.letter == '\n')) {
        const u32 mode = s.target.newlineMode;
        return back == (mode == PVZAN_NEWLINE_CR   ? character{'\r', 0}
                        : mode == PVZAN_NEWLINE_LF ? character{'\n', 0}
                                                   : character{'\r', '\n'});
    }
    if (p.plan.normalises && (c.letter == 0x2028 || c.letter == 0x2029)) {
        return false;
    }
    std::array<u8, output_bytes> again;
    return back == c &&
           (p.strict == strictness::characters || p.plan.source->read == reading::escapes ||
            std::ranges::equal(k, std::span(again).first(spell_again(&s, c, again))));
}

verdict ask(pair& p, std::span<const u8> k, u32 source_set, answer& a) {
    session& s = p.neutral;
    std::array<u8, output_bytes> out, again;
    reset(s, k, out, source_set, 0);
    const verdict read = decode(p, k, source_set);
    if (read != verdict::plain) {
        return read;
    }
    a = {};
    a.read_setCode = s.setCode;
    a.read_ucsCode = s.ucsCode;
    const character c{s.ucsCode, s.outCode2};
    const bool joins = joins_marks(p);
    if ((joins && is_combining_mark(s.srcCode)) || !encode(s)) {
        return verdict::by_rules;
    }
    std::span<u8> written = std::span(out).first(static_cast<std::size_t>(s.outPos));
    if (p.strict != strictness::none && !comes_back(p, k, written, c)) {
        return verdict::by_rules;
    }
    const bool whole = p.plan.target->designates
                           ? separate_designation(p, k, source_set, written, again, a)
                           : s.dstShiftSet == 0;
    if (!whole || written.size() > answer::most_bytes) {
        return verdict::by_rules;
    }
    for (std::size_t i = written.size(); i-- > 0;) {
        a.bytes = a.bytes << 8 | written[i];
    }
    a.length = static_cast<u8>(written.size());
    a.takes_mark = joins && (may_take_mark(s.srcCode) ||
                             (p.strict != strictness::none && takes_composing_mark(s.srcCode)));
    a.is_cr = p.plan.normalises && s.srcCode == '\r';
    a.is_lf = p.plan.normalises && s.srcCode == '\n';
    note_session(a, s);
    return verdict::plain;
}

// ---- Keeping the answers -----------------------------------------------------------------------

// The number of a kept answer; 0 when memory is short.
u32 keep(pair& p, const answer& a) {
    const u32 number = p.answer_total + 1;
    if (number >= key_count) {
        return 0;
    }
    answer*& some = p.answers[number / answers_at_once];
    if (some == nullptr) {
        constexpr u64 bytes = answers_at_once * sizeof(answer);
        if (!claim_bytes(bytes)) {
            return 0;
        }
        some = static_cast<answer*>(ZAN_calloc(1, static_cast<i32>(bytes)));
        if (some == nullptr) {
            return_bytes(bytes);
            return 0;
        }
        p.claimed += bytes;
    }
    some[number % answers_at_once] = a;
    p.answer_total = number;
    return number;
}

// The form of runs that an ASCII character goes with.
bool matches_form(const pair& p, ascii_form form, u32 c, const answer& a) {
    const ascii_unit source = p.plan.source_unit;
    const ascii_unit target = p.ascii_target;
    const u32 wanted = form == ascii_form::widen ? target.bytes : 1;
    const bool units = form == ascii_form::narrow ? source.bytes > 1 : source.bytes == 1;
    const u64 place = form == ascii_form::widen && target.big_endian ? target.bytes - 1 : 0;
    return units && a.length == wanted && a.bytes == u64{c} << 8 * place;
}

ascii_form form_of(pair& p, u32 c, const answer& a) {
    for (const ascii_form form : {ascii_form::same, ascii_form::narrow}) {
        if (matches_form(p, form, c, a)) {
            return form;
        }
    }
    for (const u32 bytes : {2U, 4U}) {
        for (const bool big : {true, false}) {
            p.ascii_target = {bytes, big};
            if (matches_form(p, ascii_form::widen, c, a)) {
                return ascii_form::widen;
            }
        }
    }
    return ascii_form::unknown;
}

// Lets runs of ASCII hold a character that is written as they are. NUL does not tell what that is.
void note_ascii(pair& p, u32 c, const answer& a) {
    if (c == 0 || a.codes != 1 || a.is_cr || a.is_lf) {
        return;
    }
    ascii_form form = p.ascii.load(std::memory_order_relaxed);
    if (form == ascii_form::unknown) {
        form = form_of(p, c, a);
        if (form == ascii_form::unknown) {
            return;
        }
        p.ascii_slot = a.slot;
        p.ascii.store(form, std::memory_order_release);
    }
    if (matches_form(p, form, c, a) && a.slot == p.ascii_slot) {
        p.plain_ascii.add(static_cast<u8>(c));
    }
}

void note_lead(pair& p, u8 lead, std::size_t length) {
    if (length == 2) {
        p.leads.add(lead);
    }
    p.lead_length[lead].store(static_cast<u8>(length), std::memory_order_relaxed);
}

void refuse(pair& p, u32 key) {
    p.entries[key].store(entry::by_rules, std::memory_order_relaxed);
}

// Whether there was room for it.
bool store(pair& p, u32 key, const answer& a) {
    const u32 number = keep(p, a);
    if (number == 0) {
        return false;
    }
    p.answer_at[key].store(static_cast<u16>(number), std::memory_order_release);
    const bool fits = a.length <= entry::most_bytes && a.codes == 1 && !a.is_cr && !a.is_lf;
    const u32 packed = u32{a.slot} << 28 | u32{a.length} << 24 | static_cast<u32>(a.bytes);
    p.entries[key].store(fits ? packed : number, std::memory_order_relaxed);
    return true;
}

// ---- Keys --------------------------------------------------------------------------------------

u32 key_at(const pair& p, const u8* in, std::size_t length, u32 set) {
    const u32 n = static_cast<u32>(length);
    switch (p.plan.reader) {
    case reader::lead_bytes: return lead_byte_key(in, n);
    case reader::utf8: return utf8_key(in, n);
    case reader::unit_big: return load_big_endian({in, 2});
    case reader::unit_little: return load_little_endian({in, 2});
    case reader::quad_big: return load_big_endian({in, 4}) % key_count;
    case reader::quad_little: return load_little_endian({in, 4}) % key_count;
    case reader::iso2022: break;
    }
    return iso2022_base(set) | (length == 2 ? iso2022_offset(in) : in[0]);
}

bool is_ascii_key(const pair& p, u32 key, u32 set) {
    return p.plan.reader == reader::iso2022
               ? set == PVZAN_SET_ISO_646_IRV && key < iso2022_base(set) + 0x80
               : key < 0x80;
}

// The lengths that the character at in may have; the first of them that is not cut it has.
struct lengths {
    std::size_t least, most;
};
lengths lengths_at(const pair& p, const u8* in, std::size_t left, u32 set) {
    const auto exactly = [](std::size_t n) { return lengths{n, n}; };
    switch (p.plan.reader) {
    case reader::lead_bytes: {
        const u8 known = p.lead_length[*in].load(std::memory_order_relaxed);
        const std::size_t most =
            *in == p.plan.source->single_shift && *in != no_single_shift ? 3 : 2;
        return known != 0 ? exactly(known) : lengths{1, most};
    }
    case reader::utf8: return exactly(utf8_reader::length(in, left));
    case reader::unit_big:
    case reader::unit_little: return exactly(2);
    case reader::quad_big:
    case reader::quad_little: return exactly(4);
    case reader::iso2022: break;
    }
    return exactly(is_double_byte_set(set) && !is_ascii_in_double_byte_text(*in) ? 2 : 1);
}

// What the entry of a character is to say that the rules do not let run over.
void note_refusal(pair& p, const u8* in, std::size_t length, u32 key) {
    if (p.plan.reader != reader::lead_bytes) {
        refuse(p, key);
    } else if (length == 1 || (length == 2 && *in < 0x80)) {
        // Below 80 two bytes would lie where others do.
        refuse(p, *in);
        note_lead(p, *in, 1);
    } else {
        note_lead(p, *in, length);
        refuse(p, key);
    }
}

} // namespace

bool learn(pair& p, const u8* in, std::size_t left, u32 set) {
    const pair_guard guard(p);
    const lengths possible = lengths_at(p, in, left, set);
    for (std::size_t length = possible.least; length <= possible.most; ++length) {
        const bool by_lead = p.plan.reader == reader::lead_bytes;
        const bool no_place =
            by_lead && ((length == 2 && *in < 0x80) ||
                        (length == 3 && length <= left && lead_byte_key(in, 3) == 0));
        if (length == 0 || length > left || (no_place && length == 3)) {
            return false;
        }
        const u32 key = key_at(p, in, length, set);
        if (possible.least == possible.most && p.entry_of(key).asked()) {
            return p.entry_of(key).packed != entry::by_rules; // by another thread
        }
        answer a;
        const verdict v = ask(p, {in, length}, set, a);
        if (!is_current(p)) {
            return false; // it rests on tables that others do not
        }
        if (v == verdict::cut && length < possible.most) {
            continue;
        }
        if (v != verdict::plain || no_place) {
            note_refusal(p, in, length, key);
            return false;
        }
        if (!store(p, key, a)) {
            return false;
        }
        if (by_lead) {
            note_lead(p, *in, length);
        }
        if (length == p.plan.source_unit.bytes && is_ascii_key(p, key, set)) {
            note_ascii(p, key % 0x80, a);
        }
        return true;
    }
    return false;
}

const answer* find_answer(pair& p, u32 k, std::span<const u8> bytes, answer& room) {
    if (const answer* seen = p.answer_of(k)) {
        return seen;
    }
    const pair_guard guard(p);
    if (const answer* seen = p.answer_of(k)) {
        return seen;
    }
    if (bytes.empty() || ask(p, bytes, 0, room) != verdict::plain || !is_current(p)) {
        return nullptr;
    }
    store(p, k, room);
    return &room;
}

} // namespace fast
