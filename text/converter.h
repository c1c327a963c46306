// The contents of a converter, and the steps of a feed.
//
// Most text is converted by the library's fast path, in a strict pair, which only handles
// characters that are known to come back unharmed. Everything else is handled here, one character
// at a time: faults, letters with marks, designations, and characters that the fast path does not
// store.
#pragma once

#include "cconv/fast/fast.h"
#include "cconv/rulefunc/strict.h"
#include "cconv/rulefunc/traits.h"

#include "pvzan_text.h"

namespace text {

// The most bytes of one character, including marks, and of what is written in its place.
inline constexpr std::size_t most_held = 24, most_pending = 128;

// A place in the source. CR, LF and CR LF end a line.
struct place {
    u64 offset = 0, line = 1, column = 1;
    bool behind_cr = false;

    void step(u32 letter) {
        if (letter == '\n' || letter == '\r') {
            line += letter == '\r' || !behind_cr ? 1 : 0;
            column = 1;
        } else {
            ++column;
        }
        behind_cr = letter == '\r';
    }
};

// What is missing in the column, which is only counted when a place is needed: the characters from
// line on, in the last stretch that had a line break. set was designated at its beginning.
struct lag {
    const u8 *from = nullptr, *line = nullptr, *to = nullptr;
    u32 set = 0;
};

enum class stage : u8 { fresh, inside, closing, ended };

// Everything that changes in the course of a text, except for what the session contains.
struct standing {
    place at;
    u64 out = 0, characters = 0, faults = 0, look_alikes = 0, composed = 0, private_use = 0;
    u32 held_size = 0, pending_at = 0, pending_size = 0;
    u8 held[most_held]{};       // of an unfinished character
    u8 pending[most_pending]{}; // written, but not yet taken
    stage now = stage::fresh;
    bool big_source = true, mark_due = false, told_open = false;
    bool behind_break = false; // an LF now is part of the line break that was written
};

// A fault as it is stored; the message is made when it is needed.
struct fault {
    u32 kind = 0; // 0: none
    u32 length = 0;
    place at;
    character missing{0, 0}, back{0, 0};
    u32 seen = 0;  // number of bytes that describe the fault
    u32 ahead = 0; // those, and the bytes of the text that follow
    u8 bytes[16]{};
    u32 needed = 0;     // how many of them were looked at
    bool waits = false; // for an answer
};

// What is known about codes of two bytes with the same second one.
enum class ending : u8 { unknown, of_codes, of_nothing };

// What is known about the conversion of a Unicode value.
struct known_scalar {
    u32 key; // the value plus one; 0: nothing is known
    character back;
    // What is written for it, unless that depends on what was written before; size 0: it may.
    u8 size;
    u8 bytes[11];
};

// What is at the beginning of a text.
struct reading_result {
    enum kind_type : u8 {
        whole,
        silent,  // a sequence, not a character
        waiting, // more input is needed
        faulty
    } kind;
    u32 bytes;
    character c{0, 0};
    u32 marks = 0;   // number of marks that were composed with the letter
    u32 letters = 0; // waiting: number of bytes of whole characters
    u32 fault_kind = 0, needed = 0;
};

struct view {
    const u8* bytes;
    std::size_t size;
    bool last;  // the text ends here
    bool flush; // letters do not wait for marks

    [[nodiscard]] view behind(std::size_t n) const { return {bytes + n, size - n, last, flush}; }
};

enum class written : u8 { done, missing, other };

} // namespace text

struct pvzan_converter {
    session work; // from source to target; its sets are part of the state
    pvzan_open_options how;
    pvzan_name from, to;
    const codec_traits *source, *target;
    u32 needed;      // bytes that decide about a code, where sets do in no order of their widths
    u32 longest;     // longest code of the source, if sets decide
    u8 lf, cr;       // the source's codes for line breaks, one unit each
    bool ascii_feed; // both sides have ASCII's line feed
    bool takes_all;  // the target has all of Unicode
    // The source is Unicode, the target contains less, and has codes of a letter and a mark; or the
    // two are to be composed.
    bool has_pairs, composes;
    u32 substitute; // 0: not chosen yet
    text::standing now;
    text::fault fault;
    text::ending endings[256];     // by their second byte
    text::known_scalar known[128]; // by their lowest bits, which keeps ASCII together
};

