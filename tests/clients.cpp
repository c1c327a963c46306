// What pvzan.hpp says of texts, for clients_test.py. clients FROM TO reads texts in hex, a line
// each, and writes a line for each: the result and all faults; behind them what another cut gave.
#include "tests/support/oracle.h"

#include "pvzan.hpp"

#include <charconv>
#include <iostream>

namespace {

std::string hex(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        text += "0123456789abcdef"[static_cast<unsigned char>(byte) >> 4];
        text += "0123456789abcdef"[byte & 0xF];
    }
    return text;
}

struct client {
    std::string result, faults;
    pvzan::converter c;

    client(const char* from, const char* to)
        : c(from, to, {.on_fault = [this](const pvzan::fault& f) {
                constexpr const char* kinds[] = {"", "", "incomplete", "invalid", "missing"};
                const std::string bytes = hex(f.bytes);
                faults += ' ' + std::to_string(f.position) + '+' + bytes + '@' +
                          std::to_string(f.line) + ':' + std::to_string(f.column) + ':' +
                          kinds[static_cast<std::size_t>(f.why)];
                return bytes.empty() ? "" : '<' + bytes + '>';
            }}) {}
    std::string convert(std::string_view first, std::string_view second) {
        result.clear();
        faults.clear();
        pvzan::stream stream(c, [this](std::string_view piece) { result += piece; });
        stream.feed(first);
        stream.feed(second);
        stream.finish();
        return hex(result) + faults;
    }
};

} // namespace

int main(int, char** arguments) {
    test::use_shipped_charsets();
    client header(arguments[1], arguments[2]);
    for (std::string line; std::getline(std::cin, line);) {
        std::string text;
        for (std::size_t i = 0; i < line.size(); i += 2) {
            std::uint8_t byte = 0;
            std::from_chars(&line[i], &line[i] + 2, byte, 16);
            text += static_cast<char>(byte);
        }
        const std::string whole = header.convert(text, "");
        std::cout << whole;
        const std::size_t step = std::max<std::size_t>(text.size() / 200, 1);
        for (std::size_t cut = 1; cut < text.size(); cut += step * step) {
            const std::string said = header.convert(std::string_view(text).substr(0, cut),
                                                    std::string_view(text).substr(cut));
            std::cout << (said != whole ? " cut: " + said : "");
        }
        std::cout << '\n';
    }
}
