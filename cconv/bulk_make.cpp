// Making a memory of the fast path: what it knows from the start, and how it keeps what it learns.
#include "cconv/bulk_memory.h"
#include "platform/platform.h"

#include <algorithm>
#include <array>

namespace {

// The scalars that end a block between Unicode charsets: marks, which may join the letter before
// them, and the line breaks of Unicode where they are normalised. ASCII adds its own.
void set_stops(bulk_memory& memory) {
    for (const u16 mark : std::array<u16, 5>{0x0300, 0x0301, 0x309A, 0x02E5, 0x02E9}) {
        memory.stops[memory.stop_count++] = mark;
    }
    if (memory.key.newline != 0) {
        memory.stops[memory.stop_count++] = 0x2028;
        memory.stops[memory.stop_count++] = 0x2029;
    }
}

void add_stop(bulk_memory& memory, u32 c) {
    if (memory.stop_count == std::size(memory.stops)) {
        memory.blocks = bulk_blocks::entries;
        return;
    }
    memory.stops[memory.stop_count++] = static_cast<u16>(c);
}

// Whether an ASCII character was written as blocks write it.
bool stands_for_itself(bulk_blocks blocks, u32 c, std::span<const u8> written) {
    const u8 byte = static_cast<u8>(c);
    const auto is = [=](std::initializer_list<u8> bytes) {
        return std::ranges::equal(written, bytes);
    };
    switch (blocks) {
    case bulk_blocks::entries: return true;
    case bulk_blocks::utf8: return is({byte});
    case bulk_blocks::units_big: return is({0, byte});
    case bulk_blocks::units_little: return is({byte, 0});
    case bulk_blocks::quads_big: return is({0, 0, 0, byte});
    case bulk_blocks::quads_little: return is({byte, 0, 0, 0});
    }
    return false;
}

// ---- Making a memory ---------------------------------------------------------------------------

struct probe_result {
    std::array<u8, 16> bytes{};
    i32 in = 0, out = 0;
    u32 characters = 0, codes = 0;
    bool whole = false; // read to the end without a fault
};

// What the rules make of a few bytes at the start of a text.
probe_result probe(session* s, std::span<const u8> input) {
    probe_result result;
    const u32 characters = s->inCount, codes = s->outCount;
    s->inBuf = input.data();
    s->inPos = 0;
    s->inLen = static_cast<i32>(input.size());
    s->outBuf = result.bytes.data();
    s->outPos = 0;
    s->outLen = static_cast<i32>(result.bytes.size());
    s->status = PVZAN_DONE;
    s->srcCode = 0;
    result.whole = cconvConvert(s) == PVZAN_DONE;
    result.in = s->inPos;
    result.out = s->outPos;
    result.characters = s->inCount - characters;
    result.codes = s->outCount - codes;
    return result;
}

bool is_line_break(u32 c) {
    return c == '\r' || c == '\n';
}

// The input bytes of an ASCII character.
std::span<const u8> ascii_input(const bulk_memory& memory, u8 byte, std::array<u8, 4>& unit) {
    std::size_t length = 1;
    bool big = false;
    switch (memory.reader) {
    case bulk_reader::unit_big: big = true; [[fallthrough]];
    case bulk_reader::unit_little: length = 2; break;
    case bulk_reader::quad_big: big = true; [[fallthrough]];
    case bulk_reader::quad_little: length = 4; break;
    default: break;
    }
    unit = {};
    unit[big ? length - 1 : 0] = byte;
    return std::span(unit).first(length);
}

// In what a run of ASCII becomes, one character.
std::span<const u8> in_target(bulk_ascii kind, u8 byte, std::array<u8, 4>& unit) {
    const ascii_unit target = ascii_target(kind);
    unit = {};
    unit[target.big_endian ? target.bytes - 1 : 0] = byte;
    return std::span(unit).first(target.bytes);
}

// Whether an ASCII byte may lie in a run: it is written as the kind of run says.
bool fits_run(bulk_ascii kind, u8 byte, std::span<const u8> written) {
    std::array<u8, 4> unit{};
    return kind != bulk_ascii::none && std::ranges::equal(written, in_target(kind, byte, unit));
}

bulk_ascii ascii_kind(const bulk_memory& memory, std::span<const u8> letter_a) {
    std::array<u8, 4> unit{};
    if (ascii_input(memory, 'A', unit).size() > 1) {
        return fits_run(bulk_ascii::narrow, 'A', letter_a) ? bulk_ascii::narrow : bulk_ascii::none;
    }
    for (const bulk_ascii kind : {bulk_ascii::same, bulk_ascii::widen_big, bulk_ascii::widen_little,
                                  bulk_ascii::quads_big, bulk_ascii::quads_little}) {
        const bool by_blocks_only = ascii_target(kind).bytes == 4;
        if (fits_run(kind, 'A', letter_a) &&
            (!by_blocks_only || memory.blocks != bulk_blocks::entries)) {
            return kind;
        }
    }
    return bulk_ascii::none;
}

void learn_newline(bulk_memory& memory, session* s) {
    std::array<u8, 4> unit{};
    probe(s, ascii_input(memory, 'A', unit)); // designates what line breaks need, too
    const u32 designated = s->dstShiftSet;
    const probe_result lf = probe(s, ascii_input(memory, '\n', unit));
    if (s->dstShiftSet != designated) {
        return;
    }
    memory.newline.slot =
        bulk_iso2022_slot_of(s->outSetNo, memory.writer == bulk_writer::iso2022_2004);
    if (lf.whole && lf.out > 0 &&
        static_cast<std::size_t>(lf.out) <= sizeof memory.newline.packed) {
        memory.newline.packed =
            bulk_pack(std::span(lf.bytes).first(static_cast<std::size_t>(lf.out)));
        memory.newline.length = static_cast<u32>(lf.out);
        memory.newline.codes = lf.codes;
    }
}

// Learns ASCII at once, so that runs of it need no look at each byte.
void learn_ascii(bulk_memory& memory, session* s) {
    std::array<u8, 4> unit{};
    s->srcShiftSet = PVZAN_SET_ISO_646_IRV;
    probe(s, ascii_input(memory, 'A', unit)); // designates ASCII where that is needed
    const probe_result a = probe(s, ascii_input(memory, 'A', unit));
    memory.ascii =
        a.whole ? ascii_kind(memory, std::span(a.bytes).first(static_cast<std::size_t>(a.out)))
                : bulk_ascii::none;
    memory.ascii_set = s->outSetNo;
    for (u32 c = 0; c < 0x80; ++c) {
        const u8 byte = static_cast<u8>(c);
        const auto input = ascii_input(memory, byte, unit);
        const probe_result got = probe(s, input);
        const std::span written(got.bytes.data(), static_cast<std::size_t>(got.out));
        const bulk_entry entry = bulk_pack_short(memory, s, written);
        const bool alone = got.whole && got.characters == 1 && got.codes == 1 &&
                           !(memory.key.newline != 0 && is_line_break(c));
        const bool learnable = alone && entry.known();
        if (!alone || !stands_for_itself(memory.blocks, c, written)) {
            add_stop(memory, c);
        }
        const u32 key =
            memory.reader == bulk_reader::iso2022 ? bulk_iso2022_key(PVZAN_SET_ISO_646_IRV, c) : c;
        if (learnable) {
            memory.wide[key].store(entry.packed, std::memory_order_relaxed);
            memory.lead_length[c].store(1, std::memory_order_relaxed);
        } else if (memory.newline.length != 0 && is_line_break(c)) {
            memory.lead_length[c].store(1, std::memory_order_relaxed);
        }
        const bool other_set =
            memory.writer != bulk_writer::plain && s->outSetNo != memory.ascii_set;
        // Four bytes fit no entry.
        const bool known = ascii_target(memory.ascii).bytes == 4 ? alone : learnable;
        if (!known || other_set || !fits_run(memory.ascii, byte, written)) {
            if (memory.special_count == std::size(memory.special)) {
                memory.ascii = bulk_ascii::none;
                memory.special_count = 0;
            } else if (memory.ascii != bulk_ascii::none) {
                memory.special[memory.special_count++] = byte;
            }
        }
    }
    for (u32 i = memory.special_count; i < std::size(memory.special); ++i) {
        memory.special[i] = memory.special[0];
    }
}

} // namespace

