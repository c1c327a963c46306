// Moving text through a converter.
#include "cconv/rulefunc/designations.h"
#include "text/converter.h"
#include "text/unicode.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace text {

namespace {

struct cursor {
    const u8* in;
    std::size_t left;
    u8* out;
    std::size_t room;
    bool last, flush;
    // What stands for itself up to there, and where the last line of that begins; null: unknown.
    const u8 *settled = nullptr, *last_line = nullptr;
};

constexpr std::size_t most_at_once = 1U << 30;

bool leaves_input(const pvzan_converter& c) {
    return (c.how.flags & PVZAN_LEAVE_INPUT) != 0;
}

bool tells_lines(const pvzan_converter& c) {
    return (c.how.flags & PVZAN_OFFSETS_ALONE) == 0;
}

bool counts_private_use(const pvzan_converter& c) {
    return (c.how.flags & PVZAN_COUNT_PRIVATE_USE) != 0;
}

line_form form_of(const pvzan_converter& c) {
    return {c.from.unit, c.now.big_source, c.line_feed};
}

std::size_t pending(const pvzan_converter& c) {
    return c.now.pending_size - c.now.pending_at;
}

// Hands out what is pending; whether that was all.
bool drain(pvzan_converter& c, cursor& at) {
    const std::size_t size = std::min(pending(c), at.room);
    std::copy_n(c.now.pending + c.now.pending_at, size, at.out);
    at.out += size;
    at.room -= size;
    c.now.out += size;
    c.now.pending_at += static_cast<u32>(size);
    if (pending(c) > 0) {
        return false;
    }
    c.now.pending_at = c.now.pending_size = 0;
    return true;
}

// ---- Whole stretches ---------------------------------------------------------------------------

u64 count_sequences(const pvzan_converter& c, const u8* p, std::size_t size, bool big) {
    u64 others = 0;
    if (c.from.kind == PVZAN_KIND_UTF_8) {
        for (std::size_t i = 0; i < size; ++i) {
            others += (p[i] & 0xC0) == 0x80 ? 1U : 0U;
        }
        return size - others;
    }
    if (c.from.kind == PVZAN_KIND_UTF_16) {
        for (std::size_t i = big ? 0 : 1; i < size; i += 2) {
            others += (p[i] & 0xFC) == 0xDC ? 1U : 0U;
        }
    }
    return size / c.from.unit - others;
}

u64 count_private(const u8* p, std::size_t size, u32 kind, bool big) {
    constexpr u8 first_lead = 0xEE; // in UTF-8
    u64 count = 0;
    for (std::size_t at = 0; at < size;) {
        if (kind == PVZAN_KIND_UTF_8 && p[at] < first_lead) {
            ++at;
            continue;
        }
        const sequence next = read_sequence(p + at, size - at, kind, big);
        count += is_private_use(next.scalar) ? 1U : 0U;
        at += next.bytes;
    }
    return count;
}

// The characters of sound text behind its last line break, one by one; in text with designations
// it begins in that set.
u64 count_codes(pvzan_converter& c, const u8* p, std::size_t size, u32 set) {
    u64 count = 0;
    const u32 behind = std::exchange(c.work.srcShiftSet, set);
    for (view text{p, size, true, true}; text.size > 0;) {
        const reading_result next = read(c, text);
        if (next.kind == reading_result::silent) {
            c.work.srcShiftSet = next.c.letter;
        } else if (next.c.letter == '\r' || next.c.letter == '\n') {
            count = 0;
        } else {
            ++count;
        }
        text = text.behind(std::max(next.bytes, 1U));
    }
    c.work.srcShiftSet = behind;
    return count;
}

constexpr std::size_t most_at_step = 64; // of input, and more than any character takes

// Runs over input up to an end; how far it came.
std::size_t run_to(pvzan_converter& c, fast::path& path, std::size_t end) {
    c.work.inLen = static_cast<i32>(end);
    c.work.status = PVZAN_WRITTEN;
    path.run(&c.work);
    return static_cast<std::size_t>(c.work.inPos);
}

// How far the last line of what was run over has come, in characters.
u64 count_column(pvzan_converter& c, const cursor& at, std::size_t done, std::size_t line,
                 u32 set) {
    if (is_unicode(c.from)) {
        return count_sequences(c, at.in + line, done - line, c.now.big_source);
    }
    const bool escapes = c.source != nullptr && c.source->read == reading::escapes;
    return escapes ? count_codes(c, at.in, done, set)
                   : count_codes(c, at.in + line, done - line, set);
}

// Finds out how far the input stands for itself, and where its last line begins: a stop there tells
// the column by the characters behind it.
void look_ahead(const pvzan_converter& c, cursor& at) {
    // What is sure to fill the room need not be looked at again by the next call.
    constexpr std::size_t most_shrinking = 4;
    const std::size_t fills = std::min(at.room, most_at_once) * most_shrinking + most_at_step;
    const std::size_t limit = std::min({at.left, most_at_once, fills});
    const std::size_t size = settled_size(c, {at.in, limit, at.last && limit == at.left, at.flush});
    at.settled = at.in + size;
    at.last_line = at.in + (is_unicode(c.from) || size == 0 || !tells_lines(c)
                                ? 0
                                : behind_last_break(at.in, size, form_of(c)));
}

// Converts as much as comes through unharmed at full speed.
void run_over(pvzan_converter& c, fast::path& path, cursor& at) {
    session& s = c.work;
    if (at.in >= at.settled) {
        look_ahead(c, at);
    }
    const auto size = static_cast<std::size_t>(at.settled - at.in);
    if (size == 0 || at.room == 0) {
        return;
    }
    s.inBuf = at.in;
    s.inPos = 0;
    s.inCount = 0;
    s.outBuf = at.out;
    s.outPos = 0;
    s.outLen = static_cast<i32>(std::min(at.room, most_at_once));
    s.target.convertNewline = c.how.breaks != PVZAN_BREAKS_AS_FOUND ? 1 : 0;
    s.srcCode = c.now.behind_break ? u32{'\r'} : 0;
    const u32 set = s.srcShiftSet;
    const std::size_t split =
        at.last_line > at.in ? static_cast<std::size_t>(at.last_line - at.in) : 0;
    std::size_t done = split > 0 ? run_to(c, path, split) : 0;
    const u32 before_split = s.inCount;
    if (done == split) {
        done = run_to(c, path, size);
    }
    if (done == 0) {
        return;
    }
    c.now.behind_break = c.how.breaks != PVZAN_BREAKS_AS_FOUND && s.srcCode == '\r';
    const u32 characters = s.inCount;
    const auto written = static_cast<std::size_t>(s.outPos);
    const bool big = c.now.big_source;
    if (tells_lines(c)) {
        const std::size_t line = behind_last_break(at.in, done, form_of(c));
        const u64 column = line == 0                    ? characters
                           : split > 0 && done >= split ? characters - before_split
                                                        : count_column(c, at, done, line, set);
        pass(c.now.at, at.in, done, form_of(c), line, column);
    } else {
        c.now.at.offset += done;
    }
    c.now.characters += characters;
    if (counts_private_use(c) && is_unicode(c.from)) {
        c.now.private_use += count_private(at.in, done, c.from.kind, big);
    } else if (counts_private_use(c) && is_unicode(c.to)) {
        c.now.private_use +=
            count_private(at.out, written, c.to.kind, c.to.order != PVZAN_ORDER_LITTLE);
    }
    at.in += done;
    at.left -= done;
    at.out += written;
    at.room -= written;
    c.now.out += written;
}

// ---- Single characters -------------------------------------------------------------------------

enum class stepped : u8 { took, waits, faulty };

void note_fault(pvzan_converter& c, const view& text, u32 kind, u32 length, u32 needed) {
    fault& f = c.fault;
    f = {.kind = kind, .length = length, .at = c.now.at};
    f.needed = static_cast<u32>(std::min<std::size_t>(needed, sizeof f.bytes));
    f.seen = static_cast<u32>(std::min<std::size_t>(std::max(length, f.needed), sizeof f.bytes));
    std::copy_n(text.bytes, f.seen, f.bytes);
    f.set = c.work.srcShiftSet;
}

void advance(pvzan_converter& c, const reading_result& read) {
    const u32 marks = read.marks + (is_unicode(c.from) && read.c.mark != 0 ? 1 : 0);
    c.now.at.offset += read.bytes;
    if (tells_lines(c)) {
        c.now.at.step(read.c.letter);
        c.now.at.column += marks;
    }
    c.now.characters += 1 + marks;
    c.now.composed += read.marks > 0 ? 1 : 0;
    if (counts_private_use(c) && (is_unicode(c.from) || is_unicode(c.to))) {
        c.now.private_use += is_private_use(read.c.letter) ? 1U : 0U;
    }
}

// Whether the source has the character in another code, which is the one it is written in.
bool has_other_code(pvzan_converter& c, const view& text, const reading_result& read) {
    if ((c.how.flags & PVZAN_READ_BACK) == 0 || is_unicode(c.from) ||
        (c.source != nullptr && c.source->read == reading::escapes)) {
        return false;
    }
    u8 code[16];
    const std::size_t size = spell_again(&c.work, read.c, code);
    return size != read.bytes || !std::equal(code, code + size, text.bytes);
}

stepped convert_character(pvzan_converter& c, const view& text, const reading_result& read) {
    character back = read.c;
    const written result =
        has_other_code(c, text, read) ? written::other : write_as_asked(c, read.c, back);
    if (result == written::done) {
        advance(c, read);
        return stepped::took;
    }
    const bool other = result == written::other;
    note_fault(c, text, other ? PVZAN_FAULT_OTHER_BACK : PVZAN_FAULT_MISSING, read.bytes,
               read.bytes);
    c.fault.missing = read.c;
    c.fault.back = other ? back : character{0, 0};
    advance(c, read);
    return stepped::faulty;
}

// The begin of a text, where a mark may stand.
bool begin(pvzan_converter& c, const view& text, u32& used) {
    const mark_found found = find_mark(c, text, used);
    if (found == mark_found::waiting) {
        return false;
    }
    if (found != mark_found::none) {
        c.now.big_source = found == mark_found::big;
        c.work.source.srcBigEndian = c.now.big_source ? 1 : 0;
        c.now.at.offset += used;
        c.now.mark_due = c.now.mark_due || (c.how.mark == PVZAN_MARK_KEEP && is_unicode(c.to));
    }
    c.now.now = stage::inside;
    return true;
}

// Takes one character from the begin of a text; used: its bytes, or those of whole letters that
// wait.
stepped step(pvzan_converter& c, const view& text, u32& used) {
    used = 0;
    if (c.now.now == stage::fresh) {
        return begin(c, text, used) ? stepped::took : stepped::waits;
    }
    if (std::exchange(c.now.mark_due, false)) {
        character back{0, 0};
        write(c, {0xFEFF, 0}, back);
        return stepped::took;
    }
    const reading_result next = read(c, text);
    used = next.bytes;
    switch (next.kind) {
    case reading_result::whole: return convert_character(c, text, next);
    case reading_result::silent:
        c.work.srcShiftSet = next.c.letter;
        c.now.plane2 = next.c.mark != 0;
        c.now.at.offset += next.bytes;
        return stepped::took;
    case reading_result::waiting: used = next.letters; return stepped::waits;
    case reading_result::faulty: break;
    }
    note_fault(c, text, next.fault_kind, next.bytes, next.needed);
    c.now.at.offset += next.bytes;
    c.now.at.column += tells_lines(c) ? 1U : 0U;
    c.now.at.behind_cr = false;
    return stepped::faulty;
}

// What a caller who leaves input gets back where the room is too short.
struct snapshot {
    explicit snapshot(const pvzan_converter& c)
        : now(c.now), in_set(c.work.srcShiftSet), out_set(c.work.dstShiftSet) {}
    void put_back(pvzan_converter& c) const {
        c.now = now;
        c.work.srcShiftSet = in_set;
        c.work.dstShiftSet = out_set;
    }
    standing now;
    u32 in_set, out_set;
};

// ---- The feed ----------------------------------------------------------------------------------

// Whether the fault was answered as the options say.
bool answer_inside(pvzan_converter& c) {
    const u32 kind = c.fault.kind;
    const u32 how = kind == PVZAN_FAULT_INVALID                                ? c.how.on_invalid
                    : kind == PVZAN_FAULT_CUT || kind == PVZAN_FAULT_LEFT_OPEN ? c.how.on_cut
                                                                               : c.how.on_missing;
    if ((c.how.most_faults != 0 && c.now.faults >= c.how.most_faults) ||
        !write_answer(c, c.fault, how)) {
        c.fault.waits = !leaves_input(c);
        return false;
    }
    ++c.now.faults;
    return true;
}

// Takes the next character, from held bytes and input; sets stuck where more decides.
pvzan_outcome take_character(pvzan_converter& c, cursor& at, bool& stuck) {
    u8 joined[most_held];
    const u32 held = c.now.held_size;
    view text{at.in, at.left, at.last, at.flush};
    if (held > 0) {
        const std::size_t added = std::min<std::size_t>(at.left, most_held - held);
        std::copy_n(c.now.held, held, joined);
        std::copy_n(at.in, added, joined + held);
        const bool all = added == at.left;
        text = {joined, held + added, at.last && all, at.flush && all};
    }
    std::optional<snapshot> before;
    if (leaves_input(c)) {
        before.emplace(c);
    }
    u32 used = 0;
    const stepped result = step(c, text, used);
    const bool told = result == stepped::faulty && !answer_inside(c);
    if (before && pending(c) > at.room) {
        before->put_back(c);
        return PVZAN_FEED_MORE_ROOM;
    }
    if (result == stepped::waits) {
        stuck = true;
        used = before ? used : static_cast<u32>(text.size);
        std::copy_n(text.bytes, used, c.now.held);
        c.now.held_size = used;
    } else {
        used = before && told ? 0 : used;
        c.now.held_size = held - std::min(held, used);
        std::copy_n(joined + (held - c.now.held_size), c.now.held_size, c.now.held);
    }
    const u32 from_input = used > held ? used - held : 0;
    at.in += from_input;
    at.left -= from_input;
    return told ? PVZAN_FEED_FAULT : PVZAN_FEED_DONE;
}

bool is_left_open(const pvzan_converter& c) {
    if (c.source == nullptr || c.source->read != reading::escapes) {
        return false;
    }
    const basic_set* set = designated_set(c.work.srcGroup, c.work.srcShiftSet);
    return set != nullptr && is_double_byte_width(set->byteNum);
}

// All input is used up.
pvzan_outcome end(pvzan_converter& c, cursor& at) {
    if (!at.last && !at.flush) {
        return PVZAN_FEED_MORE_INPUT;
    }
    if (at.last && is_left_open(c) && !std::exchange(c.now.told_open, true)) {
        note_fault(c, {c.fault.bytes, 0, true, true}, PVZAN_FAULT_LEFT_OPEN, 0, 0);
        if (!answer_inside(c)) {
            return PVZAN_FEED_FAULT;
        }
    }
    const snapshot before(c);
    write_closing(c);
    if (leaves_input(c) && pending(c) > at.room) {
        before.put_back(c);
        return PVZAN_FEED_MORE_ROOM;
    }
    if (!drain(c, at)) {
        return PVZAN_FEED_MORE_ROOM;
    }
    c.now.now = at.last ? stage::ended : c.now.now;
    return PVZAN_FEED_DONE;
}

pvzan_outcome feed(pvzan_converter& c, cursor& at) {
    fast::path path(false, (c.how.flags & PVZAN_READ_BACK) != 0 ? fast::strictness::codes
                                                                : fast::strictness::characters);
    const bool runs = c.how.breaks == PVZAN_BREAKS_AS_FOUND || c.same_feeds;
    for (bool stuck = false;;) {
        if (!drain(c, at)) {
            return PVZAN_FEED_MORE_ROOM;
        }
        if (stuck || (at.left == 0 && c.now.held_size == 0)) {
            return at.left > 0 ? PVZAN_FEED_MORE_INPUT : end(c, at);
        }
        if (c.now.now == stage::inside && !c.now.mark_due && !c.now.plane2 &&
            c.now.held_size == 0 && runs) {
            run_over(c, path, at);
            if (at.left == 0) {
                continue;
            }
        }
        const pvzan_outcome taken = take_character(c, at, stuck);
        if (taken != PVZAN_FEED_DONE) {
            return taken;
        }
    }
}

bool is_misuse(const pvzan_converter* c, const void* in, const size_t* left, const void* out,
               const size_t* room) {
    return c == nullptr || in == nullptr || left == nullptr || out == nullptr || room == nullptr;
}

} // namespace

} // namespace text

