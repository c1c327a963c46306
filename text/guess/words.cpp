// Words with bytes beyond ASCII: gathered out of a text, and read by the candidates.
#include "text/guess/stages.h"

#include <algorithm>

namespace text {

namespace {

constexpr u8 escape = 0x1B, first_trail = 0x30; // what is below ends a word in every charset

// The next byte that is not ASCII, or ESC.
const u8* find_beyond(const u8* p, const u8* end) {
    constexpr u64 ones = 0x0101010101010101U, high = ones << 7;
    while (end - p >= 8) {
        u64 eight;
        std::memcpy(&eight, p, sizeof eight);
        const u64 escapes = eight ^ (ones * escape);
        if (((eight | ((escapes - ones) & ~escapes)) & high) != 0) {
            break;
        }
        p += 8;
    }
    while (p < end && *p < 0x80 && *p != escape) {
        ++p;
    }
    return p;
}

// Whether the word was met twice before: repetition proves nothing.
bool is_repeated(pvzan_guesser& g, std::span<const u8> word) {
    u32 hash = 2166136261U;
    for (const u8 byte : word) {
        hash = (hash ^ byte) * 16777619U;
    }
    u8& met = g.met[hash % sizeof g.met];
    const bool repeated = met >= 2;
    met = repeated ? met : static_cast<u8>(met + 1);
    return repeated;
}

void end_word(pvzan_guesser& g) {
    g.batch[g.batch_size++] = '\n';
    g.inside = false;
    if (g.evidence_full || g.evidence_size == g.word_begin) {
        return;
    }
    if (is_repeated(g, {g.evidence + g.word_begin, g.evidence_size - g.word_begin})) {
        g.evidence_lacks = true;
        g.evidence_size = g.word_begin;
        g.evidence_origin_count -= g.evidence_origin_count > 0 ? 1 : 0;
        return;
    }
    g.evidence[g.evidence_size++] = '\n';
    g.word_begin = g.evidence_size;
    g.evidence_full =
        g.evidence_size + 1 >= evidence_room || g.evidence_origin_count == most_origins;
}

void begin_word(pvzan_guesser& g, u64 offset) {
    g.inside = true;
    g.origins[g.origin_count++] = {static_cast<u32>(g.batch_size), offset};
    if (!g.evidence_full) {
        g.evidence_origins[g.evidence_origin_count++] = {static_cast<u32>(g.evidence_size), offset};
    }
}

void gather(pvzan_guesser& g, const u8* from, const u8* to) {
    const auto size = static_cast<std::size_t>(to - from);
    std::memcpy(g.batch + g.batch_size, from, size);
    g.batch_size += size;
    if (!g.evidence_full) {
        const std::size_t fits = std::min(size, evidence_room - 1 - g.evidence_size);
        std::memcpy(g.evidence + g.evidence_size, from, fits);
        g.evidence_size += fits;
        g.evidence_full = fits < size;
    }
}

} // namespace

namespace {

constexpr std::ptrdiff_t longest_neighbour = 14;

const u8* word_begin(const u8* first, const u8* at) {
    const u8* begin = at;
    while (begin > first && at - begin < longest_neighbour && begin[-1] >= first_trail) {
        --begin;
    }
    return begin;
}

// Between two words of which one tells about the other.
bool parts_words(u8 byte) {
    return byte == ' ' || byte == '\'';
}

// Behind the word that follows a blank; where it is not there, or long, the blank itself.
const u8* neighbour_end(const u8* blank, const u8* stop) {
    if (!parts_words(*blank)) {
        return blank;
    }
    const u8* p = blank + 1;
    while (p < stop && p - blank < longest_neighbour && *p >= first_trail) {
        ++p;
    }
    return p < stop && *p < first_trail ? p : blank;
}

} // namespace

bool is_designation(const u8* p, const u8* end) {
    return end - p >= 3 && p[0] == escape &&
           ((p[1] == '$' && (p[2] == 'B' || p[2] == '@' || p[2] == 'A' ||
                             (end - p >= 4 && (p[2] == '(' || p[2] == ')')))) ||
            (p[1] == '(' && p[2] == 'I'));
}

// Reads the words that were gathered, before rest at that place; and rest, where words are no
// longer told apart.
static void read_words(pvzan_guesser& g, std::span<const u8> rest, u64 place) {
    const u64 begin = g.offset;
    read_on(g, false, false);
    if (g.inside) { // what follows belongs to the word
        g.origins[g.origin_count++] = {0, place};
    }
    if (g.now == progress::whole) {
        g.origin_count = 0;
        g.offset = place;
        feed_all(g, rest, PVZAN_PART);
        g.offset = begin;
    }
}

void take_words(pvzan_guesser& g, std::span<const u8> bytes) {
    const u8 *p = bytes.data(), *const end = p + bytes.size();
    const auto place = [&](const u8* at) { return g.offset + static_cast<u64>(at - bytes.data()); };
    while (p < end && g.now == progress::words) {
        if (!g.inside) {
            const u8* found = find_beyond(p, end);
            if (found == end) {
                break;
            }
            if (*found == escape) {
                // Terminal sequences are no text; sets are designated where all else is ASCII.
                if (is_designation(found, end) && g.evidence_size == 0 && !g.escaped) {
                    g.escaped = true;
                    g.offset = place(found);
                    keep_only(g, structure::escapes);
                    feed_all(g, {found, end}, PVZAN_PART);
                    g.offset += static_cast<u64>(end - found);
                    return;
                }
                p = found + 1;
                while (p < end && (*p == '[' || (*p >= '0' && *p <= ';'))) {
                    ++p;
                }
                continue;
            }
            const u8* begin = word_begin(p, found);
            if (begin > p && parts_words(begin[-1])) {
                begin = word_begin(p, begin - 1); // the word before it tells the language
            }
            begin_word(g, place(begin));
            gather(g, begin, found);
            p = found;
        }
        const std::size_t room = batch_room - 1 - g.batch_size;
        const u8* const stop = p + std::min<std::size_t>(room, static_cast<std::size_t>(end - p));
        const u8* q = std::find_if(p, stop, [](u8 byte) { return byte < first_trail; });
        gather(g, p, q);
        p = q;
        if (q < stop) {
            const u8* const behind = neighbour_end(q, stop);
            const bool goes_on = std::any_of(q, behind, [](u8 byte) { return byte >= 0x80; });
            gather(g, q, behind);
            p = behind;
            if (!goes_on) {
                end_word(g);
            }
        }
        constexpr std::size_t spare = 4 * longest_neighbour; // for what stands before a word
        if (g.batch_size + spare >= batch_room || g.origin_count == most_origins) {
            read_words(g, {p, end}, place(p));
        }
    }
    g.offset += bytes.size();
}

void keep_only(pvzan_guesser& g, structure codes) {
    for (candidate& c : std::span(g.candidates, g.count)) {
        c.alive = c.row.codes == codes;
    }
    g.now = progress::whole;
    g.origin_count = 0;
}

namespace {

// Where a byte of the stream that candidates read stands in the text.
u64 original(const pvzan_guesser& g, u64 at) {
    u64 begin = g.offset, behind = g.batch_begin;
    for (const origin& o : std::span(g.origins, g.origin_count)) {
        if (g.batch_begin + o.at <= at || &o == g.origins) {
            begin = o.offset;
            behind = g.batch_begin + o.at;
        }
    }
    return begin + at - behind; // a character may have begun in what was read before
}

constexpr u32 enough_faults = 2;

// Whether UTF-8 has characters of private use, U+E000 to U+F8FF; it may be cut anywhere.
bool has_private_use(std::span<const u8> text) {
    const u8 *p = text.data(), *const end = p + text.size();
    const auto find = [&](i32 first) {
        p = static_cast<const u8*>(std::memchr(p, first, static_cast<std::size_t>(end - p)));
        return p != nullptr;
    };
    while (find(0xEF)) {
        if (++p == end) {
            break;
        }
        if (*p < 0xA4) {
            return true;
        }
    }
    p = text.data();
    return find(0xEE);
}

void feed_one(pvzan_guesser& g, candidate& c, std::span<const u8> bytes, i32 how) {
    u8 out[1 + 16384]; // behind the last byte before it
    const u8* in = bytes.data();
    std::size_t left = bytes.size();
    pvzan_outcome said = PVZAN_FEED_MORE_ROOM;
    while (said == PVZAN_FEED_MORE_ROOM || said == PVZAN_FEED_FAULT) {
        u8* end = out + 1;
        std::size_t room = sizeof out - 1;
        out[0] = c.last_read;
        said = pvzan_feed(c.reads, &in, &left, &end, &room, how);
        c.private_use = c.private_use || (!c.row.family.empty() && has_private_use({out, end}));
        c.last_read = end[-1];
        if (said != PVZAN_FEED_FAULT) {
            continue;
        }
        if (c.text_faults++ == 0) {
            pvzan_fault fault = {};
            fault.size = offsetof(pvzan_fault, why); // no words are needed
            pvzan_last_fault(c.reads, &fault);
            c.fault_at = original(g, c.reads_from + fault.offset);
            c.fault_byte = fault.bytes[0];
        }
        if (c.text_faults == enough_faults) {
            return;
        }
        pvzan_answer(c.reads, PVZAN_DROP, nullptr, nullptr, nullptr, nullptr);
    }
}

// The last designation in ISO-2022-JP, from which one may begin to read; all, where there is none.
std::span<const u8> from_last_designation(std::span<const u8> bytes) {
    constexpr std::size_t longest = 4;
    for (std::size_t at = bytes.size() - std::min(longest - 1, bytes.size()); at-- > 0;) {
        if (bytes[at] == escape && (bytes[at + 1] == '(' || bytes[at + 1] == '$')) {
            return bytes.subspan(at);
        }
    }
    return bytes;
}

// Keeps the word around a byte, if all of it is there. Returns where it ends, or the next byte.
std::size_t keep_late_word(pvzan_guesser& g, std::span<const u8> bytes, std::size_t at) {
    const auto ends = [](u8 byte) { return byte < first_trail; };
    const auto begin =
        std::find_if(bytes.rend() - static_cast<std::ptrdiff_t>(at), bytes.rend(), ends);
    const auto end =
        std::find_if(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end(), ends);
    const auto first = static_cast<std::size_t>(bytes.rend() - begin);
    const auto size = static_cast<std::size_t>(end - bytes.begin()) - first;
    constexpr std::size_t longest = 60;
    if (begin == bytes.rend() || end == bytes.end() || size > longest ||
        g.late_size + size >= late_room || g.late_count == most_late) {
        return at + 1;
    }
    const u64 place = original(g, g.batch_begin + first);
    if (place >= original_place(g, g.evidence_size) && !is_repeated(g, {&bytes[first], size})) {
        g.late_origins[g.late_count++] = {static_cast<u32>(g.late_size), place};
        std::memcpy(g.late + g.late_size, &bytes[first], size);
        g.late_size += size;
        g.late[g.late_size++] = '\n';
        for (const u8 byte : std::span(&bytes[first], size)) {
            g.wanted[byte] = static_cast<u8>(std::max(g.wanted[byte], u8{1}) - 1);
        }
    }
    return first + size;
}

// Single bytes are read by what they are.
void note_bytes(pvzan_guesser& g, std::span<const u8> bytes) {
    std::size_t kept = 0; // up to here, words are not kept again
    const auto is_done = [&](u8 byte) { return g.noted[byte]; };
    auto at = bytes.begin();
    while ((at = std::find_if_not(at, bytes.end(), is_done)) != bytes.end()) {
        const u8 byte = *at;
        const auto i = static_cast<std::size_t>(at++ - bytes.begin());
        if (byte >= 0x80 && g.met_at[byte] == 0) {
            g.met_at[byte] = original(g, g.batch_begin + i) + 1;
            const auto met = std::count(g.evidence, g.evidence + g.evidence_size, byte);
            g.wanted[byte] = static_cast<u8>(late_words - std::min(met, late_words));
        }
        if (i >= kept && g.wanted[byte] > 0 && g.late_looks < most_late_looks) {
            ++g.late_looks;
            kept = keep_late_word(g, bytes, i);
        }
        g.noted[byte] = g.wanted[byte] == 0 || g.late_looks == most_late_looks;
    }
}

void find_hole(const pvzan_guesser& g, candidate& c) {
    c.fault_at = nowhere;
    c.text_faults = 0;
    for (u32 byte = 0x80; byte < 0x100; ++byte) {
        if (c.high[byte - 0x80] == 0xFFFD && g.met_at[byte] != 0) {
            ++c.text_faults;
            if (g.met_at[byte] - 1 < c.fault_at) {
                c.fault_at = g.met_at[byte] - 1;
                c.fault_byte = static_cast<u8>(byte);
            }
        }
    }
}

} // namespace

void feed_all(pvzan_guesser& g, std::span<const u8> bytes, i32 how) {
    bool holes = false, plain = false;
    for (candidate& c : std::span(g.candidates, g.count)) {
        holes = holes || (c.alive && c.row.codes == structure::single_byte);
        if (!c.alive || c.text_faults == enough_faults || c.row.codes == structure::single_byte) {
            continue;
        }
        if (c.reads == nullptr) {
            c.reads = open_reader(c);
            c.alive = c.reads != nullptr;
        }
        if (!c.alive) {
            continue;
        }
        // The others have all that ISO-2022-JP has, and need only know where it is.
        const std::span<const u8> rest = plain ? from_last_designation(bytes) : bytes;
        if (rest.size() < bytes.size()) {
            pvzan_reset(c.reads);
            c.reads_from = g.batch_begin + (bytes.size() - rest.size());
        }
        feed_one(g, c, rest, how);
        plain = plain || (c.row.name == "iso-2022-jp" && c.text_faults == 0);
    }
    if (holes) {
        note_bytes(g, bytes);
    }
    g.batch_begin += bytes.size();
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

void weigh_late_words(pvzan_guesser& g) {
    const bool single =
        std::ranges::any_of(std::span(g.candidates, g.count), [](const candidate& c) {
            return c.alive && c.row.codes == structure::single_byte;
        });
    if (!single || g.late_size == 0) {
        return;
    }
    for (u32 i = 0; i < g.late_count && g.evidence_origin_count < most_origins; ++i) {
        g.evidence_origins[g.evidence_origin_count++] = {
            static_cast<u32>(g.evidence_size) + g.late_origins[i].at, g.late_origins[i].offset};
    }
    std::memcpy(g.evidence + g.evidence_size, g.late, g.late_size);
    g.evidence_size += g.late_size;
    weigh(g, {g.evidence, g.evidence_size}, false);
}

void settle_faults(pvzan_guesser& g) {
    for (candidate& c : std::span(g.candidates, g.count)) {
        if ((c.alive && g.batch_begin == 0) || (!c.alive && c.faults > 0)) { // in the evidence
            c.text_faults = c.faults;
            c.fault_at = c.faults > 0 ? original_place(g, c.first_fault) : nowhere;
            c.fault_byte = c.faults > 0 ? g.evidence[c.first_fault] : u8{0};
        } else if (c.alive && c.row.codes == structure::single_byte) {
            find_hole(g, c);
        } else if (c.alive && c.private_use && c.odd == 0) { // behind the evidence
            c.odd = 1;
            c.cost += late_private_use;
        }
    }
}

void read_on(pvzan_guesser& g, bool last, bool complete) {
    const bool whole_word = last && complete;
    const std::span<const u8> evidence(g.evidence, g.evidence_size);
    if (!g.weighed && !evidence.empty()) {
        if (is_plain_utf8(g, whole_word)) {
            keep_only(g, structure::several_bytes);
            for (candidate& c : std::span(g.candidates + 1, g.count - 1)) {
                c.alive = false;
            }
        } else {
            for (candidate& c : std::span(g.candidates, g.count)) {
                c.alive = c.row.codes == structure::several_bytes ||
                          c.row.codes == structure::single_byte;
            }
            weigh(g, evidence, whole_word);
        }
        g.weighed = true;
        g.weighed_size = static_cast<u32>(g.evidence_size);
    } else if (g.weighed_size * 4 < g.evidence_size || (last && g.weighed_size < g.evidence_size)) {
        weigh(g, evidence, whole_word);
        g.weighed_size = static_cast<u32>(g.evidence_size);
    }
    if (last && g.batch_begin == 0 && !g.evidence_full && !g.evidence_lacks) {
        return;
    }
    feed_all(g, {g.batch, g.batch_size}, whole_word ? PVZAN_LAST : PVZAN_PART);
    g.batch_size = 0;
    g.origin_count = 0;
    g.now = g.evidence_full || g.now == progress::whole ? progress::whole : progress::words;
}

} // namespace text
