// ISO-2022-JP (RFC 1468) and ISO-2022-JP-2004 (JIS X 0213:2004, annex 2). Stateful: an escape
// sequence designates the set of the codes behind it.
//
//   1B 28 42      ESC ( B     ASCII, at the start of every text
//   1B 28 4A      ESC ( J     JIS X 0201 Roman
//   1B 24 40      ESC $ @     JIS C 6226-1978
//   1B 24 42      ESC $ B     JIS X 0208
//   1B 24 28 51   ESC $ ( Q   JIS X 0213 plane 1; ISO-2022-JP-2004 also writes JIS X 0208 with it
//   1B 24 28 50   ESC $ ( P   JIS X 0213 plane 2
//
// There are no others; katakana (ESC ( I) and JIS X 0212 (ESC $ ( D) are not part of either
// charset. One decoder and one encoder serve both: what a charset has, its definition says.
//
// Deliberate in the decoder:
// - An unknown escape sequence is reported as incomplete input. It may be a longer one that this
//   version does not know, and reading on would turn its codes into ASCII.
// - In a double-byte set, CR, TAB and LF are read as ASCII, since many writers forget to go back to
//   it at the end of a line. The set stays designated.
// - The bytes of a code are not checked; tables and writers refuse what they do not have.
// - Plane 2 holds for one character: that is how the encoder writes it. See below.
//
// Deliberate in the encoder:
// - ASCII is designated at the start too, so that texts can be joined.
// - Every JIS X 0213 character has its own escape sequence and leaves the designated set alone.
// - An escape sequence never takes the last byte of the buffer: it never stands at the end of a
//   full one.
#include "cconv/rulefunc/iso2022.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/rulefunc/strict.h"
#include "cconv/rulefunc/traits.h"

#include <algorithm>
#include <array>

namespace {

struct designation {
    u32 setNo;
    u32 plane_flag; // added to the codes
    std::size_t length;
    std::array<u8, 4> bytes;

