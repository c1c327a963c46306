#include "tests/support/oracle.h"

namespace test {

void use_shipped_charsets() {
    static const bool once = [] {
        my_init();
        ZAN_setCharsetPath(PVZAN_BASE2_DIR);
        return true;
    }();
    static_cast<void>(once);
}

std::string to_hex(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%s%02X", text.empty() ? "" : " ",
                      static_cast<unsigned>(static_cast<unsigned char>(byte)));
        text += digits;
    }
    return text;
}

std::string utf8(std::u32string_view text) {
    constexpr char32_t leads[] = {0, 0xC0, 0xE0, 0xF0};
    std::string bytes;
    for (const char32_t c : text) {
        int more = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
        bytes += static_cast<char>(leads[more] | c >> 6 * more);
        while (more-- > 0) {
            bytes += static_cast<char>(0x80 | (c >> 6 * more & 0x3F));
        }
    }
    return bytes;
}

namespace {
// What iconv_open returns for an unknown charset.
iconv_t no_converter() {
    static const iconv_t none = ::iconv_open("no such charset", "no such charset");
    return none;
}
} // namespace

oracle::oracle(const char* from, const char* to) : converter_(::iconv_open(to, from)) {}

oracle::~oracle() {
    if (available()) {
        ::iconv_close(converter_);
    }
}

bool oracle::available() const {
    return converter_ != no_converter();
}

std::optional<std::string> oracle::operator()(std::string_view text) {
    ::iconv(converter_, nullptr, nullptr, nullptr, nullptr);
    std::string in(text);
    std::string out(text.size() * 8 + 64, '\0');
    char* from = in.data();
    char* to = out.data();
    std::size_t in_left = in.size(), out_left = out.size();
    constexpr auto failed = static_cast<std::size_t>(-1);
    // A nonzero count of characters converted in a way that cannot be undone is as bad as a
    // refusal.
    if (::iconv(converter_, &from, &in_left, &to, &out_left) != 0 || in_left != 0 ||
        ::iconv(converter_, nullptr, nullptr, &to, &out_left) == failed) {
        return std::nullopt;
    }
    out.resize(out.size() - out_left);
    return out;
}

} // namespace test
