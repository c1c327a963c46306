#include "tools/pvzan/convert/relative_hint.h"

#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include <algorithm>
#include <array>

namespace tool {

namespace {

constexpr bool is_control(char32_t c) {
    return c >= 0x80 && c < 0xA0;
}

// The bytes that a text has, each once.
std::vector<std::uint8_t> bytes_of(bytes_view text) {
    std::array<bool, 256> has{};
    for (const std::uint8_t byte : text) {
        has[byte] = true;
    }
    std::vector<std::uint8_t> bytes;
    for (unsigned byte = 0; byte < has.size(); ++byte) {
        if (has[byte]) {
            bytes.push_back(static_cast<std::uint8_t>(byte));
        }
    }
    return bytes;
}

// The characters of a text; none where it has a fault.
std::u32string characters_of(const std::vector<std::uint8_t>& bytes, const pvzan_name& charset) {
    std::u32string characters;
    bool sound = true;
    read_characters(bytes, charset, PVZAN_ORDER_BY_NAME, PVZAN_LAST, characters,
                    [&](const pvzan_fault&) { return sound = false; });
    return sound ? characters : std::u32string();
}

// What the library says of a byte that ASCII has no character for.
pvzan_fault fault_of(std::uint8_t byte, const pvzan_name& charset) {
    auto fault = new_record<pvzan_fault>();
    const converter reads = open_converter(charset, charset_of("us-ascii"));
    std::array<std::uint8_t, 16> out;
    const std::uint8_t* in = &byte;
    std::uint8_t* end = out.data();
    std::size_t left = 1, room = out.size();
    if (reads != nullptr &&
        pvzan_feed(reads.get(), &in, &left, &end, &room, PVZAN_LAST) == PVZAN_FEED_FAULT) {
        pvzan_last_fault(reads.get(), &fault);
    }
    return fault;
}

} // namespace

// What calls itself Shift_JIS is often code page 932, which has ① and others besides: the library
// names such a relative.
std::string relative_hint(const pvzan_fault& fault) {
    const pvzan_name relative = charset_of(fault.relative);
    const std::string option = fold_name(relative.shown);
    if (fault.kind == PVZAN_FAULT_MISSING && !is_control(fault.scalars[0])) {
        return fmt::format("{} has this character; use -t {}", relative.shown, option);
    }
    std::vector<std::uint8_t> code(fault.bytes, fault.bytes + fault.blamed);
    if (fault.follower >= 0 && fault.blamed < 2) {
        code.push_back(static_cast<std::uint8_t>(fault.follower));
    }
    const std::u32string character = characters_of(code, relative);
    return character.size() == 1 ? fmt::format("{} is {} in {}; use -f {}", hex_bytes(code),
                                               character_text(character[0]), relative.shown, option)
                                 : fmt::format("{} allows it; use -f {}", relative.shown, option);
}

std::string control_hint(bytes_view text, const pvzan_name& from) {
    if (from.kind != PVZAN_KIND_OTHER || from.unit != 1) {
        return {};
    }
    const std::vector<std::uint8_t> bytes = bytes_of(text);
    const std::u32string characters = characters_of(bytes, from);
    if (characters.size() != bytes.size()) {
        return {}; // its codes are not single bytes
    }
    const bool has_feeds = characters.find(U'\n') != std::u32string::npos;
    for (std::size_t i = 0; i < characters.size(); ++i) {
        const pvzan_fault fault =
            is_control(characters[i]) ? fault_of(bytes[i], from) : pvzan_fault{};
        if (*fault.relative == '\0') {
            continue;
        }
        // Text in EBCDIC has line feeds, or next lines in place of them.
        const std::u32string other = characters_of({bytes[i]}, charset_of(fault.relative));
        if (other == U"\n" && has_feeds) {
            continue;
        }
        return fmt::format("{} is the control code {} in {}{}\n    hint: {}",
                           hex_bytes(bytes_view(bytes).subspan(i, 1)), code_point(characters[i]),
                           from.shown, other == U"\n" ? ", and there is no line feed" : "",
                           relative_hint(fault));
    }
    return {};
}

} // namespace tool
