// Characters as the models see them.
#include "text/guess/score.h"

#include <algorithm>

namespace text {

namespace {

// The small letter of a capital, as the models have them.
u32 small_of(u32 c) {
    if (c < 0x80) {
        return within(c, 'A', 'Z') ? c + 0x20 : c;
    }
    if (c < 0x100) {
        return within(c, 0xC0, 0xDE) && c != 0xD7 ? c + 0x20 : c;
    }
    if (c < 0x180) {
        if (c == 0x130) {
            return 'i';
        }
        if (c == 0x178) {
            return 0xFF;
        }
        const bool odd = within(c, 0x139, 0x148) || within(c, 0x179, 0x17E);
        const bool alone = c == 0x131 || c == 0x138 || c == 0x149 || c == 0x17F;
        return !alone && (c & 1) == (odd ? 1U : 0U) ? c + 1 : c;
    }
    if (c == 0x1A0 || c == 0x1AF || within(c, 0x1CD, 0x1DC)) {
        return c == 0x1A0 || c == 0x1AF ? c + 1 : c + (c & 1);
    }
    if (within(c, 0x1DE, 0x24F) || within(c, 0x1E00, 0x1EFF) || within(c, 0x460, 0x481) ||
        within(c, 0x48A, 0x4BF) || within(c, 0x4D0, 0x52F)) {
        return c | 1;
    }
    if (within(c, 0x386, 0x3AB)) {
        return c == 0x386                 ? 0x3AC
               : within(c, 0x388, 0x38A)  ? c + 37
               : c == 0x38C               ? 0x3CC
               : within(c, 0x38E, 0x38F)  ? c + 63
               : c >= 0x391 && c != 0x3A2 ? c + 0x20
                                          : c;
    }
    return within(c, 0x400, 0x40F)   ? c + 0x50
           : within(c, 0x531, 0x556) ? c + 0x30
           : within(c, 0x410, 0x42F) ? c + 0x20
                                     : c;
}

bool is_general_mark(u32 c) {
    constexpr std::u16string_view marks =
        u"\u00A0¡¢£¥¦§¨©ª«¬\u00AD®¯°±²³´µ¶·¸¹º»¼½¾¿×÷–—‘’‚“”„†‡•…‰‹›€™←↑→↓−≠≤≥∞■□▲△○●★☆";
    return c < 0x10000 && marks.find(static_cast<char16_t>(c)) != marks.npos;
}

kind kind_of(u32 c) {
    if (c < 0x80) {
        return c == ' ' || within(c, '\t', '\n') || c == '\r' ? kind::space
               : c < 0x20 || c == 0x7F                        ? kind::control
               : within(c, '0', '9')                          ? kind::digit
               : within(c, 'a', 'z') || within(c, 'A', 'Z')   ? kind::letter
                                                              : kind::mark;
    }
    // Big5 has a second slash, where Big5-HKSCS has its only one.
    constexpr u32 division_slash = 0x2215;
    if (c < 0xA0 || within(c, 0xE000, 0xF8FF) || c >= 0xF0000 || (c & 0xFFFE) == 0xFFFE ||
        c == division_slash) {
        return kind::odd;
    }
    if (is_general_mark(c)) {
        return kind::general_mark;
    }
    if (c < 0x700 || within(c, 0xE00, 0xE7F) || within(c, 0x10D0, 0x10FF) ||
        within(c, 0x1E00, 0x1FFF)) {
        return kind::other_letter;
    }
    if (within(c, 0x3041, 0x30FF)) {
        return c < 0x30A0 ? kind::hiragana : kind::katakana;
    }
    if (within(c, 0x3400, 0x9FFF) || within(c, 0x20000, 0x3FFFF) || c == 0x3005 ||
        within(c, 0xF900, 0xFAFF)) {
        return kind::kanji;
    }
    if (within(c, 0xAC00, 0xD7A3) || within(c, 0x3131, 0x318E)) {
        return kind::hangul;
    }
    if (within(c, 0xFF00, 0xFFEF)) {
        const bool plain =
            within(c, 0xFF10, 0xFF19) || within(c, 0xFF21, 0xFF3A) || within(c, 0xFF41, 0xFF5A);
        return within(c, 0xFF61, 0xFF9F) ? kind::half_katakana
               : plain                   ? kind::wide_letter
                                         : kind::wide_mark;
    }
    // Numbers in circles, Roman ones, units and the like, as Japanese charsets of Windows have
    // them.
    if (within(c, 0x2160, 0x216B) || within(c, 0x2460, 0x2473) || within(c, 0x3220, 0x33FF)) {
        return kind::wide_mark;
    }
    const bool known = within(c, 0x2000, 0x27BF) || within(c, 0x2800, 0x28FF) ||
                       within(c, 0x2B00, 0x2BFF) || within(c, 0x3200, 0x33FF) ||
                       within(c, 0x1F000, 0x1FAFF) || within(c, 0xFE00, 0xFE6F);
    return within(c, 0x3000, 0x303F) ? kind::wide_mark : known ? kind::symbol : kind::odd;
}

} // namespace

// The letters of the Arabic shapes from U+FE80 on.
static constexpr std::u16string_view shaped_letters =
    u"\u0621\u0622\u0622\u0623\u0623\u0624\u0624\u0625\u0625\u0626\u0626\u0626\u0626\u0627"
    u"\u0627\u0628\u0628\u0628\u0628\u0629\u0629\u062A\u062A\u062A\u062A\u062B\u062B\u062B"
    u"\u062B\u062C\u062C\u062C\u062C\u062D\u062D\u062D\u062D\u062E\u062E\u062E\u062E\u062F"
    u"\u062F\u0630\u0630\u0631\u0631\u0632\u0632\u0633\u0633\u0633\u0633\u0634\u0634\u0634"
    u"\u0634\u0635\u0635\u0635\u0635\u0636\u0636\u0636\u0636\u0637\u0637\u0637\u0637\u0638"
    u"\u0638\u0638\u0638\u0639\u0639\u0639\u0639\u063A\u063A\u063A\u063A\u0641\u0641\u0641"
    u"\u0641\u0642\u0642\u0642\u0642\u0643\u0643\u0643\u0643\u0644\u0644\u0644\u0644\u0645"
    u"\u0645\u0645\u0645\u0646\u0646\u0646\u0646\u0647\u0647\u0647\u0647\u0648\u0648\u0649"
    u"\u0649\u064A\u064A\u064A\u064A\u0644\u0644\u0644\u0644\u0644\u0644\u0644\u0644";

// The models have letters of Arabic, some charsets their shapes. Japanese charsets read some marks
// in either of two ways, which tells nothing.
static u32 usual_form(u32 c) {
    if (within(c, 0xFE80, 0xFEFC)) {
        return shaped_letters[c - 0xFE80];
    }
    switch (c) {
    case 0x301C: return 0xFF5E;
    case 0x2015: return 0x2014;
    case 0x2225: return 0x2016;
    case 0xFF0D: return 0x2212;
    case 0xFFE0: return 0xA2;
    case 0xFFE1: return 0xA3;
    case 0xFFE2: return 0xAC;
    default: return c;
    }
}

seen see(u32 scalar, u32 at) {
    const u32 usual = usual_form(scalar);
    const kind what = kind_of(usual);
    const bool letter = what == kind::letter || what == kind::other_letter;
    const u32 small = letter ? small_of(usual) : usual;
    const bool counts = letter || what >= kind::general_mark;
    return {at, scalar, static_cast<u16>(counts && usual < 0x10000 ? small : 0), what,
            small != usual};
}

u32 mark_cost(const seen& mark) {
    constexpr std::u16string_view frequent = u"“”«»„…", seldom = u"‘–—·¿¡°©™×•ºª®€£²´µ§\u00A0";
    const auto c = static_cast<char16_t>(mark.letter);
    return (c == u'’'                           ? 0
            : frequent.find(c) != frequent.npos ? 3
            : seldom.find(c) != seldom.npos     ? 7
                                                : 12) *
           bit;
}

u32 mark_before_cost(const seen& mark) {
    constexpr std::u16string_view closing = u"”»…™°®©ºª²³•";
    return closing.find(static_cast<char16_t>(mark.letter)) != closing.npos ? 4 * bit : 0;
}

u32 mark_inside_cost(const seen& mark) {
    constexpr std::u16string_view apostrophes = u"’·´\u00AD", parting = u"“”«»…‘–—";
    const auto c = static_cast<char16_t>(mark.letter);
    const u32 bits = apostrophes.find(c) != apostrophes.npos ? 0
                     : parting.find(c) != parting.npos       ? 8
                                                             : 12;
    return bits * bit;
}

u32 mark_behind_cost(const seen& mark) {
    constexpr std::u16string_view fitting = u"’“”«»…‘·´°©®™º²¹³\u00A0\u00AD";
    const auto c = static_cast<char16_t>(mark.letter);
    return fitting.find(c) != fitting.npos ? 0 : 5 * bit;
}

} // namespace text
