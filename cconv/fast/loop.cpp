// The loop over a run of characters for which there are answers. Designations and shifts between
// two characters count as part of the second one.
//
// Finding the next input position must not wait for a table: the length of a source character comes
// from a branch on its lead byte, never from the entry.
#include "cconv/fast/reader_states.h"

#include <algorithm>
#include <type_traits>

namespace fast {

namespace {

// Bytes that a chunk of codes with escape sequences takes at most, and that a block may touch.
constexpr std::ptrdiff_t chunk_margin = 8 * chunk_codes,
                         block_margin = block_chunks * chunk_margin + kernel_margin;

// Writes the bytes of a character; if there is little room, only these.
void put(u8* out, const u8* out_end, u64 bytes, u32 length) {
    if (out_end - out >= static_cast<std::ptrdiff_t>(sizeof bytes)) {
        store_low_first(bytes, out);
        return;
    }
    for (u32 i = 0; i < length; ++i) {
        out[i] = static_cast<u8>(bytes >> 8 * i);
    }
}

block_written put_block(const pair& p, const u16* codes, std::size_t count, u8* out) {
    if (!p.plan.by_form) {
        return p.kernel->put_entries(p.entries, codes, count, out);
    }
    const kernels& k = *p.kernel;
    const ascii_unit unit = p.plan.target_unit;
    count = k.plain_scalars(codes, count, p.plan.stops);
    if (unit.bytes == 1) {
        return {count, k.encode_utf8(codes, count, out)};
    }
    if (unit.bytes == 4) {
        k.put_quads(codes, count, out, unit.big_endian);
        return {count, 4 * count};
    }
    const bool swaps = unit.big_endian != (std::endian::native == std::endian::big);
    k.copy_units(codes, out, (2 * count + chunk_bytes - 1) / chunk_bytes, swaps);
    return {count, 2 * count};
}

template <typename Reader>
class loop {
public:
    loop(const pair& p, run& r)
        : p_(p), r_(r), reader_(p, r.in_state), target_(p.plan.target_unit),
          to_(p.plan.target_states.codes),
          at_hand_(to_ != nullptr ? set_at_hand(*to_, r.out_state) : 0),
          has_runs_(!p.plain_ascii.is_empty() && (Reader::unit_bytes == 1 || target_.bytes == 1)),
          goes_at_once_(goes_at_once(p)), has_blocks_(goes_at_once_ || reads_blocks(p)) {
        if (has_blocks_ && r.in_end - r.in >= std::ptrdiff_t{chunk_bytes}) {
            next_block_ = r.in + (Reader::longest - 1); // kernels look at bytes before it
        }
        tables_.made = false;
        for (std::size_t set = 0; to_ != nullptr && set < ways_.size(); ++set) {
            ways_[set].from = 0;
        }
    }

