// The loops of the fast path.
//
// The way from one input position to the next must not wait for a table: a source character's
// length comes from a branch on its lead byte, never from the entry. There is no branch on what
// kind of character it is. Entries are stored as four bytes, of which as many count as the entry
// says.
#include "cconv/bulk_loops.h"

#include <algorithm>

namespace {

// ---- The loop ----------------------------------------------------------------------------------

// Native integers, most significant byte first where asked for.
constexpr bool swapped(bool big_endian) {
    return big_endian != (std::endian::native == std::endian::big);
}

void put_units(const bulk_kernels& kernels, const u16* scalars, std::size_t count, u8* q,
               bool big_endian) {
    constexpr std::size_t step = chunk_bytes / 2;
    for (std::size_t at = 0; at < count; at += step) {
        kernels.copy_units(scalars + at, q + 2 * at, swapped(big_endian));
    }
}

block_written put_block(const bulk_memory& memory, const u16* scalars, std::size_t count, u8* q) {
    if (memory.blocks == bulk_blocks::entries) {
        return bulk_put_entries(memory, scalars, count, q);
    }
    const bulk_kernels& kernels = *memory.kernels;
    count = kernels.plain_scalars(scalars, count, std::span(memory.stops).first(memory.stop_count));
    switch (memory.blocks) {
    case bulk_blocks::utf8: return {count, kernels.encode_utf8(scalars, count, q)};
    case bulk_blocks::units_big:
        put_units(kernels, scalars, count, q, true);
        return {count, 2 * count};
    case bulk_blocks::units_little:
        put_units(kernels, scalars, count, q, false);
        return {count, 2 * count};
    case bulk_blocks::quads_big: kernels.put_quads(scalars, count, q, true); break;
    default: kernels.put_quads(scalars, count, q, false); break;
    }
    return {count, 4 * count};
}

// The bytes of a scalar that stands for itself.
u32 unicode_length(bulk_blocks blocks, u32 scalar) {
    switch (blocks) {
    case bulk_blocks::utf8: return scalar < 0x80 ? 1 : scalar < 0x800 ? 2 : 3;
    case bulk_blocks::units_big:
    case bulk_blocks::units_little: return 2;
    default: return 4;
    }
}

template <typename Reader>
class runner {
public:
    runner(const bulk_memory& memory, bulk_stretch& stretch)
        : memory_(memory), stretch_(stretch), reader_{memory}, vector_(memory),
          normalises_(memory.newline.length != 0) {}

