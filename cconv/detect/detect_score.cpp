// The seven scores of encoding detection. Each function counts the units of the text that are
// possible in an encoding, and those that are not.
#include "cconv/detect/detect.h"

#include <algorithm>

namespace {

struct tally {
    u32 good = 0, bad = 0; // at most 2048 bytes are looked at: no overflow

    void count(bool is_good) { ++(is_good ? good : bad); }
    [[nodiscard]] u32 score() const {
        constexpr u32 all = 10000;
        return good != 0 ? good * all / (good + bad) : 0;
    }
};

constexpr bool in_range(u32 value, u32 low, u32 high) {
    return value >= low && value <= high;
}
constexpr bool is_text_byte(u32 byte) {
    return is_printable(byte) || is_whitespace(byte);
}
constexpr bool is_a1_df(u32 byte) {
    return in_range(byte, 0xA1, 0xDF);
}

struct code_range {
    u16 low, high;
};

// Characters of Unicode's first plane that are likely to occur in text, as of Unicode 2. Row 4E is
// truncated, and the full-width forms before U+FFCA are missing, deliberately: these values occur
// when Japanese text in other encodings is read as units.
constexpr code_range plausible_bmp[] = {
    {0x0009, 0x000A}, {0x000D, 0x000D}, {0x0020, 0x007E}, {0x00A0, 0x00FF}, {0x0100, 0x01F5},
    {0x0250, 0x02A8}, {0x02B0, 0x02E9}, {0x0300, 0x037E}, {0x0384, 0x03F3}, {0x0400, 0x04F9},
    {0x0531, 0x055F}, {0x0561, 0x05F4}, {0x060C, 0x0652}, {0x0660, 0x06F9}, {0x0901, 0x0970},
    {0x0981, 0x09FA}, {0x0A02, 0x0A74}, {0x0A81, 0x0AEF}, {0x0B82, 0x0BF2}, {0x0C01, 0x0C6F},
    {0x0C82, 0x0CEF}, {0x0D02, 0x0D6F}, {0x0E01, 0x0EDD}, {0x0F00, 0x0FB9}, {0x10A0, 0x10F9},
    {0x1100, 0x11F9}, {0x1E00, 0x1EF9}, {0x1F00, 0x1F7D}, {0x2010, 0x20E1}, {0x2100, 0x21EA},
    {0x2200, 0x22F1}, {0x2300, 0x237A}, {0x2400, 0x24EA}, {0x2500, 0x25EF}, {0x2600, 0x266F},
    {0x2701, 0x27BE}, {0x3000, 0x30FE}, {0x3105, 0x319F}, {0x3200, 0x327F}, {0x3300, 0x33FE},
    {0x4E00, 0x4EA5}, {0x4F00, 0x9FA5}, {0xAC00, 0xD7A3}, {0xF900, 0xFA2D}, {0xFB00, 0xFBB1},
    {0xFBD3, 0xFDFB}, {0xFE20, 0xFEFC}, {0xFFCA, 0xFFEE},
};

// Double-byte codes of Windows-31J, including user-defined ones. Trail bytes 7F and FD to FF inside
// the ranges count, deliberately: excluding them would not change the result.
constexpr code_range windows31j_pairs[] = {
    {0x8140, 0x81AC}, {0x81B8, 0x81BF}, {0x81C8, 0x81CE}, {0x81DA, 0x81E8}, {0x81F0, 0x81F7},
    {0x81FC, 0x81FC}, {0x824F, 0x8258}, {0x8260, 0x8279}, {0x8281, 0x829A}, {0x829F, 0x82F1},
    {0x8340, 0x8396}, {0x839F, 0x83B6}, {0x83BF, 0x83D6}, {0x8440, 0x8460}, {0x8470, 0x8491},
    {0x849F, 0x84BE}, {0x8740, 0x8775}, {0x877E, 0x877E}, {0x8780, 0x879C}, {0x889F, 0x9872},
    {0x989F, 0x9FFC}, {0xE040, 0xEAA4}, {0xED40, 0xEEEC}, {0xEEEF, 0xEEFC}, {0xF040, 0xF9FC},
    {0xFA40, 0xFC4B},
};

constexpr bool range_below(const code_range& a, const code_range& b) {
    return a.high < b.low;
}
static_assert(std::ranges::is_sorted(plausible_bmp, range_below));
static_assert(std::ranges::is_sorted(windows31j_pairs, range_below));

bool listed(std::span<const code_range> ranges, u32 code) {
    const auto range = std::ranges::lower_bound(ranges, code, {}, &code_range::high);
    return range != ranges.end() && range->low <= code;
}

u32 pair_at(bytes_view text, std::size_t at) {
    return u32{text[at]} << 8 | text[at + 1];
}

// ---- ISO-2022-JP -------------------------------------------------------------------------------

enum class iso2022_set { one_byte, katakana, two_byte, invalid };

struct escape_sequence {
    std::size_t length; // 0: the end of the text cuts it
    iso2022_set set;    // selected by it
};

escape_sequence read_escape(bytes_view rest, iso2022_set current) {
    if (rest.size() < 3) {
        return {0, current};
    }
    if (rest[1] == '$' && rest[2] == '(') {
        if (rest.size() < 4) {
            return {0, current};
        }
        return {4, rest[3] == 'D' ? iso2022_set::two_byte : current};
    }
    if (rest[1] == '$') {
        const bool known = rest[2] == 'B' || rest[2] == '@';
        return {3, known ? iso2022_set::two_byte : iso2022_set::invalid};
    }
    if (rest[1] == '(') {
        switch (rest[2]) {
        case 'J':
        case 'B': return {3, iso2022_set::one_byte};
        case 'I': return {3, iso2022_set::katakana};
        default: break;
        }
    }
    return {3, iso2022_set::invalid};
}

} // namespace

