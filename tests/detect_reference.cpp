// The scores.
#include "tests/detect_reference.h"

#include <algorithm>
#include <map>
#include <ostream>
#include <sstream>
#include <vector>

namespace reference {

namespace {

// ---- Ranges, as text: "40 81-AC" ----------------------------------------------------------------

bool within(const char* ranges, u32 value) {
    std::istringstream list(ranges);
    for (std::string item; list >> item;) {
        const std::size_t dash = item.find('-');
        const auto low = std::stoul(item, nullptr, 16);
        const auto high =
            dash == std::string::npos ? low : std::stoul(item.substr(dash + 1), nullptr, 16);
        if (value >= low && value <= high) {
            return true;
        }
    }
    return false;
}

// The low bytes of each row.
const std::map<u32, const char*> plausible_rows = {
    {0x00, "09 0A 0D 20-7E A0-FF"},
    {0x01, "00-F5"},
    {0x02, "50-A8 B0-E9"},
    {0x03, "00-7E 84-F3"},
    {0x04, "00-F9"},
    {0x05, "31-5F 61-F4"},
    {0x06, "0C-52 60-F9"},
    {0x09, "01-70 81-FA"},
    {0x0A, "02-74 81-EF"},
    {0x0B, "82-F2"},
    {0x0C, "01-6F 82-EF"},
    {0x0D, "02-6F"},
    {0x0E, "01-DD"},
    {0x0F, "00-B9"},
    {0x10, "A0-F9"},
    {0x11, "00-F9"},
    {0x1E, "00-F9"},
    {0x1F, "00-7D"},
    {0x20, "10-E1"},
    {0x21, "00-EA"},
    {0x22, "00-F1"},
    {0x23, "00-7A"},
    {0x24, "00-EA"},
    {0x25, "00-EF"},
    {0x26, "00-6F"},
    {0x27, "01-BE"},
    {0x30, "00-FE"},
    {0x31, "05-9F"},
    {0x32, "00-7F"},
    {0x33, "00-FE"},
    {0x4E, "00-A5"},
};
const char* const plausible_from_row_4f =
    "4E00-9FA5 AC00-D7A3 F900-FA2D FB00-FBB1 FBD3-FDFB FE20-FEFC FFCA-FFEE";

const char* const double_byte_codes =
    "8140-81AC 81B8-81BF 81C8-81CE 81DA-81E8 81F0-81F7 824F-8258 8260-8279 8281-829A 829F-82F1 "
    "8340-8396 839F-83B6 83BF-83D6 8440-8460 8470-8491 849F-84BE 8740-8775 8780-879C 889F-9872 "
    "989F-9FFC E040-EAA4 ED40-EEEC EEEF-EEFC F040-F9FC FA40-FC4B 877E 81FC";

// Both lists are asked often: once for each value is enough.
template <class Test>
std::vector<bool> tabulate(Test test) {
    std::vector<bool> values(0x10000);
    for (u32 value = 0; value < values.size(); ++value) {
        values[value] = test(value);
    }
    return values;
}

// ---- Bytes --------------------------------------------------------------------------------------

constexpr int end_of_text = -1, esc = 0x1B;

int byte_at(const std::string& text, std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : end_of_text;
}
bool white(int b) {
    return b == 0x20 || b == 0x0D || b == 0x09 || b == 0x0A;
}
bool visible(int b) {
    return b >= 0x21 && b <= 0x7E;
}
bool plain(int b) {
    return white(b) || visible(b);
}
bool from_a1_to_df(int b) {
    return b >= 0xA1 && b <= 0xDF;
}

u32 ratio(u32 good, u32 bad) {
    return good == 0 ? 0 : good * 10000 / (good + bad);
}

// ---- The scores ---------------------------------------------------------------------------------

u32 iso2022_jp(const std::string& text) {
    enum { roman, ascii, kana, jis1978, jis1983, jis1990, nothing } set = roman;
    u32 good = 0, bad = 0;
    std::size_t i = 0;
    while (i < text.size()) {
        const int b = byte_at(text, i), b1 = byte_at(text, i + 1), b2 = byte_at(text, i + 2),
                  b3 = byte_at(text, i + 3);
        if (b == esc) {
            const bool four = b1 == '$' && b2 == '(';
            if ((four ? b3 : b2) == end_of_text) {
                break;
            }
            if (four) {
                set = b3 == 'D' ? jis1990 : set;
            } else if (b1 == '$') {
                set = b2 == 'B' ? jis1983 : b2 == '@' ? jis1978 : nothing;
            } else if (b1 == '(') {
                set = b2 == 'J' ? roman : b2 == 'B' ? ascii : b2 == 'I' ? kana : nothing;
            } else {
                set = nothing;
            }
            i += four ? 4U : 3U;
        } else if (set == jis1978 || set == jis1983 || set == jis1990) {
            if (b1 == end_of_text) {
                break;
            }
            (visible(b) && visible(b1) ? good : bad) += 1;
            i += visible(b) ? 2U : 1U;
        } else {
            const bool fits = set == kana      ? from_a1_to_df(b) || white(b)
                              : set == nothing ? false
                                               : plain(b);
            (fits ? good : bad) += 1;
            i += 1;
        }
    }
    return ratio(good, bad);
}

void utf8(const std::string& text, scores& all) {
    struct lead_class {
        int first, last;
        std::size_t more;
        u32 least;
    };
    const lead_class classes[] = {{0xC0, 0xDF, 1, 0x80},
                                  {0xE0, 0xEF, 2, 0x800},
                                  {0xF0, 0xF7, 3, 0x10000},
                                  {0xF8, 0xFB, 4, 0x200000},
                                  {0xFC, 0xFD, 5, 0x4000000}};
    u32 good = 0, bad = 0, several = 0, latin = 0;
    std::size_t i = 0;
    while (i < text.size()) {
        const int b = byte_at(text, i++);
        if (b == esc || b == 0) {
            return;
        }
        if (b >= 0xFE) {
            continue;
        }
        if (b < 0xC0) {
            (plain(b) ? good : bad) += 1;
            continue;
        }
        for (const lead_class& c : classes) {
            if (b < c.first || b > c.last) {
                continue;
            }
            if (i + c.more > text.size()) {
                bad += 1;
                break;
            }
            u32 value = static_cast<u32>(b - c.first);
            for (std::size_t k = 0; k < c.more; ++k) {
                value = value * 64 + static_cast<u32>(byte_at(text, i++)) % 64;
            }
            if (value < c.least) {
                bad += 1;
                break;
            }
            good += 1;
            several += 1;
            latin += c.more == 1 && value >= 0xA0 && value <= 0xFF ? 1U : 0U;
        }
    }
    all.utf8 = ratio(good, bad);
    all.utf8_multibyte = several;
    all.utf8_latin1 = latin;
}

u32 euc_jp_fix(const std::string& text) {
    u32 good = 0, bad = 0;
    std::size_t i = 0;
    while (i < text.size()) {
        const int b = byte_at(text, i), b1 = byte_at(text, i + 1);
        if (b == esc) {
            return 0;
        }
        if (b != 0 && !from_a1_to_df(b)) {
            bad += 1;
            i += 1;
            continue;
        }
        if (b1 == end_of_text) {
            break;
        }
        const bool fits = b == 0 ? visible(b1) || from_a1_to_df(b1) || white(b1)
                                 : (b1 >= 0x21 && b1 <= 0x7E) || b1 >= 0xA1;
        (fits ? good : bad) += 1;
        i += 2;
    }
    return ratio(good, bad);
}

u32 euc_jp(const std::string& text) {
    u32 good = 0, bad = 0;
    std::size_t i = 0;
    while (i < text.size()) {
        const int b = byte_at(text, i), b1 = byte_at(text, i + 1), b2 = byte_at(text, i + 2);
        if (b == esc || b == 0) {
            return 0;
        }
        std::size_t length = 1;
        bool fits = plain(b);
        if (from_a1_to_df(b)) {
            length = 2;
            fits = b1 >= 0xA1;
        } else if (b == 0x8E || b == 0x8F) {
            length = b == 0x8F && from_a1_to_df(b1) ? 3 : 2;
            fits = from_a1_to_df(b1) && (b == 0x8E || b2 >= 0xA1);
        }
        if (i + length > text.size()) {
            break;
        }
        (fits ? good : bad) += 1;
        i += length;
    }
    return ratio(good, bad);
}

u32 utf16(const std::string& text, std::size_t high_at) {
    u32 good = 0, bad = 0, ascii = 0;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        const int high = byte_at(text, i + high_at), low = byte_at(text, i + 1 - high_at);
        (plausible(static_cast<u32>(high), static_cast<u32>(low)) ? good : bad) += 1;
        ascii += high == 0 && visible(low) ? 1U : 0U;
    }
    return ascii == 0 ? 0 : ratio(good, bad);
}

u32 ucs4(const std::string& text, bool big) {
    u32 good = 0, bad = 0;
    for (std::size_t i = 0; i + 3 < text.size(); i += 4) {
        std::string unit = text.substr(i, 4);
        if (!big) {
            std::ranges::reverse(unit);
        }
        const int top = byte_at(unit, 0) * 256 + byte_at(unit, 1);
        if (top >= 17 && top <= 127) {
            return 0;
        }
        const bool fits = top < 128 && plausible(static_cast<u32>(byte_at(unit, 2)),
                                                 static_cast<u32>(byte_at(unit, 3)));
        (fits ? good : bad) += 1;
    }
    return ratio(good, bad);
}

void shift_jis(const std::string& text, scores& all) {
    static const std::vector<bool> codes =
        tabulate([](u32 code) { return within(double_byte_codes, code); });
    u32 good = 0, bad = 0, doubles = 0, high = 0;
    std::size_t i = 0;
    while (i + 2 <= text.size()) {
        const int b = byte_at(text, i);
        if (codes[static_cast<std::size_t>(b * 256 + byte_at(text, i + 1))]) {
            good += 1;
            doubles += 1;
            i += 2;
            continue;
        }
        if (b == esc || b == 0 || b == 0x7F) {
            return;
        }
        (plain(b) || from_a1_to_df(b) ? good : bad) += 1;
        high += b == 0xA0 || from_a1_to_df(b) || b >= 0xE0 ? 1U : 0U;
        i += 1;
    }
    all.shift_jis = ratio(good, bad);
    all.shift_jis_double = doubles;
    all.shift_jis_high = high;
}

} // namespace

