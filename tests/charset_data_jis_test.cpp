// The second charset directory reads the disputed characters as the C library's converter does.
#include "tests/support/convert.h"
#include "tests/support/oracle.h"

#include <gtest/gtest.h>

#include <ios>
#include <optional>
#include <set>
#include <string>

namespace {

// Characters of the BMP that the peer has no or another code for.
using scalar_set = std::set<char32_t>;

struct charset_case {
    const char *name, *peer;
    int first_lead;
    scalar_set encoded_otherwise;
};

const charset_case cases[] = {
    // Windows readings that the peer refuses, or writes as JIS X 0212.
    {"shift_jis", "SJIS", 0x81, {0x2014, 0x2225, 0xFF0D, 0xFF5E}},
    {"euc-jp", "EUC-JP", 0xA1, {0x2014, 0x2225, 0xFF0D, 0xFF5E, 0xFFE0, 0xFFE1, 0xFFE2, 0xFFE4}},
};

// One character, or nothing.
std::optional<std::string> ours(pvzan_session& s, const std::string& input) {
    std::uint8_t output[16];
    s.inBuf = reinterpret_cast<const std::uint8_t*>(input.data());
    s.inPos = 0;
    s.inLen = static_cast<std::int32_t>(input.size());
    s.outBuf = output;
    s.outPos = 0;
    s.outLen = sizeof output;
    s.status = s.inCount = 0;
    if (cconvConvert(&s) != PVZAN_DONE || s.inCount != 1) {
        return std::nullopt;
    }
    return std::string(output, output + s.outPos);
}

TEST(CharsetDataJis, ReadsTheDisputedCharactersAsTheStandardsDo) {
    my_init();
    ASSERT_EQ(ZAN_setCharsetPath(PVZAN_BASE2_JIS_DIR), 1U);
    for (const charset_case& row : cases) {
        SCOPED_TRACE(row.name);
        test::oracle decode(row.peer, "UTF-8");
        test::oracle encode("UTF-8", row.peer);
        ASSERT_TRUE(decode.available());
        const auto source =
            test::open_session({.from = row.name, .to = "utf-8", .input = "", .expected = ""});
        const auto target =
            test::open_session({.from = "utf-8", .to = row.name, .input = "", .expected = ""});
        for (int lead = row.first_lead; lead <= 0xFE; ++lead) {
            for (int trail = 0x40; trail <= 0xFE; ++trail) {
                const std::string code{static_cast<char>(lead), static_cast<char>(trail)};
                const auto text = decode(code);
                // The peer reads some pairs as two one-byte characters.
                if (text && decode(code.substr(0, 1))) {
                    continue;
                }
                EXPECT_EQ(ours(*source, code), text) << test::to_hex(code);
            }
        }
        for (char32_t c = 0x20; c < 0x10000; ++c) {
            const bool control = c >= 0x7F && c < 0xA0;
            if ((c >= 0xD800 && c < 0xE000) || control) {
                continue;
            }
            const std::string text = test::utf8(c);
            EXPECT_EQ(ours(*target, text) != encode(text), row.encoded_otherwise.contains(c))
                << std::hex << static_cast<unsigned>(c);
        }
    }
    EXPECT_EQ(test::convert("shift_jis", "utf-8", "\x5C\x7E"), "\xC2\xA5\xE2\x80\xBE");
    EXPECT_EQ(test::convert("iso-2022-jp", "utf-8", "\x1B$B\x21\x41\x1B$@\x21\x41"),
              "\xE3\x80\x9C\xE3\x80\x9C");
    const auto session =
        test::open_session({.from = "utf-8", .to = "utf-8", .input = "", .expected = ""});
    EXPECT_EQ(cconvChgCharset(session.get(), nullptr, "windows31j"),
              std::uint32_t{PVZAN_UNKNOWN_CHARSET});
}

} // namespace
