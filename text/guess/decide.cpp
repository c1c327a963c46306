// The answer: which reading is the likeliest, by how much, and what speaks for it.
#include "platform/platform.h"
#include "text/guess/stages.h"
#include "text/record.h"

#include <algorithm>
#include <cstdio>

namespace text {

namespace {

constexpr i32 whole_bit = bit;

// By so many bits the best must be ahead, by how many characters beyond ASCII there are.
i32 margin_of(const candidate& c) {
    const i32 bits = c.beyond <= 2 ? 8 : c.beyond <= 4 ? 9 : c.beyond < 8 ? 10 : 12;
    return bits * whole_bit;
}

bool reads_all(const candidate& c) {
    return c.alive && c.fault_at == nowhere && c.faults == 0;
}

// A member of a family that reads everything makes those behind it needless.
void settle_families(pvzan_guesser& g) {
    for (u32 i = 0; i < g.count; ++i) {
        const candidate& first = g.candidates[i];
        if (!reads_all(first) || first.row->relatives == family::none || first.odd > 0) {
            continue;
        }
        for (u32 k = i + 1; k < g.count; ++k) {
            candidate& other = g.candidates[k];
            other.alive = other.alive && other.row->relatives != first.row->relatives;
        }
    }
}

// Of the candidates that read the same, the best one stays.
void settle_equals(pvzan_guesser& g) {
    for (candidate& c : std::span(g.candidates, g.count)) {
        for (candidate& other : std::span(g.candidates, g.count)) {
            if (&other > &c && c.alive && other.alive && c.hash == other.hash) {
                const bool keep =
                    reads_all(c) != reads_all(other) ? reads_all(c) : c.cost <= other.cost;
                (keep ? other : c).alive = false;
            }
        }
    }
}

// ---- What is told ------------------------------------------------------------------------------

constexpr std::size_t shown_characters = 8;

// What a candidate reads behind a place of the evidence, in UTF-8; how much it is before it.
std::size_t read_behind(const candidate& c, std::span<const u8> bytes, std::size_t same,
                        char (&into)[96]) {
    u8 out[evidence_room * 3];
    pvzan_open_options how = {};
    how.size = sizeof how;
    how.on_invalid = how.on_cut = PVZAN_SUBSTITUTE;
    how.most_faults = ~u64{0};
    pvzan_converter* reads = pvzan_open(c.name.shown, "utf-8", &how, nullptr);
    const std::size_t all = reads == nullptr ? 0
                                             : pvzan_convert(reads, bytes.data(), bytes.size(), out,
                                                             sizeof out, nullptr);
    pvzan_close(reads);
    std::size_t to = same, characters = 0;
    while (to < std::min(all, sizeof out) && characters < shown_characters && out[to] >= 0x20) {
        std::size_t next = to + 1;
        while (next < all && (out[next] & 0xC0) == 0x80) {
            ++next;
        }
        to = next;
        ++characters;
    }
    const std::size_t size = std::min(to - std::min(same, to), sizeof into - 1);
    std::memcpy(into, out + same, size);
    into[size] = '\0';
    return all;
}

// The first place that two candidates read differently: its bytes, and what both have read before.
struct difference {
    std::size_t at = 0;
    std::size_t before[2] = {};
};

difference find_difference(const candidate& a, const candidate& b, std::span<const u8> bytes) {
    const candidate* both[2] = {&a, &b};
    u8* out[2] = {};
    std::size_t size[2] = {};
    pvzan_converter* reads[2] = {};
    constexpr i32 room = evidence_room * 3;
    pvzan_open_options how = {};
    how.size = sizeof how;
    how.on_invalid = how.on_cut = PVZAN_SUBSTITUTE;
    how.most_faults = ~u64{0};
    for (const int i : {0, 1}) {
        out[i] = static_cast<u8*>(ZAN_malloc(room));
        reads[i] = pvzan_open(both[i]->name.shown, "utf-8", &how, nullptr);
    }
    difference found;
    for (std::size_t at = 0; at < bytes.size() && reads[0] != nullptr && reads[1] != nullptr &&
                             out[0] != nullptr && out[1] != nullptr;
         ++at) {
        for (const int i : {0, 1}) {
            const u8* in = &bytes[at];
            std::size_t left = 1, free = room - size[i];
            u8* end = out[i] + size[i];
            pvzan_feed(reads[i], &in, &left, &end, &free, PVZAN_FLUSH); // no letter waits for marks
            size[i] = static_cast<std::size_t>(end - out[i]);
        }
        const std::size_t shorter = std::min(size[0], size[1]);
        if (std::memcmp(out[0], out[1], shorter) != 0) {
            break;
        }
        if (size[0] == size[1]) {
            found = {at + 1, {shorter, shorter}};
        }
    }
    for (const int i : {0, 1}) {
        ZAN_free(out[i]);
        pvzan_close(reads[i]);
    }
    return found;
}

u64 original_place(const pvzan_guesser& g, std::size_t at) {
    u64 found = 0;
    for (const origin& o : std::span(g.evidence_origins, g.evidence_origin_count)) {
        if (o.at <= at) {
            found = o.offset + (at - o.at);
        }
    }
    return found;
}

void show_readings(pvzan_guesser& g, const candidate** ranked, u32 count) {
    const std::span<const u8> all(g.evidence, g.evidence_size);
    if (count < 2 || all.empty()) {
        return;
    }
    const difference place = find_difference(*ranked[0], *ranked[1], all);
    g.answer.doubt = original_place(g, place.at);
    for (u32 i = 0; i < count; ++i) {
        char reading[96];
        const std::size_t shared = read_behind(*ranked[i], all.first(place.at), 0, reading);
        read_behind(*ranked[i], all, std::min(shared, all.size() * 3), reading);
        copy_text(g.answer.candidates[i].reading, reading);
    }
}

void offer(pvzan_guesser& g, const candidate& c, i32 best) {
    pvzan_candidate& shown = g.answer.candidates[g.answer.shown++];
    shown = {};
    shown.size = sizeof shown;
    shown.name = c.name;
    shown.name.size = sizeof shown.name;
    if (g.marked && c.name.kind != PVZAN_KIND_OTHER) {
        shown.name.mark = 1;
    }
    // Half of it for each bit behind the best; scaled when all are known.
    u32 share = 1000000;
    for (i32 behind = (c.cost - best) / whole_bit; behind > 0 && share > 0; --behind) {
        share /= 2;
    }
    shown.per_million = share;
}

template <typename... Values>
void say(pvzan_guesser& g, const char* format, Values... values) {
    std::snprintf(g.answer.why, sizeof g.answer.why, format, values...);
}

// What a relative that is met more often does not have.
void say_what_decides(pvzan_guesser& g, const candidate& best) {
    for (const candidate& c : std::span(g.candidates, g.count)) {
        const bool relative = &c < &best && c.row->relatives == best.row->relatives &&
                              c.row->relatives != family::none;
        if (relative && c.fault_at != nowhere) {
            say(g, "byte %llu is not in %s", static_cast<unsigned long long>(c.fault_at),
                c.name.shown);
            return;
        }
    }
}

} // namespace

void decide(pvzan_guesser& g, bool complete) {
    decision& answer = g.answer;
    if (g.binary != nullptr) {
        answer.verdict = PVZAN_GUESS_BINARY;
        say(g, "%s", g.binary);
        return;
    }
    const bool plain = g.now == progress::words && g.evidence_size == 0;
    if (g.now == progress::words && !plain) {
        read_on(g, true, complete);
    } else if (!plain && complete) {
        feed_all(g, {}, PVZAN_LAST);
    }
    if (plain) { // all read it alike
        for (const candidate& c : std::span(g.candidates, g.count)) {
            if (c.row->codes != structure::units || g.offset == 0) {
                offer(g, c, c.cost);
                answer.verdict = PVZAN_GUESS_SURE;
                return;
            }
        }
        answer.verdict = PVZAN_GUESS_NONE;
        return;
    }
    settle_families(g);
    settle_equals(g);
    const candidate* ranked[most_candidates];
    u32 count = 0;
    for (candidate& c : std::span(g.candidates, g.count)) {
        if (c.fault_at != nowhere && c.faults == 0) {
            c.cost += 24 * whole_bit;
        }
        if (c.alive) {
            ranked[count++] = &c;
        }
    }
    std::sort(ranked, ranked + count, [](const candidate* a, const candidate* b) {
        return a->cost != b->cost ? a->cost < b->cost : a < b;
    });
    if (count == 0) {
        answer.verdict = PVZAN_GUESS_NONE;
        return;
    }
    const candidate& best = *ranked[0];
    // Bytes at random cost as much as this.
    constexpr i32 random_bits = 9;
    const bool writing =
        best.beyond == 0 || best.row->codes == structure::units ||
        best.cost <= random_bits * whole_bit * static_cast<i32>(g.evidence_size + 4);
    constexpr i32 worth_telling = 14 * whole_bit;
    u32 told = 0;
    while (told < count && told < 8 && ranked[told]->cost - best.cost <= worth_telling) {
        offer(g, *ranked[told++], best.cost);
    }
    u64 sum = 0;
    for (u32 i = 0; i < told; ++i) {
        sum += answer.candidates[i].per_million;
    }
    for (u32 i = 0; i < told; ++i) {
        answer.candidates[i].per_million =
            static_cast<u32>(u64{answer.candidates[i].per_million} * 1000000 / sum);
    }
    if (best.fault_at != nowhere) {
        answer.verdict = PVZAN_GUESS_UNSURE;
        answer.doubt = best.fault_at;
        say(g, "but %02X is invalid, at byte %llu", best.fault_byte,
            static_cast<unsigned long long>(best.fault_at));
        return;
    }
    const candidate* rival = count > 1 ? ranked[1] : nullptr;
    const i32 lead = rival == nullptr ? 0x7FFFFFFF : rival->cost - best.cost;
    const i32 lead_by_text =
        rival == nullptr || best.beyond < 8 ? lead : lead + rival->favour - best.favour;
    const bool utf8 = best.name.kind == PVZAN_KIND_UTF_8 && !(best.by_chance && best.beyond <= 2);
    constexpr i32 damage_margin = 4 * whole_bit; // before one that a fault speaks against
    const i32 margin = rival == nullptr || rival->faults > 1 ? 0
                       : reads_all(*rival)                   ? margin_of(best)
                                                             : damage_margin;
    const bool sure = writing && !g.maybe_units && (utf8 || std::min(lead, lead_by_text) >= margin);
    answer.verdict = sure ? PVZAN_GUESS_SURE : PVZAN_GUESS_UNSURE;
    if (sure) {
        say_what_decides(g, best);
    } else {
        show_readings(g, ranked, told);
    }
}

} // namespace text
