// The loops of the fast path.
//
// The way from one input position to the next must not wait for a table: a source character's
// length comes from a branch on its lead byte, never from the entry. There is no branch on what
// kind of character it is. Entries are stored as four bytes, of which as many count as the entry
// says.
#include "cconv/bulk_loops.h"

namespace {

// ---- The loop ----------------------------------------------------------------------------------

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
        u32 characters = 0, extra_codes = 0;
        while (p < in_stop && q < out_stop) {
            if constexpr (Kind != bulk_ascii::none) {
                if (reader_.code(p) < 0x80) {
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
            // One branch for each length: the next position then does not wait for the table.
            const u32 length = reader_.length(p);
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
            if (!entry.known()) {
                const step line_break = newline_step(p);
                if (!line_break.known()) {
                    break;
                }
                std::memcpy(q, memory_.newline.bytes, sizeof memory_.newline.bytes);
                q += line_break.out;
                before_last = last;
                last = p;
                p += line_break.in;
                characters += line_break.characters;
                extra_codes += line_break.codes - line_break.characters;
                continue;
            }
            entry.store(q);
            q += entry.length();
            before_last = last;
            last = p;
            p = next;
            ++characters;
        }
        stretch_.characters = characters;
        stretch_.codes = characters + extra_codes;
        stretch_.in = p;
        stretch_.out = q;
        leave_two(last, before_last);
    }

private:
    // A line break that is normalised: CR LF is one.
    [[nodiscard]] step newline_step(const u8* p) const {
        const u32 code = reader_.code(p);
        if (!normalises_ || !is_line_break(code)) {
            return {};
        }
        const bool pair = code == '\r' && reader_.code(p + Reader::unit_bytes) == '\n';
        const u32 characters = pair ? 2 : 1;
        return {characters * Reader::unit_bytes, characters, memory_.newline.length,
                memory_.newline.codes};
    }

    [[nodiscard]] step step_at(const u8* p) const {
        const u32 length = reader_.length(p);
        const bulk_entry entry = reader_.entry(p, length);
        return entry.known() ? step{length, 1, entry.length(), 1} : newline_step(p);
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
    } else if (memory.ascii == bulk_ascii::narrow) {
        return run.template run<bulk_ascii::narrow>();
    }
    run.template run<bulk_ascii::none>();
}

} // namespace

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
        case bulk_reader::iso2022: bulk_read_iso2022(memory, stretch); break;
        }
    }
    if (stretch.in <= before.in) {
        stretch = before; // not even two characters
    }
}
