#include "cconv/short_text.h"

#include "cconv/bulk.h"
#include "cconv/bulk_memory.h"
#include "cconv/names.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/table.h"
#include "platform/platform.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>

namespace {

constexpr u32 max_bytes = 4; // of a character, on either side

// ---- What is remembered ------------------------------------------------------------------------

// How long a source character is.
enum class reader : u8 { none, by_lead_byte, utf8, two_bytes, four_bytes };

// A character, and all that the rules did to the session for it. Written once, by the thread that
// claims it; key is stored last.
struct record {
    std::atomic<u64> key; // number and values of its bytes; 0: free
    u8 written[max_bytes];
    u8 length, codes; // written
    u16 charSetType;
    u32 srcCode, setCode, ucsCode, outCode, charSetNo, outSetNo;
    u16 outSetType, outBytes, outDone;
};

constexpr u64 claimed = ~u64{0};
constexpr std::size_t places_tried = 4;
constexpr u32 hash_bits = 13;
constexpr std::size_t record_count = (std::size_t{1} << hash_bits) + places_tried - 1;

// Everything that decides what becomes of a character.
struct pair_key {
    void** charsets; // the registered ones, and their number: what may have become of the two
    u32 charset_count;
    const charset_group *source, *target;
    const rule_row *decoder, *encoder;
    u32 byte_orders;
    u32 newline; // 0: line breaks are characters like others; else 1 + newlineMode
    u32 tables;  // generation of the loaded tables

    bool operator==(const pair_key&) const = default;
};

} // namespace

struct short_memory {
    pair_key key;
    short_memory* next;
    reader length_by;
    std::atomic<u8> lead_length[256]; // as learnt; 0: none, or not by this byte alone
    // By value up to FF of a source byte or unit: in how many bytes the same value is written.
    std::atomic<u8> plain[256];
    record records[record_count];
};

