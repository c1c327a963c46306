// Finds the most frequent kind of line break in a text.
#include "cconv/detect/detect.h"

#include "cconv/registry/names.h"

namespace {

struct break_counts {
    u32 crlf = 0, cr = 0, lf = 0, line_separator = 0, paragraph_separator = 0;
};

struct code_units {
    std::size_t width;
    bool big_endian;
};

code_units units_of(const pvzan_detection_request* request) {
    const bool big_endian = request->bigEndian != 0;
    if (byteCmp(request->encodingName, "EUC-JP-FIX") != 0) {
        return {2, true};
    }
    if (byteCmp(request->encodingName, "UTF-16") != 0) {
        return {2, big_endian};
    }
    if (byteCmp(request->encodingName, "ISO-10646-UCS-4") != 0) {
        return {4, big_endian};
    }
    return {1, big_endian};
}

constexpr u32 line_separator = 0x2028, paragraph_separator = 0x2029;

// In UTF-8 the separators are E2 80 A8 and E2 80 A9.
constexpr u32 separator_lead = 0xE2, separator_middle = 0x80;

// The unit after a CR or LF is always skipped, deliberately, so that of a run of equal line breaks
// only every second one counts. LF CR counts as CR LF.
break_counts count_breaks(bytes_view text, code_units units) {
    break_counts counts;
    u32 previous = 0;
    for (std::size_t at = 0; at + units.width <= text.size();) {
        const u32 unit = load_code(text.subspan(at, units.width), units.big_endian);
        at += units.width;
        if (previous == '\r') {
            ++(unit == '\n' ? counts.crlf : counts.cr);
            previous = 0;
        } else if (previous == '\n') {
            ++(unit == '\r' ? counts.crlf : counts.lf);
            previous = 0;
        } else if (previous == separator_lead && unit == separator_middle) {
            if (at < text.size()) {
                const u8 last = text[at++];
                counts.line_separator += last == 0xA8 ? 1U : 0U;
                counts.paragraph_separator += last == 0xA9 ? 1U : 0U;
            }
            previous = 0;
        } else {
            counts.line_separator += unit == line_separator ? 1U : 0U;
            counts.paragraph_separator += unit == paragraph_separator ? 1U : 0U;
            previous = unit;
        }
    }
    return counts;
}

u32 prevailing(const break_counts& c) {
    const auto above = [](u32 count, std::initializer_list<u32> others) {
        for (const u32 other : others) {
            if (count <= other) {
                return false;
            }
        }
        return true;
    };
    if (above(c.line_separator, {c.crlf, c.cr, c.lf, c.paragraph_separator})) {
        return PVZAN_NEWLINE_LINE_SEPARATOR;
    }
    if (above(c.paragraph_separator, {c.crlf, c.cr, c.lf, c.line_separator})) {
        return PVZAN_NEWLINE_PARAGRAPH_SEPARATOR;
    }
    if (above(c.cr, {c.crlf, c.lf, c.line_separator, c.paragraph_separator})) {
        return PVZAN_NEWLINE_CR;
    }
    if (above(c.lf, {c.crlf, c.cr, c.line_separator, c.paragraph_separator})) {
        return PVZAN_NEWLINE_LF;
    }
    return c.crlf != 0 ? PVZAN_NEWLINE_CRLF : 0;
}

// ISO-2022-JP has no separators; in it, single line breaks win over any number of pairs.
u32 prevailing_iso2022(const break_counts& c) {
    if (c.cr != c.lf) {
        return c.cr > c.lf ? PVZAN_NEWLINE_CR : PVZAN_NEWLINE_LF;
    }
    return c.crlf != 0 ? PVZAN_NEWLINE_CRLF : 0;
}

} // namespace

u32 find_newline_kind(const pvzan_detection_request* request, bytes_view text) {
    const break_counts counts = count_breaks(text, units_of(request));
    return byteCmp(request->encodingName, "ISO-2022-JP") != 0 ? prevailing_iso2022(counts)
                                                              : prevailing(counts);
}
