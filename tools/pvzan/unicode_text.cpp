#include "tools/pvzan/unicode_text.h"

#include "tools/pvzan/byte_patterns.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <utility>

namespace tool {

namespace {

using kind = unicode_sequence::kind_type;
using std::operator""sv;

constexpr char32_t last_scalar = 0x10FFFF;

constexpr bool is_surrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDFFF;
}

constexpr bool is_high_surrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

constexpr bool is_continuation(std::uint8_t byte) {
    return (byte & 0xC0) == 0x80;
}

// ---- UTF-8 -------------------------------------------------------------------------------------

// What a lead byte promises, and which second bytes keep it from being over-long, a surrogate or
// beyond U+10FFFF. Length 0: no sequence begins with this byte.
struct utf8_lead {
    std::size_t length;
    std::uint8_t first_second, last_second;
};

constexpr utf8_lead classify(std::uint8_t lead) {
    if (lead < 0x80) {
        return {1, 0, 0};
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return {0, 0, 0};
    }
    if (lead < 0xE0) {
        return {2, 0x80, 0xBF};
    }
    if (lead < 0xF0) {
        return {3, lead == 0xE0 ? std::uint8_t{0xA0} : std::uint8_t{0x80},
                lead == 0xED ? std::uint8_t{0x9F} : std::uint8_t{0xBF}};
    }
    return {4, lead == 0xF0 ? std::uint8_t{0x90} : std::uint8_t{0x80},
            lead == 0xF4 ? std::uint8_t{0x8F} : std::uint8_t{0xBF}};
}

unicode_sequence read_utf8(bytes_view text) {
    const utf8_lead lead = classify(text[0]);
    if (lead.length <= 1) {
        return {lead.length == 1 ? kind::whole : kind::ill_formed, 1, text[0]};
    }
    char32_t scalar = text[0] & (0x7FU >> lead.length);
    for (std::size_t i = 1; i < lead.length; ++i) {
        if (i == text.size()) {
            return {kind::cut, i, 0};
        }
        const bool continues = i == 1 ? text[1] >= lead.first_second && text[1] <= lead.last_second
                                      : is_continuation(text[i]);
        if (!continues) {
            return {kind::ill_formed, i, 0};
        }
        scalar = scalar << 6 | (text[i] & 0x3F);
    }
    return {kind::whole, lead.length, scalar};
}

// The end of the run of ASCII that begins at an offset.
std::size_t ascii_end(bytes_view text, std::size_t offset) {
    while (offset + sizeof(std::uint64_t) <= text.size()) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, text.data() + offset, sizeof eight);
        if ((eight & 0x8080808080808080) != 0) {
            break;
        }
        offset += sizeof eight;
    }
    while (offset < text.size() && text[offset] < 0x80) {
        ++offset;
    }
    return offset;
}

// The end of the run of three-byte sequences, but for the leads that not every second byte may
// follow: what Japanese text is made of.
std::size_t behind_common(bytes_view text, std::size_t at) {
    while (at + 3 <= text.size()) {
        const std::uint8_t* p = text.data() + at;
        const bool common = p[0] > 0xE0 && p[0] < 0xF0 && p[0] != 0xED;
        if (!common || !is_continuation(p[1]) || !is_continuation(p[2])) {
            break;
        }
        at += 3;
    }
    return at;
}

std::size_t well_formed_utf8(bytes_view text) {
    std::size_t at = 0;
    while (at < text.size()) {
        if (text[at] < 0x80) {
            at = ascii_end(text, at);
            continue;
        }
        if (const std::size_t end = behind_common(text, at); end > at) {
            at = end;
            continue;
        }
        const unicode_sequence next = read_utf8(text.subspan(at));
        if (next.kind != kind::whole) {
            break;
        }
        at += next.bytes;
    }
    return at;
}

// ---- Units of two and four bytes ---------------------------------------------------------------

char32_t unit_at(bytes_view text, std::size_t index, std::size_t width, bool big_endian) {
    char32_t unit = 0;
    for (std::size_t i = 0; i < width; ++i) {
        unit = unit << 8 | text[index + (big_endian ? i : width - 1 - i)];
    }
    return unit;
}

unicode_sequence read_utf16(bytes_view text, bool big_endian) {
    if (text.size() < 2) {
        return {kind::cut, text.size(), 0};
    }
    const char32_t first = unit_at(text, 0, 2, big_endian);
    if (!is_surrogate(first)) {
        return {kind::whole, 2, first};
    }
    if (!is_high_surrogate(first)) {
        return {kind::ill_formed, 2, 0};
    }
    if (text.size() < 4) {
        return {kind::cut, text.size(), 0};
    }
    const char32_t second = unit_at(text, 2, 2, big_endian);
    if (!is_surrogate(second) || is_high_surrogate(second)) {
        return {kind::ill_formed, 2, 0};
    }
    return {kind::whole, 4, 0x10000 + ((first & 0x3FF) << 10 | (second & 0x3FF))};
}

// One unit, one scalar: UCS-2 and UCS-4.
unicode_sequence read_unit(bytes_view text, std::size_t width, bool big_endian) {
    if (text.size() < width) {
        return {kind::cut, text.size(), 0};
    }
    const char32_t unit = unit_at(text, 0, width, big_endian);
    const bool scalar = unit <= last_scalar && !is_surrogate(unit);
    return {scalar ? kind::whole : kind::ill_formed, width, unit};
}

} // namespace

