// Lines and columns.
#include "cconv/fast/kernels/kernels.h"
#include "text/converter.h"
#include "text/unicode.h"

#include <algorithm>
#include <utility>

namespace text {

namespace {

u64 count_utf8(const u8* p, std::size_t size) {
    u64 others = 0;
    std::size_t i = 0;
    for (u64 eight = 0; i + sizeof eight <= size; i += sizeof eight) {
        constexpr u64 ones = 0x0101010101010101;
        std::memcpy(&eight, p + i, sizeof eight);
        others += (eight >> 7 & ~(eight >> 6) & ones) * ones >> 56;
    }
    for (; i < size; ++i) {
        others += (p[i] & 0xC0) == 0x80 ? 1U : 0U;
    }
    return size - others;
}

// Counts the characters of text without faults, by converting it again.
u64 count_codes(pvzan_converter& c, fast::path& path, const u8* p, std::size_t size) {
    session& s = c.work;
    u8 nowhere[1024];
    u64 count = 0;
    for (view text{p, size, true, true}; text.size > 0;) {
        s.inBuf = text.bytes;
        s.inPos = 0;
        s.inCount = 0;
        s.inLen = static_cast<i32>(text.size);
        s.outBuf = nowhere;
        s.outPos = 0;
        s.outLen = sizeof nowhere;
        s.status = PVZAN_WRITTEN;
        path.run(&s);
        count += s.inCount;
        text = text.behind(static_cast<std::size_t>(s.inPos));
        if (s.inPos == 0) {
            const reading_result next = read(c, text);
            if (next.kind == reading_result::silent) {
                set_state(c, next);
            } else {
                ++count;
            }
            text = text.behind(std::max(next.bytes, 1U));
        }
    }
    return count;
}

// Counts the characters that are missing in the column.
u64 count_lacking(pvzan_converter& c, const lag& behind, fast::path& path) {
    const auto size = static_cast<std::size_t>(behind.to - behind.line);
    if (is_unicode(c.from)) { // without surrogates, which are read one by one
        return c.from.kind == PVZAN_KIND_UTF_8 ? count_utf8(behind.line, size) : size / c.from.unit;
    }
    session& s = c.work;
    const u32 in_set = s.srcShiftSet, out_set = s.dstShiftSet, code = s.srcCode;
    s.srcShiftSet = behind.set;
    if (has_states(c)) {
        count_codes(c, path, behind.from, static_cast<std::size_t>(behind.line - behind.from));
    }
    const u64 count = count_codes(c, path, behind.line, size);
    s.srcShiftSet = in_set;
    s.dstShiftSet = out_set;
    s.srcCode = code;
    return count;
}

// Counts every LF, and every CR that no LF follows, for which one unit more is read.
u64 count_breaks(const pvzan_converter& c, const u8* bytes, std::size_t units) {
    return fast::chosen_kernels().count_breaks(bytes, units,
                                               {{c.from.unit, c.now.big_source}, c.lf, c.cr});
}

} // namespace

std::size_t behind_last_break(const pvzan_converter& c, const u8* bytes, std::size_t size) {
    const u32 unit = c.from.unit;
    if (unit == 1) {
        const auto* lf = static_cast<const u8*>(::memrchr(bytes, c.lf, size));
        const u8* const behind = lf != nullptr ? lf + 1 : bytes;
        const auto* cr = static_cast<const u8*>(
            ::memrchr(behind, c.cr, static_cast<std::size_t>(bytes + size - behind)));
        return static_cast<std::size_t>((cr != nullptr ? cr + 1 : behind) - bytes);
    }
    const auto ends_in_break = [&](std::size_t units) {
        const u32 code = load_code({bytes + (units - 1) * unit, unit}, c.now.big_source);
        return code == c.lf || code == c.cr;
    };
    std::size_t end = size / unit;
    if (end == 0 || ends_in_break(end)) {
        return end * unit;
    }
    // Only where there is one is it looked for unit by unit. Counting reads one unit more.
    --end;
    for (std::size_t some = 256; end > 0; some *= 2) {
        const std::size_t begin = end - std::min(end, some);
        if (count_breaks(c, bytes + begin * unit, end - begin) == 0) {
            end = begin;
            continue;
        }
        while (!ends_in_break(end)) {
            --end;
        }
        break;
    }
    return end * unit;
}

void pass(pvzan_converter& c, lag& behind, std::span<const u8> text, u64 characters, u32 set,
          const fast::ascii_breaks* counted) {
    place& at = c.now.at;
    at.offset += text.size();
    if (!tells_lines(c)) {
        return;
    }
    const std::size_t line = behind_last_break(c, text.data(), text.size());
    if (line == 0) {
        at.column += characters;
        at.behind_cr = false;
        return;
    }
    const u32 unit = c.from.unit;
    const auto code_at = [&](std::size_t i) {
        return load_code(text.subspan(i, unit), c.now.big_source);
    };
    at.line += counted != nullptr && !counted->has_returns
                   ? counted->line_feeds
                   : 1 + count_breaks(c, text.data(), line / unit - 1);
    at.line -= code_at(0) == c.lf && at.behind_cr ? 1U : 0U;
    at.behind_cr = line == text.size() && code_at(line - unit) == c.cr;
    const bool are_units = characters * unit == text.size(); // as in ASCII
    at.column = 1 + (are_units ? (text.size() - line) / unit : 0);
    const u8* const end = text.data() + text.size();
    behind = {text.data(), are_units ? end : text.data() + line, end, set};
}

void catch_up(pvzan_converter& c, lag& behind, fast::path& path) {
    if (behind.line != behind.to) {
        c.now.at.column += count_lacking(c, behind, path);
        behind.line = behind.to;
    }
}

} // namespace text
