// The loops of the fast path for ISO-2022-JP, whose characters depend on the set designated last.
//
// In the input each designated set has entries of its own. In the output an entry says what set it
// needs, and where that is not the one designated, its escape sequence goes first. What the rules
// do once more, the last two characters, begins in the state of that place, so places are kept with
// their states.
#include "cconv/bulk_loops.h"
#include "cconv/registry.h"

#include <string_view>

namespace {

using std::operator""sv;

constexpr u8 escape_byte = 0x1B;

// ---- Input -------------------------------------------------------------------------------------

struct input_designation {
    std::string_view sequence;
    u32 setNo;
};

// Those of plane 2 are the rules': they forget it after one character.
constexpr input_designation input_designations[] = {
    {"\x1B$B"sv, PVZAN_SET_JIS_X_0208_1990},  {"\x1B(B"sv, PVZAN_SET_ISO_646_IRV},
    {"\x1B(J"sv, PVZAN_SET_JIS_X_0201_LATIN}, {"\x1B$@"sv, PVZAN_SET_JIS_C_6226_1978},
    {"\x1B$(Q"sv, PVZAN_SET_JIS_X_0213},
};

// Whether the charset has the set, in the width that the entries are for. Without it nothing is
// known of what follows: there the rules refuse even line controls.
bool has_set(const charset_group* group, u32 setNo) {
    for (const basic_set* set : member_sets(group)) {
        if (set->setNo == setNo) {
            const bool double_byte = set->byteNum == 2 || set->byteNum == 4;
            return bulk_iso2022_is_double_byte(setNo) ? double_byte : set->byteNum == 1;
        }
    }
    return false;
}

constexpr bool is_line_control(u32 byte) {
    return byte == '\r' || byte == '\n' || byte == '\t';
}

// A place between two characters, with the state that holds there.
struct place {
    const u8* in;
    u8* out;
    u32 set;
};

class iso2022_input {
public:
    iso2022_input(const bulk_memory& memory, bulk_stretch& stretch)
        : memory_(memory), stretch_(stretch), vector_(memory) {
        for (std::size_t i = 0; i < std::size(input_designations); ++i) {
            known_[i] = has_set(memory.key.source, input_designations[i].setNo);
        }
    }

