#include "tools/pvzan/byte_patterns.h"

#include <algorithm>
#include <cstring>

namespace tool {

byte_patterns::byte_patterns(std::span<const std::string_view> patterns) {
    for (const std::string_view pattern : patterns) {
        add(pattern);
    }
}

void byte_patterns::add(std::string_view pattern) {
    // Kana and full-width forms make these leads common; others are rare in what is converted here.
    const auto lead = static_cast<std::uint8_t>(pattern[0]);
    const bool common = lead == 0xE3 || lead == 0xEF;
    const std::size_t offset = common ? pattern.size() - 1 : 0;
    const auto byte = static_cast<std::uint8_t>(pattern[offset]);
    auto found = std::ranges::find_if(
        anchors_, [&](const anchor& a) { return a.byte == byte && a.offset == offset; });
    if (found == anchors_.end()) {
        found = anchors_.insert(anchors_.end(), {byte, offset, {}});
    }
    if (std::ranges::find(found->patterns, pattern) == found->patterns.end()) {
        found->patterns.emplace_back(pattern);
    }
}

bool byte_patterns::any_in(std::span<const std::uint8_t> text) const {
    const std::string_view bytes(reinterpret_cast<const char*>(text.data()), text.size());
    for (const anchor& a : anchors_) {
        for (std::size_t at = 0; at < bytes.size(); ++at) {
            const void* next = std::memchr(bytes.data() + at, a.byte, bytes.size() - at);
            if (next == nullptr) {
                break;
            }
            at = static_cast<std::size_t>(static_cast<const char*>(next) - bytes.data());
            if (at >= a.offset && std::ranges::any_of(a.patterns, [&](const std::string& pattern) {
                    return bytes.substr(at - a.offset).starts_with(pattern);
                })) {
                return true;
            }
        }
    }
    return false;
}

} // namespace tool
