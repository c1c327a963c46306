// The loop over ISO-2022-JP text, whose characters depend on the set designated last: each set has
// entries of its own. Between two characters escape sequences count as part of the one behind them.
#include "cconv/fast/loop.h"
#include "cconv/rulefunc/designations.h"

#include <algorithm>

namespace fast {

namespace {

// A set of the source that entries are for.
struct source_set {
    u32 setNo, base;
    bool known; // the charset has it, in the width that the keys are for
    bool double_byte;
};

source_set find_set(const charset_group* group, u32 setNo) {
    const basic_set* set = designated_set(group, setNo);
    const bool double_byte = is_double_byte_set(setNo);
    const bool known = set != nullptr && is_double_byte_width(set->byteNum) == double_byte;
    return {setNo, iso2022_base(setNo), known, double_byte};
}

class iso2022_loop {
public:
    iso2022_loop(const pair& p, run& r)
        : p_(p), r_(r), ascii_(p), set_(find_set(p.key.source, r.in_set)) {}

    void go() {
        r_.why = stop::by_rules;
        if (!set_.known) {
            return; // there the rules refuse even line controls
        }
        in_ = next_block_ = r_.in;
        r_.why = stop::end;
        while (in_ < r_.in_end && step()) {
        }
    }

private:
    [[nodiscard]] std::size_t left() const { return static_cast<std::size_t>(r_.in_end - in_); }

    // A character, a run or an escape sequence; false where the run ends.
    bool step() {
        if (*in_ == escape_byte) {
            return read_designation();
        }
        if (set_.setNo == PVZAN_SET_ISO_646_IRV && *in_ < 0x80 && ascii_run()) {
            return true;
        }
        if (set_.double_byte && *in_ > ' ' && in_ >= next_block_) {
            if (block()) {
                return true;
            }
            next_block_ = in_ + chunk_bytes; // what stopped one will not stand alone
        }
        const bool two = set_.double_byte && !is_ascii_in_double_byte_text(*in_);
        const u32 length = two ? 2 : 1;
        if (length > left()) {
            return false;
        }
        if (*in_ >= 0x80 || (two && (*in_ < ' ' || in_[1] >= 0x80))) {
            return end(stop::by_rules);
        }
        const u32 key = set_.base | (two ? iso2022_offset(in_) : *in_);
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

    // Plane 2 is the rules': they forget it after one character. So is what follows a CR, for a line
    // feed may.
    bool read_designation() {
        const designation* d = designation_at({in_, left()});
        if (d == nullptr || d->plane_flag != 0 || in_ == behind_cr_) {
            return end(stop::by_rules);
        }
        set_ = find_set(p_.key.source, d->setNo);
        in_ += d->length;
        return set_.known || end(stop::by_rules);
    }

    // The run ends behind a character.
    void pass_character(u32 key, u32 length) {
        r_.before_last = r_.last;
        r_.last = key;
        in_ += length;
        r_.in = in_;
        r_.in_set = set_.setNo;
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
        pass_characters(n, 1, set_.base | (n > 1 ? in_[n - 2] : 0), set_.base | in_[n - 1]);
        return true;
    }

    // Converts the run of double-byte characters at in as far as it is known.
    bool block() {
        if (p_.plan.blocks == block_form::none || left() < chunk_bytes ||
            r_.out_end - r_.out < block_margin(chunk_codes)) {
            return false;
        }
        u16 codes[chunk_codes];
        const std::size_t pairs =
            p_.kernel->seven_bit_pairs(in_, static_cast<u16>(set_.base), codes);
        const block_written written = put_entries(p_, codes, pairs, r_.out);
        const std::size_t n = written.codes;
        if (n == 0) {
            return false;
        }
        r_.out += written.bytes;
        pass_characters(n, 2, n > 1 ? codes[n - 2] : 0, codes[n - 1]);
        return true;
    }

    bool long_step(u32 key, entry e, const u8* next) {
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
    run& r_;
    ascii_runs ascii_;
    source_set set_;
    const u8* in_ = nullptr; // ahead of the run by escape sequences
    const u8* next_block_ = nullptr;
    const u8* behind_cr_ = nullptr; // where a line feed is dropped
};

} // namespace

void run_iso2022(pair& p, run& r) {
    iso2022_loop(p, r).go();
}

} // namespace fast
