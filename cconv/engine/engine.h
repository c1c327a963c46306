// What the codec rules share: table-driven decoding and encoding, output functions, combining
// sequences of JIS X 0213, and character references. The engine knows no codec.
#pragma once

#include "cconv/registry/registry.h"
#include "platform/unicode.h"

extern "C" {

using rule_function = u32 (*)(session*);

// A codec function, and its name in definitions.
struct pvzan_rule_row {
    char name[text_bytes];
    rule_function function;
};

// Converts a raw code to the code to look up (0: not in this set), or a code to the code to write.
using code_filter = u32 (*)(u32);
// Writes one code: 1 written, 0 not, with the status set.
using put_function = u32 (*)(session*, u32);

// ---- decode.cpp
// Reads one character with the tables of the source's sets: 1 with status 11, or 0 with status 0,
// 12 or 13.
PVZAN_API u32 convSrcConvert(session* s, code_filter codeFilter);
// 1 for control codes other than TAB, LF and CR.
PVZAN_API u32 IsControlCode(u32 code);

// ---- encode.cpp
// Chooses set and code of the target for the current character: 1 if ready to be written, 0 with
// status 23, or 0 at the end of the text.
PVZAN_API u32 convDstConvert(session* s);

// ---- emit.cpp
PVZAN_API u32 putCode(session* s, code_filter codeMap, put_function putFunc, u32 code, u16 width);
PVZAN_API u32 putNdsCode(session* s, code_filter codeMap, put_function putFunc, u32 code,
                         u16 width);
// Writes what convDstConvert chose, including line breaks and a pending mark. 1 written, 0 not.
PVZAN_API u32 convDstPutcode(session* s, code_filter codeMap, put_function putFunc);

// ---- combining.cpp
struct combining_row {
    u32 code, base, mark;
};
PVZAN_API extern const combining_row JISX0213CombiningTable[26]; // the last row is zero
PVZAN_API u32 IsJISX0213Combining(u32 code);
PVZAN_API u32 IsJISX0213CombiningUCS(u32 base, u32 mark);
PVZAN_API u32 ConvJISX0213CombiningToUCS(u32 code, u32* base, u32* mark);
PVZAN_API u32 ConvJISX0213CombiningFromUCS(u32 base, u32 mark, u32* code);

// ---- charref.cpp
// Writes "&#...;" as UCS-2 units: 1 written, 0 full (status 22).
PVZAN_API u32 ToCharRef(session* s, u32 value);
}

// Sets the Unicode value if the decoder left that to the encoder; see encode.cpp.
void derive_unicode(session* s);

// The marks that can follow a base letter in a character of JIS X 0213.
inline constexpr u16 combining_marks[] = {0x0300, 0x0301, 0x309A, 0x02E5, 0x02E9};
bool is_combining_mark(u32 mark);

// A code that stands for two Unicode values is one number in a table, with the mark in the upper
// half; no single value is that large. Tables contain only these marks: those of JIS X 0213, two of
// Big5-HKSCS, and those that Mac OS uses for variants of characters.
inline constexpr u16 marks_in_tables[] = {0x02E5, 0x02E9, 0x0300, 0x0301, 0x0304, 0x030C,
                                          0x20DD, 0x309A, 0xF87A, 0xF87E, 0xF87F};
bool is_mark_in_tables(u32 mark);
struct letter_and_mark {
    u32 letter, mark; // 0: none
};
// The number for both in a table; 0 if tables have no such pair.
u32 in_one(u32 letter, u32 mark);
letter_and_mark taken_apart(u32 value);

// Whether a mark may follow the letter in one character of JIS X 0213, or of the charset.
bool may_take_mark(u32 letter, const charset_group* target);
// The set's code for both, or 0.
u32 code_of_pair(const basic_set* set, u32 letter, u32 mark);

// The unread input; empty if the positions are invalid. The session belongs to the caller, so its
// positions are checked before use.
inline std::span<const u8> input_left(const session* s) {
    if (s->inBuf == nullptr || s->inPos < 0 || s->inPos >= s->inLen) {
        return {};
    }
    return {s->inBuf + s->inPos, static_cast<std::size_t>(s->inLen - s->inPos)};
}

// The number of free bytes in the output; 0 if the positions are invalid.
inline i64 output_room(const session* s) {
    if (s->outBuf == nullptr || s->outPos < 0 || s->outPos >= s->outLen) {
        return 0;
    }
    return i64{s->outLen} - s->outPos;
}

// Rules write to the output buffer only with this function and putCode. It writes all of bytes,
// leaving at least spare bytes free after them, or nothing, with status 22. It changes only outPos.
bool emit_bytes(session* s, std::span<const u8> bytes, i64 spare = 0);

// The number of bytes in which the chosen code is written. Codes of JIS X 0213 have four bytes in
// tables because of their plane, but are written as two.
inline u16 output_width(const session* s) {
    return s->outSetNo == PVZAN_SET_JIS_X_0213 ? u16{2} : s->outBytes;
}

// Sets the status, and returns the result of a rule or writer that stops.
inline u32 stop_with(session* s, u32 status) {
    s->status = status;
    return 0;
}

// Sets the Unicode value that a table has for a code, and the mark that it may include.
inline void set_unicode(session* s, u32 ucs) {
    s->ucsCode = ucs;
    if (ucs > last_scalar) {
        const letter_and_mark both = taken_apart(ucs);
        s->ucsCode = both.letter;
        s->outCode2 = both.mark;
    }
}

// Fills in a decoded character of set. ucs may be 0, for the encoder to derive. The rule itself
// moves the input position.
inline u32 deliver_character(session* s, const basic_set* set, u32 srcCode, u32 setCode, u32 ucs) {
    s->charSetNo = set->setNo;
    s->charSetType = set->setType;
    s->srcCode = srcCode;
    s->setCode = setCode;
    set_unicode(s, ucs);
    ++s->inCount;
    s->status = PVZAN_DECODED;
    return 1;
}
