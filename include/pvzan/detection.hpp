// Which charset a text is in. Part of pvzan.hpp.
#ifndef PVZAN_DETECTION_HPP
#define PVZAN_DETECTION_HPP

#include "converter.hpp"

#include "../pvzan.h"

#include <optional>

namespace pvzan {

struct detection {
    std::string name;             // as messages write it, with its byte order
    bool big_endian = true;       // of charsets of wider units
    bool mark = false;            // there is a byte-order mark
    bool declared = false;        // there is an XML declaration with an encoding, right or wrong
    std::uint32_t line_break = 0; // PVZAN_NEWLINE_..., of the first one; 0: none near the start

    // For a converter.
    const std::string& charset_name() const { return name; }
};

// The likeliest charset, as pvzan_guess tells it; sure or not: the longer the text, the better.
// complete: false where it goes on. Nothing: it is empty or no text, or there is no charset
// directory.
inline std::optional<detection> detect(std::string_view text, bool complete = true) {
    constexpr std::size_t start_bytes = 16384;
    pvzan_name likeliest = {};
    likeliest.size = sizeof likeliest;
    if (text.empty() || charset_directory().empty()) {
        return std::nullopt;
    }
    const std::int32_t verdict = pvzan_guess(reinterpret_cast<const std::uint8_t*>(text.data()),
                                             text.size(), complete ? 1 : 0, &likeliest);
    if (verdict != PVZAN_GUESS_SURE && verdict != PVZAN_GUESS_UNSURE) {
        return std::nullopt;
    }
    detection found;
    found.name = likeliest.shown;
    found.big_endian = likeliest.order != PVZAN_ORDER_LITTLE;
    found.mark = likeliest.mark != 0;

    options how;
    how.on_fault = replace_with({});
    const std::string start =
        convert(text.substr(0, start_bytes), found.name, "utf-8", std::move(how)).text;
    const std::size_t content = start.find_first_not_of(" \t\r\n");
    found.declared = content != std::string::npos && start.compare(content, 5, "<?xml") == 0 &&
                     start.find(" encoding", content) < start.find('>', content);
    constexpr std::pair<const char*, std::uint32_t> breaks[] = {
        {"\r\n", PVZAN_NEWLINE_CRLF},
        {"\r", PVZAN_NEWLINE_CR},
        {"\n", PVZAN_NEWLINE_LF},
        {"\xE2\x80\xA8", PVZAN_NEWLINE_LINE_SEPARATOR},
        {"\xE2\x80\xA9", PVZAN_NEWLINE_PARAGRAPH_SEPARATOR}};
    std::size_t first = std::string::npos;
    for (const auto& one : breaks) {
        const std::size_t at = start.find(one.first);
        if (at < first) {
            first = at;
            found.line_break = one.second;
        }
    }
    return found;
}

} // namespace pvzan
#endif
