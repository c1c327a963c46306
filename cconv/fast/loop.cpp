// The loop over a run of characters that the rules have answered about.
//
// The way from one input position to the next must not wait for a table: a source character's
// length comes from a branch on its lead byte, never from the entry. The loop makes two passes: one
// that may touch bytes behind what it reads and writes, in blocks where that pays; and one to the
// ends of input and output.
#include "cconv/fast/loop.h"

#include <algorithm>

namespace fast {

namespace {

// Native integers, most significant byte first where asked for.
constexpr bool swapped(bool big_endian) {
    return big_endian != (std::endian::native == std::endian::big);
}

void put_units(const kernels& k, const u16* scalars, std::size_t count, u8* out, bool big_endian) {
    constexpr std::size_t step = chunk_bytes / 2;
    for (std::size_t at = 0; at < count; at += step) {
        k.copy_units(scalars + at, out + 2 * at, swapped(big_endian));
    }
}

block_written put_block(const pair& p, const u16* scalars, std::size_t count, u8* out) {
    if (p.plan.blocks == block_form::entries) {
        return put_entries(p, scalars, count, out);
    }
    const kernels& k = *p.kernel;
    count = k.plain_scalars(scalars, count, std::span(p.plan.stops).first(p.plan.stop_count));
    switch (p.plan.blocks) {
    case block_form::utf8: return {count, k.encode_utf8(scalars, count, out)};
    case block_form::units_big: put_units(k, scalars, count, out, true); return {count, 2 * count};
    case block_form::units_little:
        put_units(k, scalars, count, out, false);
        return {count, 2 * count};
    case block_form::quads_big: k.put_quads(scalars, count, out, true); break;
    default: k.put_quads(scalars, count, out, false); break;
    }
    return {count, 4 * count};
}

template <typename Reader, bool Designates>
class loop {
public:
    loop(const pair& p, run& r)
        : p_(p), r_(r), reader_(p), ascii_(p),
          slot_count_(p.slot_count.load(std::memory_order_acquire)) {
        for (u32 i = 0; Designates && i <= slot_count_; ++i) {
            slots_[i] = p.slots[i];
        }
    }

    void go() {
        r_.why = stop::end;
        if (r_.in_end - r_.in >= Reader::longest && r_.out_end - r_.out > out_margin) {
            pass<false>();
            if (short_of_room_ && !pass_aside()) {
                pass<false>();
            }
        }
        if (r_.why == stop::end && r_.in < r_.in_end) {
            pass<true>();
        }
    }

private:
    // What a step changes, kept in registers: what is called gets and gives it in the run.
    struct progress {
        const u8* in;
        u8* out;
        u32 characters, codes, last, before_last;
    };
    [[gnu::always_inline]] progress at() const {
        return {r_.in, r_.out, r_.characters, r_.codes, r_.last, r_.before_last};
    }
    [[gnu::always_inline]] void set(const progress& now) {
        r_.in = now.in;
        r_.out = now.out;
        r_.characters = now.characters;
        r_.codes = now.codes;
        r_.last = now.last;
        r_.before_last = now.before_last;
    }

    template <bool Exact>
    void pass() {
        progress now = at();
        const u8* const in_end = r_.in_end;
        const u8* const out_end = r_.out_end;
        const u8* const in_stop = Exact ? in_end : in_end - (Reader::longest - 1);
        const u8* const out_stop = Exact ? out_end : out_end - out_margin;
        const u8* next_block = !Exact && may_open_block() ? now.in : in_end;
        bool in_run = ascii_.known(); // of ASCII, for which there is a quicker way than blocks
        while (now.in < in_stop && (Exact || now.out < out_stop)) {
            const auto left = static_cast<std::size_t>(in_end - now.in);
            const u32 length = reader_.length(now.in, left);
            const bool tries_run =
                in_run && (!Exact || left >= Reader::unit_bytes) && Reader::is_ascii(now.in);
            const bool tries_block =
                !Exact && now.in >= next_block && Reader::may_open_chunk(length);
            if (tries_run || tries_block) {
                set(now);
                bool moved = tries_run && ascii_run();
                if (!moved && tries_block) {
                    moved = block();
                    // Short runs of ASCII go with blocks.
                    in_run = moved ? ascii_.known() && ends_in_ascii_ : in_run;
                    // What stopped one will not stand alone.
                    next_block = moved ? r_.in : r_.in + chunk_bytes;
                }
                if (short_of_room_) {
                    break;
                }
                if (moved) {
                    now = at();
                    continue;
                }
            }
            // One branch for each length: the next position then does not wait for the table.
            u32 key = 0;
            const u8* next = nullptr;
            if (length == Reader::usual_length && (!Exact || length <= left)) {
                key = Reader::key(now.in, Reader::usual_length);
                next = now.in + Reader::usual_length;
            } else if (length != 0 && (!Exact || length <= left)) {
                key = Reader::key(now.in, length);
                next = now.in + length;
            } else {
                r_.why = length == 0 ? Reader::stop_without_length : stop::end;
                break;
            }
            const entry e = p_.entry_of(key);
            if (e.is_short()) {
                if (!designate<Exact>(e.slot(), e.length(), now.out)) {
                    break;
                }
                put<Exact>(now.out, out_end, e, e.length());
                now.out += e.length();
                ++now.codes;
            } else {
                set(now);
                if (!long_step<Exact>(next, key, e)) {
                    break;
                }
                now = at();
            }
            now.before_last = now.last;
            now.last = key;
            now.in = next;
            ++now.characters;
        }
        set(now);
        r_.next = now.in;
    }

