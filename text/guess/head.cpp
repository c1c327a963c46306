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
    return found;
}

// Reads all from the beginning as those do that are alive.
void go_on_whole(pvzan_guesser& g, bytes_view head) {
    g.now = progress::whole;
    feed_all(g, head, PVZAN_PART);
    g.offset = head.size();
}

bool has(bytes_view text, u8 byte) {
    return std::ranges::find(text, byte) != text.end();
}

// ---- Texts that are not ASCII with other bytes in it -------------------------------------------

std::size_t width_of(const candidate& c) {
    return c.row.codes != structure::units ? 1 : c.name.kind == PVZAN_KIND_UCS_4 ? 4 : 2;
}

// Whether a unit that is 0 stands in it: that is no text.
bool has_empty_unit(bytes_view text, std::size_t width) {
    for (; text.size() >= width; text = text.subspan(width)) {
        if (std::ranges::count(text.first(width), u8{0}) == static_cast<std::ptrdiff_t>(width)) {
            return true;
        }
    }
    return false;
}

// What a text may be that is not ASCII with other bytes in it.
struct possible {
    bool units = false, ebcdic = false, signs = false, bytes = true;

    [[nodiscard]] bool has(structure codes) const {
        return codes == structure::units    ? units
               : codes == structure::ebcdic ? ebcdic
               : codes == structure::signs  ? signs
                                            : codes <= structure::single_byte && bytes;
    }
};

// Has all candidates that are possible read what begins at a byte. Whether the likeliest is not one
// that reads a byte after the other: then all that are not far behind are left.
bool weigh_against_bytes(pvzan_guesser& g, const possible& may_be, bytes_view text,
                         std::size_t from, bool complete) {
    const std::size_t size = std::min(text.size() - from, evidence_room);
    const bytes_view evidence = text.subspan(from, size);
    for (candidate& c : std::span(g.candidates, g.count)) {
        const std::size_t width = width_of(c);
        const bool whole_units = width == 1 || ((!complete || text.size() % width == 0) &&
                                                !has_empty_unit(evidence, width));
        c.alive = may_be.has(c.row.codes) && whole_units;
    }
    weigh(g, evidence, complete && from + size == text.size(), structure::units);
    constexpr i32 none = 0x3FFFFFFF;
    i32 best = none, by_bytes = none;
    std::size_t characters = 0;
    for (const candidate& c : std::span(g.candidates, g.count)) {
        const bool of_bytes = c.row.codes <= structure::single_byte;
        const bool reads = of_bytes || (c.faults == 0 && (!may_be.signs || c.beyond > 0));
        i32& least = of_bytes ? by_bytes : best;
        if (c.alive && reads && c.cost < least) {
            least = c.cost;
            characters = size / width_of(c);
        }
    }
    const bool writing = g.named || best <= most_for_writing * static_cast<i32>(characters + 1);
    if (best == none || best >= by_bytes || !writing) {
        const bool close = writing && best < by_bytes + lead_of_units;
        g.maybe_other = g.maybe_other || (close && !may_be.signs);
        return false;
    }
    std::ranges::copy(evidence, g.evidence);
    g.evidence_size = size;
    g.evidence_origins[g.evidence_origin_count++] = {0, from};
    return true;
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

// Whether units of two bytes are possible, and whether bytes are.
void look_for_units(const pvzan_guesser& g, bytes_view text, bool complete, possible& may_be) {
    const auto is_of_units = [](const candidate& c) { return c.row.codes == structure::units; };
    const std::span candidates(g.candidates, g.count);
    if (text.empty() || std::ranges::none_of(candidates, is_of_units)) {
        return;
    }
    const bool alone = std::ranges::all_of(candidates, is_of_units); // all that were named
    const bool zeros = has(text, 0);
    const bool odd = complete && text.size() % 2 != 0;
    may_be.units = alone || (!odd && !is_plain_ascii(text) &&
                             (zeros || (!is_utf8(text) && looks_like_units(text))));
    may_be.bytes = !may_be.units || (!alone && !zeros);
}

// Where HZ or UTF-7 may begin something that is not ASCII: "~{" and a pair, or "+" and at least a
// character of sixteen bits. In the line of the first such place; text.size(): nowhere.
std::size_t find_sign(bytes_view text) {
    const auto is_digit = [](u8 c) { // of base 64
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               c == '+' || c == '/';
    };
    std::size_t line = 0;
    for (std::size_t i = 0; i + 4 <= text.size(); ++i) {
        if (text[i] == '\n') {
            line = i + 1;
        }
        if (is_designation(&text[i], text.data() + text.size())) {
            break; // its bytes are signs by chance
        }
        const bytes_view next = text.subspan(i + 1, 3);
        if ((text[i] == '~' && next[0] == '{' && next[1] > 0x20 && next[2] > 0x20) ||
            (text[i] == '+' && std::ranges::all_of(next, is_digit))) {
            return line;
        }
    }
    return text.size();
}

// EBCDIC has its space, letters and digits where ASCII has none of its own; two-byte codes stand
// between shifts.
bool looks_like_ebcdic(bytes_view text) {
    constexpr u8 shift_out = 0x0E, shift_in = 0x0F;
    const auto is_usual = [](u32 c) {
        const u32 row = c >> 4, column = c & 0xF;
        return c == 0x40 || c == 0x4B || c == 0x6B || c == 0x15 || c == 0x25 ||
               (row == 0xF && column <= 9) ||
               (row >= 8 && row % 4 != 3 && column >= (row % 4 == 2 ? 2 : 1) && column <= 9);
    };
    std::size_t usual = 0;
    bool shifted = false;
    for (const u8 c : text) {
        shifted = c == shift_out || (shifted && c != shift_in);
        usual += shifted || c == shift_in || is_usual(c) ? 1U : 0U;
    }
    const bool a_word = text.size() < in_a_text;
    return usual * 5 > text.size() * 3 && (has(text, 0x40) || has(text, shift_in) || a_word) &&
           !has(text, ' ');
}

// Whether the text is none of bytes beyond ASCII in ASCII, by all that is left of its likely
// readings.
bool is_of_another_kind(pvzan_guesser& g, bytes_view text, bool complete) {
    possible may_be;
    look_for_units(g, text, complete, may_be);
    may_be.ebcdic = looks_like_ebcdic(text);
    std::size_t from = 0;
    if (!may_be.units && !may_be.ebcdic && is_plain_ascii(text)) {
        from = find_sign(text);
        may_be.signs = from < text.size();
    }
    return (may_be.units || may_be.ebcdic || may_be.signs) &&
           weigh_against_bytes(g, may_be, text, from, complete);
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
        go_on_whole(g, head);
        return;
    }
    if (!g.named) {
        g.binary = known_binary(head);
    }
    if (g.binary != nullptr) {
        g.now = progress::done;
        return;
    }
    if (is_of_another_kind(g, head, complete)) {
        go_on_whole(g, head);
        return;
    }
    const bool zeros = has(head, 0);
    if (!g.named && (zeros || has_many_controls(head))) {
        g.binary = zeros ? "NUL bytes" : "control characters";
        g.now = progress::done;
        return;
    }
    g.now = progress::words;
    take_words(g, head);
}

} // namespace text