charset_name utf8_name() {
    return {.shown = "UTF-8", .library = "utf-8", .form = unicode_form::utf8};
}

unicode_sequence read_sequence(bytes_view text, const charset_name& charset) {
    switch (charset.form) {
    case unicode_form::utf16: return read_utf16(text, charset.big_endian);
    case unicode_form::ucs2: return read_unit(text, 2, charset.big_endian);
    case unicode_form::ucs4: return read_unit(text, 4, charset.big_endian);
    default: return read_utf8(text);
    }
}

std::size_t well_formed_length(bytes_view text, const charset_name& charset) {
    if (charset.form == unicode_form::utf8) {
        return well_formed_utf8(text);
    }
    std::size_t at = 0;
    while (at < text.size()) {
        const unicode_sequence next = read_sequence(text.subspan(at), charset);
        if (next.kind != kind::whole) {
            break;
        }
        at += next.bytes;
    }
    return at;
}

std::size_t count_sequences(bytes_view text, const charset_name& charset) {
    if (charset.form == unicode_form::utf8) {
        return text.size() - static_cast<std::size_t>(std::ranges::count_if(text, is_continuation));
    }
    std::size_t count = 0;
    for (std::size_t at = 0; at < text.size(); ++count) {
        at += read_sequence(text.subspan(at), charset).bytes;
    }
    return count;
}

bool is_private_use(char32_t scalar) {
    return (scalar >= 0xE000 && scalar <= 0xF8FF) || scalar >= 0xF0000;
}

std::size_t count_private_use(bytes_view text, const charset_name& charset) {
    constexpr std::uint8_t first_lead = 0xEE; // in UTF-8
    const bool utf8 = charset.form == unicode_form::utf8;
    std::size_t count = 0;
    for (std::size_t at = 0; at < text.size();) {
        if (utf8 && text[at] < first_lead) {
            ++at;
            continue;
        }
        const unicode_sequence next = read_sequence(text.subspan(at), charset);
        count += is_private_use(next.scalar) ? 1U : 0U;
        at += next.bytes;
    }
    return count;
}

std::string utf8_of(char32_t scalar) {
    const auto byte = [](char32_t value) { return static_cast<char>(value); };
    if (scalar < 0x80) {
        return {byte(scalar)};
    }
    if (scalar < 0x800) {
        return {byte(0xC0 | scalar >> 6), byte(0x80 | (scalar & 0x3F))};
    }
    if (scalar < 0x10000) {
        return {byte(0xE0 | scalar >> 12), byte(0x80 | (scalar >> 6 & 0x3F)),
                byte(0x80 | (scalar & 0x3F))};
    }
    return {byte(0xF0 | scalar >> 18), byte(0x80 | (scalar >> 12 & 0x3F)),
            byte(0x80 | (scalar >> 6 & 0x3F)), byte(0x80 | (scalar & 0x3F))};
}

namespace {

using scalar_range = std::pair<char32_t, char32_t>;

bool is_in(std::span<const scalar_range> ranges, char32_t scalar) {
    return std::ranges::any_of(ranges, [scalar](const scalar_range& range) {
        return scalar >= range.first && scalar <= range.second;
    });
}

} // namespace

bool is_wide(char32_t scalar) {
    constexpr std::array<scalar_range, 8> wide = {{{0x1100, 0x115F},
                                                   {0x2E80, 0x303E},
                                                   {0x3041, 0xA4CF},
                                                   {0xAC00, 0xD7A3},
                                                   {0xF900, 0xFAFF},
                                                   {0xFE30, 0xFE6F},
                                                   {0xFF01, 0xFF60},
                                                   {0x1F300, 0x3FFFD}}};
    return is_in(wide, scalar) || (scalar >= 0xFFE0 && scalar <= 0xFFE6);
}

// Controls, marks that join what is before them, what turns the direction of writing, private use.
bool is_visible(char32_t scalar) {
    constexpr std::array<scalar_range, 12> hidden = {{{0x00, 0x1F},
                                                      {0x7F, 0xA0},
                                                      {0x0300, 0x036F},
                                                      {0x200B, 0x200F},
                                                      {0x2028, 0x202E},
                                                      {0x2060, 0x206F},
                                                      {0x3099, 0x309A},
                                                      {0xD800, 0xF8FF},
                                                      {0xFE00, 0xFE0F},
                                                      {0xFEFF, 0xFEFF},
                                                      {0xFFF0, 0xFFFC},
                                                      {0xE0000, 0x10FFFF}}};
    return !is_in(hidden, scalar);
}

bool is_joining_mark(char32_t scalar) {
    constexpr std::array<char32_t, 5> marks = {0x0300, 0x0301, 0x02E5, 0x02E9, 0x309A};
    return std::ranges::find(marks, scalar) != marks.end();
}

bool may_hold_joining_mark(bytes_view text, const charset_name& charset) {
    if (charset.form == unicode_form::utf8) {
        constexpr std::array marks = {"\xCC\x80"sv, "\xCC\x81"sv, "\xCB\xA5"sv, "\xCB\xA9"sv,
                                      "\xE3\x82\x9A"sv};
        static const byte_patterns patterns(marks);
        return patterns.any_in(text);
    }
    for (std::size_t at = 0; at < text.size();) {
        const unicode_sequence next = read_sequence(text.subspan(at), charset);
        if (is_joining_mark(next.scalar)) {
            return true;
        }
        at += next.bytes;
    }
    return false;
}

} // namespace tool
