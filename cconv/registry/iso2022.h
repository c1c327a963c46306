// The description of a charset with designations and shifts: ISO 2022, HZ, and EBCDIC with shift
// out and shift in.
//
// Four registers, G0 to G3, contain a coded set each, or none. One of them is shifted in: its set
// gives bytes their meaning. All that a conversion must remember between two characters is one
// word, the state.
#pragma once

#include "platform/base.h"

#include <algorithm>
#include <array>
#include <span>

// ---- The state ---------------------------------------------------------------------------------

// Four bits for the number of the set in each register, from 1 on; two bits for the register that
// is shifted in. One more bit distinguishes a state from the value that sessions begin with, which
// stands for the initial state. All fit into 30 bits, as the positions of Python's files have them.
inline constexpr u32 register_count = 4, register_bits = 4, shift_place = 16;
inline constexpr u32 is_state = 1U << 20, no_set = 0;

constexpr u32 register_mask(u32 which) {
    return 0xFU << which * register_bits;
}
constexpr u32 set_in(u32 state, u32 which) {
    return state >> which * register_bits & 0xF;
}
constexpr u32 with_set(u32 state, u32 which, u32 set) {
    return (state & ~register_mask(which)) | set << which * register_bits;
}
inline constexpr u32 shift_mask = 3U << shift_place;
constexpr u32 shifted(u32 state) {
    return (state & shift_mask) >> shift_place;
}
constexpr u32 with_shift(u32 state, u32 which) {
    return (state & ~shift_mask) | which << shift_place;
}

// Registers, and the sets that they must contain.
struct wanted_state {
    u32 value, mask;

    // A register that is to be empty may contain any set before.
    [[nodiscard]] constexpr bool holds_in(u32 state) const {
        u32 asked = mask;
        for (u32 which = 0; which < register_count; ++which) {
            asked = set_in(value, which) == no_set ? asked & ~register_mask(which) : asked;
        }
        return (state & asked) == (value & asked);
    }
    [[nodiscard]] constexpr u32 applied_to(u32 state) const {
        return (state & ~mask) | (value & mask);
    }
};

// ---- Sets and sequences ------------------------------------------------------------------------

struct graphic_set {
    char name[32];
    u8 width;             // number of bytes in a code
    u8 first[2], last[2]; // the range of each byte
    u8 member_count;
    std::array<u8, 8> members; // indexes of the charset's sets, searched in order
    u32 add;                   // added to the bytes to get a code of theirs

    [[nodiscard]] std::span<const u8> member_places() const {
        return std::span(members).first(member_count);
    }
    // Whether the set can have this code, whether or not a character is assigned to it.
    [[nodiscard]] constexpr bool may_hold(u32 code) const {
        return width == 1 ? code <= 0xFF && may_be(code, 0)
                          : code <= 0xFFFF && may_be(code >> 8, 0) && may_be(code & 0xFF, 1);
    }
    [[nodiscard]] constexpr bool may_be(u32 byte, u32 place) const {
        return byte >= first[place] && byte <= last[place];
    }
};

enum class sequence_kind : u8 {
    designation, // puts a set into a register
    shift,       // selects the register that gives bytes their meaning
    single,      // the same, for one code only
    literal      // stands for a code of the first set, or for nothing
};

struct control_sequence {
    sequence_kind kind;
    u8 length;
    std::array<u8, 4> bytes;
    u8 which;    // register
    u8 set;      // of a designation: the number of the set
    u8 inside;   // is valid only while this set is shifted in; 0: always
    bool header; // written at the beginning of every text that is not empty; at most one
    bool silent; // a literal that stands for nothing
    u8 code;     // literal
    [[nodiscard]] constexpr std::span<const u8> sequence() const {
        return std::span(bytes).first(length);
    }
};

enum class line_reading : u8 { keep, reset, refuse };

struct iso2022 {
    static constexpr std::size_t most_sets = 15, most_sequences = 40;

    std::array<graphic_set, most_sets> set_list;
    std::array<control_sequence, most_sequences> sequence_list;
    u8 set_count, sequence_count;
    u32 initial;
    wanted_state line, close; // before a line break is written, and at the end
    line_reading lines;       // how a line break is read in another state
    bool escapes;             // 0E, 0F and 1B are not characters
    u8 eight;                 // the register for bytes from A0 on; register_count: none
    std::array<u64, 4> opens; // the first bytes of all sequences

    [[nodiscard]] std::span<const graphic_set> sets() const {
        return std::span(set_list).first(set_count);
    }
    [[nodiscard]] std::span<const control_sequence> sequences() const {
        return std::span(sequence_list).first(sequence_count);
    }
    // Sets are numbered from 1.
    [[nodiscard]] const graphic_set& set(u32 number) const { return set_list[number - 1]; }
    [[nodiscard]] bool opens_sequence(u32 byte) const {
        return (opens[byte >> 6] >> (byte & 63) & 1) != 0;
    }
    [[nodiscard]] u32 state_of(u32 word) const { return (word & is_state) != 0 ? word : initial; }
};

// Whether a definition with the rule of that name has a record of this kind. The rules know.
bool goes_by_iso2022(const char* rule);
