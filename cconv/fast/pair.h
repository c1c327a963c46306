// What the fast path keeps for a pair of charsets, and why its output is the rules' own.
//
// Let k be the bytes of one source character, D and E the two rules, O the options. The fast path
// converts k by what D and E made of it before, alone in a session of the pair's own. That is the
// same because:
//
// P1  Length and meaning of k follow from k. D's traits say how: by the lead byte, by the scalar,
//     by the set designated. Where sets decide, their widths ascend, so that no longer code is
//     tried before a shorter one (plan.cpp).
// P2  What E writes follows from set and code, and where there are states from the way to the set,
//     which E's own writer tells: find_way. So an answer has the code alone (ask.cpp).
// P3  D and E, run on k alone in the neutral session, use up k, write whole codes, and fill in
// every
//     field that characters fill in (ask.cpp).
// P4  What is not so is the rules' own, and its entry says so: marks that may join a letter,
//     letters that a mark may follow where a run ends before the end of the input (finish.cpp), a
//     line feed behind a carriage return (fast.cpp; inside a run, loop.cpp), user-defined sets,
//     references, tags, byte-order marks (plan.cpp), characters that the target lacks (ask.cpp).
// P5  The key holds both charsets and all of O but the substitutes, which P4 leaves to the rules;
//     and a pair is used as long as no further table is loaded, and none written to,
//     that the rules may look into (pair.cpp).
// P6  After a run the session holds what D and E left for the last character, prevSrcCode what they
//     left for the one before it, and sums of counts and positions (finish.cpp). Nothing else
//     survives a character.
//
// From these, equality follows character by character.
//
// A strict pair is asked more: what each character stands for in Unicode, what the target's own
// decode rule makes of what was written for it. By induction, so does the text.
//
// Threads. Everything in a pair that changes is written under its lock, by ask.cpp alone. An entry
// is one word and never changes once it is not 0: read relaxed, it is there whole or not yet, and
// what is not yet there is asked for, under the lock. What takes more than a word, an answer, is
// complete before its number is stored with release; it is read through a load with acquire, and
// one that cannot be seen yet is looked for under the lock. So nothing rests on the order in which
// another processor sees two stores of this one.
//
// Pairs live in one table for the process. A call holds its pair by a word beside the pointer, in
// memory that is never freed. The first one takes the seat, by exchanging it, and gives it back by
// a plain store, for nobody else writes to it meanwhile but another one that finds it taken, and
// leaves it so; those are counted beside. A call first takes its seat, or counts itself, and then
// reads the pointer, while who frees a pair clears the pointer and then reads seat and count, all
// in one order for all processors; so one of the two sees the other. Bytes are claimed against one
// budget. When that is used up, pairs that are stale and those unused for longest are freed, as
// long as nobody holds them.
#pragma once

#include "cconv/engine/engine.h"
#include "cconv/fast/kernels/kernels.h"
#include "cconv/rulefunc/iso2022.h"
#include "cconv/rulefunc/traits.h"

#include <array>
#include <atomic>
#include <bit>
#include <pthread.h>

namespace fast {

// All pairs of the process together take no more bytes than this.
inline constexpr u64 budget_bytes = 64 << 20;

// How source characters are told apart.
enum class reader : u8 {
    lead_bytes, // one or two bytes, by the lead byte; three behind a single shift
    utf8,       // one to three bytes; the scalar is the key
    units,      // two bytes
    quads,      // four bytes
    states      // one or two bytes, by the set that is designated and shifted in
};

// What a run may hold besides what the rules would do, for who must not lose anything: characters
// that go by what they are in Unicode, and read back from the target as themselves; or even ones
// whose code is the one that the source itself writes for them.
enum class strictness : u8 { none, characters, codes };

// What becomes of a block of codes: characters go one by one; what their entries say; between
// Unicode charsets, the scalars in another form.
enum class block_form : u8 { none, entries, scalars };

// Everything that decides the bytes of a character, but for what there is of tables. The rules
// follow from the charsets.
struct pair_key {
    const charset_group *source, *target;
    u64 options;

    bool operator==(const pair_key&) const = default;
};

// Where designations and shifts give codes their meaning.
struct charset_states {
    const iso2022* codes; // null: nowhere
    const iso2022_codec* codec;
    const charset_group* group;