    // Makes sure that there is room for so many bytes, and that their set is designated.
    template <bool Exact>
    [[gnu::always_inline]] bool designate(u32 slot, u32 length, u8*& out) {
        const std::ptrdiff_t room = r_.out_end - out;
        if constexpr (Designates) {
            const slot_designation& wanted = slots_[slot % most_slots];
            if (slot > slot_count_) {
                r_.why = stop::unknown; // newer than this loop
                return false;
            }
            if (wanted.setNo != r_.out_set) {
                if (Exact && room < static_cast<std::ptrdiff_t>(sizeof wanted.bytes + length)) {
                    return designate_near_end(wanted, length, out);
                }
                std::memcpy(out, wanted.bytes, sizeof wanted.bytes);
                out += wanted.length;
                r_.out_set = wanted.setNo;
                return true;
            }
        }
        return !Exact || room >= static_cast<std::ptrdiff_t>(length);
    }
    bool designate_near_end(const slot_designation& wanted, u32 length, u8*& out) {
        if (r_.out_end - out < static_cast<std::ptrdiff_t>(wanted.length + length)) {
            return false;
        }
        std::copy_n(wanted.bytes, wanted.length, out);
        out += wanted.length;
        r_.out_set = wanted.setNo;
        return true;
    }

    // Close to the end of the output, blocks go into a buffer aside first, and across if all of it
    // fits.
    bool pass_aside() {
        u8 aside[2 * block_margin(block_codes)];
        const run before = r_;
        const u8* const behind_cr = behind_cr_;
        const std::ptrdiff_t room = before.out_end - before.out;
        may_go_aside_ = short_of_room_ = false;
        r_.out = aside;
        r_.out_end = aside + room + block_margin(block_codes);
        pass<false>();
        const std::ptrdiff_t written = r_.out - aside;
        if (written > room) {
            r_ = before;
            behind_cr_ = behind_cr;
            return false;
        }
        std::copy_n(aside, written, before.out);
        r_.out = before.out + written;
        r_.out_end = before.out_end;
        return true;
    }

    bool ascii_run() {
        if (Designates && slots_[ascii_.slot()].setNo != r_.out_set) {
            return false;
        }
        const std::size_t n = ascii_(r_.in, r_.in_end, r_.out, r_.out_end);
        if (n == 0) {
            return false;
        }
        r_.in += n * Reader::unit_bytes;
        r_.out += n * ascii_.target_bytes();
        count(n);
        if constexpr (!Reader::scalars) {
            r_.before_last = n > 1 ? r_.in[-2] : r_.last;
            r_.last = r_.in[-1];
        }
        return true;
    }

    void count(std::size_t n) {
        r_.characters += static_cast<u32>(n);
        r_.codes += static_cast<u32>(n);
    }

