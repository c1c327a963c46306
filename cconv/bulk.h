// The fast path: a memory of what the rules did with single characters.
//
// The rules alone say what a conversion means. For a pair of charsets this keeps, by the bytes of a
// source character, the bytes that the rules wrote for it, wherever that depended on nothing else.
// The driver runs over such characters here, and leaves everything else to the rules: what is not
// known yet, invalid or unrepresentable characters, combining marks, escape sequences, the ends of
// the buffers. The last two characters before any of that are left to them too, so that after every
// call each field of the session is what the rules alone leave.
#pragma once

#include "cconv/memory_list.h"

struct bulk_memory;

class bulk_guide {
public:
    // For short input nothing here does anything.
    explicit bulk_guide(const session* s);

    // Runs over known characters when it is worth trying. To be called between two characters.
    void run(session* s) {
        if (enabled_ && !waits()) {
            try_stretch(s);
        }
    }
    // To be called at the end of the conversion's call.
    void leave(const session* s) const;

    // Around the rules' own work on a character: notes where it began, and remembers what became of
    // it.
    void begin(const session* s) { note_.take(s, memory_ != nullptr && may_learn()); }
    void learn(const session* s) {
        if (note_.taken) {
            fruitless_ = remember(s) ? 0 : fruitless_ + 1;
        }
    }

private:
    bool waits() {
        if (wait_ == 0) {
            return false;
        }
        --wait_;
        return true;
    }
    // Where nothing is left to learn, or nothing can be, looking for it only costs.
    bool may_learn() {
        constexpr u32 many = 16, seldom = 8;
        return fruitless_ < many || ++fruitless_ % seldom == 0;
    }
    void find(const session* s);
    void try_stretch(session* s);
    bool remember(const session* s); // whether it was new

    bool enabled_;
    bulk_memory* memory_ = nullptr; // of the session's pair, from the first try on
    character_note note_;
    u32 wait_ = 0;      // characters to leave to the rules before the next try
    u32 fruitless_ = 0; // characters looked at since one was learnt
    u32 penalty_ = 0;   // how many those are after a try that led nowhere
};

// Whether the length of the session's source characters follows from their first byte, and their
// meaning from their bytes.
bool bulk_reads_by_lead_byte(const session* s);

// Releases every memory; no session may be running.
void bulk_release();
