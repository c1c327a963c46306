// Output functions: the bounds-checked writer, codes in byte order, line breaks, pending marks.
#include "cconv/engine/engine.h"

#include <algorithm>
#include <optional>

namespace {

// Reserves n bytes of the output if spare free bytes remain after them; otherwise sets status 22.
std::optional<std::span<u8>> claim(session* s, i64 n, i64 spare) {
    if (n + spare > output_room(s)) {
        s->status = PVZAN_OUTPUT_FULL;
        return std::nullopt;
    }
    if (n == 0) {
        return std::span<u8>();
    }
    const std::span<u8> bytes{s->outBuf + s->outPos, static_cast<std::size_t>(n)};
    s->outPos += static_cast<i32>(n);
    return bytes;
}

void store_code(std::span<u8> out, u32 code, bool big_endian) {
    for (std::size_t i = 0; i < out.size(); ++i) {
        const u8 byte = i < sizeof code ? static_cast<u8>(code >> 8 * i) : u8{0};
        out[big_endian ? out.size() - 1 - i : i] = byte;
    }
}

// Restores the output position if something could not be written completely.
u32 withdraw(session* s, i32 position) {
    s->outPos = position;
    return 0;
}

// A base and its mark, or a line break; second is 0 if there is none.
struct written_codes {
    u32 first, second;
};

written_codes chosen_newline(const session* s, u16 width) {
    switch (s->target.newlineMode) {
    case PVZAN_NEWLINE_CR: return {'\r', 0};
    case PVZAN_NEWLINE_LF: return {'\n', 0};
    case PVZAN_NEWLINE_LINE_SEPARATOR:
    case PVZAN_NEWLINE_PARAGRAPH_SEPARATOR:
        if (width != 1) {
            const bool line = s->target.newlineMode == PVZAN_NEWLINE_LINE_SEPARATOR;
            return {line ? line_separator : paragraph_separator, 0};
        }
        break;
    default: break;
    }
    return {'\r', '\n'};
}

} // namespace

bool emit_bytes(session* s, std::span<const u8> bytes, i64 spare) {
    const auto out = claim(s, static_cast<i64>(bytes.size()), spare);
    if (!out) {
        return false;
    }
    std::ranges::copy(bytes, out->begin());
    return true;
}

extern "C" {

u32 putCode(session* s, code_filter codeMap, put_function putFunc, u32 code, u16 width) {
    if (codeMap != nullptr) {
        code = codeMap(code);
    }
    if (putFunc != nullptr) {
        return putFunc(s, code);
    }
    const auto out = claim(s, width, 0);
    if (!out) {
        return 0;
    }
    store_code(*out, code, s->target.dstBigEndian != 0);
    ++s->outCount;
    s->status = PVZAN_WRITTEN;
    return 1;
}

// A value of an extra encode table may be as long as several codes of the set: 12345678 in a
// two-byte set is written as 1234 and 5678.
u32 putNdsCode(session* s, code_filter codeMap, put_function putFunc, u32 code, u16 width) {
    const u32 total = s->outDone;
    if (total < width || width == 0) {
        return stop_with(s, PVZAN_UNKNOWN_CHARSET);
    }
    const i32 before = s->outPos;
    for (u32 begin = 0; begin + width <= total; begin += width) {
        const u32 bytes_behind = total - begin - width;
        const u32 unit = bytes_behind < sizeof code ? code >> 8 * bytes_behind : 0;
        const u32 unit_bits = width < sizeof code ? (1U << 8 * width) - 1 : ~0U;
        if (putCode(s, codeMap, putFunc, unit & unit_bits, width) == 0) {
            return withdraw(s, before);
        }
    }
    return 1;
}

u32 convDstPutcode(session* s, code_filter codeMap, put_function putFunc) {
    const u16 width = output_width(s);
    const bool has_units = s->outDone != 0;
    const i32 before = s->outPos;
    const auto put = [=](u32 code) {
        return has_units ? putNdsCode(s, codeMap, putFunc, code, width)
                         : putCode(s, codeMap, putFunc, code, width);
    };
    const bool breaks = !has_units && s->target.convertNewline != 0 && s->outCode == '\r';
    const written_codes codes =
        breaks ? chosen_newline(s, width) : written_codes{s->outCode, s->outCode2};
    // Both are written together or not at all: the call is repeated for both.
    if (put(codes.first) == 0 || (codes.second != 0 && put(codes.second) == 0)) {
        return withdraw(s, before);
    }
    return 1;
}

} // extern "C"
