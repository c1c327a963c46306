#include "tools/pvzan/report/message.h"

#include "tools/pvzan/report/json.h"
#include "tools/pvzan/report/shown_text.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <system_error>
#include <unistd.h>

namespace tool {

namespace {

message_style the_style;
std::mutex writing;
std::string status_line; // as it stands on the terminal

void erase_status_line() {
    if (!status_line.empty()) {
        std::fputs("\r\x1b[K", stderr);
    }
}

void write_lines(std::string_view lines, std::FILE* stream) {
    const std::scoped_lock lock(writing);
    erase_status_line();
    std::fwrite(lines.data(), 1, lines.size(), stream);
    if (!status_line.empty()) {
        std::fflush(stream);
        std::fputs(status_line.c_str(), stderr);
    }
}

} // namespace

void set_message_style(const message_style& style) {
    the_style = style;
}

const message_style& current_style() {
    return the_style;
}

bool wants_color(int descriptor) {
    if (the_style.color != color_when::automatic) {
        return the_style.color == color_when::always;
    }
    const char* no_color = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    const bool dumb = terminal != nullptr && std::string_view(terminal) == "dumb";
    return (no_color == nullptr || *no_color == '\0') && !dumb && ::isatty(descriptor) == 1;
}

bool wants_excerpts(int descriptor) {
    return !the_style.json && !the_style.quiet && (the_style.verbose || ::isatty(descriptor) == 1);
}

void complain(std::string_view message) {
    say_lines(complaint(message));
}

std::string complaint(std::string_view message, const std::string& file) {
    return the_style.json ? json_object()
                                .add_json("file", file.empty() ? "null" : json_string(file))
                                .add("kind", "error")
                                .add("message", message)
                                .line()
                          : fmt::format("pvzan: {}\n", message);
}

std::string complaint_about(const std::string& file, std::string_view message) {
    return the_style.json ? complaint(message, file)
                          : complaint(fmt::format("{}: {}", shown_name(file), message));
}

void complain_about(const std::string& file, std::string_view message) {
    say_lines(complaint_about(file, message));
}

void say_lines(std::string_view lines) {
    write_lines(lines, stderr);
}

void answer_lines(std::string_view lines) {
    write_lines(lines, stdout);
}

bool finish_answers() {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return true;
    }
    complain(fmt::format("standard output: cannot write: {}", system_error_text(errno)));
    return false;
}

void show_status_line(const std::string& line) {
    const std::scoped_lock lock(writing);
    erase_status_line();
    status_line = line;
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
}

std::string system_error_text(int error) {
    return std::generic_category().message(error);
}

} // namespace tool
