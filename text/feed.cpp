// Converts text with a converter.
#include "text/converter.h"
#include "text/unicode.h"

#include <algorithm>
#include <utility>

namespace text {

namespace {

struct cursor {
    const u8* in;
    std::size_t left;
    u8* out;
    std::size_t room;
    bool last, flush;
    const u8* settled = nullptr; // end of what does not depend on the rest; null: unknown
    lag behind{};
};

constexpr std::size_t most_at_once = 1U << 30;

bool leaves_input(const pvzan_converter& c) {
    return (c.how.flags & PVZAN_LEAVE_INPUT) != 0;
}

bool counts_private_use(const pvzan_converter& c) {
    return (c.how.flags & PVZAN_COUNT_PRIVATE_USE) != 0;
}

std::size_t pending(const pvzan_converter& c) {
    return c.now.pending_size - c.now.pending_at;
}

// Writes what is pending; returns whether that was all.
bool drain(pvzan_converter& c, cursor& at) {
    if (c.now.pending_size == 0) {
        return true;
    }
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

// Finds the part of the input that does not depend on what follows. It is small enough for the
// cache when lines are counted, and for counting the characters of a line again. With states, it
// ends at the beginning of a line, from where characters can be counted.
void look_ahead(pvzan_converter& c, cursor& at) {
    constexpr std::size_t most_with_states = 1U << 15, usual_most = 1U << 18;
    const std::size_t most = has_states(c) ? most_with_states : usual_most;
    const std::size_t limit = std::min(at.left, most);
    const std::size_t size = settled_size(c, {at.in, limit, at.last && limit == at.left, at.flush});
    const std::size_t line =
        has_states(c) && tells_lines(c) ? behind_last_break(c, at.in, size) : 0;
    at.settled = at.in + (line > 0 ? line : size);
}

// Gives the session the settled input and the output.
void place_buffers(pvzan_converter& c, const cursor& at) {
    session& s = c.work;
    s.inBuf = at.in;
    s.inPos = 0;
    s.inCount = 0;
    s.inLen = static_cast<i32>(at.settled - at.in);
    s.outBuf = at.out;
    s.outPos = 0;
    s.outLen = static_cast<i32>(std::min(at.room, most_at_once));
    s.target.convertNewline = c.how.breaks != PVZAN_BREAKS_AS_FOUND ? 1 : 0;
}

void advance_buffers(pvzan_converter& c, cursor& at, std::size_t read, std::size_t written) {
    at.in += read;
    at.left -= read;
    at.out += written;
    at.room -= written;
    c.now.out += written;
}

// Copies the ASCII that this part of the input begins with; its line breaks are counted at once.
void copy_ascii(pvzan_converter& c, fast::path& path, cursor& at) {
    if (c.lf != '\n' || *at.in >= 0x80) {
        return;
    }
    place_buffers(c, at);
    fast::ascii_breaks breaks;
    std::size_t n = path.copy_ascii(&c.work, breaks);
    if (n > 0 && at.in + n < at.settled) { // a mark may belong to the last one
        breaks.line_feeds -= at.in[--n] == '\n' ? 1U : 0U;
    }
    if (n > 0) {
        pass(c, at.behind, {at.in, n}, n, 0, &breaks);
        c.now.characters += n;
        advance_buffers(c, at, n, n);
    }
}

// Converts at full speed as long as characters come back unharmed.
void run_over(pvzan_converter& c, fast::path& path, cursor& at) {
    session& s = c.work;
    const bool begins = at.in >= at.settled;
    if (begins) {
        look_ahead(c, at);
    }
    if (at.in == at.settled || at.room == 0) {
        return;
    }
    if (begins) {
        copy_ascii(c, path, at);
        if (at.in == at.settled || at.room == 0) {
            return;
        }
    }
    place_buffers(c, at);
    s.srcCode = c.now.behind_break ? u32{'\r'} : 0;
    s.status = PVZAN_WRITTEN;
    const u32 set = s.srcShiftSet;
    path.run(&s);
    const auto done = static_cast<std::size_t>(s.inPos);
    if (done == 0) {
        return;
    }
    c.now.behind_break = c.how.breaks != PVZAN_BREAKS_AS_FOUND && s.srcCode == '\r';
    const u32 characters = s.inCount;
    const auto written = static_cast<std::size_t>(s.outPos);
    pass(c, at.behind, {at.in, done}, characters, set, nullptr);
    c.now.characters += characters;
    if (counts_private_use(c) && is_unicode(c.from)) {
        c.now.private_use += count_private(at.in, done, c.from.kind, c.now.big_source);
    } else if (counts_private_use(c) && is_unicode(c.to)) {
        c.now.private_use +=
            count_private(at.out, written, c.to.kind, c.to.order != PVZAN_ORDER_LITTLE);
    }
    advance_buffers(c, at, done, written);
}

// ---- Single characters -------------------------------------------------------------------------

enum class stepped : u8 { took, waits, faulty };

void note_fault(pvzan_converter& c, const view& text, u32 kind, u32 length, u32 needed) {
    fault& f = c.fault;
    f = {};
    f.kind = kind;
    f.length = length;
    f.needed = static_cast<u32>(std::min<std::size_t>(needed, sizeof f.bytes));
    f.seen = static_cast<u32>(std::min<std::size_t>(std::max(length, f.needed), sizeof f.bytes));
    f.ahead = std::max(f.seen, static_cast<u32>(std::min(text.size, sizeof f.bytes)));
    std::copy_n(text.bytes, f.ahead, f.bytes);
}

constexpr bool is_break(u32 letter) {
    return letter == '\r' || letter == '\n';
}

// Advances over a character, a fault or a designation.
void advance(pvzan_converter& c, lag& behind, const reading_result& read) {
    const bool two = read.c.mark != 0 && (is_unicode(c.from) || full_width_of(read.c) != 0);
    const u32 marks = read.marks + (two ? 1 : 0);
    c.now.at.offset += read.bytes;
    if (read.kind == reading_result::silent) {
        c.now.at.behind_cr = false;
        return;
    }
    if (tells_lines(c)) {
        c.now.at.step(read.c.letter);
        c.now.at.column += marks;
        if (is_break(read.c.letter)) {
            behind = {};
        }
    }
    if (read.kind == reading_result::faulty) {
        return;
    }
    c.now.characters += 1 + marks;
    c.now.composed += read.marks > 0 ? 1 : 0;
    if (counts_private_use(c) && (is_unicode(c.from) || is_unicode(c.to))) {
        c.now.private_use += is_private_use(read.c.letter) ? 1U : 0U;
    }
}

// Whether the source has another code for the character, which is the one it writes.
bool has_other_code(pvzan_converter& c, const view& text, const reading_result& read) {
    if ((c.how.flags & PVZAN_READ_BACK) == 0 || is_unicode(c.from) || has_states(c)) {
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
        return stepped::took;
    }
    const bool other = result == written::other;
    note_fault(c, text, other ? PVZAN_FAULT_OTHER_BACK : PVZAN_FAULT_MISSING, read.bytes,
               read.bytes);
    c.fault.missing = read.c;
    c.fault.back = other ? back : character{0, 0};
    return stepped::faulty;
}

// Handles the beginning of a text, where a byte-order mark may be.
reading_result begin(pvzan_converter& c, const view& text) {
    reading_result mark{.kind = reading_result::silent, .bytes = 0};
    const mark_found found = find_mark(c, text, mark.bytes);
    if (found == mark_found::waiting) {
        return {.kind = reading_result::waiting, .bytes = 0};
    }
    if (found != mark_found::none) {
        c.now.big_source = found == mark_found::big;
        c.work.source.srcBigEndian = c.now.big_source ? 1 : 0;
        c.now.mark_due = c.now.mark_due || (c.how.mark == PVZAN_MARK_KEEP && is_unicode(c.to));
    }
    c.now.now = stage::inside;
    return mark;
}

// Handles what is at the beginning of the text, and returns what it was.
stepped step(pvzan_converter& c, const view& text, reading_result& next) {
    if (c.now.now == stage::fresh) {
        next = begin(c, text);
        return next.kind == reading_result::silent ? stepped::took : stepped::waits;
    }
    if (std::exchange(c.now.mark_due, false)) {
        character back{0, 0};
        next = {.kind = reading_result::silent, .bytes = 0};
        write(c, {0xFEFF, 0}, back);
        return stepped::took;
    }
    next = read(c, text);
    switch (next.kind) {
    case reading_result::whole: return convert_character(c, text, next);
    case reading_result::silent: set_state(c, next); return stepped::took;
    case reading_result::waiting: return stepped::waits;
    case reading_result::faulty: break;
    }
    note_fault(c, text, next.fault_kind, next.bytes, next.needed);
    return stepped::faulty;
}

// ---- The feed ----------------------------------------------------------------------------------

// Handles a fault as the options say; false if they do not.
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

// Handles the next character of held bytes and input; sets stuck if more input is needed.
pvzan_outcome take_character(pvzan_converter& c, fast::path& path, cursor& at, bool& stuck) {
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
    reading_result next;
    const stepped result = step(c, text, next);
    const bool told = result == stepped::faulty && !answer_inside(c);
    u32 used = next.bytes;
    if (result == stepped::waits) {
        stuck = true;
        used = leaves_input(c) ? next.letters : static_cast<u32>(text.size);
        std::copy_n(text.bytes, used, c.now.held);
        c.now.held_size = used;
    } else {
        if (told) {
            catch_up(c, at.behind, path);
            c.fault.at = c.now.at;
        }
        advance(c, at.behind, next);
        // A sequence may end with a line break that is not a character.
        if (next.kind == reading_result::silent && next.bytes > 0 && tells_lines(c) &&
            text.bytes[next.bytes - 1] == '\n') {
            c.now.at.step('\n');
            at.behind = {};
        }
        used = leaves_input(c) && told ? 0 : used;
        c.now.held_size = held - std::min(held, used);
        std::copy_n(joined + (held - c.now.held_size), c.now.held_size, c.now.held);
    }
    const u32 from_input = used > held ? used - held : 0;
    at.in += from_input;
    at.left -= from_input;
    return told ? PVZAN_FEED_FAULT : PVZAN_FEED_DONE;
}

// The same for callers who use PVZAN_LEAVE_INPUT: what does not fit stays in the input.
pvzan_outcome take_what_fits(pvzan_converter& c, fast::path& path, cursor& at, bool& stuck) {
    const state before = state_of(c);
    const cursor was = at;
    const pvzan_outcome taken = take_character(c, path, at, stuck);
    if (pending(c) <= at.room) {
        return taken;
    }
    go_back(c, before);
    at = was;
    return PVZAN_FEED_MORE_ROOM;
}

bool is_left_open(const pvzan_converter& c) {
    return has_states(c) && c.source->may_end != nullptr &&
           !c.source->may_end(c.work.srcGroup, c.work.srcShiftSet);
}

// All input has been used.
pvzan_outcome end(pvzan_converter& c, fast::path& path, cursor& at) {
    if (!at.last && !at.flush) {
        return PVZAN_FEED_MORE_INPUT;
    }
    if (at.last && is_left_open(c) && !std::exchange(c.now.told_open, true)) {
        note_fault(c, {c.fault.bytes, 0, true, true}, PVZAN_FAULT_LEFT_OPEN, 0, 0);
        if (!answer_inside(c)) {
            catch_up(c, at.behind, path);
            c.fault.at = c.now.at;
            return PVZAN_FEED_FAULT;
        }
    }
    const state before = state_of(c);
    write_closing(c);
    if (leaves_input(c) && pending(c) > at.room) {
        go_back(c, before);
        return PVZAN_FEED_MORE_ROOM;
    }
    if (!drain(c, at)) {
        return PVZAN_FEED_MORE_ROOM;
    }
    c.now.now = at.last ? stage::ended : c.now.now;
    return PVZAN_FEED_DONE;
}

pvzan_outcome feed(pvzan_converter& c, fast::path& path, cursor& at) {
    const bool runs = c.how.breaks == PVZAN_BREAKS_AS_FOUND || c.ascii_feed;
    for (bool stuck = false;;) {
        if (!drain(c, at)) {
            return PVZAN_FEED_MORE_ROOM;
        }
        if (stuck || (at.left == 0 && c.now.held_size == 0)) {
            return at.left > 0 ? PVZAN_FEED_MORE_INPUT : end(c, path, at);
        }
        if (c.now.now == stage::inside && !c.now.mark_due && c.now.held_size == 0 && runs) {
            run_over(c, path, at);
            if (at.left == 0) {
                continue;
            }
        }
        const pvzan_outcome taken = leaves_input(c) ? take_what_fits(c, path, at, stuck)
                                                    : take_character(c, path, at, stuck);
        if (taken != PVZAN_FEED_DONE) {
            return taken;
        }
    }
}

bool is_misuse(const pvzan_converter* c, const u8** in, const size_t* left, u8** out,
               const size_t* room) {
    return c == nullptr || in == nullptr || left == nullptr || out == nullptr || room == nullptr ||
           (*in == nullptr && *left > 0) || (*out == nullptr && *room > 0);
}

} // namespace

} // namespace text

using namespace text;

extern "C" {

pvzan_outcome pvzan_feed(pvzan_converter* converter, const uint8_t** in, size_t* left,
                         uint8_t** out, size_t* room, int32_t how) {
    if (is_misuse(converter, in, left, out, room) || how < PVZAN_PART || how > PVZAN_FLUSH ||
        converter->now.now == stage::ended) {
        return PVZAN_FEED_MISUSE;
    }
    if (converter->fault.waits) {
        return PVZAN_FEED_FAULT;
    }
    converter->fault.kind = 0;
    cursor at{*in, *left, *out, *room, how == PVZAN_LAST, how == PVZAN_FLUSH};
    fast::path path(false, (converter->how.flags & PVZAN_READ_BACK) != 0
                               ? fast::strictness::codes
                               : fast::strictness::characters);
    const pvzan_outcome said = feed(*converter, path, at);
    if (converter->now.now != stage::ended) {
        catch_up(*converter, at.behind, path);
    }
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
