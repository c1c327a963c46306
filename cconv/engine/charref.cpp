// Numeric character references, "&#134071;" or "&#x20BB7;", in UCS-2 units.
#include "cconv/engine/engine.h"

#include <array>

namespace {

// The longest one: "&#x", the digits of 32 bits (10 decimal, 8 hexadecimal) and ";".
constexpr std::size_t max_units = 2 + 10 + 1;
static_assert(max_units >= 3 + 8 + 1);

} // namespace

extern "C" u32 ToCharRef(session* s, u32 value) {
    const bool hexadecimal = s->target.charRefMode == PVZAN_CHARREF_HEX;
    const u32 base = hexadecimal ? 16 : 10;

    std::array<char, max_units> text{};
    std::size_t begin = text.size();
    text[--begin] = ';';
    for (u32 rest = value; rest != 0; rest /= base) {
        text[--begin] = "0123456789ABCDEF"[rest % base];
    }
    if (hexadecimal) {
        text[--begin] = 'x';
    }
    text[--begin] = '#';
    text[--begin] = '&';

    std::array<u8, 2 * max_units> units{};
    const std::size_t ascii_byte = s->target.dstBigEndian != 0 ? 1 : 0;
    std::size_t length = 0;
    for (std::size_t i = begin; i < text.size(); ++i, length += 2) {
        units[length + ascii_byte] = static_cast<u8>(text[i]);
    }
    // A reference never uses the last byte of the buffer, deliberately.
    if (!emit_bytes(s, std::span(units).first(length), 1)) {
        return 0;
    }
    s->outCount += static_cast<u32>(length / 2);
    s->status = PVZAN_WRITTEN;
    return 1;
}
