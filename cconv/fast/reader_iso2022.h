// How the loop reads ISO-2022-JP, whose characters depend on the set designated last: each set has
// entries of its own.
#pragma once

#include "cconv/fast/readers.h"
#include "cconv/rulefunc/designations.h"

namespace fast {

class iso2022_reader {
public:
    static constexpr bool scalars = false, has_sets = true;
    static constexpr u32 unit_bytes = 1, usual_length = 2;
    static constexpr std::ptrdiff_t longest = 2;
    static constexpr stop stop_without_length = stop::by_rules;

    iso2022_reader(const pair& with, u32 setNo) : p_(with) { designate(setNo); }
    void designate(u32 setNo) {
        set_ = setNo;
        base_ = iso2022_base(setNo);
        double_byte_ = is_double_byte_set(setNo);
    }
    [[nodiscard]] u32 designated() const { return set_; }
    [[nodiscard]] static bool opens(const u8* p) { return *p == escape_byte; }
    // The bytes of an escape sequence; 0: the rules see to it. Plane 2 they forget after one
    // character.
    u32 sequence(std::span<const u8> text) {
        const designation* d = designation_at(text);
        if (d == nullptr || d->plane_flag != 0) {
            return 0;
        }
        designate(d->setNo);
        return static_cast<u32>(d->length);
    }

    [[nodiscard]] bool is_ascii(const u8* p) const {
        return set_ == PVZAN_SET_ISO_646_IRV && *p < 0x80;
    }
    static void took(const u8*, std::size_t) {}
    [[nodiscard]] u32 length(const u8* p, std::size_t left) const {
        const bool two = double_byte_ && !is_ascii_in_double_byte_text(*p);
        if (base_ == no_base || *p >= 0x80 || (two && (*p < ' ' || (left > 1 && p[1] >= 0x80)))) {
            return 0;
        }
        return two ? 2 : 1;
    }
    [[nodiscard]] u32 key(const u8* p, u32 length) const {
        return base_ | (length == 2 ? iso2022_offset(p) : *p);
    }

    [[nodiscard]] chunk_read read(const u8* p, std::size_t chunks, u16* codes) const {
        const std::size_t n = p_.kernel->seven_bit_pairs(p, chunks, static_cast<u16>(base_), codes);
        return {n, 2 * n};
    }
    static const u8* behind(const u8* p, std::span<const u16> codes) {
        return p + 2 * codes.size();
    }

private:
    const pair& p_;
    u32 set_ = 0, base_ = no_base;
    bool double_byte_ = false;
};

} // namespace fast
