// What can be said of a codec's rules beside what they do: how source characters are told apart,
// and what decides the bytes of a target character. The fast path relies on it, and on nothing
// else; a codec without traits is run character by character.
#pragma once

#include "cconv/engine/engine.h"

#include <array>
#include <span>

// From what the length of a source character follows, and its meaning: its own bytes alone.
enum class reading : u8 {
    lead_byte, // one byte, or two by the first of them
    sets,      // codes by the tables of the charset's sets, tried in their order
    pairs,     // two bytes, the more significant first
    utf8,      // by the lead byte; the scalar is the meaning
    utf16,     // two bytes; surrogates take two times two
    ucs2,      // like sets, in the byte order of the source
    ucs4,      // four bytes
    escapes,   // one or two bytes, by the set that an escape sequence designated
    scanned    // by what the codec's own scan says
};

// What a text with states begins with, where a codec says so itself. A state is a word; what
// sessions begin with stands for the initial one.
struct scanned {
    enum kind_type : u8 {
        code,   // a character's
        silent, // of no character: it changes the state
        cut,    // more input decides
        invalid
    } kind;
    u8 length; // bytes that are taken; of what is invalid, those to step over
    u8 needed; // bytes that decided
    u32 state; // behind it
};
using scan_function = scanned (*)(const charset_group* group, u32 state, std::span<const u8> text);

// What a scalar becomes where the charset has a single set without tables.
enum class unicode_form : u8 { none, utf8, units, quads, other };

// A single shift that opens three bytes; 0: there is none.
inline constexpr u8 no_single_shift = 0;

struct codec_traits {
    rule_function decode, encode;

    // ---- The decode rule
    reading read;
    u8 single_shift = no_single_shift;
    bool checks_mark = false; // takes a byte-order mark where the options ask for it
    bool joins_marks = false; // a letter and the mark behind it may be one character
    // Bytes that may open a code of two or more, whether a character has it or not: from the first
    // to the second, and from the third to the fourth. 0: what the sets say that they define.
    std::array<u8, 4> leads = {0x81, 0xFE, 0x81, 0xFE};
    scan_function scan = nullptr;
    bool (*may_end)(const charset_group* group, u32 state) = nullptr; // a text, in that state
    const struct iso2022_codec* states = nullptr; // how designations and shifts lead on
    std::span<const u32> sets{}; // looked up in the registry, be they the charset's or not

    // ---- The encode rule
    bool designates = false;   // writes an escape sequence where the set changes
    bool writes_marks = false; // byte-order marks and language tags where the options ask for them
    bool refers = false;       // writes references where the options ask for them
    u8 spare = 0;              // bytes of the output that a character leaves free behind it
    unicode_form form = unicode_form::none;
};

extern const codec_traits same_traits, double_byte_traits, oasys_win_traits, oasys_online_traits,
    shift_jis_traits, shift_jis_2004_traits, windows31j_traits, euc_jp_traits, euc_jis_2004_traits,
    euc_jp_fix_traits, iso_2022_jp_traits, iso_2022_jp_2004_traits, iso_2022_traits, utf_7_traits,
    utf_8_traits, utf_16_traits, ucs_4_traits, ucs_2_traits;

// Of the codec with that rule; null when none is known.
const codec_traits* traits_of_decoder(rule_function decode);
const codec_traits* traits_of_encoder(rule_function encode);