    void go() {
        r_.why = stop::end;
        progress now = r_;  // in registers; functions that are called get and return it in the run
        const pair& p = p_; // copies that output cannot overwrite
        const std::conditional_t<has_states, const Reader&, const Reader> reader = reader_;
        const u8* const in_end = r_.in_end;
        const u8* const in_stop = in_end - std::min(Reader::longest - 1, in_end - now.in);
        const u8* const out_stop = // where there is room for a word
            r_.out_end - std::min(std::ptrdiff_t{entry::most_bytes}, r_.out_end - now.out);
        // A few characters are not worth a kernel.
        constexpr std::ptrdiff_t few = 4 * Reader::unit_bytes;
        const u8* const run_stop = has_runs_ ? in_end - std::min(few - 1, in_end - now.in) : now.in;
        u32 least = entry::least_of(at_hand_);
        while (now.in < in_stop || is_whole(now.in)) {
            if constexpr (has_states) {
                if (reader.opens(now.in)) {
                    if (!read_sequence(now)) {
                        break;
                    }
                    continue;
                }
            }
            const u32 length = reader.length(now.in, Reader::longest);
            const bool is_long = Reader::unit_bytes == 1 && length == Reader::usual_length;
            const bool tries_run = !is_long && now.in < run_stop && reader.is_ascii(now.in) &&
                                   reader.is_ascii(now.in + few - Reader::unit_bytes);
            const bool tries_block = now.in >= next_block_ && (has_states ? is_long : length != 0);
            if (tries_run || tries_block) [[unlikely]] {
                r_.set(now);
                if ((tries_run && ascii_run()) || (tries_block && block())) {
                    now = r_;
                    least = entry::least_of(at_hand_);
                    continue;
                }
            }
            // There is one branch for each length, so that the next position does not wait for the
            // table.
            if (length == Reader::usual_length) [[likely]] {
                const u32 key = reader.key(now.in, Reader::usual_length);
                if (!step(p, now, out_stop, least, key, Reader::usual_length)) {
                    break;
                }
            } else if (length != 0) {
                if (!step(p, now, out_stop, least, reader.key(now.in, length), length)) {
                    break;
                }
                if constexpr (has_states) {
                    reader_.took(now.in - length, length);
                }
            } else {
                r_.why = stop::by_rules;
                break;
            }
        }
        r_.set(now);
        end_pass();
    }

private:
    static constexpr bool has_states = Reader::has_states;
    static bool reads_blocks(const pair& p) {
        return Reader::reads_blocks(*p.kernel) &&
               (!p.plan.by_form || p.kernel->plain_scalars != nullptr);
    }
    // Whether a kernel converts its input to output without blocks.
    static bool goes_at_once(const pair& p) {
        return Reader::scalars ? p.kernel->put_utf8 != nullptr && p.plan.target_unit.bytes == 1 &&
                                     p.plan.target_states.codes == nullptr && !p.plan.by_form
                               : p.kernel->put_bytes != nullptr && p.plan.single_bytes;
    }
    // Whether there is a character, and not a cut one.
    bool is_whole(const u8* in) const {
        const auto left = static_cast<std::size_t>(r_.in_end - in);
        return left > 0 && reader_.length(in, left) <= left;
    }

    // Converts one character; false if the run ends.
    [[gnu::always_inline]] bool step(const pair& p, progress& now, const u8* out_stop, u32& least,
                                     u32 key, u32 length) {
        const entry e = p.entry_of(key);
        const u32 size = e.length();
        if (e.is_short_from(least) && now.out < out_stop) [[likely]] {
            store_low_first(e.packed, now.out);
            now.out += size;
        } else {
            r_.set(now);
            if (!long_step(now.in + length, key, e)) {
                r_.next_key = key;
                r_.next_length = length;
                return false;
            }
            now = r_;
            least = entry::least_of(at_hand_);
        }
        if constexpr (!Reader::scalars) {
            now.before_last = now.last;
            now.last = key;
        }
        now.in += length;
        ++now.characters;
        return true;
    }

    bool read_sequence(progress& now) {
        if constexpr (has_states) {
            const u32 before = reader_.state();
            const u32 length = reader_.sequence({now.in, r_.in_end});
            if (length == 0) {
                r_.why = stop::by_rules;
                return false;
            }
            if (sequences_ == nullptr || now.characters != characters_before_) {
                sequences_ = now.in;
                state_before_ = before;
                characters_before_ = now.characters;
            }
            behind_cr_ = now.in == behind_cr_ ? now.in + length : behind_cr_;
            now.in += length;
        }
        return true;
    }

    // A run ends after a character, not after a sequence.
    void end_pass() {
        r_.next = r_.in;
        if constexpr (has_states) {
            r_.next_state = reader_.state();
            if (sequences_ != nullptr && r_.characters == characters_before_) {
                r_.in = sequences_;
                reader_.enter(state_before_);
            }
            r_.in_state = reader_.state();
        }
    }

