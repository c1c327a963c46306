// Describes a fault. This is done only when it is asked for, since texts have more faults than
// anybody reads about.
#include "cconv/engine/step.h"
#include "cconv/registry/names.h"
#include "cconv/rulefunc/iso2022.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/tables/table.h"
#include "text/converter.h"
#include "text/names.h"
#include "text/record.h"
#include "text/unicode.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

namespace text {

namespace {

struct blame {
    u32 reason, bytes;
    i32 follower = -1;
};

constexpr bool is_in(u32 byte, u32 first, u32 last) {
    return byte >= first && byte <= last;
}

// Whether the bytes are a character for the source's rule, or the beginning of one.
bool may_be_character(session& s, std::span<const u8> bytes) {
    s.inBuf = bytes.data();
    s.inPos = 0;
    s.inLen = static_cast<i32>(bytes.size());
    s.status = PVZAN_WRITTEN;
    decode_step(&s);
    character c{0, 0};
    return s.status == PVZAN_INPUT_INCOMPLETE ||
           (s.status == PVZAN_DECODED && read_character(&s, c));
}

// Two bytes; two more if the rule decides only after four.
std::span<const u8> pair_of(const pvzan_converter& c, const u8 (&code)[4]) {
    return std::span(code).first(c.longest == max_code_bytes ? 4 : 2);
}

// Whether no code of two bytes has this one as its second. Finding out takes up to 256 tries, so
// the answer is kept.
bool ends_nothing(pvzan_converter& c, u8 byte) {
    ending& known = c.endings[byte];
    if (known == ending::unknown) {
        known = ending::of_nothing;
        for (u32 first = 0x21; known == ending::of_nothing && first <= 0xFF; ++first) {
            const u8 code[] = {static_cast<u8>(first), byte, 0x81, '0'};
            may_be_character(c.work, {code, 1});
            const bool leads = c.work.status == PVZAN_INPUT_INCOMPLETE;
            known = leads && may_be_character(c.work, pair_of(c, code)) ? ending::of_codes : known;
        }
    }
    return known == ending::of_nothing;
}

// ---- Why bytes are invalid ---------------------------------------------------------------------

blame blame_unicode(const pvzan_converter& c, const fault& f) {
    const sequence read = read_sequence(f.bytes, f.seen, c.from.kind, c.now.big_source);
    if (read.kind == sequence::whole) {
        return {PVZAN_REASON_NO_CHARACTER, f.length};
    }
    if (c.from.kind == PVZAN_KIND_UTF_8) {
        return f.needed > f.length
                   ? blame{PVZAN_REASON_BROKEN_OFF, f.length, i32{f.bytes[f.length]}}
                   : blame{PVZAN_REASON_BEGINS_NOTHING, 1};
    }
    const bool big_code =
        c.from.kind == PVZAN_KIND_UCS_4 && load_code({f.bytes, 4}, c.now.big_source) > 0xDFFF;
    return {big_code ? u32{PVZAN_REASON_NO_CHARACTER} : u32{PVZAN_REASON_HALF_PAIR}, f.length};
}

blame blame_code(pvzan_converter& c, const fault& f) {
    if (has_states(c)) {
        const iso2022* told = c.work.srcGroup->codes;
        const bool scans = c.source->read == reading::scanned;
        const bool escape =
            told != nullptr ? told->opens_sequence(f.bytes[0]) : f.bytes[0] == escape_byte;
        const bool fits =
            scans ? f.needed == f.length : f.needed == 2 && is_in(f.bytes[1], 0x21, 0x7E);
        return {escape          ? u32{PVZAN_REASON_ESCAPE}
                : f.needed == 1 ? u32{PVZAN_REASON_BEGINS_NOTHING}
                : fits          ? u32{PVZAN_REASON_NO_CHARACTER}
                                : u32{PVZAN_REASON_CANNOT_FOLLOW},
                f.needed};
    }
    if (f.needed < 2) {
        return {c.longest == 1 ? u32{PVZAN_REASON_NO_CHARACTER} : u32{PVZAN_REASON_BEGINS_NOTHING},
                1, f.ahead > 1 ? i32{f.bytes[1]} : -1};
    }
    if (f.needed == 2) {
        const bool fits = c.from.unit == 2 || !ends_nothing(c, f.bytes[1]);
        return {fits ? u32{PVZAN_REASON_NO_CHARACTER} : u32{PVZAN_REASON_CANNOT_FOLLOW}, 2};
    }
    // Either all of it was looked at, or the last byte looked at does not fit.
    return {f.needed == f.length && f.bytes[f.needed - 1] != 0xFF &&
                    (f.bytes[f.needed - 1] > 0xA0 || c.longest == max_code_bytes)
                ? u32{PVZAN_REASON_NO_CHARACTER}
                : u32{PVZAN_REASON_CANNOT_FOLLOW},
            f.needed};
}

// ---- A charset that has it ---------------------------------------------------------------------

// Whether the other charset has a character for bytes that c lacks. In text with designations, they
// follow the designation for two bytes if that applied in c.
bool reads_them(pvzan_converter& other, const pvzan_converter& c, const fault& f) {
    u8 bytes[3 + sizeof f.bytes] = {escape_byte, '$', 'B'};
    const bool designated =
        has_states(other) && has_states(c) && f.bytes[0] != escape_byte && f.length > 1;
    const std::size_t size = designated ? 3 : 0;
    std::copy_n(f.bytes, f.ahead, bytes + size);
    const std::size_t beyond = f.ahead - f.seen;
    for (view text{bytes, size + f.ahead, true, true}; text.size > beyond;) {
        const reading_result next = read(other, text);
        if (next.kind != reading_result::silent) {
            return next.kind == reading_result::whole && next.bytes + beyond >= text.size &&
                   !is_in(next.c.letter, 0x80, 0x9F);
        }
        set_state(other, next);
        text = text.behind(next.bytes);
    }
    return true;
}

// Finds the first relative that has what the charset lacks, with a converter of its own.
void tell_relative(const pvzan_converter& c, const fault& f, pvzan_fault& told) {
    // A missing control code of the upper half is a character in a relative.
    const bool control = is_in(f.missing.letter, 0x80, 0x9F) && !is_unicode(c.from);
    const bool reads = f.kind == PVZAN_FAULT_INVALID || (f.kind == PVZAN_FAULT_MISSING && control);
    if (!reads && f.kind != PVZAN_FAULT_MISSING) {
        return;
    }
    char name[64];
    for (std::size_t i = 0; relative_of(reads ? c.from.charset : c.to.charset, i, name); ++i) {
        pvzan_converter other;
        other.how = {};
        if (prepare(other, reads ? name : "utf-8", reads ? "utf-8" : name, nullptr) &&
            (reads ? reads_them(other, c, f) : can_write(other, f.missing))) {
            copy_text(told.relative, (reads ? other.from : other.to).shown);
            return;
        }
    }
}

// ---- In words ----------------------------------------------------------------------------------

class words {
public:
    explicit words(pvzan_fault& f) : f_(f) {}
    __attribute__((format(printf, 2, 3))) words& add(const char* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        const int n = std::vsnprintf(f_.why + size_, sizeof f_.why - size_, format, arguments);
        va_end(arguments);
        size_ = n < 0 ? size_ : std::min(size_ + static_cast<std::size_t>(n), sizeof f_.why - 1);
        return *this;
    }
    words& add_bytes(const u8* bytes, u32 count) {
        for (u32 i = 0; i < count; ++i) {
            add("%s%02x", i > 0 ? " " : "", bytes[i]);
        }
        return *this;
    }
    words& add_character(const u32* scalars, u32 count) {
        for (u32 i = 0; i < count; ++i) {
            add("%sU+%04X", i > 0 ? " " : "", scalars[i]);
        }
        return *this;
    }

private:
    pvzan_fault& f_;
    std::size_t size_ = 0;
};

void say_invalid(words& w, const pvzan_converter& c, const pvzan_fault& f) {
    w.add("invalid %s: ", c.from.shown);
    if (f.reason == PVZAN_REASON_CANNOT_FOLLOW) {
        w.add_bytes(f.bytes, f.blamed - 1)
            .add(" cannot be followed by %02x", f.bytes[f.blamed - 1]);
        return;
    }
    w.add_bytes(f.bytes, f.blamed);
    switch (f.reason) {
    case PVZAN_REASON_BROKEN_OFF:
        w.add(" cannot be followed by %02x", static_cast<u32>(f.follower));
        break;
    case PVZAN_REASON_NO_CHARACTER: w.add(" has no character"); break;
    case PVZAN_REASON_HALF_PAIR: w.add(" is half of a surrogate pair"); break;
    case PVZAN_REASON_ESCAPE: w.add(" is no known escape sequence"); break;
    default: w.add(" is not a lead byte"); break;
    }
}

void say(const pvzan_converter& c, pvzan_fault& f) {
    words w(f);
    switch (f.kind) {
    case PVZAN_FAULT_INVALID: say_invalid(w, c, f); break;
    case PVZAN_FAULT_CUT:
        w.add("invalid %s: ", c.from.shown);
        w.add_bytes(f.bytes, f.blamed).add(" at the end of the text");
        break;
    case PVZAN_FAULT_LEFT_OPEN:
        w.add("the text does not return to ASCII at its end, as %s requires", c.from.shown);
        break;
    case PVZAN_FAULT_MISSING:
        w.add_character(f.scalars, f.scalars_count).add(" has no code in %s", c.to.shown);
        break;
    default:
        w.add_character(f.scalars, f.scalars_count);
        if (f.back_bytes_count > 0) {
            w.add(" has another code in %s, too: ", c.from.shown);
            w.add_bytes(f.back_bytes, f.back_bytes_count);
        } else {
            w.add(" would come back from %s as ", c.to.shown).add_character(f.back, f.back_count);
        }
        break;
    }
}

void fill_character(const character& c, u32 (&scalars)[2], u32& count) {
    scalars[0] = c.letter;
    scalars[1] = c.mark;
    count = c.mark != 0 ? 2 : 1;
}

void explain(pvzan_converter& c, const fault& f, pvzan_fault& told) {
    told.kind = f.kind;
    told.length = f.length;
    told.offset = f.at.offset;
    told.line = f.at.line;
    told.column = f.at.column;
    told.follower = -1;
    std::memcpy(told.bytes, f.bytes, f.seen);
    told.blamed = f.needed;
    if (f.kind == PVZAN_FAULT_INVALID) {
        const blame b = is_unicode(c.from) ? blame_unicode(c, f) : blame_code(c, f);
        told.reason = b.reason;
        told.blamed = b.bytes;
        told.follower = b.follower;
    }
    if (f.kind == PVZAN_FAULT_MISSING || f.kind == PVZAN_FAULT_OTHER_BACK) {
        fill_character(f.missing, told.scalars, told.scalars_count);
        // The character that the code means there, as with half-width katakana in ISO-2022-JP. But
        // a backslash is not similar to a yen sign.
        const bool means_other = f.kind == PVZAN_FAULT_OTHER_BACK && f.back != f.missing &&
                                 f.back.letter >= 0x80 && f.back.mark == 0;
        const u32 like = f.missing.mark != 0 ? full_width_of(f.missing)
                         : means_other       ? f.back.letter
                                             : look_alike_of(f.missing.letter);
        told.look_alike = like != 0 && can_write(c, {like, 0}) ? like : 0;
    }
    if (f.kind == PVZAN_FAULT_OTHER_BACK) {
        fill_character(f.back, told.back, told.back_count);
        if (f.back == f.missing) {
            told.back_bytes_count =
                static_cast<u32>(spell_again(&c.work, f.missing, told.back_bytes));
        }
    }
    if (told.size > offsetof(pvzan_fault, relative)) { // it takes time to find out
        tell_relative(c, f, told);
    }
    if (told.size > offsetof(pvzan_fault, why)) {
        say(c, told);
    }
}

} // namespace

} // namespace text

