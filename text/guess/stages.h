// The stages of a guess, from the first byte to the answer.
//
// The input is kept until there are 64 KiB of it, or until it ends. Then byte-order marks,
// signatures of files, UTF-16 and escape sequences are looked for, in this order; everything else
// is text in a charset that contains ASCII. In such a text only the words with other bytes matter.
// They are collected; all candidates read some of them (weigh.cpp), and the candidates whose
// readings are likely then read all of them, to the end of the text.
#pragma once

#include "text/guess/candidates.h"
#include "text/guess/score.h"
#include "text/guess/weights.h"

#include <span>

namespace text {

inline constexpr std::size_t head_room = 64 * 1024, batch_room = 64 * 1024, evidence_room = 8192;
inline constexpr std::size_t late_room = 4096;
inline constexpr u32 most_late = 256, most_late_looks = 8192;
inline constexpr std::ptrdiff_t late_words = 4; // with a byte that the evidence has more seldom
inline constexpr u32 most_candidates = 128, most_origins = 1024;
inline constexpr u64 nowhere = ~u64{0};

struct candidate {
    charset_row row;
    pvzan_name name{};
    char16_t high[128]{};             // of a single-byte charset: the characters 80 to FF
    pvzan_converter* reads = nullptr; // to the end of the text
    u64 reads_from = 0;               // in the stream that all read
    bool alive = false;
    bool by_chance = false;         // of UTF-8: contains a character that others may form by chance
    i32 cost = 0;                   // quarters of a bit
    u32 faults = 0;                 // in the evidence
    u32 characters = 0, beyond = 0; // of the evidence, and those beyond ASCII
    u32 odd = 0;                    // those of them that are private use and the like
    u32 long_ones = 0;              // those of them from U+0800 on, which take three bytes in UTF-8
    bool private_use = false;       // in the text
    u8 last_read = 0;               // byte of its reading
    u64 hash = 0;                   // of its reading
    std::size_t first_fault = 0;    // of the evidence
    u64 fault_at = nowhere;         // of the text
    u32 text_faults = 0;            // counted up to two
    u8 fault_byte = 0;
};

inline i32 fault_cost(const candidate& c) {
    return c.row.codes == structure::single_byte ? no_letter : damage;
}

// The place in the text of bytes that were collected.
struct origin {
    u32 at;
    u64 offset;
};

enum class progress : u8 { gathering, words, whole, done };

struct decision {
    u32 verdict = 0;
    u64 doubt = nowhere;
    u32 shown = 0;
    pvzan_candidate candidates[8]{};
    char why[256] = "";
};

} // namespace text

struct pvzan_guesser {
    char language[8];
    bool named, marked, escaped, decided, maybe_other;
    text::progress now;
    u32 count;
    text::candidate candidates[text::most_candidates];
    text::scorer judge;
    text::seen* reading; // room for a character for each byte of the evidence

    u8* head;
    std::size_t head_size;
    u64 offset; // of the bytes that come next

    // Words with bytes beyond ASCII, with an LF after each.
    u8* batch;
    std::size_t batch_size;
    u64 batch_begin; // in the stream that the candidates read
    text::origin origins[text::most_origins];
    u32 origin_count;
    bool inside; // a word goes on

    u8* evidence; // some of these words, none more than twice
    std::size_t evidence_size, word_begin;
    text::origin evidence_origins[text::most_origins];
    u32 evidence_origin_count;
    u8 met[4096];                       // how often a word occurred, by its hash
    bool evidence_full, evidence_lacks; // words that occurred before
    bool weighed;
    u32 weighed_size;
    u64 met_at[256]; // first place of a byte, counted from 1; 0: none
    // Words with bytes that the evidence lacks, or has seldom.
    u8 wanted[256];  // how many are missing
    bool noted[256]; // nothing is to be learnt of the byte any more
    u32 late_looks;  // at words, which take time
    u8 late[text::late_room];
    std::size_t late_size;
    text::origin late_origins[text::most_late];
    u32 late_count;

    const char* binary; // the kind of a file that is not text, or null
    text::decision answer;
};

namespace text {

// signatures.cpp: returns the kind of a file that is not text, or null.
const char* known_binary(std::span<const u8> head);

// weigh.cpp
pvzan_converter* open_reader(const candidate& c);
// Whether the user's language is one that the charset is made for.
bool is_native(const pvzan_guesser& g, const candidate& c);
// Reads as one of the candidates does. Fills in faults, beyond, odd, hash and where the first fault
// is.
std::span<seen> read_as(pvzan_guesser& g, candidate& c, std::span<const u8> bytes, bool complete);
// The costs of all alive candidates; those far behind are none any more. Ends early where none is
// left of a structure that is wanted, or one behind it.
void weigh(pvzan_guesser& g, std::span<const u8> evidence, bool complete,
           structure wanted = structure::several_bytes);
bool is_plain_utf8(pvzan_guesser& g, bool complete);

// words.cpp
// Designates a set of two-byte codes, or half-width katakana.
bool is_designation(const u8* p, const u8* end);
void take_words(pvzan_guesser& g, std::span<const u8> bytes);
// Has those that are likely read what was gathered, and the rest to come.
void read_on(pvzan_guesser& g, bool last, bool complete);
// Has all alive candidates read bytes that stand at offset.
void feed_all(pvzan_guesser& g, std::span<const u8> bytes, i32 how);
void keep_only(pvzan_guesser& g, structure codes);
// Words with bytes that only came behind the evidence become part of it, and are weighed.
void weigh_late_words(pvzan_guesser& g);
// Where the text's faults are, when all of it was read.
void settle_faults(pvzan_guesser& g);

// Where a byte of the evidence stands in the text.
u64 original_place(const pvzan_guesser& g, std::size_t at);

// head.cpp: what the beginning is; goes on with it.
void begin(pvzan_guesser& g, bool complete);

// decide.cpp
void decide(pvzan_guesser& g, bool complete);

} // namespace text