    // Makes sure that there is room for this many bytes, and that their set is selected.
    bool bring(u32 set, u32 length, u8*& out) {
        const bool needs_way = set != at_hand_;
        const found_way* found = needs_way ? way_to(set, r_.out_state) : nullptr;
        const u32 size = found != nullptr ? found->way.size : 0;
        if (needs_way && (found == nullptr || size + length > sizeof found->way.bytes)) {
            r_.why = stop::by_rules;
            return false;
        }
        if (r_.out_end - out < std::ptrdiff_t{size} + length) {
            return false;
        }
        if (needs_way) {
            put(out, r_.out_end, found->way.bytes, size);
            r_.way = {out, out + size, r_.out_state};
            out += size;
            r_.out_state = found->way.state;
            other_ = found->at_hand != at_hand_ ? at_hand_ : other_;
            at_hand_ = found->at_hand;
        }
        return true;
    }

    // The sequences from a state; null if there are none.
    struct found_way {
        u32 from, at_hand; // 0: none
        iso2022_way way;
    };
    const found_way* way_to(u32 set, u32 from) {
        found_way& found = ways_[set];
        if (found.from != from) {
            if (!p_.plan.target_states.find_way(from, set, found.way)) {
                found.from = 0;
                return nullptr;
            }
            found.from = from;
            found.at_hand = set_at_hand(*to_, found.way.state);
        }
        return &found;
    }

    [[gnu::always_inline]] bool ascii_run() {
        if (to_ != nullptr && at_hand_ != ascii_set) {
            return false;
        }
        const auto size = static_cast<std::size_t>(r_.in_end - r_.in),
                   room = static_cast<std::size_t>(r_.out_end - r_.out);
        const fast::ascii_run run{r_.in, size, r_.out, room, p_.plain_ascii.load()};
        const std::size_t n = target_.bytes > 1 ? p_.kernel->widen_ascii(run, target_)
                              : Reader::unit_bytes > 1
                                  ? p_.kernel->narrow_ascii(run, p_.plan.source_unit)
                                  : p_.kernel->copy_ascii(run);
        if (n == 0) {
            return false;
        }
        if constexpr (has_states) {
            reader_.took(r_.in, n);
        }
        const u8* const end = r_.in + n * Reader::unit_bytes;
        advance(end, n * target_.bytes, n, [&](u32 k) { return reader_.key(end - k, 1); });
        return true;
    }

    // Notes what was converted, one character or more. The key of each follows from its number,
    // counted from the end.
    template <typename Key>
    [[gnu::always_inline]] void advance(const u8* in, std::size_t written, std::size_t characters,
                                        Key key) {
        r_.in = in;
        r_.out += written;
        r_.characters += static_cast<u32>(characters);
        if constexpr (!Reader::scalars) {
            r_.before_last = characters > 1 ? key(2) : r_.last;
            r_.last = key(1);
        }
    }

