// Loops that a processor has better instructions for than the compiler finds: runs of ASCII, and
// chunks of text taken apart and put together.
#pragma once

#include "platform/base.h"

#include <array>
#include <atomic>

namespace fast {

// A block is read in chunks of so many bytes, each of them so many codes at most.
inline constexpr std::size_t chunk_bytes = 64, chunk_codes = 64;
inline constexpr std::size_t block_chunks = 8, block_codes = block_chunks * chunk_codes;

// Bytes that encode_utf8, put_entries and put_quads may touch behind what they write.
inline constexpr std::size_t kernel_margin = 64;

// Some of 128 bytes: by the low four bits, a bit for each of the next three. Bytes of one half,
// ASCII or what is beyond, are not asked about the other.
struct byte_set {
    u8 rows[16];

    [[nodiscard]] bool has(u8 byte) const { return (rows[byte & 0xF] >> (byte >> 4 & 7) & 1) != 0; }
};

struct ascii_run {
    const u8* in;
    std::size_t in_size;
    u8* out;
    std::size_t out_size;
    byte_set plain; // the ASCII that a run may hold
};

// What a run of ASCII holds of line breaks. The line feeds are only right where there is no
// carriage return.
struct ascii_breaks {
    u64 line_feeds;
    bool has_returns;
};

// A unit of two or four bytes, beside ASCII's one.
struct ascii_unit {
    u32 bytes;
    bool big_endian;
};

// A charset's codes for line breaks.
struct line_breaks {
    ascii_unit unit;
    u8 lf, cr;
};

struct chunk_read {
    std::size_t codes, bytes;
};
struct block_written {
    std::size_t codes, bytes;
};

// An entry of a code: the bytes to write for it, up to three and the first one lowest, and their
// number times one_byte. Those below one_byte say something else.
using entry_word = std::atomic<u32>;
inline constexpr u32 one_byte = 1U << 24;

// How codes are told apart: two bytes where a lead begins them, else one. A single shift, 0 for
// none, goes with the two bytes of a pair from A1 on behind it, where all three stand in one chunk;
// their code has the low seven bits of both.
struct split_by {
    byte_set leads;
    u8 single_shift;
};

// Tables for vectors, made from entries. They stay right, because entries do.
struct byte_tables {
    bool made;
    alignas(64) u8 rows[16][64];
};
struct bytes_put {
    std::size_t read, written, characters;
};

// A sequence that shifts, of at most four bytes; without length: none.
struct shift_sequence {
    std::array<u8, 4> bytes;
    u32 length;
};

// Text that shifts between single bytes and pairs of seven bits.
struct split_shifts {
    shift_sequence to_pairs, to_singles;
    u16 pairs, singles; // added to the codes of either
};

// Two sets of a charset with states, as entries have them. What is written between one code and the
// next where the set changes, up to three bytes and their number, is as in an entry, too.
struct two_sets {
    u32 at_hand, other, to_at_hand, to_other;
};

struct kernels {
    const char* name;

    // Each returns the number of characters that the run begins with and the output has room for.
    // They touch nothing outside of input and output; output behind what is counted may be written.
    std::size_t (*copy_ascii)(const ascii_run& run);
    std::size_t (*copy_and_count)(const ascii_run& run, ascii_breaks& counted);
    std::size_t (*widen_ascii)(const ascii_run& run, ascii_unit target);
    std::size_t (*narrow_ascii)(const ascii_run& run, ascii_unit source);

    // Counts the units that are LF, or CR without an LF behind it; one behind them is read, too.
    u64 (*count_breaks)(const u8* in, std::size_t units, const line_breaks& breaks);

    // Writes what the entries of at most block_codes codes say, up to the first that says something
    // else; may touch kernel_margin bytes behind that.
    block_written (*put_entries)(const entry_word* entries, const u16* codes, std::size_t count,
                                 u8* out);

    // Convert what the run holds up to the first character whose entry says something else, or
    // close to the end of the input or of the output. Null where there are none.

    // From single bytes.
    bytes_put (*put_bytes)(const entry_word* entries, const ascii_run& run,
                           byte_tables& tables) = nullptr;
    // From UTF-8, with two bytes before it. Others than plain ASCII have one byte each or two each;
    // a change ends it, too.
    bytes_put (*put_utf8)(const entry_word* entries, const ascii_run& run) = nullptr;

    // For blocks: null where there are none. Readers of bytes touch two before these, too.

    // Reads so many chunks and writes the scalars of the well-formed sequences of one to three
    // bytes that they begin with; room for chunk_codes for each.
    chunk_read (*decode_utf8)(const u8* in, std::size_t chunks, u16* scalars) = nullptr;
    // Reads so many chunks of four-byte units, up to one in which a unit does not fit into two.
    chunk_read (*narrow_quads)(const u8* in, std::size_t chunks, u16* scalars,
                               bool big_endian) = nullptr;
    // Reads so many chunks of characters of one to three bytes and writes their codes; room for
    // chunk_codes for each. Whether they mean anything is not looked at.
    chunk_read (*split_codes)(const u8* in, std::size_t chunks, const split_by& by,
                              u16* codes) = nullptr;
    // Writes scalars without surrogates as UTF-8 and returns the bytes, three each at most; may
    // touch kernel_margin bytes behind them. A chunk behind the scalars may be read.
    std::size_t (*encode_utf8)(const u16* scalars, std::size_t count, u8* out) = nullptr;
    // Copies so many chunks, their two-byte units swapped where asked for.
    void (*copy_units)(const void* in, void* out, std::size_t chunks, bool swap) = nullptr;
    // Writes count scalars in four bytes each; may touch kernel_margin bytes behind them.
    void (*put_quads)(const u16* scalars, std::size_t count, u8* out, bool big_endian) = nullptr;
    // How many of the scalars come before the first surrogate and the first of the stops.
    std::size_t (*plain_scalars)(const u16* scalars, std::size_t count,
                                 std::span<const u16> stops) = nullptr;
    // Reads at most so many chunks of text that begins with a pair, up to another sequence than the
    // two, or a pair of other bytes than 21 to 7E; room for chunk_codes for each chunk.
    chunk_read (*split_shifted)(const u8* in, std::size_t chunks, const split_shifts& by,
                                u16* codes) = nullptr;
    // Like put_entries, for two sets; what is touched may be twice as much.
    block_written (*put_in_two_sets)(const entry_word* entries, const u16* codes, std::size_t count,
                                     u8* out, const two_sets& by) = nullptr;
};

// put_entries for any machine.
block_written put_one_by_one(const entry_word* entries, const u16* codes, std::size_t count,
                             u8* out);

// put_bytes for any machine.
bytes_put put_bytes_one_by_one(const entry_word* entries, const ascii_run& run,
                               byte_tables& tables);

extern const kernels portable_kernels, avx2_kernels, avx512_kernels;

// Those that this processor can run, the best one first; null behind the last.
using kernel_list = const kernels* [4];
void list_kernels(kernel_list& list);

// For tests and benchmarks: those that pairs made from now on use, null for the best.
void choose_kernels(const kernels* chosen);
const kernels& chosen_kernels();

} // namespace fast
