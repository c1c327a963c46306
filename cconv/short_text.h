// Short texts of known characters at once.
//
// A call on a line or a word is over before the fast path of bulk.h pays, and that one ends a
// little before its input does. For a pair of charsets this keeps, by the bytes of a source
// character, what the rules wrote for it and what they left in the session, wherever that depended
// on nothing else. A text whose characters are all known is converted from there, to the last field
// of the session; any other text is the rules' alone.
#pragma once

#include "cconv/memory_list.h"

struct short_memory;

class short_guide {
public:
    // Converts all input but a cut character at its end, or nothing: once, as soon as little input
    // is left. To be called between two characters.
    void run(session* s) {
        if (!tried_ && s->inLen - i64{s->inPos} <= most_input) {
            tried_ = true;
            try_rest(s);
        }
    }

    // Around the rules' own work on a character.
    void begin(const session* s) { note_.take(s, memory_ != nullptr); }
    void learn(const session* s) {
        if (note_.taken) {
            remember(s);
        }
    }

private:
    static constexpr i64 most_input = 128;

    void try_rest(session* s);
    void remember(const session* s);

    bool tried_ = false;
    short_memory* memory_ = nullptr; // of the session's pair, from then on
    character_note note_;
};

// Releases every memory; no session may be running.
void short_text_release();