    [[nodiscard]] u32 state_of(u32 word) const {
        return codes != nullptr ? codec->state_of(group, word) : word;
    }
    [[nodiscard]] u32 word_of(u32 state) const {
        return codes != nullptr ? codec->word_of(state) : state;
    }
    [[nodiscard]] bool find_way(u32 state, u32 set, iso2022_way& way) const {
        return codec->find_way(group, state, set, way);
    }
};

// A set of charsets with states, and its place among the keys: see reader_states.h.
struct set_keys {
    u16 base, single_base;
    u8 first[2], last[2]; // what each byte may be
    bool has_keys, is_first, two_bytes;
};

// How a pair is converted.
struct plan {
    const codec_traits *source, *target;
    fast::reader reader;
    block_form blocks;
    bool normalises;                     // line breaks
    ascii_unit source_unit, target_unit; // of ASCII
    u16 stops[9]; // between Unicode charsets: scalars that do not stand for themselves
    u32 stop_count;
    charset_states source_states, target_states;
    std::array<set_keys, iso2022::most_sets + 1> sets; // of the source
    bool eight_bits;                                   // codes of two bytes are their own keys
    u8 opens_first, opens_more;                        // no sequence begins with others
};

// What the rules made of a character.
struct answer {
    u64 bytes; // written, the first one lowest, without the way to their set
    u8 length, codes;
    u8 set;            // that must be at hand for them; 0: any
    bool takes_mark;   // a mark behind it may belong to it
    bool is_cr, is_lf; // of the line breaks that are normalised
    // What they left in the session.
    u16 charSetType, outSetType, outBytes, outDone;
    u32 charSetNo, srcCode, setCode, ucsCode, outSetNo, outCode, outCode2;
    u32 read_setCode, read_ucsCode; // as decoded, before a line break was normalised

    static constexpr u32 most_bytes = 8;
};

// The bytes written for one character, up to three, and their number; or the number of an answer;
// or what says that the rules are to convert it. 0: nobody has asked yet.
struct entry {
    u32 packed = 0;

    static constexpr u32 most_bytes = 3, one_byte = 1U << 24; // the length, as it is packed
    static constexpr u32 by_rules = 0xFFFFFF;
    [[nodiscard]] bool asked() const { return packed != 0; }
    [[nodiscard]] bool is_short() const { return packed >= one_byte; }
    [[nodiscard]] bool is_long() const { return packed - 1 < by_rules - 1; }
    [[nodiscard]] u32 length() const { return packed >> 24 & 0x0F; }
    [[nodiscard]] u32 set() const { return packed >> 28; }
    // One that takes nothing before it.
    [[nodiscard]] bool is_short_in(u32 at_hand) const {
        return (packed ^ at_hand << 28) - one_byte < (1U << 28) - one_byte;
    }
};

inline void store_low_first(u64 bytes, u8* out) {
    if constexpr (std::endian::native == std::endian::big) {
        bytes = __builtin_bswap64(bytes);
    }
    std::memcpy(out, &bytes, sizeof bytes);
}

inline constexpr u32 ascii_set = 1; // the first one of charsets with states

inline constexpr std::size_t key_count = 0x10000, answers_at_once = 256;

class lock_guard {
public:
    explicit lock_guard(pthread_mutex_t& lock) : lock_(lock) { pthread_mutex_lock(&lock_); }
    ~lock_guard() { pthread_mutex_unlock(&lock_); }
    lock_guard(const lock_guard&) = delete;
    lock_guard& operator=(const lock_guard&) = delete;

private:
    pthread_mutex_t& lock_;
};

// Bytes are only ever added.
struct atomic_byte_set {
    std::atomic<u64> halves[2];

