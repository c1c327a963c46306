// What the C interface and pvzan.hpp say of texts, for clients_test.py. clients FROM TO reads texts
// in hex, a line each, and writes a line for each and client: the result and all faults; behind
// them what another cut gave.
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

    void fault(std::uint64_t offset, std::string_view bytes, std::uint64_t line,
               std::uint64_t column, const char* kind) {
        faults += ' ' + std::to_string(offset) + '+' + hex(bytes) + '@' + std::to_string(line) +
                  ':' + std::to_string(column) + ':' + kind;
    }
};

struct by_library : client {
    pvzan_converter* c;

    void feed(std::string_view piece, std::int32_t how) {
        constexpr const char* kinds[] = {
            "", "invalid", "incomplete", "unrepresentable", "not_round_trip", "incomplete"};
        const auto* in = reinterpret_cast<const std::uint8_t*>(piece.data());
        std::size_t left = piece.size();
        pvzan_outcome said = PVZAN_FEED_MORE_ROOM;
        while (said == PVZAN_FEED_MORE_ROOM || said == PVZAN_FEED_FAULT) {
            std::uint8_t out[64], *end = out;
            std::size_t room = sizeof out;
            said = pvzan_feed(c, &in, &left, &end, &room, how);
            pvzan_fault f = {};
            f.size = sizeof f;
            if (said == PVZAN_FEED_FAULT && pvzan_last_fault(c, &f) == 1) {
                fault(f.offset, {reinterpret_cast<const char*>(f.bytes), f.length}, f.line,
                      f.column, kinds[f.kind]);
                pvzan_answer(c, PVZAN_HEX, nullptr, nullptr, &end, &room);
            }
            result.append(reinterpret_cast<char*>(out), sizeof out - room);
        }
    }
    void convert(std::string_view first, std::string_view second) {
        pvzan_reset(c);
        feed(first, PVZAN_PART);
        feed(second, PVZAN_LAST);
    }
};

struct by_header : client {
    pvzan::converter c;

    by_header(const char* from, const char* to)
        : c(from, to, {.on_fault = [this](const pvzan::fault& f) {
                constexpr const char* kinds[] = {"", "", "incomplete", "invalid",
                                                 "unrepresentable"};
                const auto kind = static_cast<std::size_t>(f.why);
                fault(f.position, f.bytes, f.line, f.column, kinds[kind]);
                return f.bytes.empty() ? "" : '<' + hex(f.bytes) + '>';
            }}) {}
    void convert(std::string_view first, std::string_view second) {
        pvzan::stream stream(c, [this](std::string_view piece) { result += piece; });
        stream.feed(first);
        stream.feed(second);
    }
};

void print(auto& client, std::string_view text) {
    std::string whole;
    for (std::size_t cut = 0; cut <= text.size(); cut += text.size() < 200 ? 1 : text.size() / 3) {
        client.result.clear();
        client.faults.clear();
        client.convert(text.substr(0, cut), text.substr(cut));
        const std::string said = hex(client.result) + client.faults;
        if (said != whole) {
            std::cout << (cut > 0 ? " | cut: " : "") << said;
        }
        whole = cut == 0 ? said : whole;
    }
    std::cout << '\n';
}

} // namespace

int main(int, char** arguments) {
    test::use_shipped_charsets();
    by_library library{{}, pvzan_open(arguments[1], arguments[2], nullptr, nullptr)};
    by_header header(arguments[1], arguments[2]);
    for (std::string line; std::getline(std::cin, line);) {
        std::string text(line.size() / 2, '\0');
        for (std::size_t i = 0; i < line.size(); i += 2) {
            std::uint8_t byte = 0;
            std::from_chars(&line[i], &line[i] + 2, byte, 16);
            text[i / 2] = static_cast<char>(byte);
        }
        print(library, text);
        print(header, text);
    }
    pvzan_close(library.c);
}