bulk_entry bulk_pack_short(const bulk_memory& memory, const session* s, std::span<const u8> bytes) {
    u32 slot = 0;
    if (memory.writer != bulk_writer::plain) {
        constexpr u32 most = 2;
        slot = bulk_iso2022_slot_of(s->outSetNo, memory.writer == bulk_writer::iso2022_2004);
        if (slot == 0 || s->outBytes == 0 || s->outBytes > most || s->outBytes > bytes.size() ||
            (s->outDone != 0 && s->outDone != s->outBytes)) {
            return {};
        }
        bytes = bytes.last(s->outBytes);
    }
    if (bytes.empty() || bytes.size() > bulk_entry::max_bytes) {
        return {};
    }
    return {slot << 28 | static_cast<u32>(bytes.size()) << 24 | static_cast<u32>(bulk_pack(bytes))};
}

bulk_entry bulk_pack_long(bulk_memory& memory, std::span<const u8> bytes, u32 codes) {
    if (memory.writer != bulk_writer::plain || memory.reader == bulk_reader::iso2022 ||
        bytes.empty() || bytes.size() > bulk_long_entry::max_bytes ||
        memory.long_count.load(std::memory_order_relaxed) >= bulk_long_entries) {
        return {};
    }
    const u32 index = memory.long_count.fetch_add(1, std::memory_order_relaxed);
    if (index >= bulk_long_entries) {
        return {};
    }
    memory.longs[index].store(u64{codes} << 56 | u64{bytes.size()} << 48 | bulk_pack(bytes),
                              std::memory_order_relaxed);
    return bulk_entry::long_at(index);
}

bulk_memory* bulk_make_memory(const session* s, const bulk_plan& plan) {
    void* raw = ZAN_calloc(1, static_cast<i32>(sizeof(bulk_memory)));
    const owned_memory<session> scratch(
        static_cast<session*>(ZAN_malloc(static_cast<i32>(sizeof(session)))));
    if (raw == nullptr || scratch == nullptr) {
        ZAN_free(raw);
        return nullptr;
    }
    auto* memory = static_cast<bulk_memory*>(raw); // all zero is a valid state of it
    static_cast<bulk_plan&>(*memory) = plan;
    memory->kernels = &bulk_best_kernels();
    set_stops(*memory);
    std::memcpy(scratch.get(), s, sizeof(session));
    scratch->target.useSubstitute = 0;
    scratch->source.skipInvalid = 0;
    if (plan.key.newline != 0) {
        learn_newline(*memory, scratch.get());
    }
    learn_ascii(*memory, scratch.get());
    return memory;
}