bool plausible(u32 high, u32 low) {
    static const std::vector<bool> values = tabulate([](u32 value) {
        const auto row = plausible_rows.find(value >> 8);
        return row != plausible_rows.end()
                   ? within(row->second, value & 0xFF)
                   : value >= 0x4F00 && within(plausible_from_row_4f, value);
    });
    return values[high << 8 | low];
}

scores score(const std::string& text) {
    scores all;
    all.iso2022_jp = iso2022_jp(text);
    utf8(text, all);
    all.euc_jp_fix = euc_jp_fix(text);
    all.utf16_big = utf16(text, 0);
    all.utf16_little = utf16(text, 1);
    all.ucs4_big = ucs4(text, true);
    all.ucs4_little = ucs4(text, false);
    all.euc_jp = euc_jp(text);
    shift_jis(text, all);
    return all;
}

std::ostream& operator<<(std::ostream& out, const scores& s) {
    return out << "ISO-2022-JP " << s.iso2022_jp << ", UTF-8 " << s.utf8 << " (" << s.utf8_multibyte
               << ", " << s.utf8_latin1 << "), EUC-JP-FIX " << s.euc_jp_fix << ", UTF-16 "
               << s.utf16_big << " " << s.utf16_little << ", UCS-4 " << s.ucs4_big << " "
               << s.ucs4_little << ", EUC-JP " << s.euc_jp << ", Shift_JIS " << s.shift_jis << " ("
               << s.shift_jis_double << ", " << s.shift_jis_high << ")";
}

} // namespace reference