    template <bulk_ascii Kind>
    void run() {
        if (!has_set(memory_.key.source, stretch_.in_set)) {
            return;
        }
        const u8* p = stretch_.in;
        const u8* const in_stop = stretch_.in_end - in_margin;
        u8* q = stretch_.out;
        const u8* const out_stop = stretch_.out_end - out_margin;
        u32 set = stretch_.in_set, base = bulk_iso2022_base(set);
        bool double_byte = bulk_iso2022_is_double_byte(set);
        place begin{p, q, set}; // of the character under way, its escape sequences included
        place last = begin, before_last = begin;
        const u8* next_block = p;
        u32 characters = 0, extra_codes = 0;
        while (p < in_stop && q < out_stop) {
            const u8 byte = *p;
            if (byte == escape_byte) {
                const input_designation* d = designation_at(p);
                if (d == nullptr) {
                    break;
                }
                p += d->sequence.size();
                set = d->setNo;
                base = bulk_iso2022_base(set);
                double_byte = bulk_iso2022_is_double_byte(set);
                continue;
            }
            if (double_byte && p >= next_block && byte > ' ') {
                const block_written run = block(p, q, base);
                if (run.characters > 0) {
                    const u8* const end = p + 2 * run.characters;
                    const place first = begin;
                    begin = {end, q + run.bytes, set};
                    before_last = run.characters > 2   ? before(before(begin, base), base)
                                  : run.characters > 1 ? first
                                                       : last;
                    last = run.characters > 1 ? before(begin, base) : first;
                    p = end;
                    q = begin.out;
                    characters += static_cast<u32>(run.characters);
                    continue;
                }
                next_block = p + chunk_bytes; // what stopped one will not stand alone
            }
            bulk_entry entry;
            const u8* next = p + 1;
            if (double_byte && byte >= ' ') {
                if ((byte | p[1]) >= 0x80) {
                    break;
                }
                entry = memory_.wide_entry(base + bulk_iso2022_offset(u32{byte} << 8 | p[1]));
                next = p + 2;
            } else if (byte >= 0x80 || (double_byte && !is_line_control(byte))) {
                break;
            } else {
                if constexpr (Kind != bulk_ascii::none) {
                    if (set == PVZAN_SET_ISO_646_IRV) {
                        const std::size_t n = copy_ascii<Kind>(vector_, p, in_stop, q, out_stop);
                        if (n > 0) {
                            constexpr std::size_t width = ascii_target(Kind).bytes;
                            before_last = n > 1 ? place{p + n - 2, q - 2 * width, set} : last;
                            last = n > 1 ? place{p + n - 1, q - width, set} : begin;
                            // The run's first character may have an escape sequence before it.
                            before_last = n == 2 ? begin : before_last;
                            p += n;
                            characters += static_cast<u32>(n);
                            begin = {p, q, set};
                            continue;
                        }
                    }
                }
                // Line controls are ASCII in every set.
                const u32 single = double_byte ? bulk_iso2022_base(PVZAN_SET_ISO_646_IRV) : base;
                entry = memory_.wide_entry(single + byte);
            }
            u32 taken = 1;
            if (entry.known()) {
                entry.store(q);
                q += entry.length();
            } else if (memory_.newline.length != 0 && (byte == '\r' || byte == '\n') &&
                       next == p + 1 && !break_goes_on(p)) {
                taken = byte == '\r' && *next == '\n' ? 2 : 1;
                next = p + taken;
                bulk_store(q, memory_.newline.packed);
                q += memory_.newline.length;
                extra_codes += memory_.newline.codes - taken;
            } else {
                break;
            }
            before_last = last;
            last = begin;
            p = next;
            characters += taken;
            begin = {p, q, set};
        }
        if (characters < 2 || last.in == before_last.in) {
            return;
        }
        give_back(before_last, p, characters, extra_codes);
    }

private:
    // The escape sequence at p; null for one that is the rules'.
    [[nodiscard]] const input_designation* designation_at(const u8* p) const {
        const std::string_view text(reinterpret_cast<const char*>(p), 4);
        for (std::size_t i = 0; i < std::size(input_designations); ++i) {
            if (text.starts_with(input_designations[i].sequence)) {
                return known_[i] ? &input_designations[i] : nullptr;
            }
        }
        return nullptr;
    }

    // Converts the run of double-byte characters at p as far as they are known.
    block_written block(const u8* p, u8* q, u32 base) const {
        if (stretch_.in_end - p < static_cast<std::ptrdiff_t>(chunk_bytes) ||
            stretch_.out_end - q < block_out_margin) {
            return {0, 0};
        }
        u16 codes[chunk_scalars];
        const std::size_t pairs =
            memory_.kernels->seven_bit_pairs(p, static_cast<u16>(base), codes);
        return bulk_put_entries(memory_, codes, pairs, q);
    }
    // The place before a double-byte character that was just written.
    [[nodiscard]] place before(const place& at, u32 base) const {
        const u8* const p = at.in - 2;
        const u32 code = base + bulk_iso2022_offset(u32{p[0]} << 8 | p[1]);
        return {p, at.out - memory_.wide_entry(code).length(), at.set};
    }

    // A CR before an escape sequence may pair with an LF behind it.
    [[nodiscard]] static bool break_goes_on(const u8* p) {
        return *p == '\r' && p[1] == escape_byte;
    }

