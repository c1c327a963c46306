// One character through the rules: the options that act between decoding and encoding.
#include "cconv/engine/step.h"

#include "cconv/engine/engine.h"

#include <algorithm>
#include <iterator>

namespace {

template <std::size_t Count>
bool is_one_of(const u16 (&codes)[Count], u32 code) {
    return std::ranges::find(codes, code) != std::end(codes);
}

// Folds every kind of line break to CR, which the output stage writes as asked. False: the LF of a
// CR LF, to be dropped.
bool normalise_newline(session* s) {
    if (s->srcCode == '\n' && s->prevSrcCode == '\r') {
        return false;
    }
    if (is_one_of(control_breaks, s->srcCode) || is_one_of(line_separators, s->ucsCode)) {
        s->ucsCode = '\r';
        s->setCode = '\r';
    }
    return true;
}

} // namespace

// A rule after which one goes on although it took no
// input (a set of zero bytes, an encode rule that a definition names here) would do so for ever:
// that is invalid input.
void decode_step(session* s) {
    const bool first_attempt = s->status != PVZAN_INPUT_INCOMPLETE;
    if (first_attempt) {
        s->prevSrcCode = s->srcCode;
    }
    s->srcCode = 0;
    s->setCode = 0;
    s->ucsCode = 0;
    s->outCode = 0;
    s->outBytes = 0;
    s->outDone = 0;
    s->outCode2 = 0;

    const i32 before = s->inPos;
    s->srcRule->function(s);
    const bool goes_on = s->status == PVZAN_DECODED || s->status == PVZAN_WRITTEN ||
                         s->status == PVZAN_OUTPUT_FULL || s->status == PVZAN_UNREPRESENTABLE;
    if (goes_on && s->inPos == before) {
        s->status = PVZAN_INVALID_INPUT;
    }
    if (s->status == PVZAN_INVALID_INPUT && s->source.skipInvalid != 0) {
        if (s->inPos == before) {
            ++s->inPos;
        }
        s->status = PVZAN_WRITTEN;
    }
    // Input that held no character, an escape sequence say, leaves the one before as the previous
    // one.
    if (s->status == PVZAN_DONE) {
        s->srcCode = s->prevSrcCode;
    }
}

void encode_step(session* s) {
    if (s->target.convertNewline != 0 && !normalise_newline(s)) {
        s->status = PVZAN_WRITTEN;
        return;
    }
    s->dstRule->function(s);
    if (s->status == PVZAN_UNREPRESENTABLE && s->target.useSubstitute != 0) {
        write_substitute(s, s->setCode <= 0xFF ? s->subst1 : s->subst2);
    }
}

void write_substitute(session* s, const substitute& subst) {
    s->outSetNo = subst.setNo;
    s->outSetType = subst.setType;
    s->outCode = subst.code;
    s->outBytes = subst.bytes;
    s->outDone = 0;
    s->status = PVZAN_OUTPUT_FULL; // "write what is prepared"
    s->dstRule->function(s);
    if (s->status == PVZAN_UNREPRESENTABLE) {
        s->status = PVZAN_WRITTEN; // no writing that either: the character is dropped
    }
}
