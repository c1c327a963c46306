// Lines and columns of text that was run over as a whole.
#include "cconv/fast/kernels/kernels.h"
#include "text/converter.h"

namespace text {

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
    at.offset += size;
    if (line == 0) {
        at.column += characters;
        at.behind_cr = false;
        return;
    }
    // Every LF ends a line, and every CR without an LF behind it; the last unit has none behind it.
    const u8* const last_unit = bytes + size - unit;
    const u32 first = load_code({bytes, unit}, big), last = load_code({last_unit, unit}, big);
    at.line += fast::count_breaks(bytes, size / unit - 1, {unit, big});
    at.line += last == '\n' || last == '\r' ? 1 : 0;
    at.line -= first == '\n' && at.behind_cr ? 1 : 0;
    at.column = 1 + characters;
    at.behind_cr = last == '\r';
}

} // namespace text
