// Converts one character with the rules, and applies the options that concern what is between
// decoding and encoding.
#include "cconv/engine/step.h"

#include "cconv/engine/engine.h"

#include <algorithm>
#include <iterator>

namespace {

template <std::size_t Count>
bool is_one_of(const u16 (&codes)[Count], u32 code) {
    return std::ranges::find(codes, code) != std::end(codes);
}

// Turns every kind of line break into CR, which the output functions write as chosen. False for the
// LF of a CR LF, which is dropped.
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

void write_substitute(session* s, const substitute& subst) {
    s->outSetNo = subst.setNo;
    s->outSetType = subst.setType;
    s->outCode = subst.code;
    s->outBytes = subst.bytes;
    s->outDone = 0;
    s->status = PVZAN_OUTPUT_FULL; // means: write what has been chosen
    s->dstRule->function(s);
    if (s->status == PVZAN_UNREPRESENTABLE) {
        s->status = PVZAN_WRITTEN; // it cannot be written either, so the character is dropped
    }
}

} // namespace

// A rule that consumes no input but lets the conversion continue (a set of zero bytes, or an encode
// rule named as decoder) would loop forever, so this is invalid input.
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
    // Input without a character, such as an escape sequence, does not change the previous
    // character.
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
