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
//     every field that characters fill in (ask.cpp).
// P4  What is not so is the rules' own, and its entry says so: marks that may join a letter,
//     letters that a mark may follow where a run ends before the end of the input (finish.cpp), a
//     line feed behind a carriage return (fast.cpp; inside a run, loop.cpp), user-defined sets,
//     references, tags, byte-order marks (plan.cpp), characters that the target lacks (ask.cpp).
// P5  The key holds both charsets, both rules and all of O but the substitutes, which P4 leaves to
//     the rules; and a pair is used as long as no further table is loaded, and none written to.
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
// Pairs live in one table for the process. A call holds its pair by a count beside the pointer, in
// memory that is never freed: it first counts itself and then reads the pointer, while who frees a
// pair clears the pointer and then reads the count, all in one order for all processors; so one of
// the two sees the other. Bytes are claimed against one budget. When that is used up, pairs that
// are stale and those unused for longest are freed, as long as nobody holds them.
#pragma once

#include "cconv/engine/engine.h"
#include "cconv/fast/kernels/kernels.h"
#include "cconv/registry/changes.h"
#include "cconv/rulefunc/iso2022.h"
#include "cconv/rulefunc/traits.h"
#include "platform/lock.h"

#include <array>
#include <atomic>
#include <bit>

namespace fast {

// All pairs of the process together use at most this many bytes.
inline constexpr u64 budget_bytes = 64 << 20;

// How source characters are distinguished.
enum class reader : u8 {
    lead_bytes, // one or two bytes, depending on the first; three after a single shift
    utf8,       // one to three bytes; the key is the Unicode value
    units,      // two bytes
    quads,      // four bytes
    states      // one or two bytes, depending on the set that is shifted in
};

// How strict a run is, for callers that must not lose anything. characters: only characters that
// are read back from the target as the same Unicode character. codes: in addition their code must
// be the one that the source itself writes for them.
enum class strictness : u8 { none, characters, codes };

// Everything that determines the bytes of a character, except the tables. The rules usually follow
// from the charsets, but a caller may put others into the session.
struct pair_key {
    const charset_group *source, *target;
    const rule_row *decode, *encode;
    u64 options;
    strictness strict;

    bool operator==(const pair_key&) const = default;
};

// Set if designations and shifts give codes their meaning.
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

inline constexpr u32 first_single_key = 0xC000; // where codes have seven bits

// A set of a charset with states, and the first keys of its codes; see reader_states.h.
struct set_keys {
    const graphic_set* set; // null: none that has keys
    u16 first_pair, first_single;
    bool two_bytes;
};

constexpr u32 single_key(bool eight_bits, u32 number) {
    return (eight_bits ? 0 : first_single_key) + ((number - 1) << 8);
}

// How a pair is converted.
struct plan {
    const codec_traits *source, *target;
    fast::reader reader;
    bool by_form;      // between Unicode charsets: blocks are converted by changing the form
    bool single_bytes; // the source's codes
    bool normalises;   // line breaks are converted
    u8 single_shift;   // begins three bytes; 0: there is none
    ascii_unit source_unit, target_unit; // of ASCII
    std::span<const u16> stops;          // values that are not converted by form
    charset_states source_states, target_states;
    std::array<set_keys, iso2022::most_sets + 1> sets; // of the source
    bool eight_bits;                                   // the key of a two-byte code is the code
};

// The rules' answer about a character.
struct answer {
    u64 bytes; // written, first byte lowest, without the sequences that select their set
    u8 length, codes;
    u8 set;            // that must be selected for them; 0: any
    bool takes_mark;   // a mark after it may belong to it
    bool is_cr, is_lf; // if line breaks are converted
    // What they left in the session.
    u16 charSetType, outSetType, outBytes, outDone;
    u32 charSetNo, srcCode, setCode, ucsCode, outSetNo, outCode, outCode2;
    u32 read_setCode, read_ucsCode; // as decoded, before a line break was normalised

    static constexpr u32 most_bytes = 8;
    [[nodiscard]] bool is_one_code() const { return codes == 1 && !is_cr && !is_lf; }
};

// Up to three bytes written for one character, and their number; or that there is an answer; or
// by_rules, which leaves the character to the rules. 0: not asked yet.
struct entry {
    u32 packed = 0;

