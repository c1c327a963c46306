#include "tools/pvzan/text_place.h"

#include <algorithm>
#include <cstring>

namespace tool {

namespace {

// Reads code units of a charset.
class unit_reader {
public:
    explicit unit_reader(const charset_name& charset)
        : width(charset.unit_bytes()), big_endian_(charset.big_endian) {}

    [[nodiscard]] char32_t operator()(bytes_view text, std::size_t index) const {
        char32_t unit = 0;
        for (std::size_t i = 0; i < width; ++i) {
            unit = unit << 8 | text[index + (big_endian_ ? i : width - 1 - i)];
        }
        return unit;
    }

    const std::size_t width;

private:
    bool big_endian_;
};

bool is_break(char32_t unit) {
    return unit == '\n' || unit == '\r';
}

// Counts a break into the lines: the LF of a CR LF has been counted with its CR.
void count_break(text_place& place, char32_t unit) {
    if (unit == '\r' || !place.behind_cr) {
        ++place.line;
    }
    place.column = 1;
    place.behind_cr = unit == '\r';
}

// Calls f with the offset of every such byte.
template <typename F>
void for_each_byte(bytes_view text, char byte, F f) {
    for (std::size_t from = 0; from < text.size();) {
        const void* found = std::memchr(text.data() + from, byte, text.size() - from);
        if (found == nullptr) {
            return;
        }
        const auto at =
            static_cast<std::size_t>(static_cast<const std::uint8_t*>(found) - text.data());
        f(at);
        from = at + 1;
    }
}

// Every LF ends a line, and every CR without an LF behind it.
void count_byte_breaks(text_place& place, bytes_view text) {
    for_each_byte(text, '\n', [&](std::size_t at) {
        if (at > 0 || !place.behind_cr) {
            ++place.line;
        }
    });
    for_each_byte(text, '\r', [&](std::size_t at) {
        if (at + 1 == text.size() || text[at + 1] != '\n') {
            ++place.line;
        }
    });
    place.behind_cr = !text.empty() && text.back() == '\r';
}

void count_unit_breaks(text_place& place, bytes_view text, const charset_name& charset) {
    const unit_reader unit_at(charset);
    for (std::size_t i = 0; i + unit_at.width <= text.size(); i += unit_at.width) {
        const char32_t unit = unit_at(text, i);
        if (is_break(unit)) {
            count_break(place, unit);
        } else {
            place.behind_cr = false;
        }
    }
}

} // namespace

void step(text_place& place, char32_t character, std::size_t bytes) {
    if (is_break(character)) {
        count_break(place, character);
    } else {
        ++place.column;
        place.behind_cr = false;
    }
    place.offset += bytes;
}

void pass(text_place& place, bytes_view text, const charset_name& charset,
          std::uint64_t tail_characters) {
    if (behind_last_break(text, charset) > 0) {
        place.column = 1;
    }
    place.column += tail_characters;
    place.offset += text.size();
    if (charset.unit_bytes() == 1) {
        count_byte_breaks(place, text);
    } else {
        const std::uint64_t column = place.column;
        count_unit_breaks(place, text, charset);
        place.column = column;
    }
}

std::size_t behind_last_break(bytes_view text, const charset_name& charset) {
    const unit_reader unit_at(charset);
    if (unit_at.width == 1) {
        const auto behind_last = [text](char byte) -> std::size_t {
            const void* found = text.empty() ? nullptr : ::memrchr(text.data(), byte, text.size());
            return found == nullptr ? 0
                                    : static_cast<std::size_t>(
                                          static_cast<const std::uint8_t*>(found) - text.data()) +
                                          1;
        };
        return std::max(behind_last('\n'), behind_last('\r'));
    }
    for (std::size_t end = text.size() / unit_at.width * unit_at.width; end > 0;
         end -= unit_at.width) {
        if (is_break(unit_at(text, end - unit_at.width))) {
            return end;
        }
    }
    return 0;
}

std::size_t behind_last_line_feed(bytes_view text, const charset_name& charset) {
    const unit_reader unit_at(charset);
    const std::size_t width = unit_at.width;
    for (std::size_t end = text.size() / width * width; end > 0; end -= width) {
        if (unit_at(text, end - width) == '\n') {
            return end;
        }
    }
    return 0;
}

std::size_t behind_first_break(bytes_view text, const charset_name& charset) {
    const unit_reader unit_at(charset);
    const std::size_t width = unit_at.width;
    std::size_t at = 0;
    if (width == 1) {
        const auto first = [](bytes_view in, char byte) {
            const void* found = in.empty() ? nullptr : std::memchr(in.data(), byte, in.size());
            return found == nullptr ? in.size()
                                    : static_cast<std::size_t>(
                                          static_cast<const std::uint8_t*>(found) - in.data());
        };
        at = first(text.first(first(text, '\n')), '\r');
    } else {
        while (at + width <= text.size() && !is_break(unit_at(text, at))) {
            at += width;
        }
    }
    const std::size_t next = at + width;
    if (next > text.size()) {
        return 0;
    }
    const bool pair =
        unit_at(text, at) == '\r' && next + width <= text.size() && unit_at(text, next) == '\n';
    return pair ? next + width : next;
}

const char* kind_of_breaks(bytes_view text, const charset_name& charset) {
    const unit_reader unit_at(charset);
    const std::size_t width = unit_at.width;
    const char* kind = "";
    for (std::size_t at = 0; at + width <= text.size();) {
        const std::size_t end = behind_first_break(text.subspan(at), charset);
        if (end == 0) {
            break;
        }
        const bool feed = unit_at(text, at + end - width) == '\n';
        const bool pair = feed && end >= 2 * width && unit_at(text, at + end - 2 * width) == '\r';
        const char* next = pair ? "CRLF" : feed ? "LF" : "CR";
        if (*kind != '\0' && kind != next) {
            return "mixed line breaks";
        }
        kind = next;
        at += end;
    }
    return kind;
}

} // namespace tool
