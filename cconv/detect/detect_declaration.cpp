// The XML declaration at the start of a text, in units of one, two or four bytes.
#include "cconv/detect/detect.h"

#include <algorithm>
#include <string_view>

namespace {

using std::operator""sv;

// Patterns are compared in little-endian units, without the zero bytes of the last one. So
// big-endian text matches one or three bytes later.
struct place {
    i32 width;
    i32 offset;  // from the start of the text, after a mark
    i32 min_end; // index of the end of the text, not its length, deliberately: see below
    bool after_mark;
};

// In the order in which they are tried. The limits are for texts that begin at index 0; a text that
// begins later is also limited by its own end.
constexpr place places[] = {
    {1, 0, 6, false}, {1, 2, 8, true},   {2, 0, 10, false}, {2, 2, 12, true},  {2, 1, 11, false},
    {2, 3, 13, true}, {4, 0, 18, false}, {4, 2, 20, true},  {4, 3, 21, false}, {4, 5, 23, true},
};

std::size_t unit_bytes(i32 width) {
    return width == 2 || width == 4 ? static_cast<std::size_t>(width) : 1;
}

std::size_t pattern_bytes(std::string_view pattern, std::size_t width) {
    return (pattern.size() - 1) * width + 1;
}

bool pattern_at(bytes_view text, std::size_t at, std::string_view pattern, std::size_t width) {
    const std::size_t length = pattern_bytes(pattern, width);
    if (at > text.size() || text.size() - at < length) {
        return false;
    }
    for (std::size_t i = 0; i < length; ++i) {
        const char wanted = i % width == 0 ? pattern[i / width] : '\0';
        if (text[at + i] != static_cast<u8>(wanted)) {
            return false;
        }
    }
    return true;
}

const char* default_name(i32 width) {
    switch (width) {
    case 2: return "UTF-16";
    case 4: return "ISO-10646-UCS-4";
    default: return "UTF-8";
    }
}

const place* find_declaration(bytes_view text, std::size_t begin, bool marked) {
    const place* found = std::ranges::find_if(places, [=](const place& p) {
        if (static_cast<i64>(text.size()) < p.min_end || (p.after_mark && !marked)) {
            return false;
        }
        const std::size_t at = begin + static_cast<std::size_t>(p.offset);
        const std::size_t width = unit_bytes(p.width);
        return pattern_at(text, at, "<?XML"sv, width) || pattern_at(text, at, "<?xml"sv, width);
    });
    return found != std::end(places) ? found : nullptr;
}

constexpr bool is_quote(u32 unit) {
    return unit == '"' || unit == '\'';
}

// Copies the quoted value after the keyword. Both kinds of quotes may open and close it.
bool copy_declared_name(bytes_view text, std::size_t from, std::size_t width, bool big_endian,
                        char (&name)[text_bytes]) {
    const auto next_quote = [=](std::size_t at) {
        while (at + width <= text.size() &&
               !is_quote(load_code(text.subspan(at, width), big_endian))) {
            at += width;
        }
        return at;
    };
    const std::size_t first = next_quote(from) + width;
    if (first > text.size()) {
        return false;
    }
    const std::size_t close = next_quote(first);
    if (close + width > text.size() || close == first || close - first + 1 > text_bytes - 1) {
        return false;
    }
    std::size_t length = 0;
    for (std::size_t at = first; at < close; at += width) {
        name[length++] = static_cast<char>(load_code(text.subspan(at, width), big_endian) & 0xFF);
    }
    name[length] = '\0';
    return true;
}

// The offset of the keyword on the line that begins at from, or 0. Units are counted from the start
// of the buffer. Something must follow the keyword.
std::size_t find_keyword(bytes_view buffer, std::size_t from, std::size_t width) {
    const std::size_t length = pattern_bytes("encoding"sv, width);
    for (std::size_t at = from; at + length < buffer.size(); ++at) {
        if (buffer[at] == '\r' || buffer[at] == '\n') {
            return 0;
        }
        if (pattern_at(buffer, at, "ENCODING"sv, width) ||
            pattern_at(buffer, at, "encoding"sv, width)) {
            return at / width * width;
        }
    }
    return 0;
}

} // namespace

extern "C" i32 findEncoding(const u8* buffer, i32 end, i32 width) {
    if (buffer == nullptr || end < 1) {
        return 0;
    }
    return static_cast<i32>(
        find_keyword({buffer, static_cast<std::size_t>(end)}, 0, unit_bytes(width)));
}

bool read_declaration(pvzan_detection_request* request, i32 pos) {
    // Indexes are relative to the start of the buffer, but nothing before the first byte of the
    // text is read.
    const auto begin = static_cast<std::size_t>(pos);
    const bytes_view buffer(request->text, static_cast<std::size_t>(request->textEnd));
    const place* found = find_declaration(buffer, begin, request->bomFound != 0);
    if (found == nullptr) {
        return false;
    }
    request->xmlDeclared = 1;
    if (found->width != 1) {
        request->bigEndian = buffer[begin] == 0;
    }
    const std::size_t width = unit_bytes(found->width);
    const std::size_t keyword =
        find_keyword(buffer, static_cast<std::size_t>(request->textPos), width);
    if (keyword == 0) {
        // A declaration without the keyword determines the encoding, even if a mark says otherwise.
        copy_text(request->encodingName, default_name(found->width));
        return true;
    }
    if (!copy_declared_name(buffer, keyword, width, request->bigEndian != 0,
                            request->encodingName) &&
        request->encodingName[0] == '\0') {
        copy_text(request->encodingName, default_name(found->width));
    }
    return true;
}
