// JSON, an object a line.
#pragma once

#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace tool {

// A string, quotes included, that drives no terminal. Bytes that are no UTF-8 become \udc80 to
// \udcff.
std::string json_string(std::string_view text);
std::string json_array(const std::vector<std::string>& items); // each is JSON already

class json_object {
public:
    // A member: a text, a number or a truth value.
    template <typename Value>
    json_object& add(std::string_view name, const Value& value) {
        if constexpr (std::is_same_v<Value, bool>) {
            return add_json(name, value ? "true" : "false");
        } else if constexpr (std::is_integral_v<Value>) {
            return add_json(name, std::to_string(value));
        } else {
            return add_json(name, json_string(value));
        }
    }
    json_object& add_json(std::string_view name, std::string_view value);

    [[nodiscard]] std::string text() const { return members_ + "}"; }
    [[nodiscard]] std::string line() const { return text() + "\n"; }

private:
    std::string members_ = "{";
};

} // namespace tool