    template <bulk_ascii Kind>
    void run() {
        const u8* p = stretch_.in;
        const u8* const in_stop = stretch_.in_end - in_margin;
        u8* q = stretch_.out;
        const u8* const out_stop = stretch_.out_end - out_margin;
        const u8 *last = p, *before_last = p; // the characters before p
        const u8* next_block = p;
        bool in_run = true; // of ASCII, for which there is a quicker way than blocks
        u32 characters = 0, extra_codes = 0;
        while (p < in_stop && q < out_stop) {
            if constexpr (Kind != bulk_ascii::none) {
                if (in_run && reader_.code(p) < 0x80) {
                    const std::size_t n =
                        Reader::template ascii_run<Kind>(vector_, p, in_stop, q, out_stop);
                    if (n > 0) {
                        constexpr std::size_t unit = Reader::unit_bytes;
                        before_last = n > 1 ? p + (n - 2) * unit : last;
                        last = p + (n - 1) * unit;
                        p += n * unit;
                        characters += static_cast<u32>(n);
                        continue;
                    }
                }
            }
            const u32 length = reader_.length(p);
            if (p >= next_block && Reader::may_open_chunk(length)) {
                const u8* const begin = p;
                const std::size_t n = block(p, q);
                if (n > 0) {
                    in_run = Reader::may_open_run(begin, p, n);
                    before_last = n > 1 ? nullptr : last; // found when they are needed
                    last = nullptr;
                    characters += static_cast<u32>(n);
                    continue;
                }
                next_block = p + chunk_bytes; // what stopped one will not stand alone
            }
            // One branch for each length: the next position then does not wait for the table.
            const u8* next = nullptr;
            bulk_entry entry;
            if (length == Reader::usual_length) {
                entry = reader_.entry(p, Reader::usual_length);
                next = p + Reader::usual_length;
            } else if (length != 0) {
                entry = reader_.entry(p, length);
                next = p + length;
            } else {
                break;
            }
            if (!entry.is_short()) {
                const step other = other_step(p, length, entry);
                if (!other.known()) {
                    break;
                }
                bulk_store(q, other.bytes);
                q += other.out;
                before_last = last;
                last = p;
                p += other.in;
                characters += other.characters;
                extra_codes += other.codes - other.characters;
                continue;
            }
            entry.store(q);
            q += entry.length();
            before_last = last;
            last = p;
            p = next;
            ++characters;
        }
        if (characters < 2) {
            return;
        }
        if (before_last == nullptr) {
            before_last = last == nullptr
                              ? Reader::before(Reader::before(p, last_code_), code_before_)
                              : Reader::before(last, last_code_);
        }
        if (last == nullptr) {
            last = Reader::before(p, last_code_);
        }
        stretch_.characters = characters;
        stretch_.codes = characters + extra_codes;
        stretch_.in = p;
        stretch_.out = q;
        leave_two(last, before_last);
    }

private:
    // Converts as much of the block at p as stands for itself; 0 when that is nothing.
    std::size_t block(const u8*& p, u8*& q) {
        if (stretch_.out_end - q < block_out_margin) {
            return 0;
        }
        u16 scalars[block_scalars + chunk_scalars]; // vectors reach behind the last
        scalar_block read{0, 0};
        for (std::size_t chunk = 0; chunk < chunks_ && has_chunk(p + read.bytes); ++chunk) {
            const scalar_block more = reader_.chunk(p + read.bytes, scalars + read.scalars);
            read.scalars += more.scalars;
            read.bytes += more.bytes;
            if (more.bytes < Reader::full_chunk) {
                break;
            }
        }
        const block_written written = put_block(memory_, scalars, read.scalars, q);
        q += written.bytes;
        if (written.characters == read.scalars) {
            p += read.bytes;
            chunks_ = std::min(2 * chunks_, block_chunks);
        } else {
            p = Reader::behind(p, std::span(scalars).first(written.characters));
            chunks_ = 1; // where blocks end early, reading ahead is in vain
        }
        if (written.characters > 0) {
            code_before_ = written.characters > 1 ? scalars[written.characters - 2] : last_code_;
            last_code_ = scalars[written.characters - 1];
        }
        return written.characters;
    }
    [[nodiscard]] bool has_chunk(const u8* p) const {
        return stretch_.in_end - p >= static_cast<std::ptrdiff_t>(chunk_bytes);
    }

    // A character with a long entry, or a line break that is normalised: CR LF is one.
    [[nodiscard]] step other_step(const u8* p, u32 length, bulk_entry entry) const {
        if (entry.is_long()) {
            const bulk_long_entry e = memory_.long_entry(entry);
            return e.length() != 0 ? step{length, 1, e.length(), e.codes(), e.packed} : step{};
        }
        const u32 code = reader_.code(p);
        if (!normalises_ || !is_line_break(code)) {
            return {};
        }
        const bool pair = code == '\r' && reader_.code(p + Reader::unit_bytes) == '\n';
        const u32 characters = pair ? 2 : 1;
        return {characters * Reader::unit_bytes, characters, memory_.newline.length,
                memory_.newline.codes, memory_.newline.packed};
    }

