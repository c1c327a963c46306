// Lines and columns of text that was run over as a whole.
#include "cconv/fast/kernels/kernels.h"
#include "text/converter.h"

namespace text {

namespace {

// Every LF, and every CR without an LF behind it, among all units but the last.
u64 count_breaks(const u8* bytes, std::size_t size, line_form form) {
    if (form.line_feed == '\n') {
        return fast::chosen_kernels().count_breaks(bytes, size / form.unit - 1,
                                                   {form.unit, form.big});
    }
    u64 count = 0;
    for (std::size_t i = 0; i + 1 < size; ++i) {
        const bool alone = bytes[i] == '\r' && bytes[i + 1] != form.line_feed;
        count += bytes[i] == form.line_feed || alone ? 1U : 0U;
    }
    return count;
}

} // namespace

std::size_t behind_last_break(const u8* bytes, std::size_t size, line_form form) {
    const u32 unit = form.unit;
    if (unit == 1) {
        const auto* lf =
            static_cast<const u8*>(::memrchr(bytes, static_cast<int>(form.line_feed), size));
        const u8* const behind = lf != nullptr ? lf + 1 : bytes;
        const auto* cr = static_cast<const u8*>(
            ::memrchr(behind, '\r', static_cast<std::size_t>(bytes + size - behind)));
        return static_cast<std::size_t>((cr != nullptr ? cr + 1 : behind) - bytes);
    }
    for (std::size_t end = size / unit * unit; end > 0; end -= unit) {
        const u32 c = load_code({bytes + end - unit, unit}, form.big);
        if (c == '\n' || c == '\r') {
            return end;
        }
    }
    return 0;
}

void pass(place& at, const u8* bytes, std::size_t size, line_form form, std::size_t line,
          u64 characters) {
    at.offset += size;
    if (line == 0) {
        at.column += characters;
        at.behind_cr = false;
        return;
    }
    // The last unit has no LF behind it.
    const u32 unit = form.unit;
    const u8* const last_unit = bytes + size - unit;
    const u32 first = load_code({bytes, unit}, form.big),
              last = load_code({last_unit, unit}, form.big);
    at.line += count_breaks(bytes, size, form);
    at.line += last == form.line_feed || last == '\r' ? 1 : 0;
    at.line -= first == form.line_feed && at.behind_cr ? 1 : 0;
    at.column = 1 + characters;
    at.behind_cr = last == '\r';
}

} // namespace text
