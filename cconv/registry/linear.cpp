#include "cconv/registry/linear.h"

#include "platform/platform.h"
#include "platform/unicode.h"

#include <algorithm>

namespace {

// Consecutive codes, by their numbers, that stand for consecutive values.
struct run {
    u32 number, last, scalar;

    [[nodiscard]] u32 last_scalar() const { return scalar + (last - number); }
};

constexpr u32 most_runs = 1 << 16;

// The data of the block begins with this; then come the runs.
struct header {
    code_bytes codes;
    u32 count, room;
};

constexpr i32 size_with(u32 room) {
    return static_cast<i32>(sizeof(header) + room * sizeof(run));
}

table_block* block_of(const table_object* table) {
    return static_cast<table_block*>(table->blocks->items[0]);
}

header* header_of(const table_object* table) {
    return reinterpret_cast<header*>(block_of(table)->data);
}

std::span<run> runs_of(header* head) {
    return {reinterpret_cast<run*>(head + 1), head->count};
}

// Makes room for one more run; the block's data moves.
bool make_room(table_object* table) {
    header* head = header_of(table);
    if (head->count < head->room) {
        return true;
    }
    const u32 room = 2 * head->room;
    void* const grown = room <= most_runs ? ZAN_realloc(head, size_with(room)) : nullptr;
    if (grown == nullptr) {
        return false;
    }
    block_of(table)->data = static_cast<u8*>(grown);
    header_of(table)->room = room;
    return true;
}

constexpr bool is_hex(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
}

bool read_byte(const char*& text, u8& byte) {
    u32 value = 0;
    for (int i = 0; i < 2; ++i, ++text) {
        if (!is_hex(*text)) {
            return false;
        }
        value = value << 4 | static_cast<u32>(*text <= '9' ? *text - '0' : *text - 'A' + 10);
    }
    byte = static_cast<u8>(value);
    return true;
}

} // namespace

bool code_bytes::read(const char* text, u32 wanted) {
    for (count = 0; count < wanted && count < max_code_bytes; ++count) {
        if (count > 0 && *text++ != ' ') {
            return false;
        }
        u8 &low = first[count], &high = last[count];
        if (!read_byte(text, low) || *text++ != '-' || !read_byte(text, high) || low > high) {
            return false;
        }
    }
    return count == wanted && count > 0 && *text == '\0';
}

bool code_bytes::has(u32 code) const {
    for (u32 i = count; i-- > 0; code >>= 8) {
        if ((code & 0xFF) < first[i] || (code & 0xFF) > last[i]) {
            return false;
        }
    }
    return code == 0;
}

u32 code_bytes::number_of(u32 code) const {
    u32 number = 0;
    for (u32 i = 0; i < count; ++i) {
        const u32 byte = code >> 8 * (count - 1 - i) & 0xFF;
        number = number * (last[i] - first[i] + 1U) + (byte - first[i]);
    }
    return number;
}

u32 code_bytes::code_of(u32 number) const {
    u32 code = 0;
    for (u32 i = count, shift = 0; i-- > 0; shift += 8) {
        const u32 size = last[i] - first[i] + 1U;
        code |= (first[i] + number % size) << shift;
        number /= size;
    }
    return code;
}

u32 code_bytes::last_number() const {
    u64 total = 1;
    for (u32 i = 0; i < count; ++i) {
        total *= last[i] - first[i] + 1U;
    }
    return static_cast<u32>(total - 1);
}

bool make_linear(table_object* table, const code_bytes& codes) {
    constexpr u32 room = 8;
    auto* block = static_cast<table_block*>(initStruct(sizeof(table_block)));
    void* const data = ZAN_malloc(size_with(room));
    if (block == nullptr || data == nullptr || addArray(table->blocks, block) == 0) {
        termStruct(block);
        ZAN_free(data);
        return false;
    }
    block->valueBytes = linear_block;
    block->data = static_cast<u8*>(data);
    *header_of(table) = {codes, 0, room};
    return true;
}

bool add_linear(table_object* table, u32 code, u32 scalar) {
    const code_bytes& codes = header_of(table)->codes;
    const u32 number = codes.number_of(code), last = codes.last_number();
    const std::span<run> before = runs_of(header_of(table));
    if (!codes.has(code) || (!before.empty() && number <= before.back().number)) {
        return false;
    }
    if (!before.empty()) {
        before.back().last = std::min(before.back().last, number - 1);
    }
    if (scalar == 0) {
        return true;
    }
    if (!make_room(table)) {
        return false;
    }
    header* const head = header_of(table);
    ++head->count;
    runs_of(head).back() = {number, last, scalar};
    return true;
}

void finish_linear(table_object* table) {
    header* const head = header_of(table);
    const std::span<run> runs = runs_of(head);
    if (runs.empty()) {
        return;
    }
    if (table->toUnicode == 1) {
        table->minKey = head->codes.code_of(runs.front().number);
        table->maxKey = head->codes.code_of(runs.back().last);
    } else {
        std::ranges::sort(runs, {}, &run::scalar);
        table->minKey = runs.front().scalar;
        table->maxKey = std::ranges::max(runs, {}, &run::last_scalar).last_scalar();
    }
    table->keysSeen = 1;
    block_of(table)->firstKey = table->minKey;
    block_of(table)->endKey = table->maxKey + 1;
}

std::optional<u32> faulty_run(table_object* table) {
    finish_linear(table); // orders the runs by their values
    header* const head = header_of(table);
    u64 next = 0;
    for (const run& r : runs_of(head)) {
        const u64 last = u64{r.scalar} + (r.last - r.number);
        if (r.scalar < next || last > last_scalar ||
            (r.scalar <= last_surrogate && last >= first_high_surrogate)) {
            return head->codes.code_of(r.number);
        }
        next = last + 1;
    }
    return std::nullopt;
}

u32 find_linear(const table_object* table, u32 key) {
    header* const head = header_of(table);
    const std::span<const run> runs = runs_of(head);
    const bool decodes = table->toUnicode == 1;
    if (decodes && !head->codes.has(key)) {
        return 0;
    }
    const u32 wanted = decodes ? head->codes.number_of(key) : key;
    const auto behind =
        std::ranges::upper_bound(runs, wanted, {}, decodes ? &run::number : &run::scalar);
    if (behind == runs.begin()) {
        return 0;
    }
    const run& found = behind[-1];
    const u32 at = wanted - (decodes ? found.number : found.scalar);
    if (at > found.last - found.number) {
        return 0;
    }
    return decodes ? found.scalar + at : head->codes.code_of(found.number + at);
}
