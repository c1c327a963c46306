// What the candidates' readings of a piece of text are worth.
#include "text/converter.h"
#include "text/guess/stages.h"
#include "text/unicode.h"

#include <algorithm>

namespace text {

namespace {

constexpr std::size_t first_look = 512;
constexpr i32 no_cost = 0x3FFFFFFF;

// What a candidate reads.
class taker {
public:
    taker(candidate& c, seen* into) : c_(c), into_(into) {
        c.faults = c.characters = c.beyond = c.odd = c.long_ones = 0;
        c.by_chance = false;
        c.hash = 0xCBF29CE484222325U;
    }

    void take(std::size_t at, u32 scalar) {
        const seen one = see(scalar, static_cast<u32>(at));
        into_[count_++] = one;
        note(scalar);
        ++c_.characters;
        c_.beyond += scalar >= 0x80 ? 1 : 0;
        const bool odd = one.what == kind::odd;
        c_.by_chance = c_.by_chance || (scalar >= 0x100 && scalar < 0x800);
        c_.long_ones += scalar >= 0x800 ? 1 : 0;
        c_.odd += odd ? 1 : 0;
    }
    // Whether to go on.
    bool take_fault(std::size_t at) {
        c_.first_fault = c_.faults++ == 0 ? at : c_.first_fault;
        into_[count_++] = seen_fault(static_cast<u32>(at));
        note(no_character.letter);
        return c_.faults <= most_faults;
    }
    [[nodiscard]] std::span<seen> all() const { return {into_, count_}; }

private:
    void note(u32 scalar) { c_.hash = (c_.hash ^ scalar) * 0x100000001B3U; }

    candidate& c_;
    seen* into_;
    std::size_t count_ = 0;
};

void read_single_bytes(const candidate& c, std::span<const u8> bytes, taker& into) {
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        const u32 scalar = bytes[at] < 0x80 ? bytes[at] : c.high[bytes[at] - 0x80];
        if (scalar != 0xFFFD) {
            into.take(at, scalar);
        } else if (!into.take_fault(at)) {
            return;
        }
    }
}

void read_utf8_sequences(std::span<const u8> bytes, bool complete, taker& into) {
    for (std::size_t at = 0; at < bytes.size();) {
        const sequence s = read_utf8(&bytes[at], bytes.size() - at);
        if (s.kind == sequence::whole) {
            into.take(at, s.scalar);
        } else if ((s.kind == sequence::cut && !complete) || !into.take_fault(at)) {
            return;
        }
        at += s.bytes;
    }
}

// By the rules alone: the fast path is worth its making for long texts.
void read_codes(pvzan_converter& c, std::span<const u8> bytes, bool complete, taker& into) {
    view text{bytes.data(), bytes.size(), complete, false};
    while (text.size > 0) {
        const auto at = static_cast<std::size_t>(text.bytes - bytes.data());
        const reading_result next = read(c, text);
        switch (next.kind) {
        case reading_result::whole:
            into.take(at, next.c.letter);
            if (next.c.mark != 0) {
                into.take(at, next.c.mark);
            }
            break;
        case reading_result::silent: set_state(c, next); break;
        case reading_result::waiting: return;
        case reading_result::faulty:
            if (!into.take_fault(at)) {
                return;
            }
        }
        text = text.behind(next.bytes);
    }
}

} // namespace

pvzan_converter* open_reader(const candidate& c) {
    pvzan_open_options how = {};
    how.size = sizeof how;
    how.flags = PVZAN_OFFSETS_ALONE;
    how.mark = PVZAN_MARK_STRIP;
    return pvzan_open(c.name.shown, "utf-8", &how, nullptr);
}

bool is_native(const pvzan_guesser& g, const candidate& c) {
    return *g.language != '\0' && c.name.kind == PVZAN_KIND_OTHER &&
           c.row.languages.find(g.language) != std::string_view::npos;
}

std::span<seen> read_as(pvzan_guesser& g, candidate& c, std::span<const u8> bytes, bool complete) {
    taker into(c, g.reading);
    if (c.row.codes == structure::single_byte) {
        read_single_bytes(c, bytes, into);
    } else if (c.name.kind == PVZAN_KIND_UTF_8) {
        read_utf8_sequences(bytes, complete, into);
    } else if (pvzan_converter* reads = open_reader(c); reads != nullptr) {
        read_codes(*reads, bytes, complete, into);
        pvzan_close(reads);
    } else {
        c.faults = most_faults + 1;
    }
    return into.all();
}

