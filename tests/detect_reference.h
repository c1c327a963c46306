// Encoding detection a second time, from its rules alone and slowly, to compare the library with:
// the passes over the text, then marks, declarations, the decision, line breaks.
#pragma once

#include "cconv/base.h"
#include "tests/support/temp_dir.h"

#include <algorithm>
#include <bit>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

namespace reference {
namespace {

struct answer {
    u32 result = 0;
    std::string name = "unknown";
    u32 declared = 0, marked = 0, big_endian = 1, newline = 0, flags = 0;
    bool operator==(const answer&) const = default;
};

// ---- Ranges, as text: "40 81-AC" ----------------------------------------------------------------

std::vector<bool> listed(const char* ranges) {
    std::vector<bool> values(0x10000);
    std::istringstream list(ranges);
    for (std::string item; list >> item;) {
        const auto low = std::stoul(item, nullptr, 16);
        const auto high = std::stoul(item.substr(item.find('-') + 1), nullptr, 16);
        std::fill(values.begin() + static_cast<long>(low),
                  values.begin() + static_cast<long>(high) + 1, true);
    }
    return values;
}

const char* const plausible_codes =
    "09-0A 0D 20-7E A0-1F5 250-2A8 2B0-2E9 300-37E 384-3F3 400-4F9 531-55F 561-5F4 60C-652 660-6F9 "
    "901-970 981-9FA A02-A74 A81-AEF B82-BF2 C01-C6F C82-CEF D02-D6F E01-EDD F00-FB9 10A0-10F9 "
    "1100-11F9 1E00-1EF9 1F00-1F7D 2010-20E1 2100-21EA 2200-22F1 2300-237A 2400-24EA 2500-25EF "
    "2600-266F 2701-27BE 3000-30FE 3105-319F 3200-327F 3300-33FE 4E00-4EA5 4F00-9FA5 AC00-D7A3 "
    "F900-FA2D "
    "FB00-FBB1 FBD3-FDFB FE20-FEFC FFCA-FFEE";
const char* const double_byte_codes =
    "8140-81AC 81B8-81BF 81C8-81CE 81DA-81E8 81F0-81F7 824F-8258 8260-8279 8281-829A 829F-82F1 "
    "8340-8396 839F-83B6 83BF-83D6 8440-8460 8470-8491 849F-84BE 8740-8775 8780-879C 889F-9872 "
    "989F-9FFC E040-EAA4 ED40-EEEC EEEF-EEFC F040-F9FC FA40-FC4B 877E 81FC";

bool plausible(u32 high, u32 low) {
    static const std::vector<bool> values = listed(plausible_codes);
    return values[high << 8 | low];
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

struct scores {
    u32 iso2022_jp = 0, utf8 = 0, utf8_multibyte = 0, utf8_latin1 = 0, euc_jp_fix = 0,
        utf16_big = 0, utf16_little = 0, ucs4_big = 0, ucs4_little = 0, euc_jp = 0, shift_jis = 0,
        shift_jis_double = 0, shift_jis_high = 0;
};

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
    constexpr u32 least[] = {0, 0x80, 0x800, 0x10000, 0x200000, 0x4000000};
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
        const auto ones = static_cast<unsigned>(std::countl_one(static_cast<u8>(b)));
        const std::size_t more = ones - 1;
        if (i + more > text.size()) {
            bad += 1;
            continue;
        }
        u32 value = static_cast<u32>(b) & (0x7FU >> ones);
        for (std::size_t k = 0; k < more; ++k) {
            value = value * 64 + static_cast<u32>(byte_at(text, i++)) % 64;
        }
        if (value < least[more]) {
            bad += 1;
            continue;
        }
        good += 1;
        several += 1;
        latin += more == 1 && value >= 0xA0 && value <= 0xFF ? 1U : 0U;
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
    static const std::vector<bool> codes = listed(double_byte_codes);
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

void decide(const scores& s, answer& a) {
    const u32 X = s.euc_jp_fix, E = s.euc_jp, S = s.shift_jis, U8 = s.utf8, J = s.iso2022_jp;
    const u32 U16 = std::max(s.utf16_big, s.utf16_little);
    const u32 U4 = std::max(s.ucs4_big, s.ucs4_little);
    a.name.clear();
    for (u32 t = 10000; t >= 7000 && a.name.empty(); t -= 100) {
        if (X > t && X > E && X > U8 && X > U4 && X > U16 && X > S) {
            a.name = "EUC-JP-FIX";
        } else if (E > t && E > U8 && X <= E && E > U4 && E > U16 && E > S) {
            a.name = "EUC-JP";
        } else if (U16 > t && U16 > U8 && U16 >= X && U16 > E && U16 > U4 && U16 > S) {
            a.name = "UTF-16";
            a.big_endian = s.utf16_big > s.utf16_little ? 1U : 0U;
        } else if (U4 > t && U4 > U8 && U4 >= X && U4 > E && U4 > U16 && U4 > S) {
            a.name = "ISO-10646-UCS-4";
            a.big_endian = s.ucs4_big > s.ucs4_little ? 1U : 0U;
        } else if (S > t && S > U8 && S >= X && S >= U16 && S >= E && S > U4) {
            a.name = s.shift_jis_double != 0 ? "WINDOWS31J"
                     : s.shift_jis_high != 0 ? "ISO-8859-1"
                                             : "ISO-646IRV";
        } else if (U8 > t && U8 >= E && U8 >= X && U8 >= U4 && U8 >= U16 && U8 >= S) {
            a.name = s.utf8_multibyte != 0 ? "UTF-8"
                     : s.utf8_latin1 == 0  ? "ISO-646IRV"
                                           : "ISO-8859-1";
        } else if (J > t) {
            a.name = "ISO-2022-JP";
        }
    }
}

// ASCII in little-endian units, the last one's zero bytes left off.
std::string pattern(const char* ascii, std::size_t width) {
    const std::string units = test::widen(ascii, width, false);
    return units.substr(0, units.size() - (width - 1));
}

bool stands_at(const std::string& buffer, std::size_t at, const std::string& what) {
    return at + what.size() <= buffer.size() && buffer.compare(at, what.size(), what) == 0;
}

// The units of text from a position on.
std::vector<u32> units(const std::string& text, std::size_t from, std::size_t width, bool big) {
    std::vector<u32> values;
    for (; from + width <= text.size(); from += width) {
        u32 value = 0;
        for (std::size_t k = 0; k < width; ++k) {
            const std::size_t at = big ? from + k : from + width - 1 - k;
            value = value * 256 + static_cast<u32>(byte_at(text, at));
        }
        values.push_back(value);
    }
    return values;
}

std::size_t find_keyword(const std::string& buffer, std::size_t from, std::size_t width) {
    const std::size_t length = pattern("encoding", width).size();
    const std::size_t line_end = std::min(buffer.find_first_of("\r\n", from), buffer.size());
    const std::size_t q = std::min(buffer.find(pattern("ENCODING", width), from),
                                   buffer.find(pattern("encoding", width), from));
    return q < line_end && q + length < buffer.size() ? q / width * width : 0;
}

bool declaration(const std::string& buffer, std::size_t begin, std::size_t s, answer& a) {
    const std::size_t e = buffer.size();
    struct trial {
        std::size_t width, at;
        bool long_enough, needs_mark;
    };
    const trial trials[] = {{1, s, e > 5, false},       {1, s + 2, e >= 8, true},
                            {2, s, e > 9, false},       {2, s + 2, e >= 12, true},
                            {2, s + 1, e >= 11, false}, {2, s + 3, e >= 13, true},
                            {4, s, e > 17, false},      {4, s + 2, e >= 20, true},
                            {4, s + 3, e > 20, false},  {4, s + 5, e >= 23, true}};
    const auto matches = [&](const trial& t) {
        return t.long_enough && (!t.needs_mark || a.marked != 0) &&
               (stands_at(buffer, t.at, pattern("<?XML", t.width)) ||
                stands_at(buffer, t.at, pattern("<?xml", t.width)));
    };
    const trial* t = std::ranges::find_if(trials, matches);
    if (t == std::end(trials)) {
        return false;
    }
    const std::size_t width = t->width;
    const char* usual = width == 2 ? "UTF-16" : width == 4 ? "ISO-10646-UCS-4" : "UTF-8";
    a.declared = 1;
    if (width != 1) {
        a.big_endian = buffer[s] == '\0' ? 1U : 0U;
    }
    const std::size_t p = find_keyword(buffer, begin, width);
    if (p < 1) {
        a.name = usual;
        return true;
    }
    const std::vector<u32> rest = units(buffer, p, width, a.big_endian != 0);
    const auto quote = [](u32 unit) { return unit == 34 || unit == 39; };
    const auto opens = std::ranges::find_if(rest, quote);
    if (opens != rest.end()) {
        const auto first = opens + 1, closes = std::find_if(first, rest.end(), quote);
        const auto span = static_cast<std::size_t>(closes - first) * width;
        if (closes != rest.end() && span > 0 && span + 1 <= 4095) {
            a.name.clear();
            for (auto unit = first; unit != closes; ++unit) {
                a.name += static_cast<char>(*unit % 256);
            }
            a.name = a.name.c_str(); // as a reader of the field sees it
            return true;
        }
    }
    a.name = a.name.empty() ? usual : a.name;
    return true;
}

u32 newline(const std::string& text, const answer& a) {
    std::size_t width = 1;
    bool big = a.big_endian != 0;
    if (a.name == "EUC-JP-FIX") {
        width = 2;
        big = true;
    } else if (a.name == "UTF-16") {
        width = 2;
    } else if (a.name == "ISO-10646-UCS-4") {
        width = 4;
    }
    u32 crlf = 0, cr = 0, lf = 0, ls = 0, ps = 0, previous = 0;
    std::size_t at = 0;
    while (at + width <= text.size()) {
        const u32 unit = units(text.substr(at, width), 0, width, big)[0];
        at += width;
        const u32 p = previous;
        previous = 0;
        if (p == 13) {
            (unit == 10 ? crlf : cr) += 1;
        } else if (p == 10) {
            (unit == 13 ? crlf : lf) += 1;
        } else if (p == 0xE2 && unit == 0x80) {
            const int third = byte_at(text, at);
            at += 1;
            ls += third == 0xA8 ? 1U : 0U;
            ps += third == 0xA9 ? 1U : 0U;
        } else {
            ls += unit == 0x2028 ? 1U : 0U;
            ps += unit == 0x2029 ? 1U : 0U;
            previous = unit;
        }
    }
    if (a.name == "ISO-2022-JP") {
        return cr > lf ? 2 : lf > cr ? 3 : crlf != 0 ? 1U : 0U;
    }
    for (const auto& [count, kind] : {std::pair(ls, 4U), {ps, 5U}, {cr, 2U}, {lf, 3U}}) {
        const u32 counts[] = {crlf, cr, lf, ls, ps};
        if (count == std::ranges::max(counts) && std::ranges::count(counts, count) == 1) {
            return kind;
        }
    }
    return crlf != 0 ? 1U : 0U;
}

// The length of the byte-order mark, 0 for none.
std::size_t mark(const std::string& text, answer& a) {
    const struct {
        std::string bytes;
        const char* name;
        u32 big_endian;
    } marks[] = {{{0, 0, '\xFE', '\xFF'}, "ISO-10646-UCS-4", 1},
                 {{'\xFF', '\xFE', 0, 0}, "ISO-10646-UCS-4", 0},
                 {"\xEF\xBB\xBF", "UTF-8", 1},
                 {"\xFE\xFF", "UTF-16", 1},
                 {"\xFF\xFE", "UTF-16", 0}};
    for (const auto& m : marks) {
        if (text.starts_with(m.bytes)) {
            a.name = m.name;
            a.marked = 1;
            a.big_endian = m.big_endian;
            return m.bytes.size();
        }
    }
    return 0;
}

answer detect(const std::string& buffer, std::size_t pos, std::size_t end) {
    answer a;
    a.name.clear();
    const std::string whole = buffer.substr(0, end), text = whole.substr(pos);
    const std::string examined = text.substr(0, 2048);
    const std::size_t skipped = mark(text, a);
    if (!declaration(whole, pos, pos + skipped, a) && a.marked == 0) {
        decide(score(examined), a);
    }
    if (a.name.empty()) {
        a.name = "unknown";
        return a;
    }
    a.newline = newline(examined, a);
    a.result = 1;
    a.flags =
        a.name == "UTF-16" || a.name == "ISO-10646-UCS-4" || a.name == "ISO-10646-UCS-2" ? 4098 : 1;
    return a;
}

std::ostream& operator<<(std::ostream& out, const answer& a) {
    return out << a.result << " " << a.name << " declared " << a.declared << " marked " << a.marked
               << " big " << a.big_endian << " newline " << a.newline << " flags " << a.flags;
}

} // namespace
} // namespace reference