    [[nodiscard]] constexpr std::span<const u8> sequence() const {
        return std::span(bytes).first(length);
    }
};

constexpr designation to_ascii{PVZAN_SET_ISO_646_IRV, 0, 3, {escape_byte, '(', 'B'}};
constexpr designation to_roman{PVZAN_SET_JIS_X_0201_LATIN, 0, 3, {escape_byte, '(', 'J'}};
constexpr designation to_jisc6226{PVZAN_SET_JIS_C_6226_1978, 0, 3, {escape_byte, '$', '@'}};
constexpr designation to_jisx0208{PVZAN_SET_JIS_X_0208_1990, 0, 3, {escape_byte, '$', 'B'}};
constexpr designation to_plane1{PVZAN_SET_JIS_X_0213, 0, 4, {escape_byte, '$', '(', 'Q'}};
constexpr designation to_plane2{
    PVZAN_SET_JIS_X_0213, jisx0213_plane2, 4, {escape_byte, '$', '(', 'P'}};

constexpr std::array designations = {to_ascii,    to_roman,  to_jisc6226,
                                     to_jisx0208, to_plane1, to_plane2};

// In place of the number of the set designated: JIS X 0213, and its plane 2 holds for all codes.
constexpr u32 plane2_state = 1U << 20 | PVZAN_SET_JIS_X_0213;

// The designation at the beginning of the input; null if there is none, or if it is cut.
const designation* designation_at(std::span<const u8> input) {
    // Byte by byte: a call for three of them takes longer.
    const auto* found = std::ranges::find_if(designations, [=](const designation& d) {
        return input.size() >= d.length && input[0] == escape_byte && input[1] == d.bytes[1] &&
               input[2] == d.bytes[2] && (d.length == 3 || input[3] == d.bytes[3]);
    });
    return found != designations.end() ? found : nullptr;
}

// The width of a set includes its plane, which is not in the text.
constexpr bool is_double_byte_width(u16 byteNum) {
    return byteNum == 2 || byteNum == 4;
}

// Characters that are read as ASCII in a double-byte set, too.
constexpr bool is_ascii_in_double_byte_text(u32 byte) {
    return byte == '\r' || byte == '\t' || byte == '\n';
}

// The member set that is designated; null if the charset does not have it.
const basic_set* designated_set(const charset_group* group, u32 state) {
    const u32 setNo = state == plane2_state ? u32{PVZAN_SET_JIS_X_0213} : state;
    for (const basic_set* set : member_sets(group)) {
        if (set->setNo == setNo && (set->byteNum == 1 || is_double_byte_width(set->byteNum))) {
            return set;
        }
    }
    return nullptr;
}

// ---- Decoding ----------------------------------------------------------------------------------

u32 deliver_ascii(session* s, u32 code) {
    s->charSetNo = PVZAN_SET_ISO_646_IRV;
    s->charSetType = PVZAN_SET_BASE;
    s->srcCode = code;
    s->setCode = code;
    ++s->inCount;
    s->status = PVZAN_DECODED;
    return 1;
}

u32 decode_designated(session* s, std::span<const u8> input, u32 plane_flag) {
    const basic_set* set = designated_set(s->srcGroup, s->srcShiftSet);
    if (set == nullptr) {
        ++s->inPos;
        return stop_with(s, PVZAN_INVALID_INPUT);
    }
    if (!is_double_byte_width(set->byteNum)) {
        ++s->inPos;
        return deliver_character(s, set, input[0], input[0], 0);
    }
    if (is_ascii_in_double_byte_text(input[0])) {
        ++s->inPos;
        return deliver_ascii(s, input[0]);
    }
    if (input.size() < 2) {
        return stop_with(s, PVZAN_INPUT_INCOMPLETE);
    }
    s->inPos += 2;
    const u32 code = load_big_endian(input.first(2)) | plane_flag;
    return deliver_character(s, set, code, code, 0);
}

// ---- Encoding ----------------------------------------------------------------------------------

// The designation for the set of a code; null if neither charset has it.
const designation* designation_for(u32 groupNo, u32 setNo, u32 code) {
    switch (setNo) {
    case PVZAN_SET_ISO_646_IRV: return &to_ascii;
    case PVZAN_SET_JIS_X_0201_LATIN: return &to_roman;
    case PVZAN_SET_JIS_C_6226_1978: return &to_jisc6226;
    case PVZAN_SET_JIS_X_0208_1990:
        return groupNo == PVZAN_ISO_2022_JP_2004 ? &to_plane1 : &to_jisx0208;
    case PVZAN_SET_JIS_X_0213: return (code & jisx0213_plane2) != 0 ? &to_plane2 : &to_plane1;
    default: return nullptr;
    }
}
const designation* designation_for(const session* s) {
    return designation_for(s->dstGroupNo, s->outSetNo, s->outCode);
}

bool put_escape(session* s, const designation& d) {
    return emit_bytes(s, d.sequence(), 1);
}

// Values of dstShiftPlane.
constexpr u32 shift_plane_1 = 11;
constexpr u32 shift_plane_2 = 12;

u32 put_jisx0213(session* s) {
    const designation& wanted = *designation_for(s);
    const u32 plane = wanted.plane_flag != 0 ? shift_plane_2 : shift_plane_1;
    const i32 before = s->outPos;
    // Deliberate: dstShiftSet is not changed, so the set is never found designated, and text that
    // continues in the previous set needs no escape sequence.
    if (s->dstShiftSet != PVZAN_SET_JIS_X_0213 || s->dstShiftPlane != plane) {
        if (!put_escape(s, wanted)) {
            return 0;
        }
        s->dstShiftPlane = plane;
    }
    if (convDstPutcode(s, nullptr, nullptr) == 0) {
        s->outPos = before; // not remembered: the escape sequence is written again later
        return 0;
    }
    return 1;
}

u32 close_output(session* s) {
    if (s->outSetNo != PVZAN_SET_ISO_646_IRV && !put_escape(s, to_ascii)) {
        return 0;
    }
    return stop_with(s, PVZAN_DONE);
}

} // namespace

