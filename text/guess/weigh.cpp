// What the candidates' readings of a piece of text are worth.
#include "platform/platform.h"
#include "text/guess/stages.h"
#include "text/unicode.h"

#include <algorithm>

namespace text {

namespace {

constexpr i32 fault_cost = 24 * bit, far_behind = 60 * bit, first_look = 512;
constexpr u32 most_faults = 6; // a few are damage, more are another charset

pvzan_converter* open_reader(const candidate& c) {
    pvzan_open_options how = {};
    how.size = sizeof how;
    how.flags = PVZAN_OFFSETS_ALONE;
    how.mark = PVZAN_MARK_STRIP;
    return pvzan_open(c.name.shown, "utf-8", &how, nullptr);
}

class evidence_reader {
public:
    evidence_reader(candidate& c, seen* into) : c_(c), into_(into) {
        c.faults = c.beyond = c.odd = 0;
        c.by_chance = false;
        c.hash = 0xCBF29CE484222325U;
    }

    void take(const u8* utf8, const u8* end) {
        while (utf8 < end) {
            const sequence s = read_utf8(utf8, static_cast<std::size_t>(end - utf8));
            if (s.kind != sequence::whole) {
                return;
            }
            utf8 += s.bytes;
            const seen one = see(s.scalar);
            into_[count_++] = one;
            c_.hash = (c_.hash ^ s.scalar) * 0x100000001B3U;
            c_.beyond += s.scalar >= 0x80 ? 1 : 0;
            c_.by_chance = c_.by_chance || (s.scalar >= 0x100 && s.scalar < 0x800);
            c_.odd += one.what == kind::odd ? 1 : 0;
        }
    }
    [[nodiscard]] std::size_t count() const { return count_; }

private:
    candidate& c_;
    seen* into_;
    std::size_t count_ = 0;
};

} // namespace

std::size_t read_as(candidate& c, std::span<const u8> bytes, bool complete, seen* into) {
    evidence_reader reader(c, into);
    pvzan_converter* reads = open_reader(c);
    if (reads == nullptr) {
        c.faults = most_faults + 1;
        return 0;
    }
    u8 out[4096];
    const u8* in = bytes.data();
    std::size_t left = bytes.size();
    pvzan_outcome said = PVZAN_FEED_MORE_ROOM;
    while (said == PVZAN_FEED_MORE_ROOM || said == PVZAN_FEED_FAULT) {
        u8* end = out;
        std::size_t room = sizeof out;
        said = pvzan_feed(reads, &in, &left, &end, &room, complete ? PVZAN_LAST : PVZAN_PART);
        reader.take(out, end);
        if (said == PVZAN_FEED_FAULT) {
            c.hash = (c.hash ^ 0x110000U) * 0x100000001B3U;
            if (++c.faults > most_faults) {
                break;
            }
            pvzan_answer(reads, PVZAN_DROP, nullptr, nullptr, nullptr, nullptr);
        }
    }
    pvzan_close(reads);
    return reader.count();
}

namespace {

// Bits that speak for a charset before anything is read.
i32 prior_of(const candidate& c) {
    // One or two characters of two bytes may be chance, but for the marks and letters of Latin-1.
    constexpr i32 utf8_lead = 20 * bit, by_chance_lead = 8 * bit;
    constexpr u32 few = 2;
    if (c.name.kind == PVZAN_KIND_UTF_8) {
        return c.beyond <= few && c.by_chance ? -by_chance_lead : -utf8_lead;
    }
    return static_cast<i32>(c.row->rare) * static_cast<i32>(bit);
}

bool is_of(const char* languages, const char* language) {
    return *language != '\0' && std::strstr(languages, language) != nullptr;
}

void weigh_one(pvzan_guesser& g, candidate& c, std::span<const u8> evidence, bool complete,
               seen* text) {
    constexpr i32 favour = 6 * bit;
    const std::size_t size = read_as(c, evidence, complete, text);
    if (c.faults > most_faults || c.faults * 4 > c.beyond + 1) {
        c.alive = false;
        return;
    }
    const plausibility found = g.judge.judge(text, size, c.row->languages);
    c.favour = is_of(c.row->languages, g.language) && c.name.kind == PVZAN_KIND_OTHER ? favour : 0;
    c.cost = static_cast<i32>(found.cost) + static_cast<i32>(c.faults) * fault_cost + prior_of(c) -
             c.favour;
}

} // namespace

// Which of a family is meant is no matter of likelihood, so all that read without a fault cost as
// much as the cheapest.
static void level_families(pvzan_guesser& g) {
    const auto reads = [](const candidate& c) { return c.alive && c.faults == 0 && c.odd == 0; };
    for (candidate& c : std::span(g.candidates, g.count)) {
        for (const candidate& other : std::span(g.candidates, g.count)) {
            if (c.row->relatives != family::none && c.row->relatives == other.row->relatives &&
                reads(c) && reads(other)) {
                c.cost = std::min(c.cost, other.cost);
            }
        }
    }
}

void weigh(pvzan_guesser& g, std::span<const u8> evidence, bool complete) {
    auto* text = static_cast<seen*>(ZAN_malloc(static_cast<i32>(sizeof(seen) * evidence_room * 3)));
    if (text == nullptr) {
        return;
    }
    // A first look at the beginning, up to the end of a word, settles most.
    std::size_t size = std::min<std::size_t>(evidence.size(), first_look);
    for (;;) {
        while (size < evidence.size() && evidence[size - 1] >= 0x30 &&
               size < first_look * std::size_t{2}) {
            ++size;
        }
        const bool all = size == evidence.size();
        i32 best = 0x7FFFFFFF;
        for (candidate& c : std::span(g.candidates, g.count)) {
            if (c.alive) {
                weigh_one(g, c, evidence.first(size), all && complete, text);
                best = c.alive ? std::min(best, c.cost) : best;
            }
        }
        level_families(g);
        for (candidate& c : std::span(g.candidates, g.count)) {
            c.alive = c.alive && c.cost <= best + far_behind;
        }
        if (all) {
            break;
        }
        size = evidence.size();
    }
    ZAN_free(text);
}

// So much well-formed UTF-8 of plausible characters is nothing else.
bool is_plain_utf8(pvzan_guesser& g, bool complete) {
    constexpr u32 enough = 6, for_an_odd_one = 8;
    candidate& c = g.candidates[0];
    if (g.count == 0 || c.name.kind != PVZAN_KIND_UTF_8 || g.named) {
        return false;
    }
    auto* text = static_cast<seen*>(ZAN_malloc(static_cast<i32>(sizeof(seen) * evidence_room * 3)));
    if (text == nullptr) {
        return false;
    }
    read_as(c, {g.evidence, g.evidence_size}, complete, text);
    ZAN_free(text);
    return c.faults == 0 && c.beyond >= enough && c.odd * for_an_odd_one <= c.beyond;
}

} // namespace text