    // Counts what lies between a place and the end, and stops at the place.
    void give_back(const place& from, const u8* end, u32 characters, u32 extra_codes) {
        u32 set = from.set;
        for (const u8* p = from.in; p < end;) {
            if (*p == escape_byte) {
                const input_designation* d = designation_at(p);
                p += d->sequence.size();
                set = d->setNo;
                continue;
            }
            const bool line_break = memory_.newline.length != 0 && (*p == '\r' || *p == '\n');
            if (bulk_iso2022_is_double_byte(set) && !is_line_control(*p)) {
                p += 2;
                --characters;
            } else if (line_break) {
                const u32 taken = *p == '\r' && p[1] == '\n' ? 2 : 1;
                p += taken;
                characters -= taken;
                extra_codes -= memory_.newline.codes - taken;
            } else {
                ++p;
                --characters;
            }
        }
        stretch_.in = from.in;
        stretch_.out = from.out;
        stretch_.in_set = from.set;
        stretch_.characters = characters;
        stretch_.codes = characters + extra_codes;
    }

    const bulk_memory& memory_;
    bulk_stretch& stretch_;
    ascii_vector vector_;
    bool known_[std::size(input_designations)]; // by their places there
};

// ---- Output ------------------------------------------------------------------------------------

struct output_designation {
    u8 bytes[4];
    u32 length;
    u32 setNo;
};

constexpr output_designation output_designations[] = {
    {{}, 0, 0},
    {{escape_byte, '(', 'B'}, 3, PVZAN_SET_ISO_646_IRV},
    {{escape_byte, '(', 'J'}, 3, PVZAN_SET_JIS_X_0201_LATIN},
    {{escape_byte, '$', '@'}, 3, PVZAN_SET_JIS_C_6226_1978},
    {{escape_byte, '$', 'B'}, 3, PVZAN_SET_JIS_X_0208_1990},
    {{escape_byte, '$', '(', 'Q'}, 4, PVZAN_SET_JIS_X_0208_1990},
};
constexpr u32 ascii_slot = 1, jisx0208_slot = 4, jisx0208_2004_slot = 5;

// A place in the output loop, with what was read and written before it.
struct counted_place : place {
    u32 characters, codes;
};

template <typename Reader>
class iso2022_output {
public:
    iso2022_output(const bulk_memory& memory, bulk_stretch& stretch)
        : memory_(memory), stretch_(stretch), reader_{memory}, vector_(memory) {}

    template <bulk_ascii Kind>
    void run() {
        const u8* p = stretch_.in;
        const u8* const in_stop = stretch_.in_end - in_margin;
        u8* q = stretch_.out;
        const u8* const out_stop = stretch_.out_end - out_margin;
        u32 set = stretch_.out_set;
        u32 characters = 0, codes = 0;
        counted_place last{{p, q, set}, 0, 0}, before_last = last;
        while (p < in_stop && q < out_stop) {
            if constexpr (Kind != bulk_ascii::none) {
                if (set == memory_.ascii_set && reader_.code(p) < 0x80) {
                    const std::size_t n =
                        Reader::template ascii_run<Kind>(vector_, p, in_stop, q, out_stop);
                    if (n > 0) {
                        constexpr std::size_t unit = Reader::unit_bytes;
                        const u32 run = static_cast<u32>(n);
                        before_last = n > 1 ? counted_place{{p + (n - 2) * unit, q - 2, set},
                                                            characters + run - 2,
                                                            codes + run - 2}
                                            : last;
                        last = {{p + (n - 1) * unit, q - 1, set},
                                characters + run - 1,
                                codes + run - 1};
                        p += n * unit;
                        characters += run;
                        codes += run;
                        continue;
                    }
                }
            }
            const u32 length = reader_.length(p);
            bulk_entry entry;
            const u8* next = nullptr;
            if (length == Reader::usual_length) {
                entry = reader_.entry(p, Reader::usual_length);
                next = p + Reader::usual_length;
            } else if (length != 0) {
                entry = reader_.entry(p, length);
                next = p + length;
            } else {
                break;
            }
            const u32 newline = entry.known() ? 0 : newline_characters(p);
            if (!entry.known() && newline == 0) {
                break;
            }
            before_last = last;
            last = {{p, q, set}, characters, codes};
            const u32 slot = newline != 0 ? memory_.newline.slot : bulk_iso2022_slot(entry);
            const output_designation& wanted = output_designations[slot];
            if (wanted.setNo != set) {
                std::memcpy(q, wanted.bytes, sizeof wanted.bytes);
                q += wanted.length;
                set = wanted.setNo;
            }
            if (newline != 0) {
                bulk_store(q, memory_.newline.packed);
                q += memory_.newline.length;
                p += newline * Reader::unit_bytes;
                characters += newline;
                codes += memory_.newline.codes;
                continue;
            }
            entry.store(q);
            q += bulk_iso2022_length(entry);
            p = next;
            ++characters;
            ++codes;
        }
        if (last.in == before_last.in) {
            return; // not even two characters
        }
        stretch_.in = before_last.in;
        stretch_.out = before_last.out;
        stretch_.out_set = before_last.set;
        stretch_.characters = before_last.characters;
        stretch_.codes = before_last.codes;
    }

private:
    // Characters of the line break at p, where line breaks are normalised; else 0.
    [[nodiscard]] u32 newline_characters(const u8* p) const {
        const u32 code = reader_.code(p);
        if (memory_.newline.length == 0 || (code != '\r' && code != '\n')) {
            return 0;
        }
        return code == '\r' && reader_.code(p + Reader::unit_bytes) == '\n' ? 2 : 1;
    }

