// The loop over ISO-2022-JP text, whose characters depend on the set designated last: each set has
// entries of its own. Between two characters escape sequences count as part of the one behind them.
#include "cconv/fast/loop.h"
#include "cconv/rulefunc/designations.h"

#include <algorithm>

namespace fast {

namespace {

class iso2022_loop {
public:
    iso2022_loop(const pair& p, const run& r) : p_(p), r_(r), ascii_(p) { choose(r.in_set); }

    run go() {
        r_.why = known_ ? stop::end : stop::by_rules; // of line controls, even
        in_ = next_block_ = r_.in;
        while (known_ && in_ < r_.in_end && step()) {
        }
        r_.next = in_;
        r_.next_set = set_;
        return r_;
    }

private:
    [[nodiscard]] std::size_t left() const { return static_cast<std::size_t>(r_.in_end - in_); }

    void choose(u32 setNo) {
        set_ = setNo;
        base_ = iso2022_base(setNo);
        double_byte_ = is_double_byte_set(setNo);
        known_ = (p_.plan.source_sets & designation_bit(setNo)) != 0;
    }

    // A character, a run or an escape sequence; false where the run ends.
    [[gnu::always_inline]] bool step() {
        if (*in_ == escape_byte) {
            return read_designation();
        }
        if (set_ == PVZAN_SET_ISO_646_IRV && *in_ < 0x80 && ascii_run()) {
            return true;
        }
        if (double_byte_ && *in_ > ' ' && in_ >= next_block_) {
            if (block()) {
                return true;
            }
            next_block_ = in_ + chunk_bytes; // what stopped one will not stand alone
        }
        const bool two = double_byte_ && !is_ascii_in_double_byte_text(*in_);
        const u32 length = two ? 2 : 1;
        if (length > left()) {
            return false;
        }
        if (*in_ >= 0x80 || (two && (*in_ < ' ' || in_[1] >= 0x80))) {
            return end(stop::by_rules);
        }
        const u32 key = base_ | (two ? iso2022_offset(in_) : *in_);
        const entry e = p_.entry_of(key);
        if (e.is_short()) {
            if (r_.out_end - r_.out < static_cast<std::ptrdiff_t>(e.length())) {
                return false;
            }
            put<true>(r_.out, r_.out_end, e, e.length());
            r_.out += e.length();
            ++r_.codes;
        } else if (!long_step(key, e, in_ + length)) {
            return false;
        }
        pass_character(key, length);
        return true;
    }

    bool end(stop why) {
        r_.why = why;
        return false;
    }

    // Plane 2 is the rules': they forget it after one character. So is what follows a CR, for a
    // line feed may.
    [[gnu::always_inline]] bool read_designation() {
        const designation* d = designation_at({in_, left()});
        if (d == nullptr || d->plane_flag != 0 || in_ == behind_cr_) {
            return end(stop::by_rules);
        }
        choose(d->setNo);
        in_ += d->length;
        return known_ || end(stop::by_rules);
    }

    // The run ends behind a character.
    [[gnu::always_inline]] void pass_character(u32 key, u32 length) {
        r_.before_last = r_.last;
        r_.last = key;
        in_ += length;
        r_.in = in_;
        r_.in_set = set_;
        ++r_.characters;
    }
    void pass_characters(std::size_t n, u32 length, u32 before_last, u32 last) {
        r_.last = n > 1 ? before_last : r_.last;
        in_ += (n - 1) * length;
        r_.characters += static_cast<u32>(n - 1);
        r_.codes += static_cast<u32>(n);
        pass_character(last, length);
    }

    bool ascii_run() {
        const std::size_t n = ascii_(in_, r_.in_end, r_.out, r_.out_end);
        if (n == 0) {
            return false;
        }
        r_.out += n * ascii_.target_bytes();
        pass_characters(n, 1, base_ | (n > 1 ? in_[n - 2] : 0), base_ | in_[n - 1]);
        return true;
    }

    // Converts the run of double-byte characters at in as far as it is known.
    bool block() {
        if (p_.plan.blocks == block_form::none || left() < chunk_bytes ||
            r_.out_end - r_.out < block_margin(chunk_codes)) {
            return false;
        }
        u16 codes[chunk_codes];
        const std::size_t pairs = p_.kernel->seven_bit_pairs(in_, static_cast<u16>(base_), codes);
        const block_written written = put_entries(p_, codes, pairs, r_.out);
        const std::size_t n = written.codes;
        if (n == 0) {
            return false;
        }
        r_.out += written.bytes;
        pass_characters(n, 2, n > 1 ? codes[n - 2] : 0, codes[n - 1]);
        return true;
    }

    [[gnu::always_inline]] bool long_step(u32 key, entry e, const u8* next) {
        const answer* a = e.is_long() ? p_.answer_of(key) : nullptr;
        if (a == nullptr) {
            return end(e.packed == entry::by_rules ? stop::by_rules : stop::unknown);
        }
        if (a->is_lf && in_ == behind_cr_) {
            return true; // dropped
        }
        if (r_.out_end - r_.out < static_cast<std::ptrdiff_t>(a->length)) {
            return false;
        }
        put<true>(r_.out, r_.out_end, *a, a->length);
        r_.out += a->length;
        r_.codes += a->codes;
        if (a->is_cr) {
            behind_cr_ = next;
        }
        return true;
    }

    const pair& p_;
    run r_;
    ascii_runs ascii_;
    u32 set_, base_;
    bool double_byte_, known_;
    const u8* in_ = nullptr; // ahead of the run by escape sequences
    const u8* next_block_ = nullptr;
    const u8* behind_cr_ = nullptr; // where a line feed is dropped
};

} // namespace

void run_iso2022(pair& p, run& r) {
    r = iso2022_loop(p, r).go();
}

} // namespace fast
