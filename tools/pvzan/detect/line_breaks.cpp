#include "tools/pvzan/detect/line_breaks.h"

namespace tool {

namespace {

char32_t unit_at(bytes_view text, std::size_t at, code_unit unit) {
    char32_t value = 0;
    for (std::size_t i = 0; i < unit.bytes; ++i) {
        value = value << 8 | text[at + (unit.little_endian ? unit.bytes - 1 - i : i)];
    }
    return value;
}

} // namespace

code_unit unit_of(const pvzan_name& charset, bytes_view begin) {
    const bool marked_little = begin.size() >= 2 && begin[0] == 0xFF && begin[1] == 0xFE;
    return {charset.unit, charset.unit > 1 && (charset.order == PVZAN_ORDER_LITTLE ||
                                               (charset.mark == 1 && marked_little))};
}

std::size_t behind_last_line_feed(bytes_view text, code_unit unit) {
    for (std::size_t end = text.size() / unit.bytes * unit.bytes; end > 0; end -= unit.bytes) {
        if (unit_at(text, end - unit.bytes, unit) == '\n') {
            return end;
        }
    }
    return 0;
}

const char* kind_of_breaks(bytes_view text, code_unit unit) {
    const char* kind = "";
    char32_t before = 0;
    const auto is_other = [&](const char* next) {
        const bool other = *kind != '\0' && kind != next;
        kind = next;
        return other;
    };
    static constexpr const char *lf = "LF", *crlf = "CRLF", *cr = "CR";
    for (std::size_t at = 0; at + unit.bytes <= text.size(); at += unit.bytes) {
        const char32_t now = unit_at(text, at, unit);
        const bool alone = before == '\r' && now != '\n';
        if ((alone && is_other(cr)) || (now == '\n' && is_other(before == '\r' ? crlf : lf))) {
            return "mixed line breaks";
        }
        before = now;
    }
    return kind;
}

} // namespace tool
