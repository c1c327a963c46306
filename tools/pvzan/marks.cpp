#include "tools/pvzan/marks.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace tool {

namespace {

using std::operator""sv;

constexpr std::array utf8_marks = {"\xCC\x80"sv, "\xCC\x81"sv, "\xCB\xA5"sv, "\xCB\xA9"sv,
                                   "\xE3\x82\x9A"sv};
constexpr std::array<unsigned, 5> marks = {0x0300, 0x0301, 0x02E5, 0x02E9, 0x309A};

std::size_t find_utf8_mark(std::span<const std::uint8_t> text) {
    std::size_t first = text.size();
    for (const std::string_view mark : utf8_marks) {
        const void* found =
            first > 1 ? ::memmem(text.data() + 1, first - 1, mark.data(), mark.size()) : nullptr;
        if (found != nullptr) {
            first = static_cast<std::size_t>(static_cast<const std::uint8_t*>(found) - text.data());
        }
    }
    return first;
}

std::size_t find_utf16_mark(std::span<const std::uint8_t> text, bool big_endian) {
    for (std::size_t i = 2; i + 1 < text.size(); i += 2) {
        const unsigned high = text[big_endian ? i : i + 1], low = text[big_endian ? i + 1 : i];
        if (std::ranges::find(marks, high << 8 | low) != marks.end()) {
            return i;
        }
    }
    return text.size();
}

std::size_t utf8_length(std::uint8_t lead) {
    if (lead >= 0xE0) {
        return lead >= 0xF0 ? 4 : 3;
    }
    return lead >= 0xC0 ? 2 : 1;
}

std::size_t utf8_joined_length(std::span<const std::uint8_t> text) {
    const std::size_t base = text.empty() ? 0 : utf8_length(text[0]);
    const std::string_view bytes(reinterpret_cast<const char*>(text.data()), text.size());
    for (const std::string_view mark : utf8_marks) {
        if (base < bytes.size() && bytes.substr(base).starts_with(mark)) {
            return base + mark.size();
        }
    }
    return 0;
}

} // namespace

std::size_t joined_length(std::span<const std::uint8_t> text, const charset_name& charset) {
    switch (charset.form) {
    case unicode_form::utf8: return utf8_joined_length(text);
    case unicode_form::utf16:
        return text.size() >= 4 && find_utf16_mark(text.first(4), charset.big_endian) == 2 ? 4 : 0;
    default: return 0;
    }
}

std::size_t find_mark(std::span<const std::uint8_t> text, const charset_name& charset) {
    switch (charset.form) {
    case unicode_form::utf8: return find_utf8_mark(text);
    case unicode_form::utf16: return find_utf16_mark(text, charset.big_endian);
    default: return text.size();
    }
}

} // namespace tool
