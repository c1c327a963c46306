// The answer: which reading is the likeliest, by how much, and what speaks for it.
#include "platform/platform.h"
#include "text/guess/stages.h"
#include "text/record.h"

#include <algorithm>
#include <cstdio>

namespace text {

namespace {

bool is_a_word(const pvzan_guesser& g, const candidate& c) {
    return g.offset + c.characters <= g.evidence_size + longest_word;
}

i32 least_lead(const pvzan_guesser& g, const candidate& c) {
    if (c.row.codes == structure::units) {
        return lead_of_units;
    }
    if (c.name.kind == PVZAN_KIND_UTF_8 && g.offset >= in_a_text) {
        return lead_of_utf8_in_a_text;
    }
    if (!is_a_word(g, c)) {
        return c.beyond <= few_letters ? lead_by_few : lead_by_more;
    }
    if (c.name.kind != PVZAN_KIND_OTHER || is_native(g, c)) {
        return lead_of_a_word;
    }
    // Of evidence of one character, there is a line feed behind it, and perhaps one more.
    const bool alone = c.beyond == 1 && c.characters <= 3;
    return alone ? lead_of_a_foreign_letter : lead_of_a_foreign_word;
}

bool reads_all(const candidate& c) {
    return c.alive && c.text_faults == 0;
}

// A member of a family that reads everything makes those behind it needless.
void settle_families(pvzan_guesser& g) {
    for (u32 i = 0; i < g.count; ++i) {
        const candidate& first = g.candidates[i];
        if (!reads_all(first) || first.row.family.empty() || first.odd > 0) {
            continue;
        }
        for (u32 k = i + 1; k < g.count; ++k) {
            candidate& other = g.candidates[k];
            other.alive = other.alive && other.row.family != first.row.family;
        }
    }
}

// Of the candidates that read the same, the best one stays.
void settle_equals(pvzan_guesser& g) {
    for (candidate& c : std::span(g.candidates, g.count)) {
        for (candidate& other : std::span(g.candidates, g.count)) {
            if (&other > &c && c.alive && other.alive && c.hash == other.hash) {
                (c.cost <= other.cost ? other : c).alive = false;
            }
        }
    }
}

// ---- What is told ------------------------------------------------------------------------------

std::size_t store_utf8(u32 c, char* to) {
    if (c < 0x80) {
        *to = static_cast<char>(c);
        return 1;
    }
    const u32 length = c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    for (u32 i = length; i-- > 0; c >>= 6) {
        const u32 lead = i == 0 ? 0xF00U >> length & 0xFFU : 0x80U;
        to[i] = static_cast<char>(lead | (c & 0x3F));
    }
    return length;
}

// A few of what was read from a byte on, in UTF-8.
void show_reading(std::span<const seen> text, std::size_t at, char (&shown)[96]) {
    constexpr std::size_t shown_characters = 8;
    std::size_t size = 0, count = 0;
    for (const seen& c : text) {
        if (c.at < at) {
            continue;
        }
        if (c.scalar < 0x20 || count++ == shown_characters) {
            break;
        }
        size += store_utf8(c.scalar, shown + size);
    }
    shown[size] = '\0';
}

// The first byte from which on two candidates read differently.
std::size_t find_difference(std::span<const seen> a, std::span<const seen> b) {
    const auto same = [](const seen& x, const seen& y) {
        return x.at == y.at && x.scalar == y.scalar;
    };
    const auto [first, second] = std::ranges::mismatch(a, b, same);
    return std::min(first != a.end() ? first->at : ~0U, second != b.end() ? second->at : ~0U);
}

// How a candidate reads the evidence, kept while others read it.
std::span<const seen> keep_reading(pvzan_guesser& g, candidate& c) {
    const std::span<const seen> read = read_as(g, c, {g.evidence, g.evidence_size}, true);
    const std::span<seen> kept(g.reading + evidence_room + late_room, read.size());
    std::ranges::copy(read, kept.begin());
    return kept;
}

void show_readings(pvzan_guesser& g, candidate** ranked, u32 count) {
    const std::span<const u8> all(g.evidence, g.evidence_size);
    if (count < 2 || all.empty()) {
        return;
    }
    const std::span<const seen> best = keep_reading(g, *ranked[0]);
    const std::size_t place = find_difference(best, read_as(g, *ranked[1], all, true));
    g.answer.doubt = place < all.size() ? original_place(g, place) : nowhere;
    for (u32 i = 0; i < count; ++i) {
        show_reading(read_as(g, *ranked[i], all, true), place, g.answer.candidates[i].reading);
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
    for (i32 behind = (c.cost - best) / bits(1); behind > 0 && share > 0; --behind) {
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
        const bool relative =
            &c < &best && c.row.family == best.row.family && !c.row.family.empty();
        if (relative && c.fault_at != nowhere) {
            say(g, "byte %llu is not in %s", static_cast<unsigned long long>(c.fault_at),
                c.name.shown);
            return;
        }
    }
}

// Where something is at fault, the relative is meant that is met most, and has the same fault
// first.
const candidate& usual_relative(pvzan_guesser& g, const candidate& best) {
    const std::span<const u8> all(g.evidence, g.evidence_size);
    for (candidate* c = g.candidates; c < &best && !best.row.family.empty() && best.faults > 0;
         ++c) {
        if (c->row.family == best.row.family) {
            read_as(g, *c, all, true);
            if (c->faults > 0 && c->first_fault == best.first_fault) {
                return *c;
            }
        }
    }
    return best;
}

// What cannot be told apart: a text that all read alike.
void decide_plain(pvzan_guesser& g) {
    for (const candidate& c : std::span(g.candidates, g.count)) {
        if (c.row.codes < structure::units || g.offset == 0) {
            offer(g, c, c.cost);
            g.answer.verdict = g.maybe_other ? PVZAN_GUESS_UNSURE : PVZAN_GUESS_SURE;
            return;
        }
    }
    g.answer.verdict = PVZAN_GUESS_NONE;
}

// Those that are left, the likeliest first.
u32 rank(pvzan_guesser& g, candidate* (&ranked)[most_candidates]) {
    weigh_late_words(g);
    settle_faults(g);
    for (candidate& c : std::span(g.candidates, g.count)) {
        const u32 behind_evidence = c.text_faults - std::min(c.faults, c.text_faults);
        c.cost += static_cast<i32>(behind_evidence) * fault_cost(c);
    }
    settle_families(g);
    settle_equals(g);
    u32 count = 0;
    for (candidate& c : std::span(g.candidates, g.count)) {
        if (c.alive) {
            ranked[count++] = &c;
        }
    }
    std::sort(ranked, ranked + count, [](const candidate* a, const candidate* b) {
        return a->cost != b->cost ? a->cost < b->cost : a < b;
    });
    return count;
}

// Offers those that are not far behind; how many they are.
u32 offer_likely(pvzan_guesser& g, std::span<candidate*> ranked) {
    u64 sum = 0;
    u32 told = 0;
    while (told < std::min<std::size_t>(ranked.size(), 8) &&
           ranked[told]->cost - ranked[0]->cost <= worth_telling) {
        offer(g, *ranked[told], ranked[0]->cost);
        sum += g.answer.candidates[told++].per_million;
    }
    for (pvzan_candidate& c : std::span(g.answer.candidates, told)) {
        c.per_million = static_cast<u32>(u64{c.per_million} * 1000000 / sum);
    }
    return told;
}

// Whether one reads the text nearly as well, and is only met more seldom: that settles nothing.
bool has_equal(const candidate& best, std::span<candidate*> ranked) {
    const auto by_text = [](const candidate& c) { return c.cost - bits(c.row.rare); };
    return std::ranges::any_of(ranked, [&](const candidate* c) {
        const bool relative = !best.row.family.empty() && c->row.family == best.row.family;
        return c != &best && reads_all(*c) && !relative &&
               by_text(*c) < by_text(best) + lead_by_text;
    });
}

// Whether one reads a long text the same but for a character or two, which tell little.
bool has_double(pvzan_guesser& g, candidate& best, std::span<candidate*> ranked) {
    if (best.row.codes != structure::single_byte || best.beyond < long_reading) {
        return false;
    }
    const std::span<const seen> read = keep_reading(g, best);
    return std::ranges::any_of(ranked, [&](candidate* c) {
        const bool other_one =
            c != &best && c->row.codes == structure::single_byte && reads_all(*c);
        if (!other_one || (!best.row.family.empty() && c->row.family == best.row.family)) {
            return false;
        }
        const std::span<const seen> other = read_as(g, *c, {g.evidence, g.evidence_size}, true);
        u32 different = 0;
        for (std::size_t i = 0; i < read.size(); ++i) {
            different += read[i].scalar != other[i].scalar ? 1U : 0U;
        }
        return different <= chance_letters &&
               c->cost - best.cost < lead_by_chance_letter * static_cast<i32>(different);
    });
}

// Whether it is far enough before the others, and as likely as writing is.
bool is_sure(pvzan_guesser& g, candidate& best, std::span<candidate*> ranked) {
    const candidate* rival = ranked.size() > 1 ? ranked[1] : nullptr;
    const bool writing = best.beyond == 0 || best.row.codes >= structure::units ||
                         best.cost <= random_byte * static_cast<i32>(g.evidence_size + 4);
    if (!writing || g.maybe_other) {
        return false;
    }
    if (rival == nullptr || rival->text_faults > 1) {
        return true;
    }
    const i32 lead = rival->cost - best.cost;
    return lead >= (reads_all(*rival) ? least_lead(g, best) : lead_before_damage) &&
           (best.name.kind == PVZAN_KIND_UTF_8 || is_a_word(g, best) ||
            (!has_equal(best, ranked) && !has_double(g, best, ranked)));
}

} // namespace

void decide(pvzan_guesser& g, bool complete) {
    if (g.binary != nullptr) {
        g.answer.verdict = PVZAN_GUESS_BINARY;
        say(g, "%s", g.binary);
        return;
    }
    if (g.now == progress::words && g.evidence_size == 0) {
        decide_plain(g);
        return;
    }
    if (g.now == progress::words) {
        read_on(g, true, complete);
    } else if (complete) {
        feed_all(g, {}, PVZAN_LAST);
    }
    candidate* ranked[most_candidates];
    const u32 count = rank(g, ranked);
    if (count == 0) {
        g.answer.verdict = PVZAN_GUESS_NONE;
        return;
    }
    candidate& best = *ranked[0];
    const u32 told = offer_likely(g, {ranked, count});
    if (best.fault_at != nowhere) {
        g.answer.verdict = PVZAN_GUESS_UNSURE;
        g.answer.doubt = best.fault_at;
        g.answer.candidates[0].name = usual_relative(g, best).name;
        say(g, "but %02X is invalid, at byte %llu", best.fault_byte,
            static_cast<unsigned long long>(best.fault_at));
    } else if (is_sure(g, best, {ranked, count})) {
        g.answer.verdict = PVZAN_GUESS_SURE;
        say_what_decides(g, best);
    } else {
        g.answer.verdict = PVZAN_GUESS_UNSURE;
        show_readings(g, ranked, told);
    }
}

} // namespace text