namespace {

// Bits of pair_key::byte_orders.
constexpr u32 big_source = 1, big_target = 2;

// More pairs and settings than these are the rules' alone.
memory_list<short_memory, 16, 256> memories;

u64 hash_of(const pair_key& key) {
    const auto bits = [](const charset_group* group) {
        return reinterpret_cast<std::uintptr_t>(group) >> 4;
    };
    return bits(key.source) ^ bits(key.target) << 1;
}

// ---- Which sessions ----------------------------------------------------------------------------

reader reader_of(const session* s) {
    const rule_function decoder = s->srcRule->function;
    if (decoder == destUTF_8) {
        return reader::utf8;
    }
    if (decoder == destUTF_16 || decoder == destISO_10646_UCS_2) {
        return reader::two_bytes;
    }
    if (decoder == destISO_10646_UCS_4) {
        return reader::four_bytes;
    }
    return bulk_reads_by_lead_byte(s) ? reader::by_lead_byte : reader::none;
}

bool writes_without_state(const session* s) {
    const rule_function encoder = s->dstRule->function;
    return encoder != constISO_2022_JP && encoder != constISO_2022_JP_2004;
}

// Nothing but characters is due: no marks, tags or references.
bool only_characters(const session* s) {
    return s->target.dstWriteBom == 0 && s->source.srcCheckBom == 0 &&
           s->target.charRefMode == PVZAN_CHARREF_OFF && s->baseLang[0] == '\0' &&
           s->curLang[0] == '\0' && s->outLang[0] == '\0';
}

pair_key key_of(const session* s) {
    constexpr u32 any_other_mode = PVZAN_NEWLINE_PARAGRAPH_SEPARATOR + 1;
    const u32 newline =
        s->target.convertNewline != 0 ? 1 + std::min(s->target.newlineMode, any_other_mode) : 0;
    const u32 byte_orders = (s->source.srcBigEndian != 0 ? big_source : 0) |
                            (s->target.dstBigEndian != 0 ? big_target : 0);
    const object_array* groups = g_ProcessObject.groups;
    return {groups != nullptr ? groups->items : nullptr,
            groups != nullptr ? groups->count : u32{0},
            s->srcGroup,
            s->dstGroup,
            s->srcRule,
            s->dstRule,
            byte_orders,
            newline,
            table_generation()};
}

short_memory* make_memory(const session* s, const pair_key& key) {
    const reader length_by = reader_of(s);
    if (length_by == reader::none || !writes_without_state(s) || !bulk_is_registered(s) ||
        !memories.claim()) {
        return nullptr;
    }
    auto* memory =
        static_cast<short_memory*>(ZAN_calloc(1, static_cast<i32>(sizeof(short_memory))));
    if (memory != nullptr) {
        memory->key = key; // all zero is a valid state of the rest
        memory->length_by = length_by;
        memories.publish(hash_of(key), memory);
    }
    return memory;
}

// ---- Records -----------------------------------------------------------------------------------

u64 character_key(const u8* p, u32 length, const u8* end) {
    u32 bytes = 0;
    if (end - p >= i64{max_bytes}) {
        std::memcpy(&bytes, p, max_bytes);
        constexpr bool little = std::endian::native == std::endian::little;
        const u32 others = 8 * (max_bytes - length);
        bytes = little ? bytes << others >> others : bytes >> others << others;
    } else {
        std::memcpy(&bytes, p, length);
    }
    return u64{length} << 32 | bytes;
}

record* first_place(short_memory& memory, u64 key) {
    constexpr u32 golden = 0x9E3779B1; // spreads neighbouring codes
    return memory.records + (static_cast<u32>(key) * golden >> (32 - hash_bits));
}

const record* find_record(short_memory& memory, u64 key) {
    const record* r = first_place(memory, key);
    for (const record* const end = r + places_tried; r != end; ++r) {
        if (r->key.load(std::memory_order_acquire) == key) {
            return r;
        }
    }
    return nullptr;
}

// A free record, now claimed; null when all its places are taken.
record* claim_record(short_memory& memory, u64 key) {
    record* r = first_place(memory, key);
    for (record* const end = r + places_tried; r != end; ++r) {
        u64 free = 0;
        if (r->key.compare_exchange_strong(free, claimed, std::memory_order_relaxed)) {
            return r;
        }
    }
    return nullptr;
}

// Length of the character at p, 0 when it cannot be told.
[[gnu::always_inline]] inline u32 length_at(const short_memory& memory, const u8* p) {
    switch (memory.length_by) {
    case reader::by_lead_byte: return memory.lead_length[*p].load(std::memory_order_relaxed);
    case reader::utf8: return *p < 0xC0 ? 1 : *p < 0xE0 ? 2 : *p < 0xF0 ? 3 : *p < 0xF8 ? 4 : 0;
    case reader::two_bytes: return 2;
    case reader::four_bytes: return 4;
    case reader::none: break;
    }
    return 0;
}

// Bytes of a plain character.
u32 unit_length(const short_memory& memory) {
    return memory.length_by == reader::two_bytes    ? 2
           : memory.length_by == reader::four_bytes ? 4
                                                    : 1;
}

// Whether a character is a source unit of one value, written as that value, and nothing else.
bool is_plain(const short_memory& memory, const record& r, std::span<const u8> source) {
    const bool big = (memory.key.byte_orders & big_target) != 0;
    const bool big_in = (memory.key.byte_orders & big_source) != 0;
    const bool line_break = r.srcCode == '\r' || r.srcCode == '\n';
    return source.size() == unit_length(memory) && load_code(source, big_in) == r.srcCode &&
           r.srcCode <= 0xFF && r.codes == 1 && !line_break &&
           load_code({r.written, r.length}, big) == r.srcCode;
}

// What a call on known characters comes to.
struct outcome {
    const u8* in;
    u8* out;
    u32 current;         // srcCode of the last character
    u32 before_last = 0; // and of the one before it
    u32 characters = 0, codes = 0;
    const record* last = nullptr; // of the last character, where that was looked up
};

// The value of a unit of the source.
template <std::size_t Bytes>
u32 unit_at(const u8* p, bool big_endian) {
    if constexpr (Bytes == 1) {
        return *p;
    }
    return load_code({p, Bytes}, big_endian);
}

// Copies a run of plain characters, In bytes each, to Out bytes each.
template <std::size_t In, std::size_t Out>
std::size_t copy_run(const short_memory& memory, std::span<const u8> input, const u8* out_stop,
                     outcome& o) {
    const bool big_in = (memory.key.byte_orders & big_source) != 0;
    const bool big_out = (memory.key.byte_orders & big_target) != 0;
    const u8* p = input.data();
    const u8* const end = p + input.size() / In * In;
    u32 characters = 0;
    for (; p < end && o.out < out_stop; p += In) {
        const u32 value = unit_at<In>(p, big_in);
        if (value > 0xFF || memory.plain[value].load(std::memory_order_relaxed) != Out) {
            break;
        }
        if constexpr (Out == 1) {
            *o.out++ = static_cast<u8>(value);
        } else {
            std::memset(o.out, 0, Out);
            o.out[big_out ? Out - 1 : 0] = static_cast<u8>(value);
            o.out += Out;
        }
        o.before_last = o.current;
        o.current = value;
        ++characters;
    }
    if (characters > 0) {
        o.characters += characters;
        o.codes += characters;
        o.last = nullptr;
    }
    return characters * In;
}

// The same with the widths that this source and the first character have.
template <std::size_t In>
std::size_t copy_units(const short_memory& memory, std::span<const u8> input, const u8* out_stop,
                       outcome& o) {
    const u32 value = input.size() < In
                          ? 0x100
                          : unit_at<In>(input.data(), (memory.key.byte_orders & big_source) != 0);
    switch (value > 0xFF ? 0 : memory.plain[value].load(std::memory_order_relaxed)) {
    case 1: return copy_run<In, 1>(memory, input, out_stop, o);
    case 2: return copy_run<In, 2>(memory, input, out_stop, o);
    case 4: return copy_run<In, 4>(memory, input, out_stop, o);
    default: return 0;
    }
}

std::size_t copy_plain(const short_memory& memory, std::span<const u8> input, const u8* out_stop,
                       outcome& o) {
    switch (memory.length_by) {
    case reader::two_bytes: return copy_units<2>(memory, input, out_stop, o);
    case reader::four_bytes: return copy_units<4>(memory, input, out_stop, o);
    default: return copy_units<1>(memory, input, out_stop, o);
    }
}

// The part of the input that can be looked up: all of it or, where a character is cut off at the
// end and letters are read with a look at what follows, all before the character in front of the
// cut. That one must be a known one, which no mark is: it would join the letter before it.
std::span<const u8> whole_part(short_memory& memory, std::span<const u8> input) {
    std::size_t cut = input.size();
    const auto back_one = [&] {
        if (memory.length_by == reader::utf8) {
            const auto is_continuation = [](u8 byte) { return byte >= 0x80 && byte < 0xC0; };
            while (cut > 0 && is_continuation(input[--cut])) {
            }
        } else {
            const u32 unit = unit_length(memory);
            cut -= std::min<std::size_t>(cut, cut % unit != 0 ? cut % unit : unit);
        }
    };
    const auto length_of_next = [&] { return length_at(memory, &input[cut]); };
    const bool by_lead_byte = memory.length_by == reader::by_lead_byte;
    back_one();
    if (by_lead_byte || cut + length_of_next() <= input.size()) {
        return input;
    }
    const std::size_t end = cut;
    back_one();
    const u32 length = length_of_next();
    const bool known =
        cut + length == end && find_record(memory, character_key(&input[cut], length, &input[end]));
    return input.first(known ? cut : 0);
}

// Tells kanji from plain characters where that is cheap.
[[gnu::always_inline]] inline bool may_be_plain(const short_memory& memory, const u8* p) {
    switch (memory.length_by) {
    case reader::utf8: return *p < 0x80;
    case reader::two_bytes: return p[(memory.key.byte_orders & big_source) != 0 ? 0 : 1] == 0;
    default: return true;
    }
}

// False when a character is not known, or there may be no room.
bool look_up(short_memory& memory, std::span<const u8> input, const u8* out_stop, outcome& o) {
    const u8* p = input.data();
    const u8* const end = p + input.size();
    while (p < end) {
        if (may_be_plain(memory, p)) {
            if (const std::size_t n = copy_plain(memory, {p, end}, out_stop, o); n > 0) {
                p += n;
                continue;
            }
        }
        const u32 length = length_at(memory, p);
        if (length > static_cast<std::size_t>(end - p) && o.characters > 0) {
            break; // a cut character
        }
        if (length == 0 || length > static_cast<std::size_t>(end - p) || o.out >= out_stop) {
            return false;
        }
        const record* r = find_record(memory, character_key(p, length, end));
        // A line feed behind a carriage return is one line break with it.
        if (r == nullptr || (memory.key.newline != 0 && r->srcCode == '\n' && o.current == '\r')) {
            return false;
        }
        std::memcpy(o.out, r->written, sizeof r->written);
        o.out += r->length;
        ++o.characters;
        o.codes += r->codes;
        o.before_last = o.current;
        o.current = r->srcCode;
        o.last = r;
        p += length;
    }
    o.in = p;
    if (o.last == nullptr && o.characters > 0) {
        const u32 length = unit_length(memory);
        o.last = find_record(memory, character_key(p - length, length, p));
    }
    return o.last != nullptr;
}

} // namespace

