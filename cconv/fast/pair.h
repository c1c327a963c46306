// What the fast path keeps for a pair of charsets, and why its output is the rules' own.
//
// Let k be the bytes of one source character, D and E the two rules, O the options. The fast path
// converts k by what D and E made of it before, alone in a session of the pair's own. That is the
// same because:
//
// P1  Length and meaning of k follow from k. D's traits say how: by the lead byte, by the scalar,
// by
//     the set designated. Where sets decide, their widths ascend, so that no longer code is tried
//     before a shorter one (plan.cpp).
// P2  What E writes follows from set and code, and for a rule that designates sets from the set
//     designated before: it is asked twice, for the escape sequence and for the code (ask.cpp).
// P3  D and E, run on k alone in the neutral session, use up k, read one character, write whole
// codes,
//     and fill in every field that characters fill in (ask.cpp).
// P4  What is not so is the rules' own, and its entry says so: marks that may join a letter,
// letters
//     that a mark may follow where a run ends before the end of the input (finish.cpp), a line feed
//     behind a carriage return (loop.h), user-defined sets, references, tags, byte-order marks
//     (plan.cpp).
// P5  The key holds all of O, both charsets, both rules; what else an answer may rest on, the
// tables
//     that the two rules look into, is checked at each call (pair.cpp).
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
// memory that is never freed: it raises the count and then reads the pointer, while who frees a
// pair clears the pointer and then reads the count, all four in one order for all processors; so
// one of the two sees the other. Bytes are claimed against one budget. When that is used up, pairs
// that are stale and those unused for longest are freed, as long as nobody holds them.
#pragma once

#include "cconv/engine.h"
#include "cconv/fast/fast.h"
#include "cconv/fast/kernels/kernels.h"
#include "cconv/rulefunc/traits.h"

#include <atomic>
#include <bit>
#include <pthread.h>

namespace fast {

// All pairs of the process together take no more bytes than this.
inline constexpr u64 budget_bytes = 64 << 20;

// How source characters are told apart.
enum class reader : u8 {
    lead_bytes, // one or two bytes, by the lead byte
    utf8,       // one to three bytes; the scalar is the key
    unit_big,   // two-byte units
    unit_little,
    quad_big, // four-byte units
    quad_little,
    iso2022 // one or two bytes, by the set designated last
};

// What becomes of a block of codes.
enum class block_form : u8 {
    none,    // characters go one by one
    entries, // what their entries say
    utf8,    // both charsets are Unicode: the scalars in another form
    units_big,
    units_little,
    quads_big,
    quads_little
};

// How a run of ASCII is converted, known from the first ASCII character on.
enum class ascii_form : u8 { unknown, same, widen, narrow };

// Everything that decides the bytes of a character.
struct pair_key {
    const charset_group *source, *target;
    const rule_row *decoder, *encoder;
    u32 source_number, target_number; // the rules look at those too
    u32 options;                      // byte orders, what becomes of line breaks, strictness
    u32 table_changes;
    void **groups, **sets; // the registry, which may have changed with the two
    u32 group_count, set_count;

    bool operator==(const pair_key&) const = default;
};
inline constexpr u32 big_source = 1, big_target = 2, newline_shift = 2, strict_shift = 8;

// How a pair is converted.
struct plan {
    const codec_traits *source, *target;
    fast::reader reader;
    block_form blocks;
    bool normalises;        // line breaks
    ascii_unit source_unit; // that ASCII is read in
    u32 source_sets;        // those designated that entries are for, a bit each by designation_bit
    u16 stops[9];           // between Unicode charsets: scalars that do not stand for themselves
    u32 stop_count;
};

// What the rules made of a character.
struct answer {
    u64 bytes; // written, the first one lowest, without an escape sequence before them
    u8 length, codes;
    u8 slot;           // for a target that designates sets: which one this needs
    bool takes_mark;   // a mark behind it may belong to it
    bool is_cr, is_lf; // of the line breaks that are normalised
    // What they left in the session.
    u16 charSetType, outSetType, outBytes, outDone;
    u32 charSetNo, srcCode, setCode, ucsCode, outSetNo, outCode, outCode2;
    u32 read_setCode, read_ucsCode; // as decoded, before a line break was normalised

    static constexpr u32 most_bytes = 8;
    static constexpr std::ptrdiff_t stored_bytes = 8;
    void store(u8* out) const;
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
    [[nodiscard]] u32 slot() const { return packed >> 28; }
    // Highest bit clear in short ones alone.
    [[nodiscard]] u32 odd() const { return packed - one_byte; }

