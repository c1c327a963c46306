// Writes one character so that it comes back as itself, or what replaces a fault.
#include "cconv/engine/step.h"
#include "text/converter.h"
#include "text/unicode.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace text {

namespace {

struct look_alike {
    u16 scalar, stand_in;
};

// Characters for which vendors' tables contain one or the other. The replacement is as wide as the
// character in Japanese text.
constexpr look_alike look_alikes[] = {
    {0x00A2, 0xFFE0}, {0x00A3, 0xFFE1}, {0x00A5, 0xFFE5}, {0x00A6, 0xFFE4}, {0x00AC, 0xFFE2},
    {0x00AF, 0xFFE3}, {0x2014, 0x2015}, {0x2015, 0x2014}, {0x2016, 0x2225}, {0x203E, 0xFFE3},
    {0x2212, 0xFF0D}, {0x2225, 0x2016}, {0x2985, 0xFF5F}, {0x2986, 0xFF60}, {0x301C, 0xFF5E},
    {0xFF0D, 0x2212}, {0xFF5E, 0x301C}, {0xFF5F, 0x2985}, {0xFF60, 0x2986}, {0xFFE0, 0x00A2},
    {0xFFE1, 0x00A3}, {0xFFE2, 0x00AC}, {0xFFE3, 0x00AF}, {0xFFE4, 0x00A6}, {0xFFE5, 0x00A5},
};

// The sets designated in the output.
struct output_sets {
    explicit output_sets(const session& s)
        : shift(s.dstShiftSet), plane(s.dstShiftPlane), out(s.outSetNo) {}
    void put_back(session& s) const {
        s.dstShiftSet = shift;
        s.dstShiftPlane = plane;
        s.outSetNo = out;
    }
    u32 shift, plane, out;
};

// Lets the encode rule write after what is pending; returns the bytes, or none if the target lacks
// the character.
std::span<const u8> encode(pvzan_converter& c, const character& what) {
    session& s = c.work;
    u8* const out = c.now.pending + c.now.pending_size;
    s.outBuf = out;
    s.outPos = 0;
    s.outLen = static_cast<i32>(most_pending - c.now.pending_size);
    s.target.convertNewline = 0;
    put_character(&s, what);
    encode_step(&s);
    return {out, s.status == PVZAN_WRITTEN ? static_cast<std::size_t>(s.outPos) : 0};
}

void keep(pvzan_converter& c, std::size_t bytes) {
    session& s = c.work;
    c.now.pending_size += static_cast<u32>(bytes);
    if (s.dstShiftPlane != 0) { // after such a code, the set must be designated again
        s.dstShiftPlane = 0;
        s.dstShiftSet = 0;
    }
}

// Returns true if what is written for a character depends on what was written before.
bool has_sets_to_name(const pvzan_converter& c) {
    return c.target != nullptr && c.target->designates;
}

// Finds what the target writes for the character, and decodes it again with the target's rule, with
// a designation before it, since not every set has a designation of its own.
known_scalar try_out(pvzan_converter& c, const character& what) {
    const output_sets before(c.work);
    c.work.dstShiftSet = 0;
    c.work.dstShiftPlane = 0;
    known_scalar known{what.letter + 1, no_character, 0, {}};
    const std::span<const u8> bytes = encode(c, what);
    if (!bytes.empty()) {
        known.back = c.takes_all ? what : read_back(&c.work, bytes, PVZAN_SET_ISO_646_IRV);
    }
    if (!has_sets_to_name(c) && bytes.size() <= sizeof known.bytes) {
        known.size = static_cast<u8>(bytes.size());
        std::ranges::copy(bytes, known.bytes);
    }
    before.put_back(c.work);
    return known;
}

// Only few Unicode values in a text are not stored by the fast path, and most of these occur
// several times.
const known_scalar& known_of(pvzan_converter& c, u32 letter) {
    known_scalar& known = c.known[letter % std::size(c.known)];
    if (known.key != letter + 1) {
        known = try_out(c, {letter, 0});
    }
    return known;
}

} // namespace

