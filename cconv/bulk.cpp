// The fast path's memories: finding one for a session, and learning from the rules.
#include "cconv/bulk.h"

#include "cconv/bulk_memory.h"
#include "cconv/names.h"
#include "cconv/rulefunc/rules.h"
#include "platform/platform.h"

#include <algorithm>

namespace {

// Below this the crossing costs more than it saves; and a stretch must be longer than the loops'
// margins.
constexpr std::size_t least_input = 96;
constexpr i64 least_output = 96;

// Memories by the hash of their key, and how many there may be: more pairs and settings than that
// are converted by the rules.
memory_list<bulk_memory, 256, 1024> memories;

// What the last call on this thread left of the tries: a text full of anomalies comes in many short
// calls.
struct patience {
    const session* of;
    u32 wait, penalty, fruitless;
};
thread_local patience last_call;

u64 hash_of(const bulk_key& key) {
    constexpr u64 golden = 0x9E3779B97F4A7C15;
    u64 hash = 0;
    const auto mix = [&](u64 v) { hash = (hash ^ v) * golden; };
    mix(reinterpret_cast<std::uintptr_t>(key.source));
    mix(reinterpret_cast<std::uintptr_t>(key.target));
    mix(key.source_big_endian << 16 | key.target_big_endian << 8 | key.newline);
    mix(u64{key.substitutes[1]} << 32 | key.substitutes[3]);
    return hash >> 56;
}

bulk_memory* add_memory(const session* s, const bulk_plan& plan) {
    if (!bulk_is_registered(s) || !memories.claim()) {
        return nullptr;
    }
    bulk_memory* memory = bulk_make_memory(s, plan);
    if (memory != nullptr) {
        memories.publish(hash_of(plan.key), memory);
    }
    return memory;
}

bool is_line_break(u32 c) {
    return c == '\r' || c == '\n';
}

bool is_euc(rule_function decoder) {
    return decoder == destEUC_JP || decoder == destEUC_JIS_2004;
}

// Where the entry of the character that these bytes were has its place; none when the loops would
// not read it by them alone.
std::optional<u32> place_of(const bulk_memory& memory, const session* s,
                            std::span<const u8> input) {
    const u32 code = s->srcCode;
    const u8* const p = input.data();
    const auto scalar_of = [&](std::size_t length) {
        return code < bulk_codes && input.size() == length ? std::optional(code) : std::nullopt;
    };
    switch (memory.reader) {
    case bulk_reader::utf8: return scalar_of(code < 0x80 ? 1 : code < 0x800 ? 2 : 3);
    case bulk_reader::unit_big:
    case bulk_reader::unit_little: return scalar_of(2);
    case bulk_reader::quad_big:
    case bulk_reader::quad_little: return scalar_of(4);
    case bulk_reader::iso2022:
        // Escape sequences before it are not the character's; plane 2 is not theirs to tell.
        if (s->charSetNo == s->srcShiftSet && (code & ~0x7F7FU) == 0) {
            return bulk_iso2022_key(s->srcShiftSet, code);
        }
        break;
    case bulk_reader::lead_bytes:
        if (input.size() == 2 && p[0] >= 0x80) {
            return u32{p[0]} << 8 | p[1];
        }
        if (input.size() == 1 && memory.lead_length[p[0]].load(std::memory_order_relaxed) != 2) {
            return p[0];
        }
        if (input.size() == 3 && p[0] == bulk_single_shift && bulk_euc3_key(p) != 0 &&
            is_euc(memory.key.decoder->function)) {
            return bulk_euc3_key(p);
        }
        break;
    }
    return std::nullopt;
}

// The length of characters that begin with this one's lead byte.
void note_lead(bulk_memory& memory, std::span<const u8> input) {
    const u8 lead = input[0];
    memory.lead_length[lead].store(static_cast<u8>(input.size()), std::memory_order_relaxed);
    if (input.size() == 2) {
        memory.lead_rows[lead & 0xF].fetch_or(static_cast<u8>(1U << (lead >> 4 & 7)),
                                              std::memory_order_relaxed);
    }
}

// Most characters that the rules get are known: looking is cheaper than learning them again.
bool already_known(const bulk_memory& memory, std::span<const u8> input) {
    const u8* p = input.data();
    const std::size_t length = input.size();
    switch (memory.reader) {
    case bulk_reader::lead_bytes:
        if (length == 3) {
            const u32 key = p[0] == bulk_single_shift ? bulk_euc3_key(p) : 0;
            return key != 0 && memory.wide_entry(key).known();
        }
        return length == 1 ? memory.wide_entry(p[0]).known()
                           : length == 2 && memory.wide_entry(u32{p[0]} << 8 | p[1]).known();
    case bulk_reader::utf8:
        return length == 1 ? memory.wide_entry(p[0]).known()
                           : length == 3 && memory.wide_entry(bulk_utf8_scalar(p)).known();
    case bulk_reader::unit_big:
        return length == 2 && memory.wide_entry(u32{p[0]} << 8 | p[1]).known();
    case bulk_reader::unit_little:
        return length == 2 && memory.wide_entry(u32{p[1]} << 8 | p[0]).known();
    case bulk_reader::quad_big:
    case bulk_reader::quad_little:
    case bulk_reader::iso2022: break;
    }
    return false;
}

} // namespace

