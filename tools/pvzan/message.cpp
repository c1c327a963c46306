#include "tools/pvzan/message.h"

#include <cstdio>
#include <system_error>

namespace tool {

std::string hex_bytes(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += fmt::format("{}{:02x}", text.empty() ? "" : " ", byte);
    }
    return text;
}

std::string printable(std::string_view text) {
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            shown += fmt::format("\\x{:02x}", byte);
        } else {
            shown += c;
        }
    }
    return shown;
}

void complain(std::string_view message) {
    say(fmt::format("pvzan: {}", message));
}

void say(std::string_view line) {
    const std::string whole = fmt::format("{}\n", line);
    std::fwrite(whole.data(), 1, whole.size(), stderr);
}

std::string system_error_text(int error) {
    return std::generic_category().message(error);
}

} // namespace tool
