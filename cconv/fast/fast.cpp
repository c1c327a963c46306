// The fast path of a call: which pair, from where to where, and when to try again.
#include "cconv/fast/fast.h"
#include "cconv/fast/pair.h"

#include <algorithm>

namespace fast {

watch by_hand;

namespace {

bool overlap(const session* s) {
    const auto in = reinterpret_cast<std::uintptr_t>(s->inBuf);
    const auto out = reinterpret_cast<std::uintptr_t>(s->outBuf);
    return in + static_cast<u32>(s->inPos) < out + static_cast<u32>(s->outLen) &&
           out + static_cast<u32>(s->outPos) < in + static_cast<u32>(s->inLen);
}

run run_of(const session* s, const pair& p) {
    const u8* const in = s->inBuf + s->inPos;
    u8* const out = s->outBuf + s->outPos;
    const i32 room = std::max(s->outLen - s->outPos - p.plan.target->spare, 0);
    run r{};
    r.in = in;
    r.in_end = s->inBuf + s->inLen;
    r.out = out;
    r.out_end = out + room;
    r.in_state = p.plan.source_states.state_of(s->srcShiftSet);
    r.out_state = p.plan.target_states.state_of(s->dstShiftSet);
    r.last = r.before_last = no_key;
    return r;
}

} // namespace

path::~path() {
    if (held_ != nullptr) {
        release_pair(held_);
    }
}

bool path::take_pair(const session* s) {
    if (held_ != nullptr && !is_current(*held_)) {
        release_pair(held_);
        held_ = nullptr;
    }
    // If input and output overlap, bytes that are written may be read again, which only the rules
    // do correctly.
    if (held_ == nullptr && !by_hand.off && !overlap(s)) {
        held_ = hold_pair(s, strict_);
    }
    return held_ != nullptr;
}

// If text is full of characters that are left to the rules, it is left to them for longer and
// longer.
void path::be_patient(u32 characters) {
    constexpr u32 worth_it = 4, most = 63;
    if (characters >= worth_it) {
        penalty_ = 0;
        return;
    }
    wait_ = penalty_;
    penalty_ = std::min(2 * penalty_ + 1, most);
}

std::size_t path::copy_ascii(const session* s, ascii_breaks& counted) {
    if (!take_pair(s)) {
        return 0;
    }
    const pair& p = *held_;
    const std::span<const u8> in = input_left(s);
    const auto room = static_cast<std::size_t>(output_room(s));
    const bool copies = p.plan.source_unit.bytes == 1 && p.plan.target_unit.bytes == 1 &&
                        p.plan.source_states.codes == nullptr &&
                        p.plan.target_states.codes == nullptr && !p.plan.normalises;
    return copies ? p.kernel->copy_and_count(
                        {in.data(), in.size(), s->outBuf + s->outPos, room, p.plain_ascii.load()},
                        counted)
                  : 0;
}

void path::try_run(session* s) {
    if (output_room(s) == 0 || input_left(s).empty()) {
        return;
    }
    u32 characters = 0;
    // A line feed after a carriage return would belong to it.
    for (bool more = take_pair(s); more && !(held_->plan.normalises && s->srcCode == '\r');) {
        pair& p = *held_;
        fast::run r = run_of(s, p);
        run_over(p, r);
        finish(p, r, s);
        characters += r.characters;
        more = r.why == stop::not_asked && learn(p, r);
    }
    be_patient(characters);
    if (by_hand.counting) {
        by_hand.characters += characters;
    }
}

} // namespace fast