void short_guide::try_rest(session* s) {
    const std::span<const u8> input = input_left(s);
    const i64 room = output_room(s);
    if (input.empty() || !only_characters(s)) {
        return;
    }
    const pair_key key = key_of(s);
    memory_ = memories.find(hash_of(key), key);
    if (memory_ == nullptr) {
        memory_ = make_memory(s, key);
    }
    if (memory_ == nullptr || room < i64{max_bytes}) {
        return;
    }
    u8* const out = s->outBuf + s->outPos;
    outcome o{input.data(), out, s->srcCode};
    if (!look_up(*memory_, whole_part(*memory_, input), out + room - (max_bytes - 1), o)) {
        return;
    }
    const record& last = *o.last;
    s->inPos += static_cast<i32>(o.in - input.data());
    s->outPos += static_cast<i32>(o.out - out);
    s->inCount += o.characters;
    s->outCount += o.codes;
    s->prevSrcCode = o.before_last;
    s->srcCode = last.srcCode;
    s->setCode = last.setCode;
    s->ucsCode = last.ucsCode;
    s->outCode = last.outCode;
    s->outCode2 = 0;
    s->outBytes = last.outBytes;
    s->outDone = last.outDone;
    s->charSetNo = last.charSetNo;
    s->charSetType = last.charSetType;
    s->outSetNo = last.outSetNo;
    s->outSetType = last.outSetType;
}