    // The character at p, which was converted before.
    [[nodiscard]] step step_at(const u8* p) const {
        const u32 length = reader_.length(p);
        const bulk_entry entry = reader_.entry(p, length);
        if (entry.is_short()) {
            return {length, 1, entry.length(), 1};
        }
        const step other = other_step(p, length, entry);
        if (!other.known() && memory_.blocks != bulk_blocks::entries) { // it stood for itself
            return {length, 1, unicode_length(memory_.blocks, reader_.scalar(p, length)), 1};
        }
        return other;
    }

    // Gives the last two characters back to the rules.
    void leave_two(const u8* last, const u8* before_last) {
        for (const u8* p : {last, before_last}) {
            const step back = step_at(p);
            stretch_.in = p;
            stretch_.out -= back.out;
            stretch_.characters -= back.characters;
            stretch_.codes -= back.codes;
        }
    }

    const bulk_memory& memory_;
    bulk_stretch& stretch_;
    Reader reader_;
    ascii_vector vector_;
    bool normalises_;
    std::size_t chunks_ = 1;              // to read for the next block
    u16 last_code_ = 0, code_before_ = 0; // that blocks ended with
};

template <typename Reader>
void run_reader(const bulk_memory& memory, bulk_stretch& stretch) {
    runner<Reader> run(memory, stretch);
    if constexpr (Reader::unit_bytes == 1) {
        switch (memory.ascii) {
        case bulk_ascii::same: return run.template run<bulk_ascii::same>();
        case bulk_ascii::widen_big: return run.template run<bulk_ascii::widen_big>();
        case bulk_ascii::widen_little: return run.template run<bulk_ascii::widen_little>();
        default: break;
        }
        if constexpr (std::is_same_v<Reader, utf8_reader>) {
            switch (memory.ascii) {
            case bulk_ascii::quads_big: return run.template run<bulk_ascii::quads_big>();
            case bulk_ascii::quads_little: return run.template run<bulk_ascii::quads_little>();
            default: break;
            }
        }
    } else {
        if (memory.ascii == bulk_ascii::narrow) {
            return run.template run<bulk_ascii::narrow>();
        }
    }
    run.template run<bulk_ascii::none>();
}

} // namespace

block_written bulk_put_entries(const bulk_memory& memory, const u16* scalars, std::size_t count,
                               u8* q) {
    u8* const begin = q;
    u32 odd = 0;
#pragma GCC unroll 4
    for (std::size_t i = 0; i < count; ++i) {
        const bulk_entry entry = memory.wide_entry(scalars[i]);
        entry.store(q);
        q += entry.length(); // none, for a long one
        odd |= entry.odd();
    }
    if (odd >> 31 == 0) {
        return {count, static_cast<std::size_t>(q - begin)};
    }
    // Other threads may have learnt some of them by now, which were not written above: once more.
    block_written written{0, 0};
    for (; written.characters < count; ++written.characters) {
        const bulk_entry entry = memory.wide_entry(scalars[written.characters]);
        if (!entry.is_short()) {
            break;
        }
        entry.store(begin + written.bytes);
        written.bytes += entry.length();
    }
    return written;
}

void bulk_convert(const bulk_memory& memory, bulk_stretch& stretch) {
    const bulk_stretch before = stretch;
    if (memory.writer != bulk_writer::plain) {
        bulk_write_iso2022(memory, stretch);
    } else {
        switch (memory.reader) {
        case bulk_reader::lead_bytes: run_reader<lead_byte_reader>(memory, stretch); break;
        case bulk_reader::utf8: run_reader<utf8_reader>(memory, stretch); break;
        case bulk_reader::unit_big: run_reader<unit_reader<true>>(memory, stretch); break;
        case bulk_reader::unit_little: run_reader<unit_reader<false>>(memory, stretch); break;
        case bulk_reader::quad_big: run_reader<quad_reader<true>>(memory, stretch); break;
        case bulk_reader::quad_little: run_reader<quad_reader<false>>(memory, stretch); break;
        case bulk_reader::iso2022: bulk_read_iso2022(memory, stretch); break;
        }
    }
    if (stretch.in <= before.in) {
        stretch = before; // not even two characters
    }
}
