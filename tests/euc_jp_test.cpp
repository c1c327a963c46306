// EUC-JP, EUC-JIS-2004 and EUC-JP-FIX: byte structure, writers, code space.
#include "tests/support/codec.h"

namespace {

using namespace test;
using namespace std::string_literals;

constexpr u32 ascii = PVZAN_SET_ISO_646_IRV, kana = PVZAN_SET_JIS_X_0201_KANA,
              jisx0208 = PVZAN_SET_JIS_X_0208_1990, jisx0212 = PVZAN_SET_JIS_X_0212_1990,
              jisx0213 = PVZAN_SET_JIS_X_0213;

const std::vector<lead_row> euc_leads = {{{0x8E, 0x8E}, 2}, {{0x8F, 0x8F}, 3}, {{0xA0, 0xFF}, 2}};

byte_structure euc(u32 two_byte_set, u32 three_byte_set, u32 mark) {
    return {euc_leads,
            {{{{0x00, 0x7E}}, ascii, 0x7F, 0},
             {{{0xA0, 0xFF}, {0xA0, 0xFF}}, two_byte_set, 0x7F7F, 0},
             {{{0x8E, 0x8E}, {0xA0, 0xFF}}, kana, 0xFF, 0},
             {{{0x8F, 0x8F}, {0xA0, 0xFF}, {0xA0, 0xFF}}, three_byte_set, 0x7F7F, mark}}};
}

// Every character takes two bytes, so a single byte waits for the next one whatever it is.
const byte_structure euc_jp_fix = {
    {{{0x00, 0xFF}, 2}},
    {{{{0x00, 0x00}, {0x00, 0x7E}}, ascii, 0x7F, 0},
     {{{0x00, 0x00}, {0xA0, 0xFF}}, kana, 0xFF, 0},
     {{{0xA0, 0xFF}, {0xA0, 0xFF}}, jisx0208, 0x7F7F, 0},
     {{{0xA0, 0xFF}, {0x21, 0x7E}}, jisx0212, 0x7FFF, 0}},
};

TEST(EucJp, ReadsEveryByteSequence) {
    check_code_space(*open("euc-jp", "utf-8"), destEUC_JP, euc(jisx0208, jisx0212, 0));
    check_code_space(*open("euc-jis-2004", "utf-8"), destEUC_JIS_2004,
                     euc(jisx0213, jisx0213, 0x10000));
    check_code_space(*open("euc-jp-fix", "utf-8"), destEUC_JP_FIX, euc_jp_fix);
}

// The charset's definition decides which sets there are: under a rule that reads another set, the
// bytes are refused after one byte, but the code found is told.
TEST(EucJp, RefusesSetsTheCharsetLacks) {
    struct row {
        const char* charset;
        rule decode;
        std::string input;
        u32 set, code;
    };
    const row rows[] = {
        {"euc-jis-2004", destEUC_JP, "\x8F\xB0\xA1", jisx0212, 0x3021},
        {"euc-jp", destEUC_JIS_2004, "\xA4\xA2", jisx0213, 0x2422},
        {"euc-jp", destEUC_JIS_2004, "\x8F\xA1\xA1", jisx0213, 0x12121},
        {"euc-jis-2004", destEUC_JP_FIX, "\xB0\x21", jisx0212, 0x3021},
        {"shift_jis", destEUC_JP, "\x41", ascii, 0x41},
        {"shift_jis", destEUC_JP_FIX, "\0A"s, ascii, 0x41},
    };
    for (const row& r : rows) {
        const session_owner s = open(r.charset, "utf-8");
        give_input(*s, r.input);
        EXPECT_EQ(decode_next(*s, r.decode), (decoded{PVZAN_INVALID_INPUT, 1})) << r.charset;
        EXPECT_EQ(s->charSetNo, r.set);
        EXPECT_EQ(s->srcCode, r.code);
        EXPECT_EQ(s->inCount, 0U);
    }
}

// Both writers refuse what has no form in EUC, the rows of user-defined characters included.
TEST(EucJp, WritesEverySetIntoEveryBuffer) {
    const written_row common[] = {
        {jisx0208, 0x2422, "\xA4\xA2"},
        {jisx0208, 0x7E7E, "\xFE\xFE"},
        {jisx0208, 0x7F21, ""},
        {jisx0208, 0x927E, ""},
        {jisx0208, 0x9321, "\x93\xA1"},
        {PVZAN_SET_JIS_X_0201_LATIN, 0x41, ""},
        {PVZAN_SET_NEC_EXT, 0x2D21, ""},
        {PVZAN_SET_IBM_EXT, 0x9321, ""},
        {0, 0, ""},
    };
    const written_row variable[] = {
        {ascii, 0x41, "\x41"},
        {ascii, 0x00, "\x00"s},
        {kana, 0xB1, "\x8E\xB1"},
        {jisx0212, 0x3021, "\x8F\xB0\xA1"},
        {jisx0213, 0x2477, "\xA4\xF7"},
        {jisx0213, 0x12121, "\x8F\xA1\xA1"},
        {jisx0213, 0x17E7E, "\x8F\xFE\xFE"},
    };
    const written_row fixed[] = {
        {ascii, 0x41, "\x00\x41"s},
        {kana, 0xB1, "\x00\xB1"s},
        {jisx0212, 0x3021, "\xB0\x21"},
        {jisx0213, 0x2422, ""},
    };
    const session_owner s = open("utf-8", "euc-jp");
    for (const rule encode : {constEUC_JP, constEUC_JIS_2004}) {
        for (const written_row& row : common) {
            check_writer(*s, encode, row, 1); // the last byte stays free
        }
        for (const written_row& row : variable) {
            check_writer(*s, encode, row, 1);
        }
    }
    for (const written_row& row : common) {
        check_writer(*s, constEUC_JP_FIX, row, 0);
    }
    for (const written_row& row : fixed) {
        check_writer(*s, constEUC_JP_FIX, row, 0);
    }
}

} // namespace
