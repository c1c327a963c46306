// What a definition says of codes that designations and shifts give their meaning: ISO 2022, HZ,
// and EBCDIC with shift out and in.
//
// Four registers, G0 to G3, hold a coded set each, or none; one of them is shifted in, and gives
// bytes their meaning. Everything that holds between two characters is one word, the state.
#pragma once

#include "platform/base.h"

#include <algorithm>
#include <array>
#include <span>

// ---- The state ---------------------------------------------------------------------------------

// Four bits for the set of each register, 1 for the first; two for the register shifted in. The
// highest bit tells a state from what sessions begin with, which stands for the initial one.
inline constexpr u32 register_count = 4, register_bits = 4, shift_place = 16;
inline constexpr u32 is_state = 1U << 31, no_set = 0;

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

// Registers, and what they are to hold.
struct wanted_state {
    u32 value, mask;

    // Registers that are to hold nothing may hold anything before.
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
    u8 width;             // bytes of a code
    u8 first[2], last[2]; // what each of them may be
    u8 member_count;
    std::array<u8, 8> members; // places among the charset's sets, tried in order
    u32 add;                   // makes a code of theirs of the bytes

    [[nodiscard]] std::span<const u8> member_places() const {
        return std::span(members).first(member_count);
    }
    // Whether the code is one of the set's, be there a character or not.
    [[nodiscard]] constexpr bool may_hold(u32 code) const {
        return width == 1 ? code <= 0xFF && may_be(code, 0)
                          : code <= 0xFFFF && may_be(code >> 8, 0) && may_be(code & 0xFF, 1);
    }
    [[nodiscard]] constexpr bool may_be(u32 byte, u32 place) const {
        return byte >= first[place] && byte <= last[place];
    }
};

enum class sequence_kind : u8 {
    designation, // fills a register
    shift,       // makes a register the one that gives bytes their meaning
    single,      // for one code
    literal      // stands for a code of the first set, or for nothing
};

struct control_sequence {
    sequence_kind kind;
    u8 length;
    std::array<u8, 4> bytes;
    u8 which;    // register
    u8 set;      // designation: its number
    u8 inside;   // holds only where this set is the one shifted in; 0: anywhere
    bool header; // stands at the begin of every text that is not empty; one at most
    bool silent; // literal: for nothing
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
    line_reading lines;       // what a line break is read as where that does not hold
    bool escapes;             // 0E, 0F and 1B are no characters
    u8 eight;                 // register of bytes from A0 on; none: register_count
    std::array<u64, 4> opens; // bytes that sequences begin with

    [[nodiscard]] std::span<const graphic_set> sets() const {
        return std::span(set_list).first(set_count);
    }
    [[nodiscard]] std::span<const control_sequence> sequences() const {
        return std::span(sequence_list).first(sequence_count);
    }
    // Sets count from 1.
    [[nodiscard]] const graphic_set& set(u32 number) const { return set_list[number - 1]; }
    [[nodiscard]] bool opens_sequence(u32 byte) const {
        return (opens[byte >> 6] >> (byte & 63) & 1) != 0;
    }
    [[nodiscard]] u32 state_of(u32 word) const { return (word & is_state) != 0 ? word : initial; }
};
