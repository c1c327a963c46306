// Loops that a processor has better instructions for than the compiler finds: runs of ASCII, and
// chunks of text taken apart and put together.
#pragma once

#include "cconv/base.h"

#include <bit>

namespace fast {

// A block is read in chunks of so many bytes, each of them so many codes at most.
inline constexpr std::size_t chunk_bytes = 64, chunk_codes = 64;
inline constexpr std::size_t block_chunks = 4, block_codes = block_chunks * chunk_codes;

// Bytes that encode_utf8 and put_quads may touch behind what they write.
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

// A unit of two or four bytes, beside ASCII's one.
struct ascii_unit {
    u32 bytes;
    bool big_endian;
};

// A character of ASCII as it is loaded in such a unit.
template <typename Unit>
constexpr Unit loaded_ascii(char c, bool big_endian) {
    const bool in_first = big_endian == (std::endian::native == std::endian::little);
    return static_cast<Unit>(u64{static_cast<u8>(c)}
                             << (in_first ? 8 * (sizeof(Unit) - 1) : std::size_t{0}));
}

// What count_breaks counts, one by one.
template <typename Unit>
u64 count_last_breaks(const u8* in, std::size_t units, bool big_endian) {
    const Unit lf = loaded_ascii<Unit>('\n', big_endian), cr = loaded_ascii<Unit>('\r', big_endian);
    u64 breaks = 0;
    for (std::size_t i = 0; i < units; ++i) {
        Unit here, behind;
        std::memcpy(&here, in + i * sizeof here, sizeof here);
        std::memcpy(&behind, in + (i + 1) * sizeof behind, sizeof behind);
        breaks += here == lf || (here == cr && behind != lf) ? 1U : 0U;
    }
    return breaks;
}

struct chunk_read {
    std::size_t codes, bytes;
};

// Which bytes are trails, of bytes that begin with a character; leads are those that open two bytes
// where a character begins. In a run of such bytes every other one is a lead, from its first on.
constexpr u64 trails_of(u64 leads) {
    constexpr u64 even_places = 0x5555555555555555;
    const u64 run_begins = leads & ~(leads << 1);
    // Adding a run's lowest bit clears the run.
    const u64 even_runs = leads & ~(leads + (run_begins & even_places));
    return ((even_runs & even_places) | (leads & ~even_runs & ~even_places)) << 1;
}

// A null pointer means that going character by character is faster on this machine.
struct kernels {
    const char* name;

    // Each returns the number of characters that the run begins with and the output has room for.
    // They touch nothing outside of input and output; output behind what is counted may be written.
    std::size_t (*copy_ascii)(const ascii_run& run);
    std::size_t (*widen_ascii)(const ascii_run& run, ascii_unit target);
    std::size_t (*narrow_ascii)(const ascii_run& run, ascii_unit source);

    // Reads chunk_bytes bytes and writes the scalars of the well-formed sequences of one to three
    // bytes that they begin with; room for chunk_codes of them.
    chunk_read (*decode_utf8)(const u8* in, u16* scalars);
    bool decode_pays_for_entries; // also where each scalar is then looked up
    // Reads chunk_bytes bytes of four-byte units; 0 when one does not fit, else their number.
    std::size_t (*narrow_quads)(const u8* in, u16* scalars, bool big_endian);
    // Reads chunk_bytes bytes of single- and double-byte characters and writes their codes; room
    // for chunk_codes of them. Whether they mean anything is not looked at.
    chunk_read (*split_codes)(const u8* in, const byte_set& leads, u16* codes);
    // Writes scalars without surrogates as UTF-8 and returns the bytes, three each at most; may
    // touch kernel_margin bytes behind them. A chunk behind the scalars may be read.
    std::size_t (*encode_utf8)(const u16* scalars, std::size_t count, u8* out);
    // Copies chunk_bytes bytes, their two-byte units swapped where asked for.
    void (*copy_units)(const void* in, void* out, bool swap);
    // Writes count scalars in four bytes each; may touch kernel_margin bytes behind them.
    void (*put_quads)(const u16* scalars, std::size_t count, u8* out, bool big_endian);
    // How many of the scalars come before the first surrogate and the first of the stops.
    std::size_t (*plain_scalars)(const u16* scalars, std::size_t count, std::span<const u16> stops);
    // Reads chunk_bytes bytes; of the pairs of bytes from 21 to 7E that they begin with, writes
    // base and the seven bits of both. Room for a chunk of codes.
    std::size_t (*seven_bit_pairs)(const u8* in, u16 base, u16* codes);
    // Counts the units that are LF, or CR without an LF behind it; one behind them is read, too.
    u64 (*count_breaks)(const u8* in, std::size_t units, ascii_unit unit);
};

extern const kernels portable_kernels, avx2_kernels, avx512_kernels;

// Those that this processor can run, the best one first; null behind the last.
using kernel_list = const kernels* [4];
void list_kernels(kernel_list& list);

// For tests and benchmarks: those that pairs made from now on use, null for the best.
void choose_kernels(const kernels* chosen);
const kernels& chosen_kernels();

} // namespace fast