namespace {

// What speaks for a charset, or against it, before it is read.
i32 prior_of(const pvzan_guesser& g, const candidate& c) {
    if (c.name.kind != PVZAN_KIND_UTF_8 || c.beyond == 0) {
        return bits(c.row.rare);
    }
    // Sequences of two bytes may be chance, but for the marks and letters of Latin-1, and by
    // themselves more than in a text of ASCII.
    const bool few = c.beyond <= utf8_few;
    const bool word = few && g.offset < in_a_text;
    const bool odd = word && c.odd >= c.long_ones;
    const bool alone = odd || (word && c.long_ones == 0);
    const bool by_chance = few && (c.by_chance || (odd && c.odd > 0));
    const i32 first = !by_chance             ? (alone ? utf8_sequence_alone : utf8_sequences)
                      : alone                ? utf8_chance_alone
                      : g.offset < long_text ? utf8_chance_in_text
                                             : utf8_chance_in_long_text;
    const u32 more = std::min(c.beyond, utf8_most_counted) - 1;
    return -first - utf8_for_each * static_cast<i32>(more);
}

// Lowers what the best one costs. One that is far behind it is not judged to its end.
void weigh_one(pvzan_guesser& g, candidate& c, std::span<const u8> evidence, bool complete,
               i32& best) {
    const std::span<seen> text = read_as(g, c, evidence, complete);
    if (is_too_faulty(c.faults, c.beyond)) {
        c.alive = false;
        return;
    }
    c.cost = static_cast<i32>(c.faults) * fault_cost(c) + prior_of(g, c) -
             (is_native(g, c) && c.beyond < few_characters ? favour : 0);
    const i32 most = std::max(best + far_behind + 1 - c.cost, 0);
    c.cost += static_cast<i32>(
        g.judge.judge(text, c.row.languages, foreigner_cost, static_cast<u32>(most)));
    best = std::min(best, c.cost);
}

// The first one before it in its family that reads everything, and nothing odd.
const candidate* reader_before(const pvzan_guesser& g, const candidate& c) {
    for (const candidate* other = g.candidates; other < &c && !c.row.family.empty(); ++other) {
        if (other->row.family == c.row.family && other->alive && other->faults == 0 &&
            other->odd == 0) {
            return other;
        }
    }
    return nullptr;
}

// Which of a family is meant is no matter of likelihood: where the first reads everything the
// others need not. They may be meant yet by what follows.
void follow(const pvzan_guesser& g, candidate& c, const candidate& first, bool stays) {
    c.alive = stays || c.row.rare < hardly_ever_met;
    c.faults = 0;
    c.odd = 0;
    c.characters = first.characters;
    c.beyond = first.beyond;
    c.hash = first.hash;
    c.cost = first.cost + prior_of(g, c) - prior_of(g, first);
}

} // namespace

void weigh(pvzan_guesser& g, std::span<const u8> evidence, bool complete, structure wanted) {
    // A first look at the beginning, up to the end of a word, settles most.
    std::size_t size = std::min<std::size_t>(evidence.size(), first_look);
    while (size < evidence.size() && evidence[size - 1] >= 0x30 &&
           size < first_look * std::size_t{2}) {
        ++size;
    }
    for (candidate& c : std::span(g.candidates, g.count)) {
        c.alive = c.alive && may_be_codes(c.row, evidence.first(size));
    }
    candidate* likely = nullptr; // by the first look; weighed first, so that others need not be
    for (;;) {
        const bool all = size == evidence.size();
        i32 best = no_cost;
        if (likely != nullptr) {
            weigh_one(g, *likely, evidence, complete, best);
        }
        for (candidate& c : std::span(g.candidates, g.count)) {
            if (!c.alive || &c == likely) {
                continue;
            }
            if (const candidate* first = reader_before(g, c)) {
                follow(g, c, *first, g.named || !all);
                best = c.alive ? std::min(best, c.cost) : best;
                continue;
            }
            const i32 before = best;
            weigh_one(g, c, evidence.first(size), all && complete, best);
            likely = best < before ? &c : likely;
        }
        for (candidate& c : std::span(g.candidates, g.count)) {
            c.alive = c.alive && c.cost <= best + far_behind;
        }
        const bool possible =
            std::any_of(g.candidates, g.candidates + g.count,
                        [&](const candidate& c) { return c.alive && c.row.codes >= wanted; });
        if (all || !possible) {
            break;
        }
        size = evidence.size();
    }
}

// So much well-formed UTF-8 is nothing else, whatever the language: sequences of three bytes, or
// plausible characters.
bool is_plain_utf8(pvzan_guesser& g, bool complete) {
    candidate& c = g.candidates[0];
    if (g.count == 0 || c.name.kind != PVZAN_KIND_UTF_8 || g.named) {
        return false;
    }
    read_as(g, c, {g.evidence, g.evidence_size}, complete);
    c.cost = 0;
    return c.faults == 0 && (c.long_ones >= utf8_enough_long_ones || c.beyond >= utf8_enough);
}

} // namespace text