extern "C" {

// Deliberate: plane 2 is remembered only during one call, and not reset by another escape sequence.
// The encoder puts an escape sequence before every character of plane 2.
u32 destISO_2022_JP(session* s) {
    u32 plane_flag = s->srcShiftSet == plane2_state ? jisx0213_plane2 : 0;
    for (auto input = input_left(s); !input.empty(); input = input_left(s)) {
        if (input[0] != escape_byte) {
            return decode_designated(s, input, plane_flag);
        }
        const designation* d = designation_at(input);
        if (d == nullptr) {
            return stop_with(s, PVZAN_INPUT_INCOMPLETE);
        }
        s->srcShiftSet = d->setNo;
        plane_flag |= d->plane_flag;
        s->inPos += static_cast<i32>(d->length);
    }
    return stop_with(s, PVZAN_DONE);
}

u32 constISO_2022_JP(session* s) {
    if (s->status == PVZAN_TERMINATE) {
        return close_output(s);
    }
    if (convDstConvert(s) == 0) {
        return 0;
    }
    if (s->outSetNo == PVZAN_SET_JIS_X_0213) {
        return put_jisx0213(s);
    }
    if (s->outSetNo != s->dstShiftSet) {
        const designation* wanted = designation_for(s);
        if (wanted == nullptr) {
            return stop_with(s, PVZAN_UNREPRESENTABLE);
        }
        if (!put_escape(s, *wanted)) {
            return 0;
        }
        s->dstShiftSet = s->outSetNo;
    }
    return convDstPutcode(s, nullptr, nullptr);
}

u32 destISO_2022_JP_2004(session* s) {
    return destISO_2022_JP(s);
}

u32 constISO_2022_JP_2004(session* s) {
    return constISO_2022_JP(s);
}

} // extern "C"