written write(pvzan_converter& c, const character& what, character& back) {
    if (has_sets_to_name(c) && c.target->read != reading::scanned && switches_sets(what.letter)) {
        return written::missing;
    }
    const known_scalar& known = what.mark == 0 ? known_of(c, what.letter) : try_out(c, what);
    back = known.back;
    if (back != what) {
        return back == no_character ? written::missing : written::other;
    }
    if (known.size > 0 && known.size <= most_pending - c.now.pending_size) {
        std::copy_n(known.bytes, known.size, c.now.pending + c.now.pending_size);
        c.now.pending_size += known.size;
        return written::done;
    }
    const output_sets before(c.work);
    const std::span<const u8> bytes = encode(c, what);
    if (bytes.empty()) {
        before.put_back(c.work);
        return written::missing;
    }
    keep(c, bytes.size());
    return written::done;
}

bool can_write(pvzan_converter& c, const character& what) {
    const output_sets before(c.work);
    const u32 pending = c.now.pending_size;
    character back{0, 0};
    const bool done = write(c, what, back) == written::done;
    c.now.pending_size = pending;
    before.put_back(c.work);
    return done;
}

u32 look_alike_of(u32 letter) {
    const auto* found = std::ranges::find(look_alikes, letter, &look_alike::scalar);
    return found != std::end(look_alikes) ? found->stand_in : 0;
}

u32 full_width_of(const character& both) {
    constexpr u32 voiced_mark = 0xFF9E, semi_voiced_mark = 0xFF9F;
    constexpr std::u32string_view
        voiced = U"ｳｶｷｸｹｺｻｼｽｾｿﾀﾁﾂﾃﾄﾊﾋﾌﾍﾎヴガギグゲゴザジズゼゾダヂヅデドバビブベボ",
        semi_voiced = U"ﾊﾋﾌﾍﾎパピプペポ";
    const std::u32string_view all = both.mark == voiced_mark        ? voiced
                                    : both.mark == semi_voiced_mark ? semi_voiced
                                                                    : U"";
    const std::size_t at = all.find(static_cast<char32_t>(both.letter)), half = all.size() / 2;
    return at < half ? all[at + half] : 0;
}

written write_as_asked(pvzan_converter& c, const character& what, character& back) {
    const bool follows_break = std::exchange(c.now.behind_break, false);
    if (c.how.breaks != PVZAN_BREAKS_AS_FOUND && (what.letter == '\r' || what.letter == '\n')) {
        c.now.behind_break = what.letter == '\r';
        if (follows_break && what.letter == '\n') {
            return written::done;
        }
        if (c.how.breaks != PVZAN_BREAKS_LF && write(c, {'\r', 0}, back) != written::done) {
            return written::missing;
        }
        return c.how.breaks != PVZAN_BREAKS_CR ? write(c, {'\n', 0}, back) : written::done;
    }
    const written result = write(c, what, back);
    const u32 like = what.mark != 0 ? full_width_of(what) : look_alike_of(what.letter);
    if (result == written::done || (c.how.flags & PVZAN_LOOK_ALIKES) == 0 ||
        (what.mark != 0 && like == 0)) {
        return result;
    }
    // For a program, a backslash is never similar to a yen sign.
    character other{0, 0};
    if (result == written::other && back.letter >= 0x80 && back.mark == 0) {
        keep(c, encode(c, what).size());
    } else if (like == 0 || write(c, {like, 0}, other) != written::done) {
        return result;
    }
    ++c.now.look_alikes;
    return written::done;
}

void write_closing(pvzan_converter& c) {
    session& s = c.work;
    if (c.target == nullptr || !c.target->designates || s.dstShiftSet == PVZAN_SET_ISO_646_IRV) {
        return;
    }
    s.outBuf = c.now.pending + c.now.pending_size;
    s.outPos = 0;
    s.outLen = static_cast<i32>(most_pending - c.now.pending_size);
    s.outSetNo = 0;
    s.status = PVZAN_TERMINATE;
    s.dstRule->function(&s);
    c.now.pending_size += static_cast<u32>(s.outPos);
    if (c.target->read != reading::scanned) {
        s.dstShiftSet = PVZAN_SET_ISO_646_IRV;
    }
}

