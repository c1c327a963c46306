// The end of a run: the session as D and E leave it after the last character.
#include "cconv/fast/readers.h"

namespace fast {

namespace {

// The last character of a run, or the one before it.
struct character {
    u32 key = no_key;
    const u8 *begin = nullptr, *end = nullptr; // null where the key says enough
};

// Where a reader of scalars began the character that ends at end.
const u8* begin_of(const pair& p, const u8* end) {
    return p.plan.reader == reader::utf8 ? utf8_reader::before(end)
                                         : end - p.plan.source_unit.bytes;
}

u32 key_of(const pair& p, const u8* begin, const u8* end) {
    const std::span<const u8> bytes(begin, end);
    switch (p.plan.reader) {
    case reader::utf8: return utf8_key(begin, static_cast<u32>(bytes.size()));
    case reader::unit_big:
    case reader::quad_big: return load_big_endian(bytes) % key_count;
    default: return load_little_endian(bytes) % key_count;
    }
}

// The character before end, of a run that began at begin.
void read_before(const pair& p, const u8* begin, const u8* end, character& c) {
    if (end > begin) {
        c.begin = begin_of(p, end);
        c.end = end;
        c.key = key_of(p, c.begin, end);
    }
}

const answer* find(pair& p, const character& c, answer& room) {
    const answer* seen = p.answer_of(c.key);
    return seen != nullptr ? seen : find_answer(p, c.key, {c.begin, c.end}, room);
}

// The fields of a character; those of a dropped line feed are of its reading alone.
void write_character(session* s, const answer& a, bool dropped) {
    s->charSetNo = a.charSetNo;
    s->charSetType = a.charSetType;
    s->srcCode = a.srcCode;
    s->setCode = dropped ? a.read_setCode : a.setCode;
    s->ucsCode = dropped ? a.read_ucsCode : a.ucsCode;
    s->outCode = dropped ? 0 : a.outCode;
    s->outBytes = dropped ? u16{0} : a.outBytes;
    s->outDone = dropped ? u16{0} : a.outDone;
    s->outCode2 = dropped ? 0 : a.outCode2;
}

} // namespace

bool finish(pair& p, run& r, session* s) {
    const u8* const begin = s->inBuf + s->inPos;
    character last{r.last}, before{r.before_last};
    const bool scalars = p.plan.reader != reader::lead_bytes && p.plan.reader != reader::iso2022;
    answer last_room, before_room;
    const answer* a = nullptr;
    for (bool stepped_back = false;; stepped_back = true) {
        if (r.characters == 0) {
            return true;
        }
        if (scalars) {
            read_before(p, begin, r.in, last);
            read_before(p, begin, last.begin, before);
        }
        a = find(p, last, last_room);
        if (a == nullptr) {
            return false;
        }
        // What follows may be a mark, and then belong to the letter: the rules see to both.
        if (!a->takes_mark || stepped_back || r.in == r.in_end) {
            break;
        }
        r.in = last.begin;
        r.out -= a->length;
        r.codes -= a->codes;
        --r.characters;
    }
    const answer* previous = nullptr;
    if (r.characters > 1) {
        previous = find(p, before, before_room);
        if (previous == nullptr) {
            return false;
        }
    }
    const bool dropped = a->is_lf && previous != nullptr && previous->is_cr;
    s->prevSrcCode = previous != nullptr ? previous->srcCode : s->srcCode;
    write_character(s, *a, dropped);
    s->outSetNo = dropped ? previous->outSetNo : a->outSetNo;
    s->outSetType = dropped ? previous->outSetType : a->outSetType;
    s->inPos += static_cast<i32>(r.in - begin);
    s->outPos = static_cast<i32>(r.out - s->outBuf);
    s->inCount += r.characters;
    s->outCount += r.codes;
    s->srcShiftSet = r.in_set;
    s->dstShiftSet = r.out_set;
    return true;
}

} // namespace fast
