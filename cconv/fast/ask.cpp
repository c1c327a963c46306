// Asks the rules about a character: only this file runs them, and only this file writes what
// threads share.
#include "cconv/engine/composition.h"
#include "cconv/engine/step.h"
#include "cconv/fast/readers.h"
#include "cconv/rulefunc/strict.h"
#include "cconv/tables/table.h"
#include "platform/platform.h"

#include <algorithm>
#include <array>

namespace fast {

namespace {

constexpr u32 nobody = ~0U; // in a field that an encode rule did not set
constexpr std::size_t output_bytes = 32;

// stale: the answer depends on other tables than those before.
enum class verdict : u8 { plain, by_rules, cut, stale };

// ---- Running the rules -------------------------------------------------------------------------

// The session between two characters, without anything that a rule could use.
void reset(session& s, std::span<const u8> k, std::span<u8> out, u32 source_word) {
    s.inBuf = k.data();
    s.inPos = 0;
    s.inLen = static_cast<i32>(k.size());
    s.inCount = 0;
    s.outBuf = out.data();
    s.outPos = 0;
    s.outLen = static_cast<i32>(out.size());
    s.outCount = 0;
    s.status = PVZAN_WRITTEN;
    s.srcShiftSet = source_word;
    s.outSetNo = nobody;
    s.dstShiftSet = 0;
    s.dstShiftPlane = 0;
    s.srcCode = 0;
}

// Runs D on k: whether it read one character, and all of k. A strict pair continues with the
// Unicode character.
verdict decode(pair& p, std::span<const u8> k) {
    session& s = p.neutral;
    decode_step(&s);
    if (s.status == PVZAN_INPUT_INCOMPLETE) {
        return verdict::cut;
    }
    if (s.status != PVZAN_DECODED || s.inPos != static_cast<i32>(k.size())) {
        return verdict::by_rules;
    }
    if (p.key.strict != strictness::none) {
        character c{0, 0};
        const bool by_escapes =
            p.plan.source->read == reading::escapes || p.plan.target->read == reading::escapes;
        if (!read_character(&s, c) || (by_escapes && switches_sets(c.letter))) {
            return verdict::by_rules;
        }
        put_character(&s, c);
    }
    return verdict::plain;
}

// Whether E wrote whole codes, and filled in every field.
bool wrote(const session& s) {
    return s.status == PVZAN_WRITTEN && s.outPos > 0 && s.outCount > 0 && s.outSetNo != nobody;
}

// Whether line breaks are written as nothing but a code of the first set.
bool breaks_are_codes(const iso2022& codes) {
    const wanted_state& line = codes.line;
    const auto elsewhere = [](const control_sequence& s) {
        return s.kind == sequence_kind::designation && s.set == ascii_set && s.which != 0;
    };
    const bool first = (line.mask & register_mask(0)) == 0 || set_in(line.value, 0) == ascii_set;
    return line.mask == 0 || ((line.mask & ~(register_mask(0) | shift_mask)) == 0 && first &&
                              shifted(line.value) == 0 && set_in(codes.initial, 0) == ascii_set &&
                              std::ranges::none_of(codes.sequences(), elsewhere));
}

// If the target has states: removes the bytes before the code, which select its set. Of the sets
// that some of them select, it is the one with the most, since no code begins like a sequence.
bool separate_way(pair& p, answer& a) {
    const charset_states& states = p.plan.target_states;
    const u32 begin = states.state_of(0), behind = states.state_of(p.neutral.dstShiftSet);
    const u64 last = a.bytes >> 8 * std::max(a.length - a.codes, 0);
    const bool breaks = last == '\r' || last == '\n' || last == ('\n' << 8 | '\r');
    if (a.codes > 1 && !breaks) {
        return false;
    }
    const bool by_line = breaks && !breaks_are_codes(*states.codes);
    const u32 first_set = by_line ? line_way : 1,
              last_set = by_line ? line_way : states.codes->set_count;
    u32 longest = 0;
    for (u32 set = first_set; set <= last_set; ++set) {
        iso2022_way way;
        if (states.find_way(begin, set, way) && way.state == behind && way.size < a.length &&
            ((a.bytes ^ way.bytes) & ((u64{1} << 8 * way.size) - 1)) == 0 &&
            (a.set == 0 || way.size > longest)) {
            a.set = static_cast<u8>(set);
            longest = way.size;
        }
    }
    a.bytes >>= 8 * longest;
    a.length -= static_cast<u8>(longest);
    return a.set != 0 && (!by_line || a.length == a.codes);
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

bool note_bytes(answer& a, std::span<const u8> written) {
    if (written.size() > answer::most_bytes) {
        return false;
    }
    for (std::size_t i = written.size(); i-- > 0;) {
        a.bytes = a.bytes << 8 | written[i];
    }
    a.length = static_cast<u8>(written.size());
    return true;
}

// Whether a mark may be combined with the letters before it: as the source's rule does, or, in a
// strict pair, if the target may have them as one code.
bool joins_marks(const pair& p) {
    if (p.key.strict == strictness::none) {
        return p.plan.source->joins_marks;
    }
    return p.plan.source->form != unicode_form::none && p.plan.target->form == unicode_form::none;
}

// Whether what was written is read back as the character, or as the line break that was chosen.
bool comes_back(pair& p, std::span<const u8> k, std::span<const u8> written, const character& c) {
    session& s = p.neutral;
    const character back = read_back(&s, written, PVZAN_SET_ISO_646_IRV);
    if (p.plan.normalises && (c.letter == '\r' || c.letter == '\n')) {
        const u32 mode = s.target.newlineMode;
        return back == (mode == PVZAN_NEWLINE_CR   ? character{'\r', 0}
                        : mode == PVZAN_NEWLINE_LF ? character{'\n', 0}
                                                   : character{'\r', '\n'});
    }
    std::array<u8, output_bytes> again;
    return back == c &&
           (p.key.strict == strictness::characters || p.plan.reader == reader::states ||
            std::ranges::equal(k, std::span(again).first(spell_again(&s, c, again))));
}

verdict ask_rules(pair& p, std::span<const u8> k, u32 state, answer& a) {
    session& s = p.neutral;
    std::array<u8, output_bytes> out;
    reset(s, k, out, p.plan.source_states.word_of(state));
    const verdict read = decode(p, k);
    if (read != verdict::plain) {
        return read;
    }
    a = {};
    a.read_setCode = s.setCode;
    a.read_ucsCode = s.ucsCode;
    const character c{s.ucsCode, s.outCode2};
    const bool strict = p.key.strict != strictness::none, joins = joins_marks(p);
    a.takes_mark = joins && (may_take_mark(s.srcCode, strict ? s.dstGroup : nullptr) ||
                             (strict && takes_composing_mark(s.srcCode)));
    if (joins && (is_combining_mark(s.srcCode) || (strict && is_mark_in_tables(s.srcCode)))) {
        return verdict::by_rules;
    }
    encode_step(&s);
    if (!wrote(s)) {
        return verdict::by_rules;
    }
    const std::span<const u8> written = std::span(out).first(static_cast<std::size_t>(s.outPos));
    if (strict && !comes_back(p, k, written, c)) {
        return verdict::by_rules;
    }
    note_session(a, s);
    a.is_cr = p.plan.normalises && s.srcCode == '\r';
    a.is_lf = p.plan.normalises && s.srcCode == '\n';
    const bool has_states = p.plan.target_states.codes != nullptr;
    return note_bytes(a, written) && (!has_states || separate_way(p, a)) ? verdict::plain
                                                                         : verdict::by_rules;
}

// k is read in that state of the source.
verdict ask(pair& p, std::span<const u8> k, u32 state, answer& a) {
    const verdict v = ask_rules(p, k, state, a);
    return is_current(p) ? v : verdict::stale;
}

// ---- Keeping the answers -----------------------------------------------------------------------

// The number of a stored answer; 0 if memory runs out.
u32 keep(pair& p, const answer& a) {
    const u32 number = p.answer_total + 1;
    if (number >= key_count) {
        return 0;
    }
    answer*& some = p.answers[number / answers_at_once];
    if (some == nullptr) {
        if (!claim_bytes(answers_bytes)) {
            return 0;
        }
        some = static_cast<answer*>(ZAN_calloc(1, i32{answers_bytes}));
        if (some == nullptr) {
            return_bytes(answers_bytes);
            return 0;
        }
    }
    some[number % answers_at_once] = a;
    p.answer_total = number;
    return number;
}

// Allows a character in runs of ASCII if it is written unchanged, in the target's units.
void note_ascii(pair& p, u32 c, const answer& a) {
    const ascii_unit target = p.plan.target_unit;
    const u64 place = target.big_endian ? target.bytes - 1 : 0;
    const u32 set = p.plan.target_states.codes != nullptr ? ascii_set : 0;
    if (c < 0x80 && a.is_one_code() && a.length == target.bytes && a.bytes == u64{c} << 8 * place &&
        a.set == set) {
        p.plain_ascii.add(static_cast<u8>(c));
    }
}

// Stores the rules' answer about a character; returns whether the fast path can convert it.
bool note(pair& p, std::span<const u8> k, u32 key, verdict v, const answer& a) {
    if (v == verdict::stale) {
        return false;
    }
    if (p.plan.reader == reader::lead_bytes) {
        if (k.size() == 2) {
            p.leads.add(k[0]);
        }
        p.behind_lead[k[0]].store(static_cast<u8>(k.size() - 1), std::memory_order_relaxed);
    }
    if (v != verdict::plain) {
        p.entries[key].store(entry::by_rules, std::memory_order_relaxed);
        return false;
    }
    const u32 number = keep(p, a);
    if (number == 0) {
        return false;
    }
    const bool fits = a.length <= entry::most_bytes && a.is_one_code();
    const u32 packed = u32{a.set} << 28 | u32{a.length} << 24 | static_cast<u32>(a.bytes);
    p.answer_at[key].store(static_cast<u16>(number), std::memory_order_release);
    p.entries[key].store(fits ? packed : entry::has_answer, std::memory_order_relaxed);
    const bool has_states = p.plan.reader == reader::states;
    note_ascii(p, key - (has_states ? single_key(p.plan.eight_bits, ascii_set) : 0), a);
    return true;
}

bool ask_and_note(pair& p, std::span<const u8> k, u32 state, u32 key) {
    answer a;
    const verdict v = ask(p, k, state, a);
    return note(p, k, key, v, a);
}

// Asks about a character whose first byte is new: its length is the first one that is not cut.
bool learn_lead(pair& p, const u8* in, std::size_t left) {
    const bool shifts = *in == p.plan.single_shift && *in != no_single_shift;
    const u32 most = shifts ? 3 : 2;
    for (u32 length = 1; length <= std::min<std::size_t>(most, left); ++length) {
        answer a;
        const verdict v = ask(p, {in, length}, 0, a);
        if (v == verdict::cut && length < most) {
            continue;
        }
        if (length == 2 && *in < 0x80) { // no key, so all that begin like it are the rules'
            return note(p, {in, 1}, *in, verdict::by_rules, a);
        }
        const u32 key = lead_byte_key(in, length);
        return (length < 3 || key != 0) && note(p, {in, length}, key, v, a);
    }
    return false;
}

} // namespace

bool learn(pair& p, const run& r) {
    const held_lock guard(p.lock);
    if (p.entry_of(r.next_key).asked()) {
        return p.entry_of(r.next_key).packed != entry::by_rules; // by another thread
    }
    if (p.plan.reader == reader::lead_bytes && r.next_length == 1) {
        const bool asked = p.behind_lead[*r.next].load(std::memory_order_relaxed) > 0;
        return asked || learn_lead(p, r.next, static_cast<std::size_t>(r.in_end - r.next));
    }
    return ask_and_note(p, {r.next, r.next_length}, r.next_state, r.next_key);
}

const answer* find_answer(pair& p, u32 k, std::span<const u8> bytes) {
    const held_lock guard(p.lock);
    if (p.answer_of(k) == nullptr && !bytes.empty()) {
        ask_and_note(p, bytes, 0, k);
    }
    return p.answer_of(k);
}

} // namespace fast
