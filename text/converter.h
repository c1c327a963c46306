// What a converter is made of, and the steps that a feed consists of.
//
// Whole stretches go through the library's fast path, in a strict pair: every character of it is
// known to come through unharmed. What stops it is looked at here, one character at a time: a
// fault, a letter and its mark, a designation, a character beyond what the fast path keeps.
#pragma once

#include "cconv/fast/fast.h"
#include "cconv/rulefunc/strict.h"
#include "cconv/rulefunc/traits.h"

#include "pvzan_text.h"

namespace text {

// Bytes of one character, its marks included, and of what is written in its place.
inline constexpr std::size_t most_held = 24, most_pending = 128;

// A place in the source; CR, LF and CR LF end a line.
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

// Lines and columns are counted when somebody is told a place. This is what they lag behind by, in
// the input of one call.
struct lag {
    const u8* lines = nullptr; // counted up to here
    // What was run over last with a line break in it: the column lacks the characters from the line
    // on. What was designated at its begin.
    const u8 *from = nullptr, *line = nullptr, *to = nullptr;
    u32 set = 0;
};

enum class stage : u8 { fresh, inside, closing, ended };

// Everything that changes from the begin of a text to its end, but for what the session holds.
struct standing {
    place at;
    u64 out = 0, characters = 0, faults = 0, look_alikes = 0, composed = 0, private_use = 0;
    u32 held_size = 0, pending_at = 0, pending_size = 0;
    u8 held[most_held]{};       // of a character that is not whole yet
    u8 pending[most_pending]{}; // written, but not yet taken
    stage now = stage::fresh;
    bool big_source = true, mark_due = false, plane2 = false, told_open = false;
    bool behind_break = false; // an LF belongs to the break that was written
};

// A fault as it is kept; the words come when they are asked for.
struct fault {
    u32 kind = 0; // 0: none
    u32 length = 0;
    place at;
    character missing{0, 0}, back{0, 0};
    u32 seen = 0;  // bytes that the fault is told by
    u32 ahead = 0; // those, and what follows of the text
    u8 bytes[16]{};
    u32 needed = 0;     // how many of them decided about it
    u32 set = 0;        // designated before it
    bool waits = false; // for an answer
};

// What is known to become of a scalar.
struct known_scalar {
    u32 letter; // no_character's: nothing
    character back;
};

// What stands at the begin of a text.
struct reading_result {
    enum kind_type : u8 {
        whole,
        silent,  // a designation: no character
        waiting, // more input decides
        faulty
    } kind;
    u32 bytes;
    character c{0, 0};
    u32 marks = 0;   // the letter was composed with
    u32 letters = 0; // waiting: bytes of whole characters
    u32 fault_kind = 0, needed = 0;
};

struct view {
    const u8* bytes;
    std::size_t size;
    bool last;  // the text ends behind it
    bool flush; // letters do not wait for marks

    [[nodiscard]] view behind(std::size_t n) const { return {bytes + n, size - n, last, flush}; }
};

enum class written : u8 { done, missing, other };

} // namespace text

struct pvzan_converter {
    session work; // from source to target; its sets are part of where the conversion stands
    pvzan_open_options how;
    pvzan_name from, to;
    const codec_traits *source, *target;
    u32 needed;      // bytes that decide about a code, where sets do in no order of their widths
    u32 longest;     // bytes of the source's codes, where sets tell
    u8 lf, cr;       // the source's codes for line breaks, of one unit
    bool ascii_feed; // both sides have ASCII's line feed
    bool looks_for_marks; // the source is Unicode, the target takes less
    u8 has_pairs;         // whether the target has a letter and a mark in one code; 0: not asked
    u32 substitute;       // 0: not chosen yet
    text::standing now;
    text::fault fault;
    u8 bytes_known[256]; // what is known of bytes: see fault.cpp
    text::known_scalar known[64];
};

namespace text {

inline bool is_unicode(const pvzan_name& name) {
    return name.kind != PVZAN_KIND_OTHER;
}

// Whether what a code of the source means rests on sequences before it.
inline bool has_states(const pvzan_converter& c) {
    return c.source != nullptr &&
           (c.source->read == reading::escapes || c.source->read == reading::scanned);
}

// ---- read.cpp
// How many bytes a code with that lead is, whether it has a character or not; 1: it is none.
u32 length_by_lead(const pvzan_converter& c, u32 lead);
reading_result read(pvzan_converter& c, const view& text);
// Goes on in the state that a silent one leads to.
inline void set_state(pvzan_converter& c, const reading_result& silent) {
    c.work.srcShiftSet = silent.c.letter;
    c.now.plane2 = silent.c.mark != 0;
}
// The mark at the begin of a text: its length, or none; waiting where more decides.
enum class mark_found : u8 { none, waiting, big, little };
mark_found find_mark(const pvzan_converter& c, const view& text, u32& length);
// How much of a text that goes on stands for itself, whatever follows.
std::size_t settled_size(pvzan_converter& c, const view& text);

// ---- write.cpp
// Writes the character behind what is pending, if that comes back as itself; back is what it comes
// back as where that is another.
written write(pvzan_converter& c, const character& what, character& back);
// The same, with what the options allow: breaks, look-alikes.
written write_as_asked(pvzan_converter& c, const character& what, character& back);
bool can_write(pvzan_converter& c, const character& what);
// Designates ASCII at the end of a text.
void write_closing(pvzan_converter& c);
// A text in UTF-8, or bytes as they are, in place of a fault, as far as there is room.
pvzan_outcome write_text(pvzan_converter& c, bool raw, const u8*& text, std::size_t& left, u8*& out,
                         std::size_t& room);
// What stands for the fault; false where how is none of that.
bool write_answer(pvzan_converter& c, const fault& f, u32 how);
u32 look_alike_of(u32 letter);
u32 substitute_of(pvzan_converter& c);

// ---- place.cpp
inline bool tells_lines(const pvzan_converter& c) {
    return (c.how.flags & PVZAN_OFFSETS_ALONE) == 0;
}
// The offset behind the last line break of whole characters; 0 when there is none.
std::size_t behind_last_break(const pvzan_converter& c, const u8* bytes, std::size_t size);
// Goes on behind characters that were run over, which began in that set.
void pass(pvzan_converter& c, lag& behind, std::span<const u8> text, u32 characters, u32 set);
// Makes up for the lag, up to here.
void catch_up(pvzan_converter& c, lag& behind, fast::path& path, const u8* here);

// ---- open.cpp
// Makes a converter of what options it has; false, and an error unless that is null.
bool prepare(pvzan_converter& c, const char* from, const char* to, pvzan_error* error);
void begin_text(pvzan_converter& c);

} // namespace text