    // Both halves in one register: what two stores wrote, one load would wait for.
    [[nodiscard]] byte_set load() const {
        using both [[gnu::vector_size(16)]] = u64;
        return std::bit_cast<byte_set>(both{halves[0].load(std::memory_order_relaxed),
                                            halves[1].load(std::memory_order_relaxed)});
    }
    [[nodiscard]] bool is_empty() const {
        return (halves[0].load(std::memory_order_relaxed) |
                halves[1].load(std::memory_order_relaxed)) == 0;
    }
    void add(u8 byte) {
        byte_set added{};
        added.rows[byte & 0xF] = static_cast<u8>(1U << (byte >> 4 & 7));
        u64 bits[2];
        std::memcpy(bits, added.rows, sizeof bits);
        halves[0].fetch_or(bits[0], std::memory_order_relaxed);
        halves[1].fetch_or(bits[1], std::memory_order_relaxed);
    }
};

struct pair {
    pair_key key;
    fast::plan plan;
    const kernels* kernel;
    strictness strict;
    u64 tables;            // that the rules may look into: which are loaded, what was written
    std::atomic<u64> seen; // the state of all tables that this was last found to hold in

    pthread_mutex_t lock;
    session neutral; // the rules are asked in this one
    u32 answer_total;
    u64 claimed; // bytes of the budget
    u32 place;   // in the table of pairs

    atomic_byte_set plain_ascii; // that is written as it is, in the target's units
    // By lead byte: 0 not asked, 1 a character by itself, 2 with the byte behind it, 3 with two.
    std::atomic<u8> lead_length[256];
    atomic_byte_set leads; // those of length 2

    answer* answers[key_count / answers_at_once];
    std::atomic<u16> answer_at[key_count]; // 0: none
    std::atomic<u32> entries[key_count];   // by byte, two bytes, scalar or unit; see readers.h

    [[nodiscard]] fast::entry entry_of(u32 k) const {
        return {entries[k].load(std::memory_order_relaxed)};
    }
    // Null where there is none, or none that this thread can see yet.
    [[nodiscard]] const answer* answer_of(u32 k) const {
        const u32 number = answer_at[k].load(std::memory_order_acquire);
        return number != 0 ? &answers[number / answers_at_once][number % answers_at_once] : nullptr;
    }
};

// ---- pair.cpp

// A pair in the hands of a call.
struct held_pair {
    pair* p;
    bool counted; // beside others
};

// The pair of a session, made where it is new, and held until release_pair; null where the rules
// alone are to convert, at least for now.
held_pair hold_pair(const session* s, strictness strict);
void release_pair(held_pair held);
// Whether what the pair was told may still be used; false for good once it is not.
bool is_current(pair& p);
// Claims bytes against the budget, freeing pairs where that is used up; gives them back.
bool claim_bytes(u64 bytes);
void return_bytes(u64 bytes);
u64 bytes_claimed();
// Frees the pairs that nobody holds.
void free_unheld();

// ---- plan.cpp

// False where the rules alone are to convert.
bool make_plan(const session* s, plan& made);
// Whether nothing but characters is due: no byte-order mark, tag or reference.
bool only_characters_due(const session* s, const codec_traits& source, const codec_traits& target);

// ---- ask.cpp

struct run;

// Asks the rules about the character that a run ended at, unless that was done. Whether it may be
// run over now.
bool learn(pair& p, const run& r);
// What they answered about a character that was run over. Where nobody asked before, in blocks of
// Unicode, they are asked now. Null where they do not run over it, or memory is short.
const answer* find_answer(pair& p, u32 k, std::span<const u8> bytes);

// ---- A run

// Why a run ended: nothing left that fits, a character nobody asked about, one that is the rules'.
enum class stop : u8 { end, unknown, by_rules };

inline constexpr u32 no_key = ~0U;

// What was written last to make a set give codes their meaning: from where to where, and the state
// before it.
struct last_way {
    u8 *begin, *end;
    u32 state;
};

// A run over input and output, and how far it came.
struct run {
    const u8 *in, *in_end;
    u8 *out, *out_end; // what must stay free at the end is left out
    u32 in_state, out_state;
    last_way way;
    u32 characters;
    u32 more_codes;        // than characters, modulo 2^32
    u32 last, before_last; // keys of the last two characters; no_key where there is none
    stop why;
    // The character that it ended at: its key and length, unless they are unknown, and the state
    // that it stands in.
    const u8* next;
    u32 next_key, next_length, next_state;
};

void run_over(pair& p, run& r); // loop.cpp
// Writes the session as the rules leave it; false when the run comes to nothing.
bool finish(pair& p, run& r, session* s); // finish.cpp

} // namespace fast