extern "C" u32 isUNICODE_BMP(u32 high, u32 low) {
    return listed(plausible_bmp, high << 8 | low);
}

u32 score_iso2022_jp(bytes_view text) {
    tally units;
    iso2022_set set = iso2022_set::one_byte;
    for (std::size_t i = 0; i < text.size();) {
        const u8 byte = text[i];
        if (byte == escape_byte) {
            const auto [length, selected] = read_escape(text.subspan(i), set);
            if (length == 0) {
                break;
            }
            set = selected;
            i += length;
            continue;
        }
        switch (set) {
        case iso2022_set::one_byte: units.count(is_text_byte(byte)); break;
        case iso2022_set::katakana: units.count(is_a1_df(byte) || is_whitespace(byte)); break;
        case iso2022_set::invalid: units.count(false); break;
        case iso2022_set::two_byte:
            if (i + 1 == text.size()) {
                return units.score(); // a lone last byte counts neither way
            }
            units.count(is_printable(byte) && is_printable(text[i + 1]));
            i += is_printable(byte) ? 1U : 0U;
            break;
        }
        ++i;
    }
    return units.score();
}

// ---- UTF-8 -------------------------------------------------------------------------------------

namespace {

struct utf8_lead {
    std::size_t following;
    u32 bits;    // of the lead byte itself
    u32 minimum; // what shorter sequences cannot hold
};

utf8_lead classify_lead(u32 byte) {
    if (byte >= 0xFC) {
        return {5, byte & 0x01, 0x4000000};
    }
    if (byte >= 0xF8) {
        return {4, byte & 0x03, 0x200000};
    }
    if (byte >= 0xF0) {
        return {3, byte & 0x07, 0x10000};
    }
    if (byte >= 0xE0) {
        return {2, byte & 0x0F, 0x800};
    }
    return {1, byte & 0x1F, 0x80};
}

} // namespace

// The high bits of following bytes are not tested, deliberately: text that was carelessly cut and
// joined is still UTF-8.
utf8_score score_utf8(bytes_view text) {
    tally units;
    utf8_score result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const u8 byte = text[i];
        if (byte == escape_byte || byte == '\0') {
            return {};
        }
        if (byte >= 0xFE) {
            continue;
        }
        if (byte < 0xC0) {
            units.count(is_text_byte(byte));
            continue;
        }
        const utf8_lead lead = classify_lead(byte);
        if (text.size() - i - 1 < lead.following) {
            units.count(false);
            continue;
        }
        u32 value = lead.bits;
        for (const u8 following : text.subspan(i + 1, lead.following)) {
            value = value << 6 | (following & 0x3F);
        }
        i += lead.following;
        const bool good = value >= lead.minimum;
        units.count(good);
        result.multibyte += good ? 1U : 0U;
        result.latin1 += good && lead.following == 1 && in_range(value, 0xA0, 0xFF) ? 1U : 0U;
    }
    result.score = units.score();
    return result;
}

