#include "tools/pvzan/detect_file.h"

#include "tools/pvzan/charset_directory.h"
#include "tools/pvzan/exit_status.h"
#include "tools/pvzan/input_file.h"
#include "tools/pvzan/message.h"

#include "pvzan.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>

namespace tool {

namespace {

// More than detection looks at.
constexpr std::size_t examined_bytes = 8192;

// The start of a file; false on failure, with errno set.
bool read_start(const std::string& name, std::vector<std::uint8_t>& text) {
    const input_file file(name);
    if (!file.is_open()) {
        return false;
    }
    text.resize(examined_bytes);
    std::size_t length = 0;
    ssize_t n = 1;
    while (n > 0 && length < text.size()) {
        n = file.read(std::span(text).subspan(length));
        length += n > 0 ? static_cast<std::size_t>(n) : 0;
    }
    text.resize(length);
    return n >= 0;
}

const char* newline_name(std::uint32_t kind) {
    switch (kind) {
    case PVZAN_NEWLINE_CRLF: return "CR LF";
    case PVZAN_NEWLINE_CR: return "CR";
    case PVZAN_NEWLINE_LF: return "LF";
    case PVZAN_NEWLINE_LINE_SEPARATOR: return "U+2028";
    case PVZAN_NEWLINE_PARAGRAPH_SEPARATOR: return "U+2029";
    default: return "no line breaks";
    }
}

std::string describe(const pvzan_detection_request& answer) {
    std::string text = printable(answer.encodingName);
    if (cconvIsEndianAware(answer.encodingName) != 0) {
        text += answer.bigEndian != 0 ? ", big-endian" : ", little-endian";
    }
    text += fmt::format(", {}", newline_name(answer.newlineKind));
    text += answer.bomFound != 0 ? ", byte-order mark" : "";
    text += answer.xmlDeclared != 0 ? ", XML declaration" : "";
    return text;
}

int detect(const std::string& name) {
    std::vector<std::uint8_t> text;
    if (!read_start(name, text)) {
        complain(fmt::format("{}: cannot read: {}", shown_name(name), system_error_text(errno)));
        return exit_no_work;
    }
    const auto request = std::make_unique<pvzan_detection_request>();
    request->text = text.data();
    request->textEnd = static_cast<std::int32_t>(text.size());
    const bool known = cconvChkEncode(request.get()) != 0;
    fmt::print("{}: {}\n", shown_name(name), known ? describe(*request) : "unknown");
    return known ? exit_converted : exit_bad_text;
}

} // namespace

int detect_files(const detect_options& options) {
    if (!open_charset_directory(options.charset_dir)) {
        return exit_no_work;
    }
    std::vector<std::string> files = options.files;
    if (files.empty()) {
        files.emplace_back("-");
    }
    int worst = exit_converted;
    for (const std::string& file : files) {
        worst = std::max(worst, detect(file));
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain(fmt::format("standard output: cannot write: {}", system_error_text(errno)));
        return exit_no_work;
    }
    return worst;
}

} // namespace tool
