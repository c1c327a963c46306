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
#include <optional>

namespace fast {

namespace {

constexpr u32 nobody = ~0U; // in a field that an encode rule did not set
constexpr std::size_t output_bytes = 32;

enum class verdict : u8 { plain, by_rules, cut };

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

constexpr bool is_break(u8 byte) {
    return byte == '\r' || byte == '\n';
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

// Whether the bytes are codes of the set, a literal of the first set, or a line break.
bool are_codes_of(const iso2022& codes, u32 set, std::span<const u8> bytes) {
    const bool breaks_line = std::ranges::all_of(bytes, is_break) && !breaks_are_codes(codes);
    if (set == line_way || breaks_line) {
        return set == line_way && breaks_line;
    }
    const auto is_literal = [&](const control_sequence& s) {
        return s.kind == sequence_kind::literal && std::ranges::equal(s.sequence(), bytes);
    };
    if (set == ascii_set && std::ranges::any_of(codes.sequences(), is_literal)) {
        return true;
    }
    const graphic_set& g = codes.set(set);
    for (; bytes.size() >= g.width; bytes = bytes.subspan(g.width)) {
        if (codes.opens_sequence(bytes[0]) || !g.may_hold(load_code(bytes.first(g.width), true))) {
            return false;
        }
    }
    return bytes.empty();
}

// The number of bytes that lead from a state to the set.
std::optional<std::size_t> way_size(const charset_states& states, u32 from, u32 set,
                                    std::span<const u8> bytes, u32 behind) {
    iso2022_way way;
    if (!states.find_way(from, set, way) || way.size >= bytes.size() || way.state != behind) {
        return std::nullopt;
    }
    for (u32 i = 0; i < way.size; ++i) {
        if (bytes[i] != static_cast<u8>(way.bytes >> 8 * i)) {
            return std::nullopt;
        }
    }
    return way.size;
}

// If the target has states: removes the bytes before the code that select its set.
bool separate_way(pair& p, std::span<u8>& written, answer& a) {
    const charset_states& states = p.plan.target_states;
    const u32 begin = states.state_of(0), behind = states.state_of(p.neutral.dstShiftSet);
    for (u32 set = 1; set <= line_way; ++set) {
        const auto size = set <= states.codes->set_count || set == line_way
                              ? way_size(states, begin, set, written, behind)
                              : std::nullopt;
        if (size && are_codes_of(*states.codes, set, written.subspan(*size))) {
            written = written.subspan(*size);
            a.set = static_cast<u8>(set);
            return true;
        }
    }
    return false;
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

// Whether what was written is read back as the character, or as the line break that was chosen;
// U+2028 and U+2029 do not count as such here.
bool comes_back(pair& p, std::span<const u8> k, std::span<const u8> written, const character& c) {
    session& s = p.neutral;
    const character back = read_back(&s, written, PVZAN_SET_ISO_646_IRV);
    if (p.plan.normalises && (c.letter == '\r' || c.letter == '\n')) {
        const u32 mode = s.target.newlineMode;
        return back == (mode == PVZAN_NEWLINE_CR   ? character{'\r', 0}
                        : mode == PVZAN_NEWLINE_LF ? character{'\n', 0}
                                                   : character{'\r', '\n'});
    }
    if (p.plan.normalises && (c.letter == line_separator || c.letter == paragraph_separator)) {
        return false;
    }
    std::array<u8, output_bytes> again;
    return back == c &&
           (p.key.strict == strictness::characters || p.plan.reader == reader::states ||
            std::ranges::equal(k, std::span(again).first(spell_again(&s, c, again))));
}

// k is read in that state of the source.
verdict ask(pair& p, std::span<const u8> k, u32 state, answer& a) {
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
    std::span<u8> written = std::span(out).first(static_cast<std::size_t>(s.outPos));
    if (strict && !comes_back(p, k, written, c)) {
        return verdict::by_rules;
    }
    const bool has_states = p.plan.target_states.codes != nullptr;
    if ((has_states && !separate_way(p, written, a)) || !note_bytes(a, written)) {
        return verdict::by_rules;
    }
    a.is_cr = p.plan.normalises && s.srcCode == '\r';
    a.is_lf = p.plan.normalises && s.srcCode == '\n';
    note_session(a, s);
    return verdict::plain;
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

// Allows a character in runs of ASCII if it is written unchanged, in the target's units.
void note_ascii(pair& p, u32 c, const answer& a) {
    const ascii_unit target = p.plan.target_unit;
    const u64 place = target.big_endian ? target.bytes - 1 : 0;
    const u32 set = p.plan.target_states.codes != nullptr ? ascii_set : 0;
    if (a.codes == 1 && !a.is_cr && !a.is_lf && a.length == target.bytes &&
        a.bytes == u64{c} << 8 * place && a.set == set) {
        p.plain_ascii.add(static_cast<u8>(c));
    }
}

void note_page(pair& p, u32 page) {
    for (std::atomic<u16>& noted : p.pages) {
        const u32 number = noted.load(std::memory_order_relaxed);
        if (number == 0) {
            noted.store(static_cast<u16>(page), std::memory_order_relaxed);
        }
        if (number == 0 || number == page) {
            break;
        }
    }
}

void note_lead(pair& p, u8 lead, std::size_t length) {
    if (length == 2) {
        p.leads.add(lead);
    }
    p.lead_length[lead].store(static_cast<u8>(length), std::memory_order_relaxed);
}

// Returns whether there was room for it.
bool store(pair& p, u32 key, const answer& a) {
    const u32 number = keep(p, a);
    if (number == 0) {
        return false;
    }
    p.answer_at[key].store(static_cast<u16>(number), std::memory_order_release);
    const bool fits = a.length <= entry::most_bytes && a.codes == 1 && !a.is_cr && !a.is_lf;
    const u32 packed = u32{a.set} << 28 | u32{a.length} << 24 | static_cast<u32>(a.bytes);
    p.entries[key].store(fits ? packed : number, std::memory_order_relaxed);
    if (p.plan.reader == reader::utf8 && p.plan.single_bytes && fits && a.length == 1 &&
        key >= 0x80) {
        note_page(p, key / 64);
    }
    return true;
}

// Stores the rules' answer about a character; returns whether the fast path can convert it.
bool note(pair& p, const u8* in, u32 length, u32 key, verdict v, const answer& a) {
    if (p.plan.reader == reader::lead_bytes) {
        note_lead(p, *in, key != no_key ? length : 1);
    }
    if (v != verdict::plain || key == no_key) {
        // Without a key: characters with this first byte are left to the rules.
        p.entries[key != no_key ? key : *in].store(entry::by_rules, std::memory_order_relaxed);
        return false;
    }
    if (!store(p, key, a)) {
        return false;
    }
    const u32 ascii =
        p.plan.reader == reader::states ? single_key(p.plan.eight_bits, ascii_set) : 0;
    if (key - ascii < 0x80) {
        note_ascii(p, key - ascii, a);
    }
    return true;
}

// Asks about a character whose first byte is new: its length is the first one that is not cut.
bool learn_lead(pair& p, const u8* in, std::size_t left) {
    const bool shifts = *in == p.plan.single_shift && *in != no_single_shift;
    const u32 most = shifts ? 3 : 2;
    for (u32 length = 1; length <= std::min<std::size_t>(most, left); ++length) {
        answer a;
        const verdict v = ask(p, {in, length}, 0, a);
        if (!is_current(p)) {
            return false; // it depends on other tables than the others
        }
        if (v == verdict::cut && length < most) {
            continue;
        }
        const bool placed = length != 2 || *in >= 0x80;
        const u32 key = placed ? lead_byte_key(in, length) : no_key;
        return (length < 3 || key != 0) && note(p, in, length, key, v, a);
    }
    return false;
}

} // namespace

bool learn(pair& p, const run& r) {
    const lock_guard guard(p.lock);
    const auto left = static_cast<std::size_t>(r.in_end - r.next);
    if (r.next_key == no_key) {
        return p.lead_length[*r.next].load(std::memory_order_relaxed) == 0
                   ? learn_lead(p, r.next, left)
                   : false;
    }
    if (p.entry_of(r.next_key).asked()) {
        return p.entry_of(r.next_key).packed != entry::by_rules; // by another thread
    }
    answer a;
    const verdict v = ask(p, {r.next, r.next_length}, r.next_state, a);
    return is_current(p) && note(p, r.next, r.next_length, r.next_key, v, a);
}

const answer* find_answer(pair& p, u32 k, std::span<const u8> bytes) {
    if (const answer* seen = p.answer_of(k)) {
        return seen;
    }
    const lock_guard guard(p.lock);
    answer a;
    if (p.answer_of(k) == nullptr && !bytes.empty() && ask(p, bytes, 0, a) == verdict::plain &&
        is_current(p)) {
        store(p, k, a);
    }
    return p.answer_of(k);
}

} // namespace fast
