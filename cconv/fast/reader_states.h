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

    state_reader(const pair& with, u32 state)
        : p_(with), states_(with.plan.source_states), codes_(*states_.codes) {
        for (std::size_t number = 0; number <= codes_.set_count; ++number) {
            transitions_[number].from = 0; // no state
        }
        enter(state);
    }
    void enter(u32 state) {
        const u32 number = set_in(state, shifted(state));
        const set_keys& keys = p_.plan.sets[number];
        const bool keeps = codes_.lines == line_reading::keep;
        const u32 behind = keeps ? state : codes_.line.applied_to(state); // a line break
        const bool may_break = codes_.lines != line_reading::refuse ||
                               (!keys.two_bytes && codes_.line.holds_in(state));
        const bool lines = may_break && set_in(behind, shifted(behind)) == number;
        now_ = {keys, state, number, lines, behind != state};
    }
    [[nodiscard]] u32 state() const { return now_.state; }

    [[nodiscard]] bool is_ascii(const u8* p) const { return now_.number == ascii_set && *p < 0x80; }
    [[nodiscard]] bool opens(const u8* p) const { return codes_.opens_sequence(*p); }
    // The length of a sequence that only changes the state; 0 if it is left to the rules.
    u32 sequence(std::span<const u8> text) {
        u32 bytes = 0;
        std::memcpy(&bytes, text.data(), std::min(text.size(), sizeof bytes));
        transition& usual = transitions_[now_.number];
        if (usual.from == now_.state && ((usual.bytes ^ bytes) & usual.mask) == 0 &&
            text.size() >= sizeof bytes) {
            now_ = usual.to;
            return usual.length;
        }
        const scanned read = states_.codec->scan(states_.group, now_.state, text);
        if (read.kind != scanned::silent) {
            return 0;
        }
        const u32 from = now_.state;
        enter(read.state);
        if (read.length <= sizeof bytes && text.size() >= sizeof bytes) {
            u32 mask = 0;
            std::memset(&mask, 0xFF, read.length);
            usual = {from, bytes, mask, read.length, now_};
        }
        return read.length;
    }

    // Handles single bytes that were read.
    void took(const u8* p, std::size_t n) {
        if (now_.clears && std::any_of(p, p + n, is_break)) {
            enter(codes_.line.applied_to(now_.state));
        }
    }

    [[nodiscard]] u32 length(const u8* p, std::size_t left) const {
        if (now_.set == nullptr) {
            return 0;
        }
        const bool has = may_be(*p, 0);
        if (has && now_.two_bytes) {
            return left < 2 || may_be(p[1], 1) ? 2 : 0;
        }
        // Below 80, the first set's code may stand for what the set lacks; the rule knows.
        return (has || *p < 0x80) && (now_.lines || !is_break(*p)) ? 1 : 0;
    }
    [[nodiscard]] u32 key(const u8* p, u32 length) const {
        return length == 1          ? now_.first_single | *p
               : p_.plan.eight_bits ? pair_of_bytes(p)
                                    : now_.first_pair | seven_bit_key(p);
    }

    static bool reads_blocks(const kernels& k) { return k.split_shifted != nullptr; }
    [[nodiscard]] chunk_read read(const u8* p, std::size_t chunks, u16* codes) const {
        if (!p_.plan.eight_bits) {
            return p_.kernel->split_shifted(p, chunks, shifts(), codes);
        }
        constexpr u16 first_pair = 0x1000; // keys below are single bytes
        p_.kernel->copy_units(p, codes, chunks, std::endian::native != std::endian::big);
        const std::span<const u16> read(codes, chunks * chunk_bytes / 2);
        const auto end = std::ranges::find_if(read, [](u16 code) { return code < first_pair; });
        const auto n = static_cast<std::size_t>(end - read.begin());
        return {n, 2 * n};
    }
    // The end of a block that was read: behind its codes, in the state of the last one.
    const u8* go_behind(const u8* p, std::span<const u16> codes) {
        for (const u16 code : codes) {
            while (opens(p)) {
                p += transitions_[now_.number].length;
                now_ = transitions_[now_.number].to;
            }
            p += is_pair(code) ? 2 : 1;
        }
        return p;
    }
    void enter_behind(u16 code) {
        if (is_pair(code) != now_.two_bytes) {
            now_ = transitions_[now_.number].to;
        }
    }

private:
    struct situation : set_keys {
        u32 state, number;  // of the set that is shifted in
        bool lines, clears; // whether line breaks are allowed here, and change the state
    };
    // A sequence that was read before.
    struct transition {
        u32 from, bytes, mask, length;
        situation to;
    };

    [[nodiscard]] bool is_pair(u16 code) const {
        return p_.plan.eight_bits || code < first_single_key;
    }
    // The sequences that shift from here to single bytes and back, if both were read before.
    [[nodiscard]] split_shifts shifts() const {
        split_shifts made{{}, {}, now_.first_pair, 0};
        const transition& there = transitions_[now_.number];
        const bool found =
            there.from == now_.state && !there.to.two_bytes && there.to.lines && !there.to.clears;
        const transition& back = transitions_[found ? there.to.number : now_.number];
        if (found && back.from == there.to.state && back.to.state == now_.state) {
            made.singles = there.to.first_single;
            made.to_singles = {std::bit_cast<std::array<u8, 4>>(there.bytes), there.length};
            made.to_pairs = {std::bit_cast<std::array<u8, 4>>(back.bytes), back.length};
        }
        return made;
    }

    [[nodiscard]] static bool is_break(u8 byte) { return byte == '\n' || byte == '\r'; }
    [[nodiscard]] bool may_be(u32 byte, u32 place) const { return now_.set->may_be(byte, place); }

    const pair& p_;
    const charset_states& states_;
    const iso2022& codes_;
    situation now_;
    std::array<transition, iso2022::most_sets + 1> transitions_; // the last one from each set
};

} // namespace fast
