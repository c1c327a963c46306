// Whole texts in one call, counts, and saving the state to continue elsewhere.
#include "cconv/registry/iso2022.h"
#include "cconv/registry/names.h"
#include "text/converter.h"
#include "text/record.h"

#include <algorithm>

namespace text {

namespace {

// What pvzan_save stores.
struct saved {
    u32 tag, sum; // the tag identifies the charsets and options
    state at;
};

u32 hash(const void* bytes, std::size_t size, u32 seed) {
    u32 hash = 2166136261U ^ seed;
    for (const u8 byte : std::span(static_cast<const u8*>(bytes), size)) {
        hash = (hash ^ byte) * 16777619U;
    }
    return hash;
}

u32 tag_of(const pvzan_converter& c) {
    u32 tag = hash(&c.how, sizeof c.how, pvzan_text_version());
    for (const pvzan_name* name : {&c.from, &c.to}) {
        tag = hash(name->charset, std::strlen(name->charset), tag + name->order + name->mark);
    }
    return tag;
}

bool read_saved(const pvzan_converter& c, const u8* from, std::size_t size, saved& s) {
    if (from == nullptr || size != sizeof s) {
        return false;
    }
    std::memcpy(static_cast<void*>(&s), from, sizeof s);
    const standing& now = s.at.now;
    return s.tag == tag_of(c) && s.sum == hash(&s.at, sizeof s.at, 0) &&
           now.held_size <= most_held && now.pending_at <= now.pending_size &&
           now.pending_size <= most_pending;
}

// An offset of a row; an invalid one becomes one that is beyond all data.
u64 offset_at(const void* offsets, u32 width, size_t i) {
    if (width == 4) {
        i32 value = 0;
        std::memcpy(&value, static_cast<const u8*>(offsets) + 4 * i, sizeof value);
        return value < 0 ? ~u64{0} : static_cast<u64>(value);
    }
    i64 value = 0;
    std::memcpy(&value, static_cast<const u8*>(offsets) + 8 * i, sizeof value);
    return value < 0 ? ~u64{0} : static_cast<u64>(value);
}

bool put_offset(void* offsets, u32 width, size_t i, u64 value) {
    if (width == 4) {
        const auto narrow = static_cast<i32>(value);
        std::memcpy(static_cast<u8*>(offsets) + 4 * i, &narrow, sizeof narrow);
        return value <= 0x7FFFFFFF;
    }
    std::memcpy(static_cast<u8*>(offsets) + 8 * i, &value, sizeof value);
    return true;
}

// The bytes that designations, shifts and a code may need according to a definition.
u64 told_growth(const iso2022& codes) {
    u64 longest = 0, registers = 0;
    for (const control_sequence& s : codes.sequences()) {
        longest = std::max<u64>(longest, s.length);
    }
    for (u32 which = 0; which < register_count; ++which) {
        registers += (codes.line.mask & register_mask(which)) != 0 ? 1U : 0U;
    }
    return (registers + 2) * longest + 2;
}

// The bytes that one byte of the source may become, as a fault or as part of a character.
u64 most_growth(const pvzan_converter& c) {
    const u64 unit = c.to.unit;
    const auto writes_words = [](u32 how) { return how >= PVZAN_REFERENCE; };
    const bool words = writes_words(c.how.on_invalid) || writes_words(c.how.on_missing) ||
                       writes_words(c.how.on_cut);
    const bool designates = c.target != nullptr && c.target->designates;
    constexpr u64 longest_reference = 10, escape = 4;
    if (words) {
        return longest_reference * unit + 2 * escape;
    }
    const iso2022* told = c.work.dstGroup->codes;
    const u64 usual = told != nullptr                 ? told_growth(*told)
                      : designates                    ? 8
                      : c.to.kind == PVZAN_KIND_UTF_8 ? 3
                      : unit == 1                     ? 4
                                                      : unit;
    return std::max(usual, c.how.breaks == PVZAN_BREAKS_CRLF ? 2 * unit : 0);
}

} // namespace

} // namespace text

using namespace text;

