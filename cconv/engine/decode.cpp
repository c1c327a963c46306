// Table-driven decoding: reads one character with the tables of the source charset's sets.
#include "cconv/engine/engine.h"
#include "cconv/tables/table.h"

#include <array>

namespace {

// A code of one length, shared by all sets with codes of that length.
struct code_memo {
    u32 raw = 0;
    u32 code = 0; // after the filter
    bool read = false;
};

using code_memos = std::array<code_memo, max_code_bytes + 1>;

// Reads and filters the code unless this was done before. A code that the filter rejects does not
// count as read, so that the next set of that length tries again.
bool read_code(const session* s, std::span<const u8> bytes, code_filter filter, code_memo& memo) {
    if (memo.read) {
        return true;
    }
    memo.raw = load_code(bytes, s->source.srcBigEndian != 0);
    memo.code = memo.raw;
    if (filter != nullptr && memo.raw != 0) {
        memo.code = filter(memo.raw);
        if (memo.code == 0) {
            return false;
        }
    }
    memo.read = true;
    return true;
}

// Whether the set has the code; ucs receives its Unicode value, or 0 for a control code without a
// mapping.
bool set_takes(const basic_set* set, u32 code, u32& ucs) {
    if (set->setType == PVZAN_SET_USER_DEFINED) {
        ucs = code + user_defined_first - set->eudcStart;
        return code >= set->eudcStart && code - set->eudcStart < set->eudcNumber;
    }
    ucs = map_code(set->decodeTable, code);
    return ucs != 0 || IsControlCode(code) != 0;
}

// The number of bytes to skip after invalid input: the longest code that was read.
i32 invalid_length(const code_memos& memos) {
    for (std::size_t length = memos.size(); length-- > 0;) {
        if (memos[length].read) {
            return static_cast<i32>(length);
        }
    }
    return 1;
}

} // namespace

extern "C" {

u32 IsControlCode(u32 code) {
    const bool line_control = code == '\t' || code == '\n' || code == '\r';
    return (code <= 0x1F && !line_control) || code == 0x7F;
}

u32 convSrcConvert(session* s, code_filter codeFilter) {
    const std::span<const u8> input = input_left(s);
    if (input.empty()) {
        return stop_with(s, PVZAN_DONE);
    }
    code_memos memos;
    bool input_short = false;
    for (const basic_set* set : member_sets(s->srcGroup)) {
        const u16 length = set->byteNum;
        if (length > max_code_bytes) {
            continue;
        }
        if (length > input.size()) {
            input_short = true;
            continue;
        }
        code_memo& memo = memos[length];
        u32 ucs = 0;
        if (read_code(s, input.first(length), codeFilter, memo) && set_takes(set, memo.code, ucs)) {
            s->inPos += length;
            return deliver_character(s, set, memo.raw, memo.code, ucs);
        }
    }
    // A set that could not be tried yet may have the character, so more input is needed first.
    if (input_short) {
        return stop_with(s, PVZAN_INPUT_INCOMPLETE);
    }
    if (s->source.skipInvalid != 0) {
        s->inPos += invalid_length(memos);
    }
    return stop_with(s, PVZAN_INVALID_INPUT);
}

} // extern "C"
