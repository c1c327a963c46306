// What is known about a codec besides its rules: how source characters are distinguished, and what
// determines the bytes of a target character. The fast path relies on this and on nothing else. A
// codec without traits is run character by character.
#pragma once

#include "cconv/engine/engine.h"

#include <array>
#include <span>

// How the length and the meaning of a source character follow from its own bytes.
enum class reading : u8 {
    lead_byte, // one or two bytes, depending on the first
    sets,      // codes in the tables of the charset's sets, searched in order
    pairs,     // two bytes, the most significant first
    utf8,      // one to six bytes, depending on the first; a Unicode value
    utf16,     // two bytes, or four for a surrogate pair
    ucs2,      // like sets, in the byte order of the source
    ucs4,      // four bytes
    escapes,   // one or two bytes, depending on the set designated
    scanned    // as the codec's scan function says
};

// What is at the beginning of a text with states, if the codec has a scan function. A state is one
// word; the value that sessions begin with stands for the initial state.
struct scanned {
    enum kind_type : u8 {
        code,   // of a character
        silent, // not a character: it changes the state
        cut,    // more input is needed
        invalid
    } kind;
    u8 length;          // bytes used; if invalid, bytes to skip
    u8 needed;          // bytes that were looked at
    u32 state;          // after it
    bool grows = false; // a code: more of the text may belong to it
};
using scan_function = scanned (*)(const charset_group* group, u32 state, std::span<const u8> text);

// How a Unicode value is written by a charset with a single set without tables.
enum class unicode_form : u8 { none, utf8, units, quads, other };

// A single shift that begins three bytes; 0 if there is none.
inline constexpr u8 no_single_shift = 0;

struct codec_traits {
    rule_function decode, encode;

    // ---- The decode rule
    reading read;
    u8 single_shift = no_single_shift;
    bool checks_mark = false; // reads a byte-order mark if the options say so
    bool joins_marks = false; // a letter and the mark after it may be one character
    // Bytes that may begin a code of two or more bytes, whether or not a character is assigned to
    // it: from the first to the second, and from the third to the fourth. 0: what the sets define.
    std::array<u8, 4> leads = {0x81, 0xFE, 0x81, 0xFE};
    scan_function scan = nullptr;
    bool like_utf8 = false; // scanned: characters of up to three bytes are those of UTF-8
    // Whether a text may end in that state.
    bool (*may_end)(const charset_group* group, u32 state) = nullptr;
    const struct iso2022_codec* states = nullptr; // how designations and shifts change the state
    std::span<const u32> sets{}; // looked up in the registry, even if not in the charset

    // ---- The encode rule
    bool designates = false;   // writes an escape sequence if the set changes
    bool writes_marks = false; // byte-order marks and language tags, if the options say so
    bool refers = false;       // writes character references, if the options say so
    u8 spare = 0;              // bytes of the output that stay free after a character
    unicode_form form = unicode_form::none;
};

extern const codec_traits same_traits, double_byte_traits, oasys_win_traits, oasys_online_traits,
    shift_jis_traits, shift_jis_2004_traits, windows31j_traits, euc_jp_traits, euc_jis_2004_traits,
    euc_jp_fix_traits, iso_2022_jp_traits, iso_2022_jp_2004_traits, iso_2022_traits, utf_7_traits,
    cesu_8_traits, utf_8_mac_traits, utf_8_traits, utf_16_traits, ucs_4_traits, ucs_2_traits;

// The traits of the codec with that rule; null if there are none.
const codec_traits* traits_of_decoder(rule_function decode);
const codec_traits* traits_of_encoder(rule_function encode);
