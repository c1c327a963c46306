// What the tool says on standard error.
#pragma once

#include <cstdint>
#include <fmt/core.h>
#include <span>
#include <string>
#include <string_view>

namespace tool {

// Bytes in hex: "82 20".
std::string hex_bytes(std::span<const std::uint8_t> bytes);

// A file name or text as it may be shown: control characters as \x1b, so that no file drives the
// terminal.
std::string printable(std::string_view text);

// "pvzan: " and the message, as one line.
void complain(std::string_view message);

// A whole line of its own.
void say(std::string_view line);

// The system's words for errno.
std::string system_error_text(int error);

} // namespace tool