    // Converts as much of the current block as is independent of the rest; false if that is
    // nothing.
    bool block() {
        const u8* const begin = r_.in;
        if constexpr (!has_states && Reader::unit_bytes == 1) {
            if (goes_at_once_ && blocks_first_ == 0) {
                convert_at_once();
                if (r_.in - begin > few_bytes || !reads_blocks(p_)) {
                    return r_.in > begin;
                }
            }
        }
        const bool moved = r_.in > begin;
        blocks_first_ = moved ? few_blocks : blocks_first_ - std::min(blocks_first_, 1U);
        const std::ptrdiff_t room = r_.out_end - r_.out;
        const std::ptrdiff_t fitting = (room - std::ptrdiff_t{kernel_margin}) / chunk_margin;
        if (to_ != nullptr && fitting <= 0) {
            next_block_ = r_.in_end;
            return moved;
        }
        next_block_ = r_.in + chunk_bytes; // what stopped this block would also stop the next one
        u16 codes[block_codes + chunk_codes]; // vectors reach beyond the last one
        const auto left = static_cast<std::size_t>(r_.in_end - r_.in);
        std::size_t chunks = std::min(chunks_, left / chunk_bytes);
        chunks = to_ != nullptr ? std::min(chunks, static_cast<std::size_t>(fitting)) : chunks;
        const chunk_read read = reader_.read(r_.in, chunks, codes);
        // Close to the end of the output, where a block may touch more than it writes.
        u8 aside[block_margin];
        u8* const out = room < block_margin && to_ == nullptr ? aside : r_.out;
        const block_written written = to_ != nullptr ? put_in_sets(codes, read.codes, out)
                                                     : put_block(p_, codes, read.codes, out);
        const std::size_t n = written.codes;
        if (static_cast<std::ptrdiff_t>(written.bytes) > room) {
            next_block_ = r_.in_end;
            return moved;
        }
        const bool was_stopped =
            n < read.codes || read.bytes + Reader::longest < chunks * chunk_bytes;
        const u8* end = r_.in + read.bytes;
        if (n < read.codes) {
            end = reader_.go_behind(r_.in, std::span(codes).first(n));
            chunks_ = 1; // if blocks end early, reading ahead is useless
        } else {
            if constexpr (has_states) {
                reader_.enter_behind(n > 0 ? codes[n - 1] : 0);
            }
            chunks_ = std::min(2 * chunks_, block_chunks * Reader::unit_bytes);
        }
        if (n == 0) {
            return moved;
        }
        if (out == aside) {
            std::memcpy(r_.out, aside, written.bytes);
        }
        next_block_ = end + (was_stopped ? 1 : 0); // that character needs more than a block
        advance(end, written.bytes, n, [&](u32 k) { return codes[n - k]; });
        return true;
    }

    // Converts as much as a kernel can without blocks.
    void convert_at_once() {
        const fast::ascii_run run{r_.in, static_cast<std::size_t>(r_.in_end - r_.in), r_.out,
                                  static_cast<std::size_t>(r_.out_end - r_.out),
                                  target_.bytes == 1 ? p_.plain_ascii.load() : byte_set{}};
        bytes_put put{};
        if constexpr (Reader::scalars) {
            put = p_.kernel->put_utf8(p_.entries, run);
        } else if (run.in_size >= worth_tables || tables_.made) {
            put = p_.kernel->put_bytes(p_.entries, run, tables_);
        }
        const u8* const end = r_.in + put.read;
        next_block_ = end + behind_fault;
        if (put.read > 0) {
            advance(end, put.written, put.characters, [&](u32 k) { return *(end - k); });
        }
    }

    // Converts a block to several sets.
    block_written put_in_sets(const u16* codes, std::size_t count, u8* out) {
        const u8* const begin = out;
        for (std::size_t n = 0;; ++n) {
            if (p_.kernel->put_in_two_sets != nullptr) {
                n += put_in_two_sets(codes + n, count - n, out);
            }
            const entry e = p_.entry_of(codes[n]);
            if (n == count || (!e.is_short_from(entry::least_of(at_hand_)) &&
                               (!e.is_short() || !bring(e.set(), e.length(), out)))) {
                r_.why = stop::end; // found again when going one by one
                return {n, static_cast<std::size_t>(out - begin)};
            }
            store_low_first(e.packed, out);
            out += e.length();
        }
    }

