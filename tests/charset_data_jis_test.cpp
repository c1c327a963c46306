// The second charset directory reads the disputed characters as the C library's converter does.
#include "tests/support/convert.h"
#include "tests/support/oracle.h"

#include <gtest/gtest.h>

#include <ios>
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

TEST(CharsetDataJis, ReadsTheDisputedCharactersAsTheStandardsDo) {
    my_init();
    ASSERT_EQ(ZAN_setCharsetPath(PVZAN_BASE2_JIS_DIR), 1U);
    for (const charset_case& row : cases) {
        SCOPED_TRACE(row.name);
        test::oracle decode(row.peer, "UTF-8");
        test::oracle encode("UTF-8", row.peer);
        ASSERT_TRUE(decode.available());
        test::character_converter source(row.name, "utf-8"), target("utf-8", row.name);
        for (int lead = row.first_lead; lead <= 0xFE; ++lead) {
            for (int trail = 0x40; trail <= 0xFE; ++trail) {
                const std::string code{static_cast<char>(lead), static_cast<char>(trail)};
                const auto text = decode(code);
                // The peer reads some pairs as two one-byte characters.
                if (text && decode(code.substr(0, 1))) {
                    continue;
                }
                EXPECT_EQ(source(code), text) << test::to_hex(code);
            }
        }
        for (char32_t c = 0x20; c < 0x10000; ++c) {
            const bool control = c >= 0x7F && c < 0xA0;
            if ((c >= 0xD800 && c < 0xE000) || control) {
                continue;
            }
            const std::string text = test::utf8(c);
            EXPECT_EQ(target(text) != encode(text), row.encoded_otherwise.contains(c))
                << std::hex << static_cast<unsigned>(c);
        }
    }
    EXPECT_EQ(test::convert("shift_jis", "utf-8", "\x5C\x7E"), "\xC2\xA5\xE2\x80\xBE");
    EXPECT_EQ(test::convert("iso-2022-jp", "utf-8", "\x1B$B\x21\x41\x1B$@\x21\x41"),
              "\xE3\x80\x9C\xE3\x80\x9C");
    EXPECT_EQ(cconvChgCharset(test::open("utf-8", "utf-8").get(), nullptr, "windows31j"),
              std::uint32_t{PVZAN_UNKNOWN_CHARSET});
}

} // namespace
