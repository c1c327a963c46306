// Marks, declarations, the decision, line breaks.
#include "tests/detect_reference.h"

#include "tests/support/temp_dir.h"

#include <algorithm>
#include <ostream>
#include <vector>

namespace reference {

namespace {

int byte_at(const std::string& text, std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : -1;
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
    if (ls > std::max({crlf, cr, lf, ps})) {
        return 4;
    }
    if (ps > std::max({crlf, cr, lf, ls})) {
        return 5;
    }
    if (cr > std::max({crlf, lf, ls, ps})) {
        return 2;
    }
    if (lf > std::max({crlf, cr, ls, ps})) {
        return 3;
    }
    return crlf != 0 ? 1U : 0U;
}

std::size_t mark(const std::string& text, answer& a) {
    const auto found = [&](const char* name, u32 big, std::size_t length) {
        a.name = name;
        a.marked = 1;
        a.big_endian = big;
        return length;
    };
    const int b0 = byte_at(text, 0), b1 = byte_at(text, 1), b2 = byte_at(text, 2),
              b3 = byte_at(text, 3);
    if (b0 == 0 && b1 == 0 && b2 == 0xFE && b3 == 0xFF) {
        return found("ISO-10646-UCS-4", 1, 4);
    }
    if (b0 == 0xFF && b1 == 0xFE && b2 == 0 && b3 == 0) {
        return found("ISO-10646-UCS-4", 0, 4);
    }
    if (b0 == 0xEF && b1 == 0xBB && b2 == 0xBF) {
        return found("UTF-8", 1, 3);
    }
    if (b0 == 0xFE && b1 == 0xFF) {
        return found("UTF-16", 1, 2);
    }
    return b0 == 0xFF && b1 == 0xFE ? found("UTF-16", 0, 2) : 0;
}

} // namespace

std::size_t find_keyword(const std::string& buffer, std::size_t from, std::size_t width) {
    const std::size_t length = pattern("encoding", width).size();
    const std::size_t line_end = std::min(buffer.find_first_of("\r\n", from), buffer.size());
    const std::size_t q = std::min(buffer.find(pattern("ENCODING", width), from),
                                   buffer.find(pattern("encoding", width), from));
    return q < line_end && q + length < buffer.size() ? q / width * width : 0;
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

} // namespace reference