extern "C" {

void pvzan_count(const pvzan_converter* converter, pvzan_counts* counts) {
    if (converter == nullptr || !is_record(counts)) {
        return;
    }
    const standing& now = converter->now;
    const bool ended = now.now == stage::ended;
    fill_record(*counts, {.size = sizeof *counts,
                          .reserved = 0,
                          .in = now.at.offset,
                          .out = now.out,
                          .characters = now.characters,
                          .faults = now.faults,
                          .look_alikes = now.look_alikes,
                          .composed = now.composed,
                          .private_use = now.private_use,
                          .line = ended ? 0 : now.at.line,
                          .column = ended ? 0 : now.at.column});
}

size_t pvzan_most(const pvzan_converter* converter, size_t in_size) {
    if (converter == nullptr) {
        return 0;
    }
    constexpr u64 end = most_pending + 24; // pending bytes, a mark, an escape sequence, spare bytes
    const u64 growth = most_growth(*converter), bytes = u64{in_size} + most_held;
    const bool fits = bytes >= in_size && bytes <= (SIZE_MAX - end) / growth;
    return fits ? static_cast<size_t>(bytes * growth + end) : SIZE_MAX;
}

size_t pvzan_save(const pvzan_converter* converter, uint8_t* to, size_t room) {
    if (converter == nullptr || converter->fault.waits) {
        return 0;
    }
    if (to != nullptr && room >= sizeof(saved)) {
        saved s;
        std::memset(static_cast<void*>(&s), 0, sizeof s);
        s.tag = tag_of(*converter);
        s.at = state_of(*converter);
        s.sum = hash(&s.at, sizeof s.at, 0);
        std::memcpy(to, &s, sizeof s);
    }
    return sizeof(saved);
}

int32_t pvzan_restore(pvzan_converter* converter, const uint8_t* from, size_t size) {
    saved s;
    if (converter == nullptr || !read_saved(*converter, from, size, s)) {
        return 0;
    }
    begin_text(*converter);
    go_back(*converter, s.at);
    return 1;
}

uint64_t pvzan_shift(const pvzan_converter* converter) {
    if (converter == nullptr || !has_states(*converter)) {
        return 0;
    }
    return converter->work.srcShiftSet ^ u32 { PVZAN_SET_ISO_646_IRV };
}

int32_t pvzan_begin_in(pvzan_converter* converter, uint64_t shift) {
    if (converter == nullptr || shift >> 32 != 0 || (shift != 0 && !has_states(*converter))) {
        return 0;
    }
    begin_text(*converter);
    converter->work.srcShiftSet = static_cast<u32>(shift) ^ u32 { PVZAN_SET_ISO_646_IRV };
    return 1;
}

int32_t pvzan_stands_as(const pvzan_converter* converter, const uint8_t* from, size_t size) {
    saved s;
    if (converter == nullptr || converter->fault.waits || !read_saved(*converter, from, size, s)) {
        return 0;
    }
    const standing &a = converter->now, &b = s.at.now;
    const auto same = [](const u8* one, u32 one_size, const u8* other, u32 other_size) {
        return one_size == other_size && std::equal(one, one + one_size, other);
    };
    return s.at.in_set == converter->work.srcShiftSet &&
                   s.at.out_set == converter->work.dstShiftSet &&
                   same(a.held, a.held_size, b.held, b.held_size) &&
                   same(a.pending + a.pending_at, a.pending_size - a.pending_at,
                        b.pending + b.pending_at, b.pending_size - b.pending_at) &&
                   a.at.behind_cr == b.at.behind_cr && a.now == b.now &&
                   a.big_source == b.big_source && a.mark_due == b.mark_due &&
                   a.told_open == b.told_open && a.behind_break == b.behind_break
               ? 1
               : 0;
}

size_t pvzan_convert(pvzan_converter* converter, const uint8_t* in, size_t in_size, uint8_t* out,
                     size_t room, pvzan_outcome* outcome) {
    pvzan_outcome said = PVZAN_FEED_MISUSE;
    size_t size = 0, left = in_size;
    if (converter != nullptr) {
        pvzan_reset(converter);
        u8* end = out;
        size_t free = room;
        said = pvzan_feed(converter, &in, &left, &end, &free, PVZAN_LAST);
        size = room - free;
    }
    const bool is_short = said == PVZAN_FEED_MORE_ROOM;
    while (said == PVZAN_FEED_MORE_ROOM) {
        u8 rest[4096];
        u8* end = rest;
        size_t free = sizeof rest;
        said = pvzan_feed(converter, &in, &left, &end, &free, PVZAN_LAST);
        size += sizeof rest - free;
    }
    if (outcome != nullptr) {
        *outcome = is_short && said == PVZAN_FEED_DONE ? PVZAN_FEED_MORE_ROOM : said;
    }
    return size;
}

size_t pvzan_convert_rows(pvzan_converter* converter, const uint8_t* in, size_t in_size,
                          const void* offsets, size_t rows, uint8_t* out, size_t room,
                          void* out_offsets, uint32_t offset_bytes, uint8_t* fault_kinds) {
    if (converter == nullptr || offsets == nullptr || out_offsets == nullptr ||
        (offset_bytes != 4 && offset_bytes != 8)) {
        return 0;
    }
    u64 written = 0;
    put_offset(out_offsets, offset_bytes, 0, 0);
    for (size_t row = 0; row < rows; ++row) {
        const u64 begin = offset_at(offsets, offset_bytes, row);
        const u64 end = offset_at(offsets, offset_bytes, row + 1);
        if (end < begin || end > in_size || (in == nullptr && end > begin)) {
            return row;
        }
        const uint8_t* next = in != nullptr ? in + begin : nullptr;
        size_t left = static_cast<size_t>(end - begin), free = room - static_cast<size_t>(written);
        u8* at = out != nullptr ? out + written : nullptr;
        pvzan_reset(converter);
        const pvzan_outcome said = pvzan_feed(converter, &next, &left, &at, &free, PVZAN_LAST);
        const u64 now = said == PVZAN_FEED_FAULT ? written : room - free;
        if ((said != PVZAN_FEED_DONE && said != PVZAN_FEED_FAULT) ||
            !put_offset(out_offsets, offset_bytes, row + 1, now)) {
            return row;
        }
        written = now;
        if (fault_kinds != nullptr) {
            fault_kinds[row] =
                said == PVZAN_FEED_FAULT ? static_cast<uint8_t>(converter->fault.kind) : 0;
        }
    }
    return rows;
}

} // extern "C"
