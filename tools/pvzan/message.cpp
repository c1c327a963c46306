#include "tools/pvzan/message.h"

#include "tools/pvzan/charset_name.h"
#include "tools/pvzan/unicode_text.h"

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

std::string control_code(unsigned char byte) {
    return fmt::format("\\x{:02x}", byte);
}

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
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            shown += control_code(byte);
        } else {
            shown += c;
        }
    }
    return shown;
}

std::string json_string(std::string_view text) {
    const charset_name utf8 = resolve_charset("utf-8");
    std::string quoted = "\"";
    const bytes_view bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    for (std::size_t at = 0; at < text.size();) {
        const unicode_sequence next = read_sequence(bytes.subspan(at), utf8);
        if (next.kind != unicode_sequence::whole) {
            quoted += fmt::format("\\udc{:02x}", bytes[at]);
            ++at;
            continue;
        }
        if (next.scalar == '"' || next.scalar == '\\') {
            quoted += '\\';
            quoted += text[at];
        } else if (next.scalar < 0x20) {
            quoted += fmt::format("\\u{:04x}", static_cast<unsigned>(next.scalar));
        } else {
            quoted += text.substr(at, next.bytes);
        }
        at += next.bytes;
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
    say(the_style.json ? fmt::format("{{\"kind\":\"error\",\"message\":{}}}", json_string(message))
                       : fmt::format("pvzan: {}", message));
}

std::string complaint_about(const std::string& file, std::string_view message) {
    return the_style.json ? fmt::format("{{\"file\":{},\"kind\":\"error\",\"message\":{}}}\n",
                                        json_string(file), json_string(message))
                          : fmt::format("pvzan: {}: {}\n", printable(file), message);
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
