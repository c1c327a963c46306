// Lines and columns of text that was run over as a whole.
#include "cconv/fast/kernels/kernels.h"
#include "text/converter.h"

namespace text {

namespace {

// Every LF ends a line, and every CR without an LF behind it; the last byte has none behind it.
u64 count_breaks(const u8* p, std::size_t size) {
    return fast::chosen_kernels().count_breaks(p, size - 1) +
           (p[size - 1] == '\n' || p[size - 1] == '\r' ? 1 : 0);
}

u64 count_unit_breaks(const u8* p, std::size_t size, u32 unit, bool big, bool behind_cr) {
    u64 breaks = 0;
    for (std::size_t at = 0; at + unit <= size; at += unit) {
        const u32 c = load_code({p + at, unit}, big);
        breaks += c == '\r' || (c == '\n' && !behind_cr) ? 1U : 0U;
        behind_cr = c == '\r';
    }
    return breaks;
}

} // namespace

std::size_t behind_last_break(const u8* bytes, std::size_t size, u32 unit, bool big) {
    if (unit == 1) {
        const auto* lf = static_cast<const u8*>(::memrchr(bytes, '\n', size));
        const u8* const behind = lf != nullptr ? lf + 1 : bytes;
        const auto* cr = static_cast<const u8*>(
            ::memrchr(behind, '\r', static_cast<std::size_t>(bytes + size - behind)));
        return static_cast<std::size_t>((cr != nullptr ? cr + 1 : behind) - bytes);
    }
    for (std::size_t end = size / unit * unit; end > 0; end -= unit) {
        const u32 c = load_code({bytes + end - unit, unit}, big);
        if (c == '\n' || c == '\r') {
            return end;
        }
    }
    return 0;
}

void pass(place& at, const u8* bytes, std::size_t size, u32 unit, bool big, std::size_t line,
          u64 characters) {
    if (size < unit) {
        return;
    }
    const u32 first = load_code({bytes, unit}, big),
              last = load_code({bytes + size - unit, unit}, big);
    if (unit == 1) {
        at.line += count_breaks(bytes, size) - (first == '\n' && at.behind_cr ? 1 : 0);
    } else {
        at.line += count_unit_breaks(bytes, size, unit, big, at.behind_cr);
    }
    at.column = (line > 0 ? 1 : at.column) + characters;
    at.behind_cr = last == '\r';
    at.offset += size;
}

} // namespace text
