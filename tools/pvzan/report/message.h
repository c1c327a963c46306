// What the tool says on standard error.
#pragma once

#include <cstdint>
#include <fmt/core.h>
#include <span>
#include <string>
#include <string_view>

namespace tool {

enum class color_when { automatic, always, never };

// How messages look; settled once, at the start.
struct message_style {
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    color_when color = color_when::automatic;
};

void set_message_style(const message_style& style);
const message_style& current_style();
// Whether color and excerpts belong on a stream.
bool wants_color(int descriptor);
bool wants_excerpts(int descriptor);

// Bytes in hex: "82 20".
std::string hex_bytes(std::span<const std::uint8_t> bytes, std::string_view between = " ");

// A file name or text as it may be shown: bytes that are no UTF-8, control characters and what
// turns the direction of writing as \x1b, so that no file drives the terminal. Of many such bytes
// only the first few.
std::string printable(std::string_view text);

// The name of a file, "-" being standard input.
std::string shown_name(const std::string& name);

// A JSON string, quotes included, that drives no terminal either. Bytes that are no UTF-8 become
// \udc80 to \udcff.
std::string json_string(std::string_view text);

// A number as people read it: 12,310.
std::string grouped(std::uint64_t number);

// "pvzan: " and the message, as one line. In JSON it goes with the file that it is about, which is
// null for none.
void complain(std::string_view message);
std::string complaint(std::string_view message, const std::string& file = {});

// What is wrong with a file: "pvzan: name: message", one line.
void complain_about(const std::string& file, std::string_view message);
std::string complaint_about(const std::string& file, std::string_view message);

// A whole line of its own.
void say(std::string_view line);
// Whole lines, each with its line feed.
void say_lines(std::string_view lines);

// The same on standard output, for answers.
void answer_lines(std::string_view lines);

// The last line of a terminal, which tells how far the work is; other lines push it down. Empty:
// there is none.
void show_status_line(const std::string& line);

// The system's words for errno.
std::string system_error_text(int error);

} // namespace tool
