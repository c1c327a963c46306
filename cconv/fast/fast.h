// The fast path: converts by looking up what the rules answered about single characters.
//
// The rules alone define what a conversion does. For a pair of charsets this room stores the rules'
// answers, character by character, asks about characters that it meets for the first time, and
// converts text with the answers. Everything else is left to the rules: invalid and unrepresentable
// characters, marks, cut characters. After every call each field of the session is what the rules
// alone would have left. pair.h explains why.
#pragma once

#include "cconv/fast/pair.h"

namespace fast {

// The fast path of one call. A strict one does not set the session's characters, only its sets,
// counts and positions.
class path {
public:
    // first_by_rules: leave the first character to the rules.
    explicit path(bool first_by_rules, strictness strict = strictness::none)
        : strict_(strict), wait_(first_by_rules ? 1 : 0) {}
    ~path();
    path(const path&) = delete;
    path& operator=(const path&) = delete;

    // Converts characters as far as there are answers. Call it between two characters.
    void run(session* s) {
        if (wait_ == 0) {
            try_run(s);
        } else {
            --wait_;
        }
    }

    // Copies ASCII from the session's input to its output, as far as that is right without states
    // and without converting line breaks, and counts these; returns the number of characters. The
    // session stays as it is.
    std::size_t copy_ascii(const session* s, ascii_breaks& counted);

private:
    void try_run(session* s);
    bool take_pair(const session* s);
    void be_patient(u32 characters);

    strictness strict_;
    pair* held_ = nullptr;
    u32 wait_;        // characters to leave to the rules before the next try
    u32 penalty_ = 0; // how many they are after a try that converted nothing
};

// Frees all pairs that no session uses now.
void release();

// To be called around a fork: no pair is created or freed meanwhile. In the child, a pair is given
// up if another thread held its lock, since the child does not have this thread.
void before_fork();
void after_fork(bool in_child);

// For tests and benchmarks only.
struct watch {
    bool off;       // leave everything to the rules
    u64 characters; // converted by the fast path while counting, since this was set to 0
    bool counting;
};
extern watch by_hand;

} // namespace fast