using namespace text;

extern "C" {

int32_t pvzan_last_fault(const pvzan_converter* converter, pvzan_fault* given) {
    if (converter == nullptr || !is_record(given) || converter->fault.kind == 0) {
        return 0;
    }
    // This uses the session, but restores what the conversion needs to continue.
    auto& c = const_cast<pvzan_converter&>(*converter);
    const u32 in_set = c.work.srcShiftSet, out_set = c.work.dstShiftSet;
    pvzan_fault told = {};
    told.size = given->size;
    explain(c, c.fault, told);
    c.work.srcShiftSet = in_set;
    c.work.dstShiftSet = out_set;
    fill_record(*given, told);
    return 1;
}

size_t pvzan_explain(const pvzan_converter* converter, char* text, size_t room) {
    pvzan_fault f = {};
    f.size = offsetof(pvzan_fault, relative);
    if (pvzan_last_fault(converter, &f) == 0) {
        return 0;
    }
    char whole[sizeof f.why + 64];
    const int size =
        tells_lines(*converter)
            ? std::snprintf(whole, sizeof whole, "%" PRIu64 ":%" PRIu64 ": %s", f.line, f.column,
                            f.why)
            : std::snprintf(whole, sizeof whole, "byte %" PRIu64 ": %s", f.offset, f.why);
    const auto length = static_cast<size_t>(size);
    if (text != nullptr && length < room) {
        std::memcpy(text, whole, length + 1);
    }
    return length;
}

} // extern "C"
