// The end of a run: sets the session as D and E leave it after the last character.
#include "cconv/fast/readers.h"

namespace fast {

namespace {

// The last character of a run, or the one before it. Readers of Unicode find its bytes; otherwise
// the loop noted its key.
struct character {
    std::span<const u8> bytes;
    u32 key;
};

// The character before end, found by a reader of Unicode.
character character_before(const pair& p, const u8* end) {
    if (p.plan.reader == reader::utf8) {
        const u8* const begin = utf8_reader::before(end);
        return {{begin, end}, utf8_key(begin, static_cast<u32>(end - begin))};
    }
    const ascii_unit unit = p.plan.source_unit;
    const u8* const begin = end - unit.bytes;
    return {{begin, end}, load_code({begin, end}, unit.big_endian) % u32{key_count}};
}

const answer* find(pair& p, const character& c) {
    const answer* seen = p.answer_of(c.key);
    return seen != nullptr ? seen : find_answer(p, c.key, c.bytes);
}

// Sets the fields of a character. A dropped line feed, after previous, was not written.
void write_character(session* s, const answer& a, const answer* previous) {
    const bool dropped = a.is_lf && previous != nullptr && previous->is_cr;
    s->prevSrcCode = previous != nullptr ? previous->srcCode : s->srcCode;
    s->charSetNo = a.charSetNo;
    s->charSetType = a.charSetType;
    s->srcCode = a.srcCode;
    s->setCode = dropped ? a.read_setCode : a.setCode;
    s->ucsCode = dropped ? a.read_ucsCode : a.ucsCode;
    s->outSetNo = dropped ? previous->outSetNo : a.outSetNo;
    s->outSetType = dropped ? previous->outSetType : a.outSetType;
    s->outCode = dropped ? 0 : a.outCode;
    s->outBytes = dropped ? u16{0} : a.outBytes;
    s->outDone = dropped ? u16{0} : a.outDone;
    s->outCode2 = dropped ? 0 : a.outCode2;
}

} // namespace

void finish(pair& p, run& r, session* s) {
    if (r.characters == 0) {
        return;
    }
    const u8* const begin = s->inBuf + s->inPos;
    const bool scalars = p.plan.reader != reader::lead_bytes && p.plan.reader != reader::states;
    character last = scalars ? character_before(p, r.in) : character{{}, r.last};
    const answer* a = find(p, last);
    // A mark that belongs to the letter may follow: both are left to the rules.
    if (a != nullptr && a->takes_mark && r.in != r.in_end) {
        if (--r.characters == 0) {
            return;
        }
        r.in = last.bytes.data();
        r.out -= a->length;
        if (r.out == r.way.end) { // and the sequences before it
            r.out = r.way.begin;
            r.out_state = r.way.state;
        }
        r.more_codes -= a->codes - 1U;
        last = character_before(p, r.in);
        a = find(p, last);
    }
    const bool sets_characters = p.key.strict == strictness::none || p.plan.normalises;
    const bool has_previous = sets_characters && r.characters > 1;
    const answer* previous = nullptr;
    if (has_previous) {
        const character before =
            scalars ? character_before(p, last.bytes.data()) : character{{}, r.before_last};
        previous = find(p, before);
    }
    if (a == nullptr || (has_previous && previous == nullptr)) {
        r.characters = 0; // without memory for answers the rules do it again
        return;
    }
    if (sets_characters) {
        write_character(s, *a, previous);
    }
    s->inPos += static_cast<i32>(r.in - begin);
    s->outPos = static_cast<i32>(r.out - s->outBuf);
    s->inCount += r.characters;
    s->outCount += r.characters + r.more_codes;
    s->srcShiftSet = p.plan.source_states.word_of(r.in_state);
    s->dstShiftSet = p.plan.target_states.word_of(r.out_state);
}

} // namespace fast