    const bulk_memory& memory_;
    bulk_stretch& stretch_;
    Reader reader_;
    ascii_vector vector_;
};

template <typename Reader>
void run_output(const bulk_memory& memory, bulk_stretch& stretch) {
    iso2022_output<Reader> run(memory, stretch);
    if constexpr (Reader::unit_bytes <= 2) {
        constexpr bulk_ascii kind = Reader::unit_bytes == 1 ? bulk_ascii::same : bulk_ascii::narrow;
        if (memory.ascii == kind) {
            return run.template run<kind>();
        }
    }
    run.template run<bulk_ascii::none>();
}

} // namespace

u32 bulk_iso2022_slot_of(u32 setNo, bool is_2004) {
    switch (setNo) {
    case PVZAN_SET_ISO_646_IRV: return ascii_slot;
    case PVZAN_SET_JIS_X_0201_LATIN: return ascii_slot + 1;
    case PVZAN_SET_JIS_C_6226_1978: return ascii_slot + 2;
    case PVZAN_SET_JIS_X_0208_1990: return is_2004 ? jisx0208_2004_slot : jisx0208_slot;
    default: return 0;
    }
}

void bulk_read_iso2022(const bulk_memory& memory, bulk_stretch& stretch) {
    iso2022_input run(memory, stretch);
    switch (memory.ascii) {
    case bulk_ascii::same: run.run<bulk_ascii::same>(); break;
    case bulk_ascii::widen_big: run.run<bulk_ascii::widen_big>(); break;
    case bulk_ascii::widen_little: run.run<bulk_ascii::widen_little>(); break;
    default: run.run<bulk_ascii::none>(); break;
    }
}

void bulk_write_iso2022(const bulk_memory& memory, bulk_stretch& stretch) {
    switch (memory.reader) {
    case bulk_reader::lead_bytes: run_output<lead_byte_reader>(memory, stretch); break;
    case bulk_reader::utf8: run_output<utf8_reader>(memory, stretch); break;
    case bulk_reader::unit_big: run_output<unit_reader<true>>(memory, stretch); break;
    case bulk_reader::unit_little: run_output<unit_reader<false>>(memory, stretch); break;
    case bulk_reader::quad_big: run_output<quad_reader<true>>(memory, stretch); break;
    case bulk_reader::quad_little: run_output<quad_reader<false>>(memory, stretch); break;
    case bulk_reader::iso2022: break; // both ends stateful: the rules'
    }
}
