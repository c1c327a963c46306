// The canonical compositions in charsets that do not have all of Unicode.
#include "cconv/engine/composition.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace {

struct marked_letters {
    char32_t mark;
    std::u32string_view letters, composed; // one composed character for each letter
};

// The canonical compositions of Unicode, according to the decompositions in UnicodeData.txt without
// those in CompositionExclusions.txt, to characters in any of the charsets here that do not have
// all of Unicode.
constexpr std::array<marked_letters, 16> compositions = {{
    {0x0300, // COMBINING GRAVE ACCENT
     U"AEIOUaeiouÜüNnαε", U"ÀÈÌÒÙàèìòùǛǜǸǹὰὲ"},
    {0x0301, // COMBINING ACUTE ACCENT
     U"AEIOUYaeiouyCcLlNnRrSsZzÜügæ¨ΑΕΗΙΟΥΩϊαεηιϋουωГКгкMm",
     U"ÁÉÍÓÚÝáéíóúýĆćĹĺŃńŔŕŚśŹźǗǘǵǽ΅ΆΈΉΊΌΎΏΐάέήίΰόύώЃЌѓќḾḿ"},
    {0x0302, // COMBINING CIRCUMFLEX ACCENT
     U"AEIOUaeiouCcGgHhJjSsWwYy", U"ÂÊÎÔÛâêîôûĈĉĜĝĤĥĴĵŜŝŴŵŶŷ"},
    {0x0303, // COMBINING TILDE
     U"ANOanoIiUu", U"ÃÑÕãñõĨĩŨũ"},
    {0x0304, // COMBINING MACRON
     U"AaEeIiOoUuÜü", U"ĀāĒēĪīŌōŪūǕǖ"},
    {0x0306, // COMBINING BREVE
     U"AaGgUuУИиу", U"ĂăĞğŬŭЎЙйў"},
    {0x0307, // COMBINING DOT ABOVE
     U"CcEeGgIZz", U"ĊċĖėĠġİŻż"},
    {0x0308, // COMBINING DIAERESIS
     U"AEIOUaeiouyYΙΥιυЕІеі", U"ÄËÏÖÜäëïöüÿŸΪΫϊϋЁЇёї"},
    {0x030A, // COMBINING RING ABOVE
     U"AaUu", U"ÅåŮů"},
    {0x030B, // COMBINING DOUBLE ACUTE ACCENT
     U"OoUu", U"ŐőŰű"},
    {0x030C, // COMBINING CARON
     U"CcDdEeLlNnRrSsTtZzAaIiOoUuÜü", U"ČčĎďĚěĽľŇňŘřŠšŤťŽžǍǎǏǐǑǒǓǔǙǚ"},
    {0x0327, // COMBINING CEDILLA
     U"CcGKkLlNnRrSsTt", U"ÇçĢĶķĻļŅņŖŗŞşŢţ"},
    {0x0328, // COMBINING OGONEK
     U"AaEeIiUu", U"ĄąĘęĮįŲų"},
    {0x0338, // COMBINING LONG SOLIDUS OVERLAY
     U"∈∥=≡<>⊂⊃", U"∉∦≠≢≮≯⊄⊅"},
    {0x3099, // COMBINING KATAKANA-HIRAGANA VOICED SOUND MARK
     U"かきくけこさしすせそたちつてとはひふへほうゝカキクケコサシスセソタチツテトハヒフヘホウワヰヱ"
     U"ヲヽ",
     U"がぎぐげござじずぜぞだぢづでどばびぶべぼゔゞガギグゲゴザジズゼゾダヂヅデドバビブベボヴヷヸヹ"
     U"ヺヾ"},
    {0x309A, // COMBINING KATAKANA-HIRAGANA SEMI-VOICED SOUND MARK
     U"はひふへほハヒフヘホ", U"ぱぴぷぺぽパピプペポ"},
}};

// Ideographs, which are frequent in text, are all above it.
constexpr char32_t last_letter = [] {
    char32_t last = 0;
    for (const marked_letters& row : compositions) {
        last = std::max(last, std::ranges::max(row.letters));
    }
    return last;
}();

} // namespace

u32 compose(u32 letter, u32 mark) {
    const auto* row = std::ranges::find(compositions, mark, &marked_letters::mark);
    const std::size_t at = row == compositions.end()
                               ? std::u32string_view::npos
                               : row->letters.find(static_cast<char32_t>(letter));
    return at == std::u32string_view::npos ? 0 : row->composed[at];
}

bool takes_composing_mark(u32 letter) {
    return letter <= last_letter &&
           std::ranges::any_of(compositions, [letter](const marked_letters& row) {
               return row.letters.find(static_cast<char32_t>(letter)) != std::u32string_view::npos;
           });
}