using namespace text;

extern "C" {

pvzan_outcome pvzan_feed(pvzan_converter* converter, const uint8_t** in, size_t* left,
                         uint8_t** out, size_t* room, int32_t how) {
    if (is_misuse(converter, in, left, out, room) || how < PVZAN_PART || how > PVZAN_FLUSH ||
        (*in == nullptr && *left > 0) || (*out == nullptr && *room > 0) ||
        converter->now.now == stage::ended) {
        return PVZAN_FEED_MISUSE;
    }
    if (converter->fault.waits) {
        return PVZAN_FEED_FAULT;
    }
    converter->fault.kind = 0;
    cursor at{*in, *left, *out, *room, how == PVZAN_LAST, how == PVZAN_FLUSH};
    const pvzan_outcome said = feed(*converter, at);
    *in = at.in;
    *left = at.left;
    *out = at.out;
    *room = at.room;
    return said;
}

pvzan_outcome pvzan_answer(pvzan_converter* converter, int32_t how, const uint8_t** text,
                           size_t* left, uint8_t** out, size_t* room) {
    const bool writes_text = how == PVZAN_WRITE_UTF8 || how == PVZAN_WRITE_RAW;
    if (converter == nullptr || !converter->fault.waits ||
        (writes_text && is_misuse(converter, text, left, out, room))) {
        return PVZAN_FEED_MISUSE;
    }
    pvzan_converter& c = *converter;
    cursor at{nullptr,
              0,
              out != nullptr ? *out : nullptr,
              room != nullptr && out != nullptr && *out != nullptr ? *room : 0,
              false,
              false};
    pvzan_outcome said = PVZAN_FEED_DONE;
    if (writes_text) {
        said = write_text(c, how == PVZAN_WRITE_RAW, *text, *left, at.out, at.room);
    } else if (!write_answer(c, c.fault, static_cast<u32>(how))) {
        said = PVZAN_FEED_MISUSE;
    }
    if (said == PVZAN_FEED_DONE) {
        c.fault.waits = false;
        ++c.now.faults;
        drain(c, at);
    }
    if (out != nullptr && room != nullptr) {
        *out = at.out;
        *room = at.room;
    }
    return said;
}

} // extern "C"
