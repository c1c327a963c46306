// What the beginning of a text tells: marks, kinds of files that are no text, UTF-16 and UTF-32.
#include "platform/platform.h"
#include "text/guess/stages.h"
#include "text/unicode.h"

#include <algorithm>

namespace text {

namespace {

using bytes_view = std::span<const u8>;

bool starts_with(bytes_view text, std::initializer_list<u8> begin) {
    return text.size() >= begin.size() && std::equal(begin.begin(), begin.end(), text.begin());
}

const char* marked_charset(bytes_view text) {
    return starts_with(text, {0xEF, 0xBB, 0xBF})   ? "utf-8"
           : starts_with(text, {0xFF, 0xFE, 0, 0}) ? "utf-32le"
           : starts_with(text, {0, 0, 0xFE, 0xFF}) ? "utf-32be"
           : starts_with(text, {0xFF, 0xFE})       ? "utf-16le"
           : starts_with(text, {0xFE, 0xFF})       ? "utf-16be"
                                                   : nullptr;
}

// One candidate is left, and it must read everything.
bool keep_one(pvzan_guesser& g, const char* name) {
    bool found = false;
    for (candidate& c : std::span(g.candidates, g.count)) {
        c.alive = c.row.name == name;
        found = found || c.alive;
    }
    g.now = progress::whole;
    return found;
}

// ---- UTF-16 and UTF-32 without a mark ----------------------------------------------------------

struct units {
    u32 count = 0, characters = 0, odd = 0, cost = 0;
    bool sound = true;
};

units read_as_units(pvzan_guesser& g, bytes_view text, u32 kind, bool big) {
    constexpr u32 looked_at = 256;
    seen characters[looked_at];
    units found;
    std::size_t at = 0;
    while (at < text.size() && found.characters < looked_at) {
        const sequence s = read_sequence(text.data() + at, text.size() - at, kind, big);
        if (s.kind == sequence::cut) {
            break; // whoever reads all of it judges that
        }
        found.sound = found.sound && s.kind == sequence::whole && s.scalar != 0;
        if (!found.sound) {
            return found;
        }
        const seen one = see(s.scalar, static_cast<u32>(at));
        found.odd += one.what == kind::odd || one.what == kind::control ? 1 : 0;
        characters[found.characters++] = one;
        at += s.bytes;
    }
    found.sound = found.characters > 0 && found.odd * 50 <= found.characters;
    if (found.sound) {
        found.cost = g.judge.judge({characters, found.characters}, "");
    }
    return found;
}

// High bytes of a text's units are few: those of its scripts.
bool looks_like_units(bytes_view text) {
    constexpr std::size_t looked_at = 512, always = 64;
    const std::size_t size = std::min(text.size(), looked_at) & ~std::size_t{1};
    if (size <= always) {
        return true;
    }
    for (const std::size_t column : {std::size_t{0}, std::size_t{1}}) {
        bool met[256] = {};
        u32 different = 0, plain = 0;
        for (std::size_t i = column; i < size; i += 2) {
            different += met[text[i]] ? 0U : 1U;
            met[text[i]] = true;
            plain += text[i] == 0 || text[i] == 0x30 ? 1U : 0U;
        }
        if (plain * 4 >= size / 2 || different * 3 <= size / 2) {
            return true;
        }
    }
    return false;
}

bool is_utf8(bytes_view text) {
    while (!text.empty()) {
        const sequence s = read_utf8(text.data(), text.size());
        if (s.kind == sequence::ill_formed) {
            return false;
        }
        text = text.subspan(s.bytes);
    }
    return true;
}

bool is_plain_ascii(bytes_view text) {
    return std::ranges::all_of(text, [](u8 byte) {
        return (byte >= 0x20 && byte < 0x7F) || (byte >= '\t' && byte <= '\r') || byte == 0x1B;
    });
}

// Which of both orders; null where it is neither.
const char* unmarked_units(pvzan_guesser& g, bytes_view text, bool complete) {
    const bool zeros = std::ranges::find(text, u8{0}) != text.end();
    if (zeros && (text.size() % 4 == 0 || !complete)) {
        for (const bool big : {false, true}) {
            const units found = read_as_units(g, text, PVZAN_KIND_UCS_4, big);
            if (found.sound) {
                return big ? "utf-32be" : "utf-32le";
            }
        }
    }
    const bool needed = std::all_of(g.candidates, g.candidates + g.count, [](const candidate& c) {
        return c.row.codes == structure::units; // all that were named
    });
    if (!needed && ((complete && text.size() % 2 != 0) || is_plain_ascii(text) ||
                    (!zeros && (is_utf8(text) || !looks_like_units(text))))) {
        return nullptr;
    }
    // Without zeros the bytes might as well be characters by themselves, and must be rare writing
    // then: UTF-8 is never that.
    const units little = read_as_units(g, text, PVZAN_KIND_UTF_16, false);
    const units big = read_as_units(g, text, PVZAN_KIND_UTF_16, true);
    const u32 most = (zeros ? 16U : 13U) * bit, fixed = 12 * bit;
    const bool is_little = little.sound && (!big.sound || little.cost < big.cost);
    const units& best = is_little ? little : big;
    if (!needed && (!best.sound || best.cost > most * best.characters + fixed)) {
        return nullptr;
    }
    if (!zeros && !needed) {
        const std::size_t size = std::min<std::size_t>(text.size(), evidence_room);
        for (candidate& c : std::span(g.candidates, g.count)) {
            c.alive = c.row.codes != structure::escapes;
        }
        weigh(g, text.first(size), complete && size == text.size());
        constexpr i32 lead = 10 * bit, none = 0x3FFFFFFF;
        i32 by_units = none, by_bytes = none;
        for (const candidate& c : std::span(g.candidates, g.count)) {
            i32& least = c.row.codes == structure::units ? by_units : by_bytes;
            least = c.alive && c.faults == 0 ? std::min(least, c.cost) : least;
        }
        if (by_units == none || by_units + lead > by_bytes) {
            g.maybe_units = by_units < by_bytes + lead;
            return nullptr;
        }
    }
    return is_little ? "utf-16le" : "utf-16be";
}

// Other controls than text has, too many of them.
bool has_many_controls(bytes_view text) {
    constexpr std::size_t characters_for_a_control = 20;
    const auto controls = std::ranges::count_if(text, [](u8 byte) {
        return (byte < 0x20 && !(byte >= '\b' && byte <= '\r') && byte != 0x1B && byte != 0x0E &&
                byte != 0x0F) ||
               byte == 0x7F;
    });
    const bool ascii = std::ranges::all_of(text, [](u8 byte) { return byte < 0x80; });
    return !ascii && static_cast<std::size_t>(controls) * characters_for_a_control > text.size();
}

} // namespace

void begin(pvzan_guesser& g, bool complete) {
    const bytes_view head(g.head, g.head_size);
    g.now = progress::words;
    if (const char* mark = marked_charset(head); mark != nullptr && keep_one(g, mark)) {
        g.marked = true;
        feed_all(g, head, PVZAN_PART);
        g.offset = head.size();
        return;
    }
    const bool zeros = std::ranges::find(head, u8{0}) != head.end();
    if (!g.named) {
        g.binary = known_binary(head);
    }
    if (g.binary != nullptr) {
        g.now = progress::done;
        return;
    }
    const bool wide = std::ranges::any_of(std::span(g.candidates, g.count), [](const candidate& c) {
        return c.row.codes == structure::units;
    });
    const char* units = wide && !head.empty() ? unmarked_units(g, head, complete) : nullptr;
    if (units != nullptr && keep_one(g, units)) {
        feed_all(g, head, PVZAN_PART);
        g.offset = head.size();
        return;
    }
    if (!g.named && (zeros || has_many_controls(head))) {
        g.binary = zeros ? "NUL bytes" : "control characters";
        g.now = progress::done;
        return;
    }
    g.now = progress::words;
    take_words(g, head);
}

} // namespace text