void short_guide::remember(const session* s) {
    short_memory& memory = *memory_;
    const u8* const p = s->inBuf + note_.in_pos;
    const auto in = static_cast<u32>(s->inPos - note_.in_pos);
    const auto out = static_cast<u32>(s->outPos - note_.out_pos);
    const u32 codes = s->outCount - note_.out_count;
    // A mark may join the letter before it; a user-defined set leaves the number of another behind.
    const bool alone = s->status == PVZAN_WRITTEN && s->inCount - note_.in_count == 1 &&
                       s->outCode2 == 0 && s->target.useSubstitute == 0 &&
                       !is_combining_mark(s->srcCode) && s->outSetType != PVZAN_SET_USER_DEFINED &&
                       !s->target.dstWriteBom;
    if (!alone || in == 0 || in > max_bytes || out == 0 || out > max_bytes || codes == 0) {
        return;
    }
    if (memory.length_by == reader::by_lead_byte) {
        u8 none = 0;
        std::atomic<u8>& length = memory.lead_length[*p];
        length.compare_exchange_strong(none, static_cast<u8>(in), std::memory_order_relaxed);
    }
    const u64 key = character_key(p, in, p + in);
    if (length_at(memory, p) != in || find_record(memory, key) != nullptr) {
        return;
    }
    record* r = claim_record(memory, key);
    if (r == nullptr) {
        return;
    }
    std::memcpy(r->written, s->outBuf + note_.out_pos, out);
    r->srcCode = s->srcCode;
    r->setCode = s->setCode;
    r->ucsCode = s->ucsCode;
    r->outCode = s->outCode;
    r->charSetNo = s->charSetNo;
    r->outSetNo = s->outSetNo;
    r->charSetType = s->charSetType;
    r->outSetType = s->outSetType;
    r->outBytes = s->outBytes;
    r->outDone = s->outDone;
    r->length = static_cast<u8>(out);
    r->codes = static_cast<u8>(codes);
    r->key.store(key, std::memory_order_release);
    if (is_plain(memory, *r, {p, in})) {
        memory.plain[r->srcCode].store(r->length, std::memory_order_release);
    }
}

void short_text_release() {
    memories.release();
}