    // Converts what is in the set at hand and the other one.
    std::size_t put_in_two_sets(const u16* codes, std::size_t count, u8*& out) {
        const u32 here = at_hand_, there = other_;
        const found_way* const go = there != 0 ? way_to(there, r_.out_state) : nullptr;
        const found_way* const back = go != nullptr ? way_to(here, go->way.state) : nullptr;
        const bool both = back != nullptr && back->way.state == r_.out_state &&
                          go->at_hand == there && back->at_hand == here &&
                          std::max(go->way.size, back->way.size) <= entry::most_bytes;
        const auto packed = [](const iso2022_way& way) {
            return way.size << 24 | static_cast<u32>(way.bytes);
        };
        const two_sets by =
            both ? two_sets{here << 28, there << 28, packed(back->way), packed(go->way)}
                 : two_sets{here << 28, here << 28, 0, 0};
        const block_written written =
            here != 0 ? p_.kernel->put_in_two_sets(p_.entries, codes, count, out, by)
                      : block_written{0, 0};
        const std::size_t n = written.codes;
        out += written.bytes;
        if (n == 0 || !both) {
            return n;
        }
        const entry last = p_.entry_of(codes[n - 1]);
        const u32 before = n > 1 ? p_.entry_of(codes[n - 2]).set() : here;
        if (last.set() != before) {
            const found_way& way = last.set() == there ? *go : *back;
            r_.way.end = out - last.length();
            r_.way.begin = r_.way.end - way.way.size;
            r_.way.state = way.from;
        }
        if (last.set() == there) {
            at_hand_ = there;
            other_ = here;
            r_.out_state = go->way.state;
        }
        return n;
    }

    // Converts a character with an answer of its own.
    bool long_step(const u8* next, u32 key, entry e) {
        u8* out = r_.out;
        if (e.is_short()) {
            if (!bring(e.set(), e.length(), out)) {
                return false;
            }
            put(out, r_.out_end, e.packed, e.length());
            r_.out = out + e.length();
            return true;
        }
        const answer* a = p_.answer_of(key);
        if (a == nullptr) {
            r_.why = e.packed == entry::by_rules ? stop::by_rules : stop::not_asked;
            return false;
        }
        if (a->is_lf && r_.in == behind_cr_) {
            --r_.more_codes; // dropped
            return true;
        }
        if (!bring(a->set, a->length, out)) {
            return false;
        }
        put(out, r_.out_end, a->bytes, a->length);
        r_.out = out + a->length;
        r_.more_codes += a->codes - 1U;
        if (a->is_cr) {
            behind_cr_ = next;
        }
        return true;
    }

    const pair& p_;
    run& r_;
    Reader reader_;
    ascii_unit target_;
    const iso2022* to_; // the target's designations and shifts, or null
    u32 at_hand_;       // the set that needs no sequences; 0: none
    u32 other_ = 0;     // the one before it
    std::array<found_way, iso2022::most_sets + 1> ways_; // by set, the last ones found
    bool has_runs_;                                      // of ASCII, which is faster without blocks
    bool goes_at_once_, has_blocks_;
    // Input that is worth making tables for, how far behind a character that lacks in them they are
    // tried again, and how much text between others is not worth it: some blocks are next.
    static constexpr std::size_t worth_tables = 256;
    static constexpr std::ptrdiff_t behind_fault = Reader::scalars ? 1 : 8;
    static constexpr std::ptrdiff_t few_bytes = Reader::scalars ? 4 * chunk_bytes : 0;
    static constexpr u32 few_blocks = 4;
    byte_tables tables_;
    u32 blocks_first_ = 0;
    const u8* next_block_ = r_.in_end;
    std::size_t chunks_ = 1;        // number to read for the next block
    const u8* behind_cr_ = nullptr; // place where a line feed is dropped
    // The sequences read last: where they began, and the state before them.
    const u8* sequences_ = nullptr;
    u32 state_before_ = 0, characters_before_ = 0;
};

} // namespace

void run_over(pair& p, run& r) {
    const bool big = p.plan.source_unit.big_endian;
    switch (p.plan.reader) {
    case reader::lead_bytes: return loop<lead_byte_reader>(p, r).go();
    case reader::utf8: return loop<utf8_reader>(p, r).go();
    case reader::units:
        return big ? loop<unit_reader<2, true>>(p, r).go() : loop<unit_reader<2, false>>(p, r).go();
    case reader::quads:
        return big ? loop<unit_reader<4, true>>(p, r).go() : loop<unit_reader<4, false>>(p, r).go();
    case reader::states: return loop<state_reader>(p, r).go();
    }
}

} // namespace fast
