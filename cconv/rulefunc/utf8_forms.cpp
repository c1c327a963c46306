// Two forms of UTF-8, read strictly.
//
//   CESU-8     characters beyond the BMP are the two surrogates of UTF-16, three bytes each; four
//              bytes are none
//   UTF-8-MAC  letters and their marks apart, as the file system of the Macintosh writes names
//
// UTF-8-MAC has three sets: all of Unicode, the pairs of a letter and a mark that make a character
// in both directions, and those that are only taken apart, single characters that are others among
// them. A code of theirs is the letter, 0 where there is none, and the mark, sixteen bits each.
//
// Deliberate:
// - UTF-8-MAC reads characters that are whole as they are, and makes one of a letter and its marks
//   where Unicode has it: what was written comes back, and text that was typed elsewhere stays.
// - Marks stand in the order in which the text has them.
#include "cconv/rulefunc/scanned.h"
#include "cconv/rulefunc/strict.h"
#include "cconv/rulefunc/utf8.h"
#include "cconv/tables/table.h"

#include <algorithm>

namespace {

constexpr scalar_reading result(scanned::kind_type kind, std::size_t length, std::size_t needed,
                                u32 scalar = 0) {
    return {{kind, static_cast<u8>(length), static_cast<u8>(needed), 0}, scalar};
}

scalar_reading read_sequence(std::span<const u8> text) {
    const sequence read = read_utf8(text);
    switch (read.kind) {
    case sequence::whole: return result(scanned::code, read.bytes, read.bytes, read.scalar);
    case sequence::cut: return result(scanned::cut, 1, text.size());
    case sequence::ill_formed: break;
    }
    const bool opens = text[0] >= 0xC2 && text[0] <= 0xF4;
    return result(scanned::invalid, read.bytes, read.bytes + (opens ? 1U : 0U));
}

// ---- CESU-8 ------------------------------------------------------------------------------------

scalar_reading read_cesu8(const charset_group*, std::span<const u8> text) {
    constexpr u8 lead = 0xED;
    if (text[0] >= 0xF0) {
        return result(scanned::invalid, 1, 1);
    }
    if (text[0] != lead || text.size() < 2 || text[1] < 0xA0) {
        return read_sequence(text);
    }
    constexpr u8 first[] = {lead, 0xA0, 0x80, lead, 0xB0, 0x80},
                 last[] = {lead, 0xAF, 0xBF, lead, 0xBF, 0xBF};
    constexpr std::size_t half = 3;
    for (std::size_t i = 1; i < std::size(first); ++i) {
        if (i == text.size()) {
            return result(scanned::cut, 1, i);
        }
        if (text[i] < first[i] || text[i] > last[i]) {
            return result(scanned::invalid, std::min(i, half), i + 1);
        }
    }
    const auto unit = [](std::span<const u8> bytes) {
        return 0xD000U | (bytes[1] & 0x3FU) << 6 | (bytes[2] & 0x3FU);
    };
    return result(scanned::code, 2 * half, 2 * half,
                  join_surrogate_pair(unit(text), unit(text.subspan(half))));
}

u32 put_cesu8(session* s, u32 scalar) {
    u8 bytes[6];
    u32 size = 0;
    if (!is_scalar(scalar)) {
        return stop_with(s, PVZAN_UNREPRESENTABLE);
    }
    if (scalar >= first_supplementary) {
        size = write_utf8(high_surrogate(scalar), bytes);
        scalar = low_surrogate(scalar);
    }
    size += write_utf8(scalar, bytes + size);
    return put_whole(s, std::span(bytes).first(size));
}

// ---- UTF-8-MAC ---------------------------------------------------------------------------------

constexpr u32 unit_bits = 16, unit_mask = 0xFFFF;

// Korean syllables are what their letters count up to.
constexpr u32 first_syllable = 0xAC00, first_lead = 0x1100, first_vowel = 0x1161, no_tail = 0x11A7;
constexpr u32 leads = 19, vowels = 21, tails = 28;

// The table of the second set or the third; null where the charset has none.
const basic_set* pairs_of(const charset_group* group, u16 place) {
    const auto* set = static_cast<const basic_set*>(getArray(group->memberSets, place));
    return set != nullptr && table_loaded(set->decodeTable) ? set : nullptr;
}

// The character that both are; 0: none.
u32 joined(const charset_group* group, u32 letter, u32 mark) {
    if (letter - first_lead < leads && mark - first_vowel < vowels) {
        return first_syllable + ((letter - first_lead) * vowels + mark - first_vowel) * tails;
    }
    const u32 syllable = letter - first_syllable, tail = mark - no_tail;
    if (syllable < leads * vowels * tails && syllable % tails == 0 && tail > 0 && tail < tails) {
        return letter + tail;
    }
    const basic_set* set = pairs_of(group, 1);
    const bool fit = set != nullptr && letter <= unit_mask && mark <= unit_mask;
    return fit ? map_code(set->decodeTable, letter << unit_bits | mark) : 0;
}

// The letter, maybe none, and the mark that a character is; 0: it is one.
u32 apart(const charset_group* group, u32 scalar) {
    const u32 syllable = scalar - first_syllable, tail = syllable % tails;
    if (syllable < leads * vowels * tails) {
        return tail != 0 ? (scalar - tail) << unit_bits | (no_tail + tail)
                         : (first_lead + syllable / tails / vowels) << unit_bits |
                               (first_vowel + syllable / tails % vowels);
    }
    for (const u16 place : {u16{1}, u16{2}}) {
        const basic_set* set = pairs_of(group, place);
        const u32 pair = set != nullptr ? find_value(set->encodeTable, scalar).value_or(0) : 0;
        if (pair != 0) {
            return pair;
        }
    }
    return 0;
}

scalar_reading read_mac(const charset_group* group, std::span<const u8> text) {
    scalar_reading whole = read_sequence(text);
    while (whole.kind == scanned::code) {
        const auto rest = text.subspan(whole.length);
        const sequence next = rest.empty() ? sequence{sequence::cut, 0, 0} : read_utf8(rest);
        const u32 both =
            next.kind == sequence::whole ? joined(group, whole.scalar, next.scalar) : 0;
        whole.grows = next.kind == sequence::cut && whole.scalar > ' '; // no mark goes on a control
        if (both == 0 || whole.length + next.bytes > 0xFF) {
            break;
        }
        whole = result(scanned::code, whole.length + next.bytes, whole.length + next.bytes, both);
    }
    return whole;
}

u32 put_mac(session* s, u32 scalar) {
    constexpr std::size_t most_marks = 5;
    if (!is_scalar(scalar)) {
        return stop_with(s, PVZAN_UNREPRESENTABLE);
    }
    u32 marks[most_marks];
    std::size_t count = 0;
    for (std::size_t steps = 0; steps < most_marks; ++steps) {
        const u32 pair = apart(s->dstGroup, scalar);
        if (pair > unit_mask) {
            marks[count++] = pair & unit_mask;
            scalar = pair >> unit_bits;
        } else if (pair != 0) {
            scalar = pair;
        }
    }
    u8 bytes[4 * (1 + most_marks)];
    u32 size = write_utf8(scalar, bytes);
    while (count > 0) {
        size += write_utf8(marks[--count], bytes + size);
    }
    return put_whole(s, std::span(bytes).first(size));
}

// These forms have no states: whatever the session has stays.
template <scalar_reading (*Read)(const charset_group*, std::span<const u8>)>
scalar_reading read(const charset_group* group, u32 state, std::span<const u8> text) {
    scalar_reading found = Read(group, text);
    found.state = state;
    return found;
}
template <scalar_reading (*Read)(const charset_group*, std::span<const u8>)>
scanned scan(const charset_group* group, u32 state, std::span<const u8> text) {
    return read<Read>(group, state, text);
}

bool may_end(const charset_group*, u32) {
    return true;
}

} // namespace

extern "C" {

u32 destCESU_8(session* s) {
    return decode_scalar(s, read<read_cesu8>);
}
u32 constCESU_8(session* s) {
    return encode_scanned(s, put_cesu8);
}
u32 destUTF_8_MAC(session* s) {
    return decode_scalar(s, read<read_mac>);
}
u32 constUTF_8_MAC(session* s) {
    return encode_scanned(s, put_mac);
}

} // extern "C"

const codec_traits cesu_8_traits{
    .decode = destCESU_8,
    .encode = constCESU_8,
    .read = reading::scanned,
    .scan = scan<read_cesu8>,
    .like_utf8 = true,
    .may_end = may_end,
    .form = unicode_form::other,
};
const codec_traits utf_8_mac_traits{
    .decode = destUTF_8_MAC,
    .encode = constUTF_8_MAC,
    .read = reading::scanned,
    .scan = scan<read_mac>,
    .may_end = may_end,
};
