#include "tools/pvzan/report/message.h"

#include "tools/pvzan/report/shown_text.h"

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

void write_all(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
}

// Called while writing is locked.
void erase_status_line() {
    if (!status_line.empty()) {
        write_all("\r\x1b[K");
    }
}

// Control characters, and what turns the direction of writing or ends a line.
bool drives_terminal(char32_t scalar) {
    return scalar < 0x20 || (scalar >= 0x7F && scalar < 0xA0) || scalar == 0x200E ||
           scalar == 0x200F || (scalar >= 0x2028 && scalar <= 0x202E) ||
           (scalar >= 0x2066 && scalar <= 0x2069);
}

constexpr std::size_t most_escaped = 16; // bytes of a name

} // namespace

void set_message_style(const message_style& style) {
    the_style = style;
}

const message_style& current_style() {
    return the_style;
}

bool wants_color(int descriptor) {
    switch (the_style.color) {
    case color_when::always: return true;
    case color_when::never: return false;
    case color_when::automatic: break;
    }
    const char* no_color = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    const bool dumb = terminal != nullptr && std::string_view(terminal) == "dumb";
    return (no_color == nullptr || *no_color == '\0') && !dumb && ::isatty(descriptor) == 1;
}

bool wants_excerpts(int descriptor) {
    return !the_style.json && !the_style.quiet && (the_style.verbose || ::isatty(descriptor) == 1);
}

std::string hex_bytes(std::span<const std::uint8_t> bytes, std::string_view between) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += fmt::format("{}{:02x}", text.empty() ? "" : between, byte);
    }
    return text;
}

std::string printable(std::string_view text) {
    std::string shown;
    std::size_t escaped = 0;
    bool left_out = false; // the bytes before
    for (std::size_t at = 0; at < text.size();) {
        const auto next = first_character(text.substr(at));
        const std::string_view bytes = text.substr(at, next ? next->bytes : 1);
        at += bytes.size();
        if (next && !drives_terminal(next->scalar)) {
            shown += bytes;
            left_out = false;
            continue;
        }
        for (const char byte : bytes) {
            shown += ++escaped <= most_escaped
                         ? fmt::format("\\x{:02x}", static_cast<unsigned char>(byte))
                     : left_out ? ""
                                : "…";
            left_out = escaped > most_escaped;
        }
    }
    return escaped > most_escaped ? fmt::format("{} ({} bytes)", shown, text.size()) : shown;
}

std::string shown_name(const std::string& name) {
    return name == "-" ? "(standard input)" : printable(name);
}

std::string json_string(std::string_view text) {
    std::string quoted = "\"";
    for (std::size_t at = 0; at < text.size();) {
        const auto next = first_character(text.substr(at));
        if (!next) {
            quoted += fmt::format("\\udc{:02x}", static_cast<unsigned char>(text[at]));
            ++at;
            continue;
        }
        if (next->scalar == '"' || next->scalar == '\\') {
            quoted += '\\';
            quoted += text[at];
        } else if (drives_terminal(next->scalar)) {
            quoted += fmt::format("\\u{:04x}", static_cast<unsigned>(next->scalar));
        } else {
            quoted += text.substr(at, next->bytes);
        }
        at += next->bytes;
    }
    return quoted + '"';
}

std::string grouped(std::uint64_t number) {
    constexpr std::uint64_t thousand = 1000;
    return number < thousand
               ? fmt::format("{}", number)
               : fmt::format("{},{:03}", grouped(number / thousand), number % thousand);
}

void complain(std::string_view message) {
    say_lines(complaint(message));
}

std::string complaint(std::string_view message, const std::string& file) {
    return the_style.json
               ? fmt::format("{{\"file\":{},\"kind\":\"error\",\"message\":{}}}\n",
                             file.empty() ? "null" : json_string(file), json_string(message))
               : fmt::format("pvzan: {}\n", message);
}

std::string complaint_about(const std::string& file, std::string_view message) {
    return complaint(the_style.json ? std::string(message)
                                    : fmt::format("{}: {}", shown_name(file), message),
                     file);
}

void complain_about(const std::string& file, std::string_view message) {
    say_lines(complaint_about(file, message));
}

void say(std::string_view line) {
    say_lines(fmt::format("{}\n", line));
}

void say_lines(std::string_view lines) {
    if (lines.empty()) {
        return;
    }
    const std::scoped_lock lock(writing);
    erase_status_line();
    write_all(lines);
    write_all(status_line);
}

void answer_lines(std::string_view lines) {
    const std::scoped_lock lock(writing);
    erase_status_line();
    std::fwrite(lines.data(), 1, lines.size(), stdout);
    if (!status_line.empty()) {
        std::fflush(stdout);
        write_all(status_line);
    }
}

void show_status_line(const std::string& line) {
    const std::scoped_lock lock(writing);
    erase_status_line();
    status_line = line;
    write_all(status_line);
    std::fflush(stderr);
}

std::string system_error_text(int error) {
    return std::generic_category().message(error);
}

} // namespace tool
