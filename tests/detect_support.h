// Asks the library for an encoding.
#pragma once

#include "tests/detect_reference.h"

#include <string>
#include <string_view>

namespace test {

// Of text[pos, end); the caller's fields must come back as they were.
reference::answer ask(const u8* text, i32 pos, i32 end);
reference::answer ask(std::string_view text, std::size_t pos = 0);

// A page with none on either side.
class lone_page {
public:
    lone_page();
    ~lone_page();
    lone_page(const lone_page&) = delete;
    lone_page& operator=(const lone_page&) = delete;

    // A copy of text that begins or ends where the page does.
    const u8* at_start(std::string_view text);
    const u8* at_end(std::string_view text);
    // An address that must not be touched.
    [[nodiscard]] const u8* behind() const { return first_ + size_; }

private:
    std::size_t size_;
    u8* first_;
};

} // namespace test