namespace text {

// All that a text continues from, with the sets that are designated.
struct state {
    standing now;
    u32 in_set, out_set;
};

inline state state_of(const pvzan_converter& c) {
    return {c.now, c.work.srcShiftSet, c.work.dstShiftSet};
}
inline void go_back(pvzan_converter& c, const state& to) {
    c.now = to.now;
    c.work.srcShiftSet = to.in_set;
    c.work.dstShiftSet = to.out_set;
    c.work.source.srcBigEndian = to.now.big_source ? 1 : 0;
}

inline bool is_unicode(const pvzan_name& name) {
    return name.kind != PVZAN_KIND_OTHER;
}

// Whether the meaning of a code of the source depends on sequences before it.
inline bool has_states(const pvzan_converter& c) {
    return c.source != nullptr && c.source->scan != nullptr;
}

// ---- read.cpp
// The length of a code with that lead byte, whether or not a character is assigned to it; 1: it is
// not a lead byte.
u32 length_by_lead(const pvzan_converter& c, u32 lead);
reading_result read(pvzan_converter& c, const view& text);
// Goes on in the state that a silent one leads to.
inline void set_state(pvzan_converter& c, const reading_result& silent) {
    c.work.srcShiftSet = silent.c.letter;
}
// Finds the byte-order mark at the beginning of a text: its length, or none; waiting if more input
// is needed.
enum class mark_found : u8 { none, waiting, big, little };
mark_found find_mark(const pvzan_converter& c, const view& text, u32& length);
// The length of the beginning of an unfinished text that does not depend on what follows.
std::size_t settled_size(pvzan_converter& c, const view& text);

// ---- write.cpp
// Writes the character after what is pending, if it comes back as itself; otherwise back is what it
// comes back as.
written write(pvzan_converter& c, const character& what, character& back);
// The same, applying the options for line breaks and look-alikes.
written write_as_asked(pvzan_converter& c, const character& what, character& back);
bool can_write(pvzan_converter& c, const character& what);
// Designates ASCII at the end of a text.
void write_closing(pvzan_converter& c);
// Writes a text in UTF-8, or unchanged bytes, in place of a fault, as far as there is room.
pvzan_outcome write_text(pvzan_converter& c, bool raw, const u8*& text, std::size_t& left, u8*& out,
                         std::size_t& room);
// Writes what replaces the fault; false if how does not say what.
bool write_answer(pvzan_converter& c, const fault& f, u32 how);
u32 look_alike_of(u32 letter);
// In full width, what a half-width katakana and the sound mark behind it are; 0: no such two.
u32 full_width_of(const character& both);
u32 substitute_of(pvzan_converter& c);

// ---- place.cpp
inline bool tells_lines(const pvzan_converter& c) {
    return (c.how.flags & PVZAN_OFFSETS_ALONE) == 0;
}
// The offset after the last line break between whole characters; 0 if there is none.
std::size_t behind_last_break(const pvzan_converter& c, const u8* bytes, std::size_t size);
// Advances over characters that were converted at full speed; set was designated at their
// beginning. counted: the line breaks of ASCII, if they are known.
void pass(pvzan_converter& c, lag& behind, std::span<const u8> text, u64 characters, u32 set,
          const fast::ascii_breaks* counted);
// Counts what is missing in the column.
void catch_up(pvzan_converter& c, lag& behind, fast::path& path);

// ---- open.cpp
// Prepares a converter with its options; false, with an error unless that is null, if it fails.
bool prepare(pvzan_converter& c, const char* from, const char* to, pvzan_error* error);
void begin_text(pvzan_converter& c);

} // namespace text