    static constexpr u32 most_bytes = 3;
    static constexpr u32 has_answer = 1, by_rules = 2;
    [[nodiscard]] bool asked() const { return packed != 0; }
    [[nodiscard]] bool is_short() const { return packed >= one_byte; }
    [[nodiscard]] u32 length() const { return packed >> 24 & 0x0F; }
    [[nodiscard]] u32 set() const { return packed >> 28; }
    // Those of a set that is at hand, which need nothing before them, begin with least_of(set).
    static u32 least_of(u32 set) { return set << 28 | one_byte; }
    [[nodiscard]] bool is_short_from(u32 least) const {
        return packed - least < (1U << 28) - one_byte;
    }
};

template <typename Word>
void store_low_first(Word bytes, u8* out) {
    if constexpr (std::endian::native == std::endian::big) {
        bytes = static_cast<Word>(__builtin_bswap64(bytes) >> (64 - 8 * sizeof bytes));
    }
    std::memcpy(out, &bytes, sizeof bytes);
}

inline constexpr u32 ascii_set = 1; // the first one of charsets with states

inline constexpr std::size_t key_count = 0x10000, answers_at_once = 256,
                             answers_bytes = answers_at_once * sizeof(answer);

// Bytes are only added, never removed.
struct atomic_byte_set {
    std::atomic<u64> halves[2];

    // Both halves are in one register: a load of what two stores wrote would have to wait.
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
        const u32 row = byte & 7U, place = std::endian::native == std::endian::big ? 7 - row : row;
        halves[byte >> 3 & 1].fetch_or(u64{1} << (8 * place + (byte >> 4 & 7U)),
                                       std::memory_order_relaxed);
    }
};

struct pair {
    pair_key key;
    fast::plan plan;
    const kernels* kernel;
    u64 tables; // their state, with which the answers are valid

    pthread_mutex_t lock;
    session neutral; // the rules are asked in this one
    u32 answer_total;
    u32 place; // in the table of pairs

    atomic_byte_set plain_ascii;      // ASCII that is written unchanged, in the target's units
    std::atomic<u8> behind_lead[256]; // by lead byte: the bytes after it that belong to a character
    atomic_byte_set leads;            // those with one

    answer* answers[key_count / answers_at_once];
    std::atomic<u16> answer_at[key_count]; // 0: none
    std::atomic<u32> entries[key_count];   // by byte, two bytes, scalar or unit; see readers.h

    [[nodiscard]] fast::entry entry_of(u32 k) const {
        return {entries[k].load(std::memory_order_relaxed)};
    }
    // Null if there is none, or none that this thread can see yet.
    [[nodiscard]] const answer* answer_of(u32 k) const {
        const u32 number = answer_at[k].load(std::memory_order_acquire);
        return number != 0 ? &answers[number / answers_at_once][number % answers_at_once] : nullptr;
    }
};

// ---- pair.cpp

// The pair of a session, created if it is new, and held until release_pair. Null if the rules alone
// are to convert, at least for now.
pair* hold_pair(const session* s, strictness strict);
void release_pair(pair* p);
// Whether the answers of a pair are still valid; once they are not, they never will be.
inline bool is_current(const pair& p) {
    return look_up_state() == p.tables;
}
// Claims bytes of the budget, freeing pairs if it is used up; or returns them.
bool claim_bytes(u64 bytes);
void return_bytes(u64 bytes);
u64 bytes_claimed();

// ---- plan.cpp

// False if the rules alone are to convert.
bool make_plan(const session* s, plan& made);
// Whether only characters are to be written next: no byte-order mark, tag or reference.
bool only_characters_due(const session* s, const plan& p);

// ---- ask.cpp

struct run;

// Asks the rules about the character at which a run ended, unless that was done. Returns whether
// the fast path can now convert it.
bool learn(pair& p, const run& r);
// The answer about a character that was converted. In blocks of Unicode nobody has asked before, so
// the rules are asked now. Null if the character is left to the rules, or if memory runs out.
const answer* find_answer(pair& p, u32 k, std::span<const u8> bytes);

// ---- A run

// Why a run ended: no input or room is left, nobody has asked about the character, or it is left to
// the rules.
enum class stop : u8 { end, not_asked, by_rules };

inline constexpr u32 no_key = ~0U;

// The last sequences that were written to select a set: their place in the output, and the state
// before them.
struct last_way {
    u8 *begin, *end;
    u32 state;
};

// How far a run got.
struct progress {
    const u8* in;
    u8* out;
    u32 characters;
    u32 last, before_last; // keys of the last two characters, or no_key
};

// A run over input and output.
struct run : progress {
    const u8* in_end;
    u8* out_end; // without bytes that must stay free at the end
    u32 in_state, out_state;
    last_way way;
    u32 more_codes; // codes minus characters, modulo 2^32
    stop why;
    // The character at which the run ended, if nobody asked about it: its key and length, and the
    // state before it. A lead byte that nobody asked about is taken for a character.
    const u8* next;
    u32 next_key, next_length, next_state;

    void set(const progress& now) { static_cast<progress&>(*this) = now; }
};

void run_over(pair& p, run& r); // loop.cpp
// Sets the session as the rules would have left it.
void finish(pair& p, run& r, session* s); // finish.cpp

} // namespace fast