u32 substitute_of(pvzan_converter& c) {
    constexpr u32 replacement_character = 0xFFFD, geta = 0x3013;
    if (c.substitute == 0) {
        c.substitute = is_unicode(c.to)          ? replacement_character
                       : can_write(c, {geta, 0}) ? geta
                                                 : u32{'?'};
    }
    return c.substitute;
}

namespace {

bool has_all(pvzan_converter& c, const u8* text, std::size_t size) {
    while (size > 0) {
        const sequence next = read_utf8(text, size);
        if (next.kind != sequence::whole || !can_write(c, {next.scalar, 0})) {
            return false;
        }
        text += next.bytes;
        size -= next.bytes;
    }
    return true;
}

} // namespace

pvzan_outcome write_text(pvzan_converter& c, bool raw, const u8*& text, std::size_t& left, u8*& out,
                         std::size_t& room) {
    const auto hand_out = [&](const u8* bytes, std::size_t size) {
        const std::size_t n = std::min(size, room);
        std::copy_n(bytes, n, out);
        out += n;
        room -= n;
        c.now.out += n;
        return n;
    };
    if (!raw && !has_all(c, text, left)) {
        return PVZAN_FEED_FAULT;
    }
    c.now.behind_break = false;
    for (;;) {
        c.now.pending_at += static_cast<u32>(
            hand_out(c.now.pending + c.now.pending_at, c.now.pending_size - c.now.pending_at));
        if (c.now.pending_at < c.now.pending_size) {
            return PVZAN_FEED_MORE_ROOM;
        }
        c.now.pending_at = c.now.pending_size = 0;
        if (left == 0) {
            return PVZAN_FEED_DONE;
        }
        std::size_t taken = 0;
        if (raw) {
            taken = hand_out(text, left);
        } else {
            const sequence next = read_utf8(text, left);
            character back{0, 0};
            write(c, {next.scalar, 0}, back);
            taken = next.bytes;
        }
        if (taken == 0) {
            return PVZAN_FEED_MORE_ROOM;
        }
        text += taken;
        left -= taken;
    }
}

namespace {

struct short_text {
    char letters[40];
    std::size_t size = 0;

    void add(std::string_view text) { size += text.copy(letters + size, sizeof letters - size); }
    void add_hex(u32 number, int digits_at_least, const char* digits) {
        int count = digits_at_least;
        while (number >> 4 * count != 0) {
            ++count;
        }
        while (count-- > 0) {
            add({digits + (number >> 4 * count & 0xF), 1});
        }
    }
};

void spell_fault(const fault& f, bool by_reference, short_text& text) {
    if (by_reference && f.kind >= PVZAN_FAULT_MISSING) {
        for (const u32 scalar : {f.missing.letter, f.missing.mark}) {
            if (scalar != 0 || scalar == f.missing.letter) {
                text.add("&#x");
                text.add_hex(scalar, 1, "0123456789ABCDEF");
                text.add(";");
            }
        }
        return;
    }
    text.add("<");
    for (u32 i = 0; i < f.length && i < sizeof f.bytes; ++i) {
        text.add_hex(f.bytes[i], 2, "0123456789abcdef");
    }
    text.add(">");
}

} // namespace

bool write_answer(pvzan_converter& c, const fault& f, u32 how) {
    character back{0, 0};
    if (how < PVZAN_DROP || how > PVZAN_HEX) {
        return false;
    }
    c.now.behind_break = false;
    if (how == PVZAN_DROP || f.kind == PVZAN_FAULT_LEFT_OPEN) {
        return true;
    }
    if (how == PVZAN_SUBSTITUTE) {
        write(c, {substitute_of(c), 0}, back);
        return true;
    }
    short_text text;
    spell_fault(f, how == PVZAN_REFERENCE, text);
    for (const char letter : std::string_view(text.letters, text.size)) {
        if (write(c, {static_cast<u8>(letter), 0}, back) != written::done) {
            write(c, {'?', 0}, back);
        }
    }
    return true;
}

} // namespace text
