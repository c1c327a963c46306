// Reads text in which designations and shifts give codes their meaning. The state is one word, and
// each set has entries of its own.
//
// With seven-bit codes, each of the first three two-byte sets has a quarter of the keys, and others
// have none; the last quarter is for single bytes, 256 for each set. If bytes are larger, the codes
// of one two-byte set are its keys.
#pragma once

#include "cconv/fast/readers.h"

#include <algorithm>

namespace fast {

class state_reader {
public:
    static constexpr bool scalars = false, has_states = true;
    static constexpr u32 unit_bytes = 1, usual_length = 2;
    static constexpr std::ptrdiff_t longest = 2;
    static constexpr stop stop_without_length = stop::by_rules;

    state_reader(const pair& with, u32 state)
        : p_(with), states_(with.plan.source_states), codes_(*states_.codes),
          opens_first_(with.plan.opens_first), opens_more_(with.plan.opens_more),
          keeps_(codes_.lines == line_reading::keep) {
        enter(state);
    }
    void enter(u32 state) {
        state_ = state;
        const u32 number = set_in(state, shifted(state));
        set_ = p_.plan.sets[number];
        if (!keeps_) {
            see_to_lines(number);
        }
    }
    [[nodiscard]] u32 state() const { return state_; }

    [[nodiscard]] bool is_ascii(const u8* p) const { return set_.is_first && *p < 0x80; }
    [[nodiscard]] bool opens(const u8* p) const {
        return static_cast<u8>(*p - opens_first_) <= opens_more_;
    }
    // The length of a sequence that only changes the state; 0 if it is left to the rules.
    u32 sequence(std::span<const u8> text) {
        const scanned read = states_.codec->scan(states_.group, state_, text);
        if (read.kind != scanned::silent) {
            return 0;
        }
        enter(read.state);
        return read.length;
    }

    // Handles single bytes that were read.
    void took(const u8* p, std::size_t n) {
        const auto is_break = [](u8 byte) { return byte == '\n' || byte == '\r'; };
        if (clears_ && std::any_of(p, p + n, is_break)) {
            enter(codes_.line.applied_to(state_));
        }
    }

    [[nodiscard]] u32 length(const u8* p, std::size_t left) const {
        if (!set_.has_keys) {
            return 0;
        }
        if (may_be(*p, 0)) {
            const bool breaks = *p == '\n' || *p == '\r';
            return set_.two_bytes      ? (left < 2 || may_be(p[1], 1) ? 2 : 0)
                   : !breaks || lines_ ? 1
                                       : 0;
        }
        return may_be_first_set(*p) ? 1 : 0;
    }
    [[nodiscard]] u32 key(const u8* p, u32 length) const {
        return length == 1          ? set_.single_base | *p
               : p_.plan.eight_bits ? pair_of_bytes(p)
                                    : set_.base | seven_bit_key(p);
    }

    [[nodiscard]] chunk_read read(const u8* p, std::size_t chunks, u16* codes) const {
        if (!p_.plan.eight_bits) {
            const std::size_t n =
                p_.kernel->seven_bit_pairs(p, chunks, static_cast<u16>(set_.base), codes);
            return {n, 2 * n};
        }
        constexpr std::size_t step = chunk_bytes / 2;
        constexpr u16 first_pair = 0x1000; // keys below are single bytes
        for (std::size_t at = 0; at < chunks * step; at += step) {
            p_.kernel->copy_units(p + 2 * at, codes + at, std::endian::native != std::endian::big);
            const std::span<const u16> read(codes + at, step);
            const auto end = std::ranges::find_if(read, [](u16 code) { return code < first_pair; });
            if (end != read.end()) {
                const auto n = at + static_cast<std::size_t>(end - read.begin());
                return {n, 2 * n};
            }
        }
        return {chunks * step, chunks * chunk_bytes};
    }
    static const u8* behind(const u8* p, std::span<const u16> codes) {
        return p + 2 * codes.size();
    }

private:
    // Whether line breaks are allowed here, and whether they change the state.
    void see_to_lines(u32 number) {
        const bool refuses = codes_.lines == line_reading::refuse;
        const u32 behind = codes_.line.applied_to(state_);
        clears_ = behind != state_;
        lines_ = (!refuses || (!set_.two_bytes && codes_.line.holds_in(state_))) &&
                 shifted(behind) == shifted(state_) && set_in(behind, shifted(behind)) == number;
    }
    [[nodiscard]] bool may_be(u32 byte, u32 place) const {
        return byte >= set_.first[place] && byte <= set_.last[place];
    }
    // Used in place of a set that lacks the byte.
    [[nodiscard]] bool may_be_first_set(u8 byte) const {
        const bool breaks = byte == '\n' || byte == '\r';
        const bool control =
            breaks || byte == '\t' || (!set_.two_bytes && (byte <= ' ' || byte == 0x7F));
        return control && (!breaks || lines_) && codes_.lines != line_reading::refuse &&
               codes_.set(ascii_set).may_be(byte, 0);
    }

    const pair& p_;
    const charset_states& states_;
    const iso2022& codes_;
    set_keys set_; // of the set that is shifted in
    u32 state_;
    u8 opens_first_, opens_more_;
    bool keeps_, lines_ = true, clears_ = false;
};

} // namespace fast
