// What the tool says: messages on standard error, answers on standard output.
#pragma once

#include <fmt/core.h>
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

// "pvzan: " and the message, as one line. In JSON it goes with the file that it is about, which is
// null for none.
void complain(std::string_view message);
std::string complaint(std::string_view message, const std::string& file = {});

// What is wrong with a file: "pvzan: name: message", one line.
void complain_about(const std::string& file, std::string_view message);
std::string complaint_about(const std::string& file, std::string_view message);

// Whole lines, each with its line feed.
void say_lines(std::string_view lines);
// The same on standard output, for answers.
void answer_lines(std::string_view lines);
// Whether all answers have been written; complains.
bool finish_answers();

// The last line of a terminal, which tells how far the work is; other lines push it down. Empty:
// there is none.
void show_status_line(const std::string& line);

// The system's words for an error.
std::string system_error_text(int error);

} // namespace tool
