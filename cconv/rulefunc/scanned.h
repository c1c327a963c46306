// What codecs share whose own scan says what a text begins with, and those of whole Unicode among
// them.
#pragma once

#include "cconv/rulefunc/rules.h"
#include "cconv/rulefunc/traits.h"
#include "platform/unicode.h"

// The decode rule: what the scan finds changes the state, is delivered, or stops the call.
// deliver(found, start) is its return value.
template <typename Scan, typename Deliver>
u32 decode_scanned(session* s, Scan scan, Deliver deliver) {
    for (auto input = input_left(s); !input.empty(); input = input_left(s)) {
        const auto found = scan(s->srcGroup, s->srcShiftSet, input);
        if (found.kind == scanned::cut) {
            return stop_with(s, PVZAN_INPUT_INCOMPLETE);
        }
        const i32 start = s->inPos;
        s->inPos += found.length;
        s->srcShiftSet = found.state;
        if (found.kind == scanned::invalid) {
            return stop_with(s, PVZAN_INVALID_INPUT);
        }
        if (found.kind == scanned::code) {
            return deliver(found, start);
        }
    }
    return stop_with(s, PVZAN_DONE);
}

struct scalar_reading : scanned {
    u32 scalar;
};

template <typename Scan>
u32 decode_scalar(session* s, Scan scan) {
    return decode_scanned(s, scan, [s](const scalar_reading& found, i32 start) {
        s->srcCode = found.scalar;
        return srcUCS4(s, start);
    });
}

// Writes the bytes of one character.
inline u32 put_whole(session* s, std::span<const u8> bytes) {
    if (!emit_bytes(s, bytes)) {
        return 0;
    }
    ++s->outCount;
    s->status = PVZAN_WRITTEN;
    return 1;
}

// The encode rule; the state stays what it was where the character does not get through.
inline u32 encode_scanned(session* s, put_function put) {
    const u32 before = s->dstShiftSet;
    if (convDstConvert(s) != 0 && convDstPutcode(s, nullptr, put) != 0) {
        return 1;
    }
    s->dstShiftSet = before;
    return 0;
}
