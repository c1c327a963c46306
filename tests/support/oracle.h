// Another converter's answer, iconv(3), and text as bytes.
#pragma once

#include "tests/support/test.h"

#include <iconv.h>

namespace test {

// The shipped charset directory, settled for this process.
void use_shipped_charsets();

std::string to_hex(std::string_view bytes);

// A code as its bytes, the most significant first.
inline std::string code_text(std::uint32_t code, std::size_t length) {
    std::string text;
    while (length-- > 0) {
        text += static_cast<char>(code >> 8 * length);
    }
    return text;
}
std::string utf8(std::u32string_view text);

class oracle {
public:
    oracle(const char* from, const char* to);
    ~oracle();
    oracle(const oracle&) = delete;
    oracle& operator=(const oracle&) = delete;

    // Whether this system's iconv knows both charsets.
    [[nodiscard]] bool available() const;
    // The whole text converted, or nothing when any of it is invalid, cut or unrepresentable.
    std::optional<std::string> operator()(std::string_view text);

private:
    iconv_t converter_;
};

} // namespace test