namespace {

constexpr u32 ascii_alone[] = {PVZAN_SET_ISO_646_IRV}; // for line controls in double-byte text

// The state is the set designated, as an index of this list; 0 if it is not in it.
constexpr u32 set_numbers[] = {0,
                               PVZAN_SET_ISO_646_IRV,
                               PVZAN_SET_JIS_X_0201_LATIN,
                               PVZAN_SET_JIS_C_6226_1978,
                               PVZAN_SET_JIS_X_0208_1990,
                               PVZAN_SET_JIS_X_0213};

constexpr u32 state_of(u32 setNo) {
    const auto* const at = std::ranges::find(set_numbers, setNo);
    return is_state | (at != std::end(set_numbers) ? static_cast<u32>(at - set_numbers) : no_set);
}

constexpr iso2022 codes = [] {
    iso2022 made{};
    for (const u32 setNo : std::span(set_numbers).subspan(1)) {
        const bool single = setNo == PVZAN_SET_ISO_646_IRV || setNo == PVZAN_SET_JIS_X_0201_LATIN;
        graphic_set& set = made.set_list[made.set_count++];
        set.width = single ? 1 : 2;
        for (u32 place = 0; place < set.width; ++place) {
            set.first[place] = single ? 0x00 : 0x21;
            set.last[place] = single ? 0x7F : 0x7E;
        }
    }
    made.initial = is_state;
    made.lines = line_reading::keep;
    made.opens[0] = u64{1} << escape_byte;
    return made;
}();

// Plane 2 holds for one character: it is no state.
scanned scan_designation(const charset_group*, u32 state, std::span<const u8> text) {
    const designation* d = designation_at(text);
    if (d == nullptr || d->plane_flag != 0) {
        return {scanned::invalid, 1, 1, state};
    }
    const auto length = static_cast<u8>(d->length);
    constexpr auto states = [] {
        std::array<u32, designations.size()> made{};
        std::ranges::transform(designations, made.begin(),
                               [](const designation& one) { return state_of(one.setNo); });
        return made;
    }();
    return {scanned::silent, length, length,
            states[static_cast<std::size_t>(d - designations.data())]};
}

bool find_designation(const charset_group* group, u32 state, u32 set, iso2022_way& way) {
    way = {0, 0, is_state | set};
    if (set == set_in(state, 0)) {
        return true;
    }
    const designation* d = set < std::size(set_numbers)
                               ? designation_for(group->groupNo, set_numbers[set], 0)
                               : nullptr;
    if (d == nullptr) {
        return false;
    }
    for (std::size_t i = d->length; i-- > 0;) {
        way.bytes = way.bytes << 8 | d->bytes[i];
    }
    way.size = static_cast<u32>(d->length);
    return true;
}

// ---- Strict reading ----------------------------------------------------------------------------

bool may_become_designation(std::span<const u8> text) {
    return std::ranges::any_of(designations, [=](const designation& d) {
        return text.size() < d.length && std::ranges::equal(text, d.sequence().first(text.size()));
    });
}

scanned scan_sequence(const charset_group* group, u32 state, std::span<const u8> text) {
    const designation* d = designation_at(text);
    if (d != nullptr && designated_set(group, d->setNo) != nullptr) {
        const auto length = static_cast<u8>(d->length);
        return {scanned::silent, length, length, d->plane_flag != 0 ? plane2_state : d->setNo};
    }
    if (may_become_designation(text)) {
        return {scanned::cut, 1, 1, state};
    }
    // As far as it agrees with a known one.
    std::size_t needed = 1;
    while (needed < text.size() && may_become_designation(text.first(needed))) {
        ++needed;
    }
    return {scanned::invalid, 1, static_cast<u8>(d != nullptr ? d->length : needed), state};
}

constexpr bool is_double_byte_half(u32 byte) {
    return byte >= 0x21 && byte <= 0x7E;
}

scanned scan(const charset_group* group, u32 state, std::span<const u8> text) {
    if (text[0] == escape_byte) {
        return scan_sequence(group, state, text);
    }
    const basic_set* set = designated_set(group, state);
    if (set == nullptr || !is_double_byte_width(set->byteNum) ||
        is_ascii_in_double_byte_text(text[0])) {
        const bool stands = text[0] < 0x80 && !switches_sets(text[0]);
        return {stands ? scanned::code : scanned::invalid, 1, 1, state};
    }
    if (!is_double_byte_half(text[0])) {
        return {scanned::invalid, 1, 1, state};
    }
    if (text.size() < 2) {
        return {scanned::cut, 1, 1, state};
    }
    if (!is_double_byte_half(text[1])) {
        const bool stands_alone = text[1] == escape_byte || is_ascii_in_double_byte_text(text[1]);
        return {scanned::invalid, static_cast<u8>(stands_alone ? 1 : 2), 2, state};
    }
    return {scanned::code, 2, 2, state};
}

bool may_end(const charset_group* group, u32 state) {
    const basic_set* set = designated_set(group, state);
    return set == nullptr || !is_double_byte_width(set->byteNum);
}

constexpr iso2022_codec states{
    .codes = [](const charset_group*) -> const iso2022* { return &codes; },
    .state_of = [](const charset_group*, u32 setNo) { return state_of(setNo); },
    .word_of = [](u32 state) { return set_numbers[set_in(state, 0)]; },
    .scan = scan_designation,
    .find_way = find_designation,
};

} // namespace

const codec_traits iso_2022_jp_traits{
    .decode = destISO_2022_JP,
    .encode = constISO_2022_JP,
    .read = reading::escapes,
    .scan = scan,
    .may_end = may_end,
    .states = &states,
    .sets = ascii_alone,
    .designates = true,
};
const codec_traits iso_2022_jp_2004_traits{
    .decode = destISO_2022_JP_2004,
    .encode = constISO_2022_JP_2004,
    .read = reading::escapes,
    .scan = scan,
    .may_end = may_end,
    .states = &states,
    .sets = ascii_alone,
    .designates = true,
};