void bulk_release() {
    memories.release();
}

bulk_guide::bulk_guide(const session* s)
    : enabled_(input_left(s).size() >= least_input && output_room(s) >= least_output) {
    if (enabled_ && last_call.of == s) {
        wait_ = last_call.wait;
        penalty_ = last_call.penalty;
        fruitless_ = last_call.fruitless;
    }
}

void bulk_guide::leave(const session* s) const {
    if (enabled_) {
        // What the last stretch left to the rules may be done by now, or known.
        last_call = {s, penalty_ == 0 ? 0 : wait_, penalty_, fruitless_};
    }
}

void bulk_guide::find(const session* s) {
    if (const std::optional<bulk_plan> plan = bulk_plan_of(s)) {
        memory_ = memories.find(hash_of(plan->key), plan->key);
        if (memory_ == nullptr) {
            memory_ = add_memory(s, *plan);
        }
    }
    enabled_ = memory_ != nullptr;
}

void bulk_guide::try_stretch(session* s) {
    if (memory_ == nullptr) {
        find(s);
        if (!enabled_) {
            return;
        }
    }
    // A line feed behind this would belong to it.
    if (memory_->key.newline != 0 && s->srcCode == '\r') {
        return;
    }
    const std::span<const u8> input = input_left(s);
    const i64 room = output_room(s);
    if (input.size() < least_input || room < least_output) {
        enabled_ = false; // the rest of this call is the rules'
        memory_ = nullptr;
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
    constexpr u32 worth_it = 4, most = 256;
    penalty_ = characters >= worth_it ? 0 : std::min(penalty_ * 2 + 4, most);
    wait_ = characters >= worth_it ? 2 : penalty_;
}

bool bulk_guide::remember(const session* s) {
    const std::span<const u8> input(s->inBuf + note_.in_pos,
                                    static_cast<std::size_t>(s->inPos - note_.in_pos));
    if (already_known(*memory_, input)) {
        return false;
    }
    const i32 out = s->outPos - note_.out_pos;
    // A code of JIS X 0213 may stand for a letter and a mark.
    const u32 codes = s->outCount - note_.out_count;
    const bool one = codes == 1 && s->outCode2 == 0;
    const bool two = codes == 2 && memory_->reader == bulk_reader::lead_bytes;
    const bool alone = s->status == PVZAN_WRITTEN && s->inCount - note_.in_count == 1 &&
                       (one || two) && !input.empty() && out >= 1;
    const bool breaks =
        memory_->key.newline != 0 && (s->ucsCode == '\r' || is_line_break(s->srcCode));
    const bool may_join = bulk_reads_scalars(memory_->reader) && is_combining_mark(s->srcCode);
    const std::optional<u32> place = place_of(*memory_, s, input);
    if (!alone || breaks || may_join || !place) {
        return false;
    }
    const std::span<const u8> written(s->outBuf + note_.out_pos, static_cast<std::size_t>(out));
    bulk_entry entry = one ? bulk_pack_short(*memory_, s, written) : bulk_entry{};
    if (!entry.known()) {
        entry = bulk_pack_long(*memory_, written, codes);
    }
    if (!entry.known()) {
        return false;
    }
    memory_->wide[*place].store(entry.packed, std::memory_order_relaxed);
    if (memory_->reader == bulk_reader::lead_bytes) {
        note_lead(*memory_, input);
    }
    return true;
}