    static constexpr std::ptrdiff_t stored_bytes = 4; // of which length() count
    void store(u8* out) const {
        u32 bytes = packed;
        if constexpr (std::endian::native == std::endian::big) {
            bytes = __builtin_bswap32(bytes);
        }
        std::memcpy(out, &bytes, sizeof bytes);
    }
};

inline void answer::store(u8* out) const {
    u64 packed = bytes;
    if constexpr (std::endian::native == std::endian::big) {
        packed = __builtin_bswap64(packed);
    }
    std::memcpy(out, &packed, sizeof packed);
}

// A set that the target designates, and how.
struct slot_designation {
    u32 setNo;
    u8 length;
    u8 bytes[4];
};

inline constexpr std::size_t key_count = 0x10000, answers_at_once = 256, most_slots = 8;

// Bytes are only ever added.
struct atomic_byte_set {
    std::atomic<u64> halves[2];

    [[nodiscard]] byte_set load() const {
        const u64 now[2] = {halves[0].load(std::memory_order_relaxed),
                            halves[1].load(std::memory_order_relaxed)};
        return std::bit_cast<byte_set>(now);
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

    // What was loaded of the tables that the rules look into, and when that was last seen to be so.
    u32 own_tables;
    std::atomic<u32> generation;
    std::atomic<bool> stale;

    pthread_mutex_t lock;
    session neutral; // the rules are asked in this one
    u32 answer_total;
    u64 claimed; // bytes of the budget
    u32 place;   // in the table of pairs

    std::atomic<ascii_form> ascii;
    ascii_unit ascii_target; // for widen
    u8 ascii_slot;
    atomic_byte_set plain_ascii; // of runs
    // By lead byte: 0 not asked, 1 a character by itself, 2 with the byte behind it, 3 with two.
    std::atomic<u8> lead_length[256];
    atomic_byte_set leads;       // those of length 2
    std::atomic<u32> slot_count; // from 1 on
    slot_designation slots[most_slots];

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

// The pair of a session, made where it is new, and held until release_pair; null where the rules
// alone are to convert, now or for the rest of the call.
pair* hold_pair(const session* s, strictness strict, bool& for_now);
void release_pair(pair* p);
// Whether what the pair was told may still be used; false for good once it is not.
bool is_current(pair& p);
// Claims bytes against the budget, freeing pairs where that is used up; gives them back.
bool claim_bytes(u64 bytes);
void return_bytes(u64 bytes);
u64 bytes_claimed();
// Frees the pairs that nobody holds.
void free_unheld();

// ---- plan.cpp

// Of the sets that ISO-2022-JP designates, whose numbers follow each other.
constexpr u32 designation_bit(u32 setNo) {
    const u32 place = setNo - PVZAN_SET_ISO_646_IRV;
    return place < 32 ? 1U << place : 0;
}

// False where the rules alone are to convert.
bool make_plan(const session* s, plan& made);
// Nothing but characters is due: no byte-order mark, tag or reference.
enum class due { characters, mark, others };
due what_is_due(const session* s, const codec_traits& source, const codec_traits& target);
// How many of the tables that the rules look into are loaded.
u32 count_own_tables(const pair_key& key, const plan& p);

// ---- ask.cpp

// Asks the rules about the character that left bytes begin with, unless that was done. Whether it
// may be run over now. set: the one designated in the source.
bool learn(pair& p, const u8* in, std::size_t left, u32 set);
// What they answered about a character that was run over; where nobody asked before, they are asked
// now, and room has it where it cannot be kept. Null where they do not run over it.
const answer* find_answer(pair& p, u32 k, std::span<const u8> bytes, answer& room);

// ---- A run

// Why a run ended: nothing left that fits, a character nobody asked about, one that is the rules'.
enum class stop : u8 { end, unknown, by_rules };

inline constexpr u32 no_key = ~0U;

// A run over input and output, and how far it came.
struct run {
    const u8 *in, *in_end;
    u8 *out, *out_end;   // what must stay free at the end is left out
    u32 in_set, out_set; // designated
    u32 characters, codes;
    u32 last, before_last; // keys of the last two characters; no_key where there is none
    stop why;
    const u8* next; // the character that it ended at, and the set designated for it
    u32 next_set;
};

void run_over(pair& p, run& r);    // loop.cpp
void run_iso2022(pair& p, run& r); // loop_iso2022.cpp
// Writes the session as the rules leave it; false when the run comes to nothing.
bool finish(pair& p, run& r, session* s); // finish.cpp

} // namespace fast
