#include "tools/pvzan/break_writer.h"

#include "tools/pvzan/text_place.h"

#include <algorithm>
#include <string_view>

namespace tool {

namespace {

// A character of ASCII in code units of the charset.
std::vector<std::uint8_t> units_of(std::string_view text, const charset_name& charset) {
    const std::size_t width = charset.unit_bytes();
    std::vector<std::uint8_t> bytes;
    for (const char c : text) {
        const std::size_t start = bytes.size();
        bytes.resize(start + width);
        bytes[start + (charset.big_endian ? width - 1 : 0)] = static_cast<std::uint8_t>(c);
    }
    return bytes;
}

} // namespace

break_writer::break_writer(line_breaks asked, const charset_name& charset)
    : asked_(asked), charset_(charset), cr_(units_of("\r", charset)), lf_(units_of("\n", charset)),
      break_(asked == line_breaks::crlf ? units_of("\r\n", charset)
             : asked == line_breaks::cr ? cr_
                                        : lf_) {}

bytes_view break_writer::operator()(bytes_view text) {
    if (asked_ == line_breaks::keep) {
        return text;
    }
    const std::size_t width = charset_.unit_bytes();
    out_.clear();
    while (!text.empty()) {
        if (behind_cr_ && std::ranges::equal(text.first(width), lf_)) {
            text = text.subspan(width);
        }
        behind_cr_ = false;
        const std::size_t end = behind_first_break(text, charset_);
        const bytes_view line = text.first(end > 0 ? end : text.size());
        std::size_t kept = line.size();
        if (end > 0) {
            kept -= width;
            behind_cr_ = std::ranges::equal(line.subspan(kept), cr_);
            const bool pair = !behind_cr_ && kept >= width &&
                              std::ranges::equal(line.subspan(kept - width, width), cr_);
            kept -= pair ? width : 0;
        }
        out_.insert(out_.end(), line.begin(), line.begin() + static_cast<std::ptrdiff_t>(kept));
        if (end > 0) {
            out_.insert(out_.end(), break_.begin(), break_.end());
        }
        text = text.subspan(line.size());
    }
    return out_;
}

} // namespace tool
