#include "tools/pvzan/one_way.h"

#include "pvzan.h"

#include <algorithm>
#include <memory>

namespace tool {

namespace {

struct look_alike {
    char32_t scalar;
    std::string_view name;
    char32_t stand_in;
};

// Characters of which vendors' tables hold one or the other. The stand-ins are as wide as the
// character in Japanese text.
constexpr std::array look_alikes = {
    look_alike{0x00A2, "CENT SIGN", 0xFFE0},
    look_alike{0x00A3, "POUND SIGN", 0xFFE1},
    look_alike{0x00A5, "YEN SIGN", 0xFFE5},
    look_alike{0x00A6, "BROKEN BAR", 0xFFE4},
    look_alike{0x00AC, "NOT SIGN", 0xFFE2},
    look_alike{0x00AF, "MACRON", 0xFFE3},
    look_alike{0x2014, "EM DASH", 0x2015},
    look_alike{0x2015, "HORIZONTAL BAR", 0x2014},
    look_alike{0x2016, "DOUBLE VERTICAL LINE", 0x2225},
    look_alike{0x203E, "OVERLINE", 0xFFE3},
    look_alike{0x2212, "MINUS SIGN", 0xFF0D},
    look_alike{0x2225, "PARALLEL TO", 0x2016},
    look_alike{0x2985, "LEFT WHITE PARENTHESIS", 0xFF5F},
    look_alike{0x2986, "RIGHT WHITE PARENTHESIS", 0xFF60},
    look_alike{0x301C, "WAVE DASH", 0xFF5E},
    look_alike{0xFF0D, "FULLWIDTH HYPHEN-MINUS", 0x2212},
    look_alike{0xFF5E, "FULLWIDTH TILDE", 0x301C},
    look_alike{0xFF5F, "FULLWIDTH LEFT WHITE PARENTHESIS", 0x2985},
    look_alike{0xFF60, "FULLWIDTH RIGHT WHITE PARENTHESIS", 0x2986},
    look_alike{0xFFE0, "FULLWIDTH CENT SIGN", 0x00A2},
    look_alike{0xFFE1, "FULLWIDTH POUND SIGN", 0x00A3},
    look_alike{0xFFE2, "FULLWIDTH NOT SIGN", 0x00AC},
    look_alike{0xFFE3, "FULLWIDTH MACRON", 0x00AF},
    look_alike{0xFFE4, "FULLWIDTH BROKEN BAR", 0x00A6},
    look_alike{0xFFE5, "FULLWIDTH YEN SIGN", 0x00A5},
};

constexpr char32_t first_half_width = 0xFF61, last_half_width = 0xFF9F;

// Where GB 18030 kept characters before Unicode had them.
constexpr std::array<std::pair<char32_t, char32_t>, 2> former_gb18030 = {
    {{0xE78D, 0xE796}, {0xE81E, 0xE864}}};

std::vector<char32_t> candidates(const charset_name& to) {
    std::vector<char32_t> list;
    if (to.library == "gb18030") {
        for (const auto& [first, last] : former_gb18030) {
            for (char32_t scalar = first; scalar <= last; ++scalar) {
                list.push_back(scalar);
            }
        }
        return list;
    }
    for (const look_alike& row : look_alikes) {
        list.push_back(row.scalar);
    }
    for (char32_t scalar = first_half_width; to.is_iso2022() && scalar <= last_half_width;
         ++scalar) {
        list.push_back(scalar);
    }
    return list;
}

// One character through one conversion; empty when it does not go.
std::string through(pvzan_session& session, std::string_view bytes) {
    std::array<std::uint8_t, 64> out{};
    session.inBuf = reinterpret_cast<const std::uint8_t*>(bytes.data());
    session.inPos = 0;
    session.inLen = static_cast<std::int32_t>(bytes.size());
    session.outBuf = out.data();
    session.outPos = 0;
    session.outLen = out.size();
    if (cconvConvert(&session) != PVZAN_DONE || cconvTermConvert(&session) != PVZAN_DONE) {
        return {};
    }
    return {out.begin(), out.begin() + session.outPos};
}

} // namespace

void one_way_characters::open(const charset_name& to) {
    if (!to.is_unicode() && (to.is_japanese() || to.library == "gb18030")) {
        ask(to, candidates(to));
    }
}

void one_way_characters::open_ascii(const charset_name& to) {
    constexpr std::array<char32_t, 2> in_jis_x0201 = {U'\\', U'~'};
    if (to.is_japanese()) {
        ask(to, in_jis_x0201);
    }
}

void one_way_characters::ask(const charset_name& to, std::span<const char32_t> list) {
    const auto there = std::make_unique<pvzan_session>(), back = std::make_unique<pvzan_session>();
    pvzan_target_options target{};
    target.dstBigEndian = 1;
    pvzan_source_options source{};
    source.srcBigEndian = 1;
    for (const char32_t scalar : list) {
        const std::string text = utf8_of(scalar);
        if (cconvInitConvert(there.get(), &target, to.library.c_str()) != PVZAN_DONE ||
            cconvChgCharset(there.get(), &source, "utf-8") != PVZAN_DONE ||
            cconvInitConvert(back.get(), &target, "utf-8") != PVZAN_DONE ||
            cconvChgCharset(back.get(), &source, to.library.c_str()) != PVZAN_DONE) {
            return;
        }
        const std::string code = through(*there, text);
        const std::string again = code.empty() ? std::string() : through(*back, code);
        if (!again.empty() && again != text) {
            const bytes_view bytes(reinterpret_cast<const std::uint8_t*>(again.data()),
                                   again.size());
            comes_back_[scalar] = read_sequence(bytes, utf8_name()).scalar;
            // Many of one kind share their first two bytes.
            const bool many = scalar >= first_half_width && scalar <= last_half_width;
            patterns_.add(many || to.library == "gb18030" ? text.substr(0, 2) : text);
        }
    }
}

bool one_way_characters::may_be_in(bytes_view text, const charset_name& form) const {
    if (comes_back_.empty()) {
        return false;
    }
    if (form.form == unicode_form::utf8) {
        return patterns_.any_in(text);
    }
    for (std::size_t at = 0; at < text.size();) {
        const unicode_sequence next = read_sequence(text.subspan(at), form);
        if (next.scalar >= comes_back_.begin()->first && comes_back_.contains(next.scalar)) {
            return true;
        }
        at += next.bytes;
    }
    return false;
}

char32_t one_way_characters::comes_back(char32_t scalar) const {
    const auto found = comes_back_.find(scalar);
    return found == comes_back_.end() ? 0 : found->second;
}

char32_t stand_in(char32_t scalar) {
    const auto* found = std::ranges::find(look_alikes, scalar, &look_alike::scalar);
    return found == look_alikes.end() ? 0 : found->stand_in;
}

std::string_view look_alike_name(char32_t scalar) {
    const auto* found = std::ranges::find(look_alikes, scalar, &look_alike::scalar);
    return found == look_alikes.end() ? std::string_view() : found->name;
}

} // namespace tool
