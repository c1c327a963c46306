// Another converter's answer: iconv(3).
#pragma once

#include "tests/support/test.h"

#include <iconv.h>

namespace test {

// The shipped charset directory, settled for this process.
void use_shipped_charsets();

std::string to_hex(std::string_view bytes);
std::string utf8(char32_t scalar);

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
