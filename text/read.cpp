// Reads one character strictly, and decides how many bytes a fault has.
#include "cconv/engine/composition.h"
#include "cconv/engine/step.h"
#include "text/converter.h"
#include "text/unicode.h"

#include <algorithm>

namespace text {

namespace {

using kind = reading_result::kind_type;

constexpr bool is_in(u32 byte, u32 first, u32 last) {
    return byte >= first && byte <= last;
}

reading_result faulty(u32 fault_kind, std::size_t bytes, std::size_t needed) {
    return {.kind = kind::faulty,
            .bytes = static_cast<u32>(bytes),
            .fault_kind = fault_kind,
            .needed = static_cast<u32>(needed)};
}

reading_result invalid(std::size_t bytes, std::size_t needed) {
    return faulty(PVZAN_FAULT_INVALID, bytes, needed);
}

// A cut character is a fault at the end of the text; length is the number of bytes to skip then.
reading_result cut(const view& text, std::size_t length) {
    return text.last ? faulty(PVZAN_FAULT_CUT, length, text.size)
                     : reading_result{.kind = kind::waiting, .bytes = 0};
}

// The charset's own rule decides what a code stands for.
bool decode(pvzan_converter& c, const u8* bytes, std::size_t size, reading_result& read) {
    session& s = c.work;
    s.inBuf = bytes;
    s.inPos = 0;
    s.inLen = static_cast<i32>(size);
    s.status = PVZAN_WRITTEN;
    decode_step(&s);
    read = {.kind = kind::whole, .bytes = static_cast<u32>(s.inPos)};
    return s.status == PVZAN_DECODED && read_character(&s, read.c);
}

// ---- Unicode -----------------------------------------------------------------------------------

bool may_join(const pvzan_converter& c, u32 letter) {
    return (c.has_pairs && may_take_mark(letter, c.work.dstGroup)) ||
           (c.composes && takes_composing_mark(letter));
}

// A letter and its marks are read as one character if the target has no other way to write them.
void compose_marks(pvzan_converter& c, const view& text, reading_result& read) {
    u32 letter = read.c.letter, at = read.bytes;
    const bool may_wait = !text.last && !text.flush;
    for (u32 marks = 1;; ++marks) {
        const view rest = text.behind(at);
        const sequence next =
            rest.size > 0 ? read_sequence(rest.bytes, rest.size, c.from.kind, c.now.big_source)
                          : sequence{sequence::cut, 0, 0};
        if (next.kind == sequence::cut && may_wait && may_join(c, letter) && can_write(c, read.c)) {
            read = {.kind = kind::waiting, .bytes = 0, .letters = at};
        }
        if (next.kind != sequence::whole) {
            return;
        }
        if (marks == 1 && is_mark_in_tables(next.scalar) && can_write(c, {letter, next.scalar})) {
            read.c.mark = next.scalar;
            read.bytes += next.bytes;
            return;
        }
        letter = c.composes ? compose(letter, next.scalar) : 0;
        if (letter == 0 || can_write(c, {next.scalar, 0})) {
            return;
        }
        at += next.bytes;
        if (can_write(c, {letter, 0})) {
            read.c = {letter, 0};
            read.bytes = at;
            read.marks = marks;
        }
    }
}

reading_result read_unicode(pvzan_converter& c, const view& text) {
    const sequence first = read_sequence(text.bytes, text.size, c.from.kind, c.now.big_source);
    if (first.kind == sequence::cut) {
        return cut(text, text.size);
    }
    if (first.kind == sequence::ill_formed) {
        const bool opens = c.from.kind == PVZAN_KIND_UTF_8 && is_in(text.bytes[0], 0xC2, 0xF4);
        return invalid(first.bytes, first.bytes + (opens ? 1U : 0U));
    }
    reading_result read;
    if (!decode(c, text.bytes, first.bytes, read) || read.bytes != first.bytes) {
        return invalid(first.bytes, first.bytes); // the charset's sets lack it
    }
    if (may_join(c, read.c.letter)) {
        compose_marks(c, text, read);
    }
    return read;
}

// ---- Codes whose meaning sequences before them change -------------------------------------------

reading_result read_scanned(pvzan_converter& c, const view& text) {
    const scanned next =
        c.source->scan(c.work.srcGroup, c.work.srcShiftSet, {text.bytes, text.size});
    reading_result read;
    switch (next.kind) {
    case scanned::silent: return {.kind = kind::silent, .bytes = next.length, .c = {next.state, 0}};
    case scanned::cut: return cut(text, 1);
    case scanned::invalid: return invalid(next.length, next.needed);
    case scanned::code:
        if (next.grows && !text.last && !text.flush) {
            return {.kind = kind::waiting, .bytes = 0};
        }
        break;
    }
    return decode(c, text.bytes, next.length, read) ? read : invalid(next.length, next.length);
}

// ---- Other codes -------------------------------------------------------------------------------

constexpr bool is_high_trail(u32 byte) {
    return is_in(byte, 0xA1, 0xFE);
}

// Codes of four bytes occur in GB 18030: their second and fourth byte is a digit. Otherwise a digit
// is a character of its own.
reading_result judge_four_bytes(const view& text) {
    constexpr std::size_t length = 4;
    for (std::size_t i = 1; i < length; ++i) {
        if (i == text.size) {
            return cut(text, 1);
        }
        if (i % 2 == 1 ? !is_in(text.bytes[i], '0', '9') : !is_in(text.bytes[i], 0x81, 0xFE)) {
            return invalid(1, i + 1);
        }
    }
    return invalid(length, length);
}

// The length of a code to which no character is assigned: it never includes an ASCII byte at the
// end.
reading_result judge(const pvzan_converter& c, const view& text) {
    const u32 length = length_by_lead(c, text.bytes[0]);
    if (length == 1) {
        return invalid(1, 1);
    }
    if (text.size > 1 && length == 2 && c.longest == max_code_bytes &&
        is_in(text.bytes[1], '0', '9')) {
        return judge_four_bytes(text);
    }
    for (std::size_t i = 1;; ++i) {
        if (i == text.size) {
            return cut(text, i);
        }
        if (text.bytes[i] < 0x80) {
            return invalid(i, i + 1);
        }
        if (i + 1 == length || !is_high_trail(text.bytes[i])) {
            return invalid(i + 1, i + 1);
        }
    }
}

reading_result read_code(pvzan_converter& c, const view& text) {
    if (text.size < c.needed && !text.last) {
        return {.kind = kind::waiting, .bytes = 0};
    }
    reading_result read;
    if (c.from.unit == 2) {
        if (text.size < 2) {
            return cut(text, text.size);
        }
        return decode(c, text.bytes, 2, read) && read.bytes == 2 ? read : invalid(2, 2);
    }
    return decode(c, text.bytes, std::min<std::size_t>(text.size, max_code_bytes), read)
               ? read
               : judge(c, text);
}

// The length of the shortest code of several bytes that a set has with that lead byte; 1: none.
u32 length_by_sets(const charset_group* group, u32 lead) {
    u32 shortest = max_code_bytes + 1;
    const auto lies_in = [&](const basic_set* set, u32 first, u32 last) {
        const u32 shift = 8U * (set->byteNum - 1U);
        if (is_in(lead, first >> shift, last >> shift)) {
            shortest = std::min<u32>(shortest, set->byteNum);
        }
    };
    for (const basic_set* set : member_sets(group)) {
        if (set->byteNum < 2 || set->byteNum > max_code_bytes) {
            continue;
        }
        if (set->setType == PVZAN_SET_USER_DEFINED) {
            lies_in(set, set->eudcStart, set->eudcStart + set->eudcNumber - 1U);
        }
        for (const limit* range : items_of<limit>(set->defined->ranges)) {
            lies_in(set, range->low, range->high);
        }
    }
    return shortest <= max_code_bytes ? shortest : 1;
}

} // namespace

u32 length_by_lead(const pvzan_converter& c, u32 lead) {
    constexpr std::array<u8, 4> usual = {0x81, 0xFE, 0x81, 0xFE};
    const std::array<u8, 4>& leads = c.source != nullptr ? c.source->leads : usual;
    if (c.longest == 1) {
        return 1;
    }
    if (leads[0] == 0) {
        return length_by_sets(c.work.srcGroup, lead);
    }
    if (c.source != nullptr && c.source->single_shift != no_single_shift &&
        lead == c.source->single_shift) {
        return 3;
    }
    return is_in(lead, leads[0], leads[1]) || is_in(lead, leads[2], leads[3]) ? 2 : 1;
}

namespace {

reading_result read_one(pvzan_converter& c, const view& text) {
    if (is_unicode(c.from)) {
        return read_unicode(c, text);
    }
    return has_states(c) ? read_scanned(c, text) : read_code(c, text);
}

// A half-width katakana and its sound mark, in a text for a charset without these, are what is one
// character in full width.
reading_result with_sound_mark(pvzan_converter& c, const view& text, const reading_result& letter,
                               u32 set_before) {
    const u32 set_behind = c.work.srcShiftSet;
    const view rest = text.behind(letter.bytes);
    const bool may_wait = !text.last && !text.flush;
    reading_result next{.kind = may_wait ? kind::waiting : kind::faulty, .bytes = 0};
    if (rest.size > 0) {
        next = read_one(c, rest);
    }
    const character both{letter.c.letter, next.c.letter};
    if (next.kind == kind::whole && full_width_of(both) != 0) {
        next.c = both;
        next.bytes += letter.bytes;
        return next;
    }
    c.work.srcShiftSet = next.kind == kind::waiting ? set_before : set_behind;
    return next.kind == kind::waiting ? reading_result{.kind = kind::waiting, .bytes = 0} : letter;
}

} // namespace

reading_result read(pvzan_converter& c, const view& text) {
    constexpr u32 first_half_width = 0xFF66, last_half_width = 0xFF9D;
    const u32 set = c.work.srcShiftSet;
    const reading_result found = read_one(c, text);
    const bool stays = found.kind != kind::whole || found.c.mark != 0 ||
                       !is_in(found.c.letter, first_half_width, last_half_width) || c.takes_all ||
                       can_write(c, found.c);
    return stays ? found : with_sound_mark(c, text, found, set);
}

mark_found find_mark(const pvzan_converter& c, const view& text, u32& length) {
    struct byte_order_mark {
        u32 kind, length;
        u8 bytes[4];
        bool big;
    };
    constexpr byte_order_mark marks[] = {
        {PVZAN_KIND_UTF_8, 3, {0xEF, 0xBB, 0xBF}, true},
        {PVZAN_KIND_UCS_4, 4, {0x00, 0x00, 0xFE, 0xFF}, true},
        {PVZAN_KIND_UCS_4, 4, {0xFF, 0xFE, 0x00, 0x00}, false},
        {PVZAN_KIND_UTF_16, 2, {0xFE, 0xFF}, true},
        {PVZAN_KIND_UTF_16, 2, {0xFF, 0xFE}, false},
        {PVZAN_KIND_UCS_2, 2, {0xFE, 0xFF}, true},
        {PVZAN_KIND_UCS_2, 2, {0xFF, 0xFE}, false},
    };
    const bool any_order = c.from.mark == 1;
    for (const byte_order_mark& mark : marks) {
        const std::size_t seen = std::min<std::size_t>(mark.length, text.size);
        if (mark.kind != c.from.kind || !std::equal(mark.bytes, mark.bytes + seen, text.bytes) ||
            !(any_order || mark.kind == PVZAN_KIND_UTF_8 || mark.big == c.now.big_source)) {
            continue;
        }
        if (seen == mark.length) {
            length = mark.length;
            return mark.big ? mark_found::big : mark_found::little;
        }
        if (!text.last) {
            return mark_found::waiting;
        }
    }
    return mark_found::none;
}

std::size_t settled_size(pvzan_converter& c, const view& text) {
    if (!(c.has_pairs || c.composes) || text.last || text.flush) {
        return text.size;
    }
    const std::size_t width = c.from.unit;
    std::size_t at = (text.size - 1) / width * width;
    const auto continues = [&] {
        return c.from.kind == PVZAN_KIND_UTF_8 && (text.bytes[at] & 0xC0) == 0x80;
    };
    for (int back = 0; back < 3 && at > 0 && continues(); ++back) {
        --at;
    }
    const view rest = text.behind(at);
    const sequence last = read_sequence(rest.bytes, rest.size, c.from.kind, c.now.big_source);
    return last.kind == sequence::whole && may_join(c, last.scalar) ? at : text.size;
}

} // namespace text
