#include "tools/pvzan/report/json.h"

#include "tools/pvzan/report/shown_text.h"

#include <fmt/core.h>

namespace tool {

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

std::string json_array(const std::vector<std::string>& items) {
    return fmt::format("[{}]", joined(items, ","));
}

json_object& json_object::add_json(std::string_view name, std::string_view value) {
    members_ += fmt::format("{}\"{}\":{}", members_.size() > 1 ? "," : "", name, value);
    return *this;
}

} // namespace tool