    // Converts as much of the block at hand as stands for itself; false when that is nothing.
    bool block() {
        const std::ptrdiff_t room = r_.out_end - r_.out;
        short_of_room_ = may_go_aside_ && room < block_margin(block_codes);
        while (chunks_ > 1 && room < block_margin(chunks_ * chunk_codes)) {
            chunks_ /= 2;
        }
        if (short_of_room_ || room < block_margin(chunk_codes)) {
            return false;
        }
        u16 codes[block_codes + chunk_codes]; // vectors reach behind the last
        chunk_read read{0, 0};
        for (std::size_t chunk = 0; chunk < chunks_ && has_chunk(r_.in + read.bytes); ++chunk) {
            const chunk_read more = reader_.chunk(r_.in + read.bytes, codes + read.codes);
            read.codes += more.codes;
            read.bytes += more.bytes;
            if (more.bytes < Reader::full_chunk) {
                break;
            }
        }
        const block_written written = put_block(p_, codes, read.codes, r_.out);
        const std::size_t n = written.codes;
        const u8* const begin = r_.in;
        if (n == read.codes) {
            r_.in += read.bytes;
            chunks_ = std::min(2 * chunks_, block_chunks);
        } else {
            r_.in = Reader::behind(r_.in, std::span(codes).first(n));
            chunks_ = 1; // where blocks end early, reading ahead is in vain
        }
        if (n == 0) {
            return false;
        }
        r_.out += written.bytes;
        count(n);
        ends_in_ascii_ = Reader::unit_bytes > 1 ? Reader::is_ascii(r_.in - Reader::unit_bytes)
                                                : static_cast<std::size_t>(r_.in - begin) == n;
        if constexpr (!Reader::scalars) {
            r_.before_last = n > 1 ? codes[n - 2] : r_.last;
            r_.last = codes[n - 1];
        }
        return true;
    }
    // Not where the first character would end it: such runs are many where a text is full of what
    // the rules must see.
    [[nodiscard]] bool may_open_block() const {
        if (p_.plan.blocks == block_form::none || !has_chunk(r_.in)) {
            return false;
        }
        const u32 length = reader_.length(r_.in, static_cast<std::size_t>(r_.in_end - r_.in));
        return p_.plan.blocks != block_form::entries ||
               (length != 0 && p_.entry_of(Reader::key(r_.in, length)).is_short());
    }
    [[nodiscard]] bool has_chunk(const u8* in) const {
        return r_.in_end - in >= static_cast<std::ptrdiff_t>(chunk_bytes);
    }

    // A character with an answer of its own.
    template <bool Exact>
    bool long_step(const u8* next, u32 key, entry e) {
        const answer* a = e.is_long() ? p_.answer_of(key) : nullptr;
        if (a == nullptr) {
            r_.why = e.packed == entry::by_rules ? stop::by_rules : stop::unknown;
            return false;
        }
        if (a->is_lf && r_.in == behind_cr_) {
            return true; // dropped
        }
        u8* out = r_.out;
        if (!designate<Exact>(a->slot, a->length, out)) {
            return false;
        }
        put<Exact>(out, r_.out_end, *a, a->length);
        r_.out = out + a->length;
        r_.codes += a->codes;
        if (a->is_cr) {
            behind_cr_ = next;
        }
        return true;
    }

    const pair& p_;
    run& r_;
    Reader reader_;
    ascii_runs ascii_;
    u32 slot_count_;
    slot_designation slots_[Designates ? most_slots : 1]{};
    std::size_t chunks_ = 1; // to read for the next block
    bool may_go_aside_ = true, short_of_room_ = false, ends_in_ascii_ = false;
    const u8* behind_cr_ = nullptr; // where a line feed is dropped
};

template <typename Reader>
void run_reader(const pair& p, run& r) {
    if (p.plan.target->designates) {
        loop<Reader, true>(p, r).go();
    } else {
        loop<Reader, false>(p, r).go();
    }
}

} // namespace

block_written put_entries(const pair& p, const u16* codes, std::size_t count, u8* out) {
    u8* const begin = out;
    u32 odd = 0;
#pragma GCC unroll 4
    for (std::size_t i = 0; i < count; ++i) {
        const entry e = p.entry_of(codes[i]);
        e.store(out);
        out += e.packed / entry::one_byte; // the length; none, where it is not short
        odd |= e.odd();
    }
    if (odd >> 31 == 0) {
        return {count, static_cast<std::size_t>(out - begin)};
    }
    // Others may have been asked about by now, and were not written above: once more.
    block_written written{0, 0};
    for (; written.codes < count; ++written.codes) {
        const entry e = p.entry_of(codes[written.codes]);
        if (!e.is_short()) {
            break;
        }
        e.store(begin + written.bytes);
        written.bytes += e.length();
    }
    return written;
}

void run_over(pair& p, run& r) {
    switch (p.plan.reader) {
    case reader::lead_bytes: run_reader<lead_byte_reader>(p, r); break;
    case reader::utf8: run_reader<utf8_reader>(p, r); break;
    case reader::unit_big: run_reader<unit_reader<2, true>>(p, r); break;
    case reader::unit_little: run_reader<unit_reader<2, false>>(p, r); break;
    case reader::quad_big: run_reader<unit_reader<4, true>>(p, r); break;
    case reader::quad_little: run_reader<unit_reader<4, false>>(p, r); break;
    case reader::iso2022: run_iso2022(p, r); break;
    }
}

} // namespace fast
