// The OASYS code page in both forms.
#include "tests/support/codec.h"

namespace {

using namespace test;
using namespace std::string_literals;

constexpr u32 latin = PVZAN_SET_JIS_X_0201_LATIN, kana = PVZAN_SET_JIS_X_0201_KANA,
              jisc6226 = PVZAN_SET_JIS_C_6226_1978, extension = PVZAN_SET_OASYS_EXT,
              extension2 = PVZAN_SET_OASYS2_EXT;

const std::vector<lead_row> online_leads = {
    {{0x00, 0x00}, 2}, {{0x01, 0x20}, 1}, {{0x21, 0xFF}, 2}};

TEST(Oasys, OnlineReadsEveryByteSequence) {
    byte_structure online = {
        online_leads,
        {{{{0x00, 0x00}, {0x00, 0x9F}}, latin, 0xFF, 0},
         {{{0x00, 0x00}, {0xA0, 0xFF}}, kana, 0xFF, 0},
         {{{0x21, 0x7F}, {0x00, 0xFF}}, jisc6226, 0x7FFF, 0},
         {{{0x80, 0xFF}, {0x00, 0xFF}}, extension, 0x7FFF, 0}},
    };
    const session_owner s = open("oasys-online", "utf-8");
    check_code_space(*s, destOASYS_ONLINE, online);
    s->source.srcBigEndian = 0; // the byte order is that of the code page
    check_code_space(*s, destOASYS_ONLINE, online);
    // Sets that the charset lacks are refused.
    online.characters.pop_back();
    check_code_space(*open("oasys-win", "utf-8"), destOASYS_ONLINE, online);
    check_code_space(*open("utf-8", "utf-8"), destOASYS_ONLINE, {online_leads, {}});
}

// What the on-line decoder reads is not what its encoder writes for characters of the same set: no
// 00 byte, no high bit. From Unicode, extra tables give both.
TEST(Oasys, OnlineWritesTheCodesOfTheSets) {
    test::expect_conversion({.from = "oasys-online",
                             .to = "oasys-online",
                             .input = "\0A\0\xB1\x30\x21\xB0\x21"s,
                             .expected = "A\xB1\x30\x21\x30\x21"});
    test::expect_conversion({.from = "oasys-online",
                             .to = "utf-8",
                             .input = "\0A\0\xB1\x30\x21\x0A"s,
                             .expected = "Aｱ亜",
                             .faults = {{PVZAN_INVALID_INPUT, 7}}});
    test::expect_conversion(
        {.from = "utf-8", .to = "oasys-online", .input = "Aｱ亜", .expected = "\0A\0\xB1\x30\x21"s});
}

// Both directions of the Windows form agree on the whole code space; what JIS C 6226 lacks is the
// extension's.
TEST(Oasys, WindowsFormReturnsEveryCode) {
    const session_owner s = open("oasys-win", "oasys-win");
    for (u32 code = 0; code < 0x10000; ++code) {
        const u32 lead = code >> 8;
        if (lead != 0 && (lead < 0x80 || (lead >= 0xA1 && lead <= 0xDF))) {
            continue; // two characters
        }
        const std::string input = code_text(code, lead == 0 ? 1 : 2);
        std::array<u8, 4> out;
        give_input(*s, input);
        give_output(*s, out);
        s->status = PVZAN_DONE;
        const u32 status = cconvConvert(s.get());
        if (lead == 0) {
            const bool single = code < 0x80 || (code >= 0xA1 && code <= 0xDF);
            ASSERT_EQ(status, single ? u32{PVZAN_DONE} : u32{PVZAN_INPUT_INCOMPLETE}) << code;
        } else {
            const bool valid = SJIStoJISex(code) != 0;
            ASSERT_EQ(status, valid ? u32{PVZAN_DONE} : u32{PVZAN_INVALID_INPUT}) << code;
        }
        if (status == PVZAN_DONE) {
            ASSERT_EQ(test::to_hex(written(*s)), test::to_hex(input));
        }
    }
    test::expect_conversion(
        {.from = "oasys-win", .to = "utf-8", .input = "A\xB1\x88\x9F", .expected = "Aｱ亜"});
}

} // namespace
