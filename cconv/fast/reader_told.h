// How the loop reads text whose definition says what gives codes their meaning: by the state, one
// word. Each set has entries of its own.
//
// In seven bits the first three sets of two bytes have a quarter of the keys each, the others none;
// single bytes share the last one. Where bytes reach further, one set of two bytes is its own keys.
#pragma once

#include "cconv/fast/readers.h"
#include "cconv/rulefunc/iso2022.h"

#include <algorithm>

namespace fast {

class told_reader {
public:
    static constexpr bool scalars = false, has_sets = true;
    static constexpr u32 unit_bytes = 1, usual_length = 2;
    static constexpr std::ptrdiff_t longest = 2;
    static constexpr stop stop_without_length = stop::by_rules;

    told_reader(const pair& with, u32 state)
        : p_(with), group_(with.plan.source_group), told_(*group_->codes) {
        designate(state);
    }
    void designate(u32 state) {
        state_ = state;
        const u32 number = set_in(state, shifted(state));
        set_ = number != no_set ? &told_.set(number) : nullptr;
        base_ = number != no_set ? p_.plan.bases[number] : no_base;
        const bool two = set_ == nullptr || set_->width > 1;
        two_ = set_ != nullptr && two;
        // Of line breaks: whether they may stand here, and whether the state is another one behind.
        const u32 behind = told_.lines == line_reading::keep ? state : told_.line.applied_to(state);
        clears_ = behind != state;
        lines_ = (told_.lines != line_reading::refuse || (!two && told_.line.holds_in(state))) &&
                 shifted(behind) == shifted(state) && set_in(behind, shifted(behind)) == number;
        controls_ = !two;
    }
    [[nodiscard]] u32 designated() const { return state_; }

    [[nodiscard]] bool is_ascii(const u8* p) const { return set_ == &told_.set(1) && *p < 0x80; }
    [[nodiscard]] bool opens(const u8* p) const { return told_.opens_sequence(*p); }
    // The bytes of a sequence that changes the state and nothing else; 0: the rules see to it.
    u32 sequence(std::span<const u8> text) {
        const scanned read = iso2022_read(group_, state_, text);
        if (read.kind != scanned::silent) {
            return 0;
        }
        designate(read.state);
        return read.length;
    }

    // Single bytes that were read.
    void took(const u8* p, std::size_t n) {
        const auto is_break = [](u8 byte) { return byte == '\n' || byte == '\r'; };
        if (clears_ && std::any_of(p, p + n, is_break)) {
            designate(told_.line.applied_to(state_));
        }
    }

    [[nodiscard]] u32 length(const u8* p, std::size_t left) const {
        const bool breaks = *p == '\n' || *p == '\r';
        if (base_ == no_base || (breaks && !lines_)) {
            return 0;
        }
        if (set_->may_be(*p, 0)) {
            return !two_ ? 1 : left < 2 || set_->may_be(p[1], 1) ? 2 : 0;
        }
        return breaks || *p == '\t' || (controls_ && (*p <= ' ' || *p == 0x7F)) ? in_first(p) : 0;
    }
    [[nodiscard]] u32 key(const u8* p, u32 length) const {
        if (length == 2) {
            return p_.plan.eight_bits ? pair_of_bytes(p) : base_ | iso2022_offset(p);
        }
        return (set_->may_be(*p, 0) && !two_ ? base_ : p_.plan.bases[1]) | *p;
    }

    [[nodiscard]] chunk_read read(const u8* p, std::size_t chunks, u16* codes) const {
        if (!p_.plan.eight_bits) {
            const std::size_t n =
                p_.kernel->seven_bit_pairs(p, chunks, static_cast<u16>(base_), codes);
            return {n, 2 * n};
        }
        constexpr std::size_t step = chunk_bytes / 2;
        constexpr u16 first_pair = 0x1000; // below are single bytes
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
    [[nodiscard]] u32 in_first(const u8* p) const {
        return told_.lines != line_reading::refuse && told_.set(1).may_be(*p, 0) ? 1 : 0;
    }

    const pair& p_;
    const charset_group* group_;
    const iso2022& told_;
    const graphic_set* set_ = nullptr; // shifted in
    u32 state_ = 0, base_ = no_base;
    bool two_ = false, lines_ = false, clears_ = false, controls_ = false;
};

} // namespace fast