// ---- EUC-JP, and its fixed form ----------------------------------------------------------------

u32 score_euc_jp_fix(bytes_view text) {
    tally units;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const u8 byte = text[i];
        if (byte == escape_byte) {
            return 0;
        }
        if (byte != '\0' && !is_a1_df(byte)) {
            units.count(false);
            continue;
        }
        if (++i == text.size()) {
            break;
        }
        const u8 second = text[i];
        units.count(byte == '\0' ? is_text_byte(second) || is_a1_df(second)
                                 : is_printable(second) || in_range(second, 0xA1, 0xFF));
    }
    return units.score();
}

// Lead bytes from E0 on count against EUC-JP, deliberately: they are rare in its text, but common
// in Shift_JIS.
u32 score_euc_jp(bytes_view text) {
    constexpr u8 single_shift_2 = 0x8E, single_shift_3 = 0x8F;
    tally units;
    for (std::size_t i = 0; i < text.size();) {
        const u8 byte = text[i];
        const std::size_t left = text.size() - i;
        if (byte == escape_byte || byte == '\0') {
            return 0;
        }
        const bool shift = byte == single_shift_2 || byte == single_shift_3;
        if (!shift && !is_a1_df(byte)) {
            units.count(is_text_byte(byte));
            ++i;
            continue;
        }
        if (left < 2) {
            break;
        }
        const u8 second = text[i + 1];
        if (byte == single_shift_3 && is_a1_df(second)) {
            if (left < 3) {
                break;
            }
            units.count(text[i + 2] >= 0xA1);
            i += 3;
            continue;
        }
        units.count(shift ? byte == single_shift_2 && is_a1_df(second) : second >= 0xA1);
        i += 2;
    }
    return units.score();
}

// ---- UTF-16 and UCS-4 --------------------------------------------------------------------------

namespace {

// Half of Japanese text in other encodings looks like units of this one. ASCII letters with a zero
// byte do not, so there must be at least one.
u32 score_utf16_in(bytes_view text, bool big_endian) {
    tally units;
    bool has_ascii = false;
    for (std::size_t i = 0; i + 2 <= text.size(); i += 2) {
        const u8 high = text[big_endian ? i : i + 1], low = text[big_endian ? i + 1 : i];
        units.count(isUNICODE_BMP(high, low) != 0);
        has_ascii = has_ascii || (high == 0 && is_printable(low));
    }
    return has_ascii ? units.score() : 0;
}

u32 score_ucs4_in(bytes_view text, bool big_endian) {
    constexpr u32 last_plane = 16, first_negative = 128;
    tally units;
    for (std::size_t i = 0; i + 4 <= text.size(); i += 4) {
        const u32 value = load_code(text.subspan(i, 4), big_endian);
        const u32 top = value >> 16;
        if (top > last_plane && top < first_negative) {
            return 0;
        }
        units.count(top <= last_plane && isUNICODE_BMP(value >> 8 & 0xFF, value & 0xFF) != 0);
    }
    return units.score();
}

} // namespace

ordered_score score_utf16(bytes_view text) {
    return {score_utf16_in(text, true), score_utf16_in(text, false)};
}

ordered_score score_ucs4(bytes_view text) {
    return {score_ucs4_in(text, true), score_ucs4_in(text, false)};
}

// ---- Shift_JIS, with the repertoire of Windows-31J ---------------------------------------------

shift_jis_score score_shift_jis(bytes_view text) {
    tally units;
    shift_jis_score result;
    for (std::size_t i = 0; i + 2 <= text.size(); ++i) {
        const u8 byte = text[i];
        if (listed(windows31j_pairs, pair_at(text, i))) {
            units.count(true);
            ++result.double_bytes;
            ++i;
            continue;
        }
        if (byte == escape_byte || byte == '\0' || byte == 0x7F) {
            return {};
        }
        units.count(is_text_byte(byte) || is_a1_df(byte));
        result.high_bytes += byte >= 0xA0 ? 1U : 0U;
    }
    result.score = units.score();
    return result;
}
