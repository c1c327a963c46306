// Unicode text as it lies in memory: its sequences, and the letters and marks that JIS X 0213 has
// as one character. Part of pvzan.hpp.
#ifndef PVZAN_UNICODE_HPP
#define PVZAN_UNICODE_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace pvzan {

enum class unicode_form { none, utf8, utf16, ucs2, ucs4 };

namespace detail {

struct sequence {
    enum kind_type { whole, cut, ill_formed } kind; // cut: the text ends inside it
    std::size_t bytes;                              // ill-formed: those that cannot be continued
    char32_t scalar;
};

constexpr std::uint8_t byte_at(std::string_view text, std::size_t index) {
    return static_cast<std::uint8_t>(text[index]);
}

constexpr bool is_surrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDFFF;
}

// What a lead byte promises, and which second bytes keep it from being over-long, a surrogate or
// beyond U+10FFFF. Length 0: no sequence begins with this byte.
struct utf8_lead {
    std::size_t length;
    std::uint8_t lowest, highest;
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
        return {3, static_cast<std::uint8_t>(lead == 0xE0 ? 0xA0 : 0x80),
                static_cast<std::uint8_t>(lead == 0xED ? 0x9F : 0xBF)};
    }
    return {4, static_cast<std::uint8_t>(lead == 0xF0 ? 0x90 : 0x80),
            static_cast<std::uint8_t>(lead == 0xF4 ? 0x8F : 0xBF)};
}

constexpr sequence read_utf8(std::string_view text) {
    const utf8_lead lead = classify(byte_at(text, 0));
    if (lead.length <= 1) {
        return {lead.length == 1 ? sequence::whole : sequence::ill_formed, 1, byte_at(text, 0)};
    }
    char32_t scalar = byte_at(text, 0) & (0x7FU >> lead.length);
    for (std::size_t i = 1; i < lead.length; ++i) {
        if (i == text.size()) {
            return {sequence::cut, i, 0};
        }
        const std::uint8_t next = byte_at(text, i);
        if (next < (i == 1 ? lead.lowest : 0x80) || next > (i == 1 ? lead.highest : 0xBF)) {
            return {sequence::ill_formed, i, 0};
        }
        scalar = scalar << 6 | (next & 0x3FU);
    }
    return {sequence::whole, lead.length, scalar};
}

constexpr char32_t unit_at(std::string_view text, std::size_t index, std::size_t width,
                           bool big_endian) {
    char32_t unit = 0;
    for (std::size_t i = 0; i < width; ++i) {
        unit = unit << 8 | byte_at(text, index + (big_endian ? i : width - 1 - i));
    }
    return unit;
}

constexpr sequence read_utf16(std::string_view text, bool big_endian) {
    if (text.size() < 2) {
        return {sequence::cut, text.size(), 0};
    }
    const char32_t first = unit_at(text, 0, 2, big_endian);
    if (!is_surrogate(first)) {
        return {sequence::whole, 2, first};
    }
    if (first >= 0xDC00) {
        return {sequence::ill_formed, 2, 0};
    }
    if (text.size() < 4) {
        return {sequence::cut, text.size(), 0};
    }
    const char32_t second = unit_at(text, 2, 2, big_endian);
    if (!is_surrogate(second) || second < 0xDC00) {
        return {sequence::ill_formed, 2, 0};
    }
    return {sequence::whole, 4, 0x10000 + ((first & 0x3FF) << 10 | (second & 0x3FF))};
}

constexpr sequence read_unit(std::string_view text, std::size_t width, bool big_endian) {
    if (text.size() < width) {
        return {sequence::cut, text.size(), 0};
    }
    const char32_t unit = unit_at(text, 0, width, big_endian);
    return {unit <= 0x10FFFF && !is_surrogate(unit) ? sequence::whole : sequence::ill_formed, width,
            unit};
}

// The sequence at the start of text, which is not empty.
constexpr sequence read_sequence(std::string_view text, unicode_form form, bool big_endian) {
    switch (form) {
    case unicode_form::utf16: return read_utf16(text, big_endian);
    case unicode_form::ucs2: return read_unit(text, 2, big_endian);
    case unicode_form::ucs4: return read_unit(text, 4, big_endian);
    default: return read_utf8(text);
    }
}

constexpr bool is_tone_letter(char32_t c) {
    return c == 0x02E5 || c == 0x02E9;
}

constexpr bool is_joining_mark(char32_t c) {
    return c == 0x309A || c == 0x0300 || c == 0x0301 || is_tone_letter(c);
}

constexpr bool joins(char32_t letter, char32_t mark) {
    constexpr std::u32string_view kana = U"\u304B\u304D\u304F\u3051\u3053\u30AB\u30AD\u30AF\u30B1"
                                         U"\u30B3\u30BB\u30C4\u30C8\u31F7";
    constexpr std::u32string_view phonetic = U"\u0254\u028C\u0259\u025A";
    const auto is_in = [letter](std::u32string_view list) {
        return list.find(letter) != std::u32string_view::npos;
    };
    switch (mark) {
    case 0x309A: return is_in(kana);
    case 0x0300: return letter == 0x00E6 || is_in(phonetic);
    case 0x0301: return is_in(phonetic);
    case 0x02E5: return letter == 0x02E9;
    case 0x02E9: return letter == 0x02E5;
    default: return false;
    }
}

constexpr bool may_join(char32_t letter) {
    return joins(letter, 0x309A) || joins(letter, 0x0300) || is_tone_letter(letter);
}

inline std::size_t ascii_end(std::string_view text, std::size_t at) {
    std::uint64_t eight = 0;
    while (at + sizeof eight <= text.size()) {
        std::memcpy(&eight, text.data() + at, sizeof eight);
        if ((eight & 0x8080808080808080U) != 0) {
            break;
        }
        at += sizeof eight;
    }
    while (at < text.size() && byte_at(text, at) < 0x80) {
        ++at;
    }
    return at;
}

// The end of the ASCII and the three-byte sequences from an offset on that need no second look.
inline std::size_t plain_utf8_end(std::string_view text, std::size_t at) {
    const auto is_continuation = [text](std::size_t i) {
        return (byte_at(text, i) & 0xC0) == 0x80;
    };
    for (;;) {
        if (at < text.size() && byte_at(text, at) < 0x80) {
            at = ascii_end(text, at);
        }
        if (at + 3 > text.size()) {
            return at;
        }
        const std::uint8_t lead = byte_at(text, at);
        const bool plain = lead > 0xE0 && lead < 0xF0 && lead != 0xED && is_continuation(at + 1) &&
                           is_continuation(at + 2);
        if (!plain || text.substr(at, 3) == "\xE3\x82\x9A") { // the mark of kana
            return at;
        }
        at += 3;
    }
}

inline bool may_hold_joining_mark(std::string_view utf8) {
    for (const std::string_view mark :
         {"\xCC\x80", "\xCC\x81", "\xCB\xA5", "\xCB\xA9", "\xE3\x82\x9A"}) {
        if (utf8.find(mark) != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

} // namespace detail
} // namespace pvzan
#endif
