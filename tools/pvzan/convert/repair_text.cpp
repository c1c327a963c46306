#include "tools/pvzan/convert/repair_text.h"

#include "tools/pvzan/detect/misreading.h"
#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include <algorithm>
#include <cerrno>

namespace tool {

namespace {

constexpr std::size_t block_bytes = std::size_t{64} * 1024;

bool read_all(const input_file& file, std::vector<std::uint8_t>& text) {
    for (;;) {
        const std::size_t filled = text.size();
        text.resize(filled + block_bytes);
        const ssize_t n = file.read(std::span(text).subspan(filled));
        text.resize(filled + static_cast<std::size_t>(std::max(n, ssize_t{0})));
        if (n <= 0) {
            return n == 0;
        }
    }
}

std::string_view take_line(std::string_view& text) {
    const std::size_t size = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, size);
    text.remove_prefix(std::min(size + 1, text.size()));
    return line;
}

bool is_beyond_ascii(char c) {
    return static_cast<unsigned char>(c) >= 0x80;
}

std::string_view as_text(const std::vector<std::uint8_t>& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// What became of the lines: the first few before and after, and how many.
void tell_lines(std::string_view before, std::string_view after, const char* words,
                file_report& report) {
    constexpr std::uint64_t most_shown = 3;
    std::uint64_t repaired = 0, left = 0;
    for (std::uint64_t line = 1; !before.empty(); ++line) {
        const std::string_view old = take_line(before), now = take_line(after);
        if (old == now) {
            left += std::ranges::any_of(old, is_beyond_ascii) ? 1U : 0U;
        } else if (++repaired <= most_shown) {
            report.note(
                fmt::format("line {}: '{}' becomes '{}'", line, printable(old), printable(now)));
        }
    }
    std::string text = fmt::format("{}: {} repaired", words, counted(repaired, "line"));
    if (left > 0) {
        text += fmt::format(", {} left as {}", counted(left, "other"),
                            left == 1 ? "it is" : "they are");
    }
    report.note(text);
}

} // namespace

text_result repair_text(const input_file& file, const byte_sink& output, file_report& report) {
    text_result result;
    std::vector<std::uint8_t> text;
    if (!read_all(file, text)) {
        result.end = text_end::unreadable;
        result.error = fmt::format("cannot read: {}", system_error_text(errno));
        return result;
    }
    const pvzan_name utf8 = charset_of("utf-8");
    report.set_source(utf8);
    if (!passes(*open_converter(utf8, utf8), text, PVZAN_LAST)) {
        result.end = text_end::unknown;
        result.error = "is not in UTF-8; convert it first";
        return result;
    }
    result.facts.bytes_in = text.size();
    if (const auto misreading = find_misreading(text)) {
        std::vector<std::uint8_t> repaired = undo_misreading(*misreading, text);
        tell_lines(as_text(text), as_text(repaired), misreading->words, report);
        text = std::move(repaired);
    } else {
        report.note("found no text that can be restored exactly; nothing is repaired");
    }
    result.facts.bytes_out = text.size();
    if (!output(text)) {
        result.end = text_end::unwritable;
    }
    return result;
}

} // namespace tool
