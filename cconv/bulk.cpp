// The fast path's memories: finding one for a session, and learning from the rules.
#include "cconv/bulk.h"

#include "cconv/bulk_memory.h"
#include "cconv/names.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/table.h"
#include "platform/platform.h"

#include <algorithm>
#include <array>
#include <optional>

namespace {

// Below this the crossing costs more than it saves; and a stretch must be longer than the loops'
// margins.
constexpr std::size_t least_input = 96;
constexpr i64 least_output = 96;

std::atomic<bulk_memory*> memories;

// ---- Which pairs -------------------------------------------------------------------------------

// With these rules a character's length follows from its lead byte, and its meaning from its bytes.
bool reads_by_lead_byte(rule_function decoder) {
    constexpr std::array known = {destSHIFT_JIS, destSHIFT_JIS_2004, destWINDOWS31J, destEUC_JP,
                                  destEUC_JIS_2004};
    return std::ranges::find(known, decoder) != known.end();
}

// The table-driven rules try the sets in order: a byte, or a pair of bytes, decides alone when no
// longer code is tried before it.
bool tries_short_codes_first(const charset_group* group) {
    u32 longest = 0;
    for (const basic_set* set : member_sets(group)) {
        if (set->byteNum == 0 || (set->byteNum <= 2 && set->byteNum < longest)) {
            return false;
        }
        longest = std::max<u32>(longest, set->byteNum);
    }
    return longest > 0;
}

std::optional<bulk_reader> reader_of(const session* s) {
    const rule_function decoder = s->srcRule->function;
    const bool big = s->source.srcBigEndian != 0;
    if (decoder == destUTF_8) {
        return bulk_reader::utf8;
    }
    if (decoder == destUTF_16) {
        return big ? bulk_reader::unit_big : bulk_reader::unit_little;
    }
    if (decoder == destISO_2022_JP || decoder == destISO_2022_JP_2004) {
        return bulk_reader::iso2022;
    }
    if (reads_by_lead_byte(decoder) || ((decoder == destSAME || decoder == destOASYS_WIN) &&
                                        tries_short_codes_first(s->srcGroup))) {
        return bulk_reader::lead_bytes;
    }
    return std::nullopt;
}

bulk_writer writer_of(const session* s) {
    const rule_function encoder = s->dstRule->function;
    if (encoder != constISO_2022_JP && encoder != constISO_2022_JP_2004) {
        return bulk_writer::plain;
    }
    return s->dstGroupNo == PVZAN_ISO_2022_JP_2004 ? bulk_writer::iso2022_2004
                                                   : bulk_writer::iso2022;
}

// What is written must depend on the character, and on the set designated before it, alone: not on
// language tags, a mark still to come, or the substitutes.
bool writes_by_character(const session* s) {
    const bool refers =
        s->dstRule->function == constISO_10646_UCS_2 && s->target.charRefMode != PVZAN_CHARREF_OFF;
    if (refers || s->target.dstWriteBom != 0 || s->source.srcCheckBom != 0 ||
        s->baseLang[0] != '\0') {
        return false;
    }
    // A user-defined set writes no outSetNo: that would stay the one of two characters before.
    return std::ranges::none_of(
        std::span(s->dstGroup->memberSets->items, s->dstGroup->memberSets->count),
        [](const void* set) {
            return static_cast<const basic_set*>(set)->setType == PVZAN_SET_USER_DEFINED;
        });
}

// Only charsets of the registry stay what they are.
bool is_registered(const charset_group* group) {
    return group != nullptr && g_ProcessObject.groups != nullptr &&
           findGroupArray(g_ProcessObject.groups, group->groupNo) == group;
}

// What line breaks become; 0 where they are characters like others.
u32 newline_key(const session* s) {
    const u32 mode = s->target.newlineMode;
    const bool named = mode >= PVZAN_NEWLINE_CR && mode <= PVZAN_NEWLINE_PARAGRAPH_SEPARATOR;
    return s->target.convertNewline == 0 ? 0 : named ? mode : u32{PVZAN_NEWLINE_CRLF};
}

bulk_key key_of(const session* s) {
    return {s->srcGroup,
            s->dstGroup,
            s->srcRule,
            s->dstRule,
            s->source.srcBigEndian != 0,
            s->target.dstBigEndian != 0,
            newline_key(s),
            table_generation()};
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

// The entry of a character that was just written: of what went out, its own bytes without the
// escape sequence before them. Unknown when they are too many, or their set has no place.
bulk_entry pack(const bulk_memory& memory, const session* s, std::span<const u8> bytes) {
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
    u32 packed = slot << 28 | static_cast<u32>(bytes.size()) << 24;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        packed |= u32{bytes[i]} << 8 * i;
    }
    return {packed};
}

bool is_line_break(u32 c) {
    return c == '\r' || c == '\n';
}

void put_entry(std::atomic<u32>& slot, bulk_entry entry) {
    slot.store(entry.packed, std::memory_order_relaxed);
}

// The input bytes of an ASCII character.
std::span<const u8> ascii_input(const bulk_memory& memory, u8 byte, std::array<u8, 2>& unit) {
    switch (memory.reader) {
    case bulk_reader::unit_big: unit = {0, byte}; return unit;
    case bulk_reader::unit_little: unit = {byte, 0}; return unit;
    default: unit = {byte, 0}; return std::span(unit).first(1);
    }
}

bulk_ascii ascii_kind(const bulk_memory& memory, std::span<const u8> letter_a) {
    const bool units =
        memory.reader == bulk_reader::unit_big || memory.reader == bulk_reader::unit_little;
    const auto is = [=](std::initializer_list<u8> bytes) {
        return std::ranges::equal(letter_a, bytes);
    };
    if (is({'A'})) {
        return units ? bulk_ascii::narrow : bulk_ascii::same;
    }
    if (units) {
        return bulk_ascii::none;
    }
    if (is({0, 'A'})) {
        return bulk_ascii::widen_big;
    }
    return is({'A', 0}) ? bulk_ascii::widen_little : bulk_ascii::none;
}

// Whether an ASCII byte may lie in a run: it is written as the kind of run says.
bool fits_run(bulk_ascii kind, u8 byte, std::span<const u8> written) {
    switch (kind) {
    case bulk_ascii::same:
    case bulk_ascii::narrow: return std::ranges::equal(written, std::array{byte});
    case bulk_ascii::widen_big: return std::ranges::equal(written, std::array{u8{0}, byte});
    case bulk_ascii::widen_little: return std::ranges::equal(written, std::array{byte, u8{0}});
    case bulk_ascii::none: break;
    }
    return false;
}

void learn_newline(bulk_memory& memory, session* s) {
    std::array<u8, 2> unit{};
    probe(s, ascii_input(memory, 'A', unit)); // designates what line breaks need, too
    const u32 designated = s->dstShiftSet;
    const probe_result lf = probe(s, ascii_input(memory, '\n', unit));
    if (s->dstShiftSet != designated) {
        return;
    }
    memory.newline.slot =
        bulk_iso2022_slot_of(s->outSetNo, memory.writer == bulk_writer::iso2022_2004);
    if (lf.whole && lf.out > 0 && static_cast<std::size_t>(lf.out) <= sizeof memory.newline.bytes) {
        std::copy_n(lf.bytes.begin(), lf.out, memory.newline.bytes);
        memory.newline.length = static_cast<u32>(lf.out);
        memory.newline.codes = lf.codes;
    }
}

// Learns ASCII at once, so that runs of it need no look at each byte.
void learn_ascii(bulk_memory& memory, session* s) {
    std::array<u8, 2> unit{};
    s->srcShiftSet = PVZAN_SET_ISO_646_IRV;
    probe(s, ascii_input(memory, 'A', unit)); // designates ASCII where that is needed
    const probe_result a = probe(s, ascii_input(memory, 'A', unit));
    memory.ascii =
        a.whole ? ascii_kind(memory, std::span(a.bytes).first(static_cast<std::size_t>(a.out)))
                : bulk_ascii::none;
    memory.ascii_set = s->outSetNo;
    const bool by_lead = memory.reader == bulk_reader::lead_bytes;
    for (u32 c = 0; c < 0x80; ++c) {
        const u8 byte = static_cast<u8>(c);
        const auto input = ascii_input(memory, byte, unit);
        const probe_result got = probe(s, input);
        const std::span written(got.bytes.data(), static_cast<std::size_t>(got.out));
        const bulk_entry entry = pack(memory, s, written);
        const bool learnable = got.whole && got.characters == 1 && got.codes == 1 &&
                               entry.known() && !(memory.key.newline != 0 && is_line_break(c));
        const u32 key =
            memory.reader == bulk_reader::iso2022 ? bulk_iso2022_key(PVZAN_SET_ISO_646_IRV, c) : c;
        if (learnable) {
            put_entry(by_lead ? memory.single[c] : memory.wide[key], entry);
            memory.lead_length[c].store(1, std::memory_order_relaxed);
        } else if (memory.newline.length != 0 && is_line_break(c)) {
            memory.lead_length[c].store(1, std::memory_order_relaxed);
        }
        const bool other_set =
            memory.writer != bulk_writer::plain && s->outSetNo != memory.ascii_set;
        if (!learnable || other_set || !fits_run(memory.ascii, byte, written)) {
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

// Decoders that read ahead for a mark.
constexpr bool joins_marks(bulk_reader reader) {
    return reader == bulk_reader::utf8 || reader == bulk_reader::unit_big ||
           reader == bulk_reader::unit_little;
}

bulk_memory* find_memory(const bulk_key& key) {
    for (bulk_memory* m = memories.load(std::memory_order_acquire); m != nullptr; m = m->next) {
        if (m->key == key) {
            return m;
        }
    }
    return nullptr;
}

// Publishes a memory; two threads may make the same one, and the later is found first.
bulk_memory* make_memory(const session* s, const bulk_key& key, bulk_reader reader,
                         bulk_writer writer) {
    void* raw = ZAN_calloc(1, static_cast<i32>(sizeof(bulk_memory)));
    const owned_memory<session> scratch(
        static_cast<session*>(ZAN_malloc(static_cast<i32>(sizeof(session)))));
    if (raw == nullptr || scratch == nullptr) {
        ZAN_free(raw);
        return nullptr;
    }
    auto* memory = static_cast<bulk_memory*>(raw); // all zero is a valid state of it
    memory->key = key;
    memory->reader = reader;
    memory->writer = writer;
    std::memcpy(scratch.get(), s, sizeof(session));
    scratch->target.useSubstitute = 0;
    scratch->source.skipInvalid = 0;
    if (key.newline != 0) {
        learn_newline(*memory, scratch.get());
    }
    learn_ascii(*memory, scratch.get());
    memory->next = memories.load(std::memory_order_relaxed);
    while (!memories.compare_exchange_weak(memory->next, memory, std::memory_order_release,
                                           std::memory_order_relaxed)) {
    }
    return memory;
}

// Most characters that the rules get are known: looking is cheaper than learning them again.
bool already_known(const bulk_memory& memory, std::span<const u8> input) {
    const u8* p = input.data();
    const std::size_t length = input.size();
    switch (memory.reader) {
    case bulk_reader::lead_bytes:
        return length == 1 ? memory.single_entry(p[0]).known()
                           : length == 2 && memory.wide_entry(u32{p[0]} << 8 | p[1]).known();
    case bulk_reader::utf8:
        return length == 1 ? memory.wide_entry(p[0]).known()
                           : length == 3 && memory.wide_entry(bulk_utf8_scalar(p)).known();
    case bulk_reader::unit_big:
        return length == 2 && memory.wide_entry(u32{p[0]} << 8 | p[1]).known();
    case bulk_reader::unit_little:
        return length == 2 && memory.wide_entry(u32{p[1]} << 8 | p[0]).known();
    case bulk_reader::iso2022: break;
    }
    return false;
}

} // namespace

void bulk_release() {
    bulk_memory* memory = memories.exchange(nullptr, std::memory_order_acquire);
    while (memory != nullptr) {
        bulk_memory* next = memory->next;
        ZAN_free(memory);
        memory = next;
    }
}

bulk_guide::bulk_guide(const session* s) {
    if (input_left(s).size() < least_input || output_room(s) < least_output ||
        !is_registered(s->srcGroup) || !is_registered(s->dstGroup)) {
        return;
    }
    const auto reader = reader_of(s);
    const bulk_writer writer = writer_of(s);
    // With states at both ends little is left that stands alone.
    const bool both_stateful = reader == bulk_reader::iso2022 && writer != bulk_writer::plain;
    if (!reader || both_stateful || !writes_by_character(s)) {
        return;
    }
    const bulk_key key = key_of(s);
    memory_ = find_memory(key);
    if (memory_ == nullptr) {
        memory_ = make_memory(s, key, *reader, writer);
    }
}

void bulk_guide::try_stretch(session* s) {
    // A line feed behind this would belong to it.
    if (memory_->key.newline != 0 && s->srcCode == '\r') {
        return;
    }
    const std::span<const u8> input = input_left(s);
    const i64 room = output_room(s);
    if (input.size() < least_input || room < least_output) {
        memory_ = nullptr; // the rest of this call is the rules'
        return;
    }
    u8* const out = s->outBuf + s->outPos;
    bulk_stretch stretch{
        input.data(),  input.data() + input.size(), out, out + room, 0, 0, s->srcShiftSet,
        s->dstShiftSet};
    bulk_convert(*memory_, stretch);
    const u32 characters = stretch.characters;
    if (characters > 0) {
        s->inPos += static_cast<i32>(stretch.in - input.data());
        s->outPos += static_cast<i32>(stretch.out - out);
        s->inCount += characters;
        s->outCount += stretch.codes;
        s->srcShiftSet = stretch.in_set;
        s->dstShiftSet = stretch.out_set;
        s->srcCode = 0; // of no consequence: two characters by the rules follow, and none was a CR
    }
    constexpr u32 worth_it = 16, most = 64;
    penalty_ = characters >= worth_it ? 0 : std::min(penalty_ * 2 + 4, most);
    wait_ = characters >= worth_it ? 2 : penalty_;
}

void bulk_guide::remember(const session* s) {
    if (already_known(*memory_,
                      {s->inBuf + in_pos_, static_cast<std::size_t>(s->inPos - in_pos_)})) {
        return;
    }
    const i32 in = s->inPos - in_pos_, out = s->outPos - out_pos_;
    const bool alone = s->status == PVZAN_WRITTEN && s->inCount - in_count_ == 1 &&
                       s->outCount - out_count_ == 1 && s->outCode2 == 0 && in >= 1 && out >= 1;
    const bool breaks =
        memory_->key.newline != 0 && (s->ucsCode == '\r' || is_line_break(s->srcCode));
    const bool may_join = joins_marks(memory_->reader) && is_combining_mark(s->srcCode);
    if (!alone || breaks || may_join) {
        return;
    }
    const u8* p = s->inBuf + in_pos_;
    const bulk_entry entry =
        pack(*memory_, s, {s->outBuf + out_pos_, static_cast<std::size_t>(out)});
    if (!entry.known()) {
        return;
    }
    switch (memory_->reader) {
    case bulk_reader::utf8:
        if (s->srcCode < bulk_codes && in == (s->srcCode < 0x80 ? 1 : s->srcCode < 0x800 ? 2 : 3)) {
            put_entry(memory_->wide[s->srcCode], entry);
        }
        break;
    case bulk_reader::unit_big:
    case bulk_reader::unit_little:
        if (in == 2 && s->srcCode < bulk_codes) {
            put_entry(memory_->wide[s->srcCode], entry);
        }
        break;
    case bulk_reader::iso2022:
        // Escape sequences before it are not the character's; plane 2 is not theirs to tell.
        if (s->charSetNo == s->srcShiftSet && (s->srcCode & ~0x7F7FU) == 0) {
            put_entry(memory_->wide[bulk_iso2022_key(s->srcShiftSet, s->srcCode)], entry);
        }
        break;
    case bulk_reader::lead_bytes:
        if (in == 2 && p[0] >= 0x80) {
            put_entry(memory_->wide[u32{p[0]} << 8 | p[1]], entry);
            memory_->lead_length[p[0]].store(2, std::memory_order_relaxed);
        } else if (in == 1 && memory_->lead_length[p[0]].load(std::memory_order_relaxed) != 2) {
            put_entry(memory_->single[p[0]], entry);
            memory_->lead_length[p[0]].store(1, std::memory_order_relaxed);
        }
        break;
    }
}
