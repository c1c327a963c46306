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
    const std::span<const u8> input = input_left(s);
    u8* const out = s->outBuf + s->outPos;
    const i64 room = std::max<i64>(output_room(s) - p.plan.target->spare, 0);
    return {
        .in = input.data(),
        .in_end = input.data() + input.size(),
        .out = out,
        .out_end = out + room,
        .in_set = s->srcShiftSet,
        .out_set = s->dstShiftSet,
        .characters = 0,
        .codes = 0,
        .last = no_key,
        .before_last = no_key,
        .why = stop::end,
        .next = input.data(),
        .next_set = s->srcShiftSet,
    };
}

} // namespace

path::~path() {
    if (pair_ != nullptr) {
        release_pair(pair_);
    }
}

bool path::take_pair(const session* s) {
    // Bytes that are written may be read again only by rules that do both one by one.
    bool for_now = false;
    pair_ = by_hand.off || overlap(s) ? nullptr : hold_pair(s, strict_, for_now);
    if (pair_ == nullptr && !for_now) {
        wait_ = for_ever;
    }
    return pair_ != nullptr;
}

// A text full of characters that are the rules' is left to them for longer and longer.
void path::be_patient(u32 characters) {
    constexpr u32 worth_it = 4, most = 63;
    if (characters >= worth_it) {
        penalty_ = 0;
        return;
    }
    wait_ = penalty_;
    penalty_ = std::min(2 * penalty_ + 1, most);
}

void path::try_run(session* s) {
    if (output_room(s) == 0 || input_left(s).empty() || (pair_ == nullptr && !take_pair(s))) {
        return;
    }
    u32 characters = 0;
    // A line feed behind a carriage return would belong to it.
    for (bool more = true; more && !(pair_->plan.normalises && s->srcCode == '\r');) {
        fast::run r = run_of(s, *pair_);
        run_over(*pair_, r);
        if (!finish(*pair_, r, s)) {
            wait_ = for_ever;
            return;
        }
        characters += r.characters;
        more = r.why == stop::unknown &&
               learn(*pair_, r.next, static_cast<std::size_t>(r.in_end - r.next), r.next_set);
    }
    be_patient(characters);
    if (by_hand.counting) {
        by_hand.characters += characters;
    }
    if (pair_->stale.load(std::memory_order_relaxed)) {
        release_pair(pair_);
        pair_ = nullptr;
    }
}

} // namespace fast
