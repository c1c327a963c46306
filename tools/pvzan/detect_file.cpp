#include "tools/pvzan/detect_file.h"

#include "tools/pvzan/charset_directory.h"
#include "tools/pvzan/exit_status.h"
#include "tools/pvzan/guess.h"
#include "tools/pvzan/input_file.h"
#include "tools/pvzan/message.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace tool {

namespace {

// More than detection looks at.
constexpr std::size_t examined_bytes = 16384;

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

std::string json_line(const std::string& name, const charset_guess& guess) {
    std::string breaks = guess.breaks;
    std::ranges::transform(breaks, breaks.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; });
    std::string line =
        fmt::format(R"({{"file":{},"charset":{},"sure":{},"eol":{},"bom":{})", json_string(name),
                    guess.known ? json_string(guess.charset.shown) : "null", guess.sure,
                    breaks == "-" ? "null" : json_string(breaks), guess.mark);
    line += guess.binary ? R"(,"binary":true)" : "";
    line += guess.reason.empty() ? "" : R"(,"reason":)" + json_string(guess.reason);
    line += R"(,"candidates":[)";
    const char* comma = "";
    for (const guess_candidate& candidate : guess.candidates) {
        line += fmt::format(R"({}{{"charset":{},"score":{:.2f}}})", comma,
                            json_string(candidate.charset.shown), candidate.score);
        comma = ",";
    }
    return line + "]}\n";
}

std::string plain_line(const std::string& name, std::size_t width, const charset_guess& guess) {
    std::string line = fmt::format("{:<{}}   ", name, width);
    if (!guess.known) {
        return line + (guess.binary ? "binary\n" : "unknown\n");
    }
    line +=
        fmt::format("{:<18}{:<7}{}", std::string(guess.charset.shown) + (guess.mark ? ", BOM" : ""),
                    guess.breaks, guess.sure ? "sure" : "unsure");
    if (!guess.reason.empty()) {
        line += fmt::format("{}({})", guess.sure ? "     " : "   ", guess.reason);
    }
    return line + "\n";
}

int detect(const std::string& name, std::size_t width, const detect_options& options) {
    std::vector<std::uint8_t> text;
    if (!read_start(name, text)) {
        complain_about(name, fmt::format("cannot read: {}", system_error_text(errno)));
        return exit_no_work;
    }
    const bool whole = text.size() < examined_bytes;
    const charset_guess guess = guess_charset(text, whole, options.candidates);
    answer_lines(current_style().json ? json_line(name, guess)
                                      : plain_line(shown_name(name), width, guess));
    return guess.known ? exit_converted : exit_bad_text;
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
    for (const std::string& name : options.candidates) {
        if (!is_known(name)) {
            return exit_no_work;
        }
    }
    std::size_t width = 0;
    for (const std::string& file : files) {
        width = std::max(width, shown_name(file).size());
    }
    int worst = exit_converted;
    for (const std::string& file : files) {
        worst = std::max(worst, detect(file, width, options));
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain(fmt::format("standard output: cannot write: {}", system_error_text(errno)));
        return exit_no_work;
    }
    return worst;
}

} // namespace tool
