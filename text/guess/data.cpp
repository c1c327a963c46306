#include "text/guess/data.h"

#include "text/unicode.h"

#include <algorithm>

namespace text {

namespace {

constexpr char charsets[] =
#include "charsets.inc"
    ;
constexpr char languages[] =
#include "languages.inc"
    ;

} // namespace

const std::string_view charset_list(charsets, sizeof charsets - 1);
const std::string_view language_list(languages, sizeof languages - 1);

std::string_view take(std::string_view& text, char separator) {
    const std::size_t size = std::min(text.find(separator), text.size());
    const std::string_view taken(text.data(), size);
    text.remove_prefix(std::min(size + 1, text.size()));
    return taken;
}

std::string_view take_line(std::string_view& text) {
    std::string_view line;
    do {
        line = take(text, '\n');
    } while (!text.empty() && line.starts_with('#'));
    return line;
}

u32 take_character(std::string_view& text) {
    if (text.empty()) {
        return 0;
    }
    constexpr std::size_t escaped = 6;
    if (text.starts_with("\\u") && text.size() >= escaped) {
        u32 scalar = 0;
        for (const char digit : std::string_view(text.data() + 2, 4)) {
            scalar = scalar << 4 | static_cast<u32>(digit <= '9' ? digit - '0' : digit - 'A' + 10);
        }
        text.remove_prefix(escaped);
        return scalar;
    }
    const sequence s = read_utf8(reinterpret_cast<const u8*>(text.data()), text.size());
    text.remove_prefix(s.bytes);
    return s.scalar;
}

} // namespace text
