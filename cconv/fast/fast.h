// The fast path: conversion by what the rules answered about single characters.
//
// The rules alone say what a conversion means. For a pair of charsets this room keeps the rules'
// answers, character by character, asks about characters that it meets for the first time, and runs
// over a text by the answers. Whatever they do not cover is left to the rules: invalid and
// unrepresentable characters, marks, cut characters. After every call each field of the session is
// what the rules alone would have left. pair.h says why.
#pragma once

#include "cconv/fast/pair.h"

namespace fast {

// The fast path of one call. A strict one leaves the session's characters, but not its sets,
// counts and positions, to be what they are.
class path {
public:
    // Whether to begin with a character of the rules'.
    explicit path(bool first_by_rules, strictness strict = strictness::none)
        : strict_(strict), wait_(first_by_rules ? 1 : 0) {}
    ~path();
    path(const path&) = delete;
    path& operator=(const path&) = delete;

    // Runs over characters as far as answers reach. To be called between two characters.
    void run(session* s) {
        if (wait_ == 0) {
            try_run(s);
        } else {
            --wait_;
        }
    }

private:
    void try_run(session* s);
    bool take_pair(const session* s);
    void be_patient(u32 characters);

    strictness strict_;
    held_pair held_{};
    u32 wait_;        // characters to leave to the rules before the next try
    u32 penalty_ = 0; // how many those are after a try that led nowhere
};

// Frees every pair; no session may be running.
void release();

// Around a fork: nobody makes or frees a pair meanwhile. In the child, a pair whose lock another
// thread held, which the child has not, is given up.
void before_fork();
void after_fork(bool in_child);

// For tests and benchmarks; not for programs.
struct watch {
    bool off;       // leave everything to the rules
    u64 characters; // run over since this was set to 0; counted while counting
    bool counting;
};
extern watch by_hand;

} // namespace fast
