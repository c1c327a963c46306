// Windows-31J: which set takes which code, both ways, and the repertoire test.
#include "tests/support/codec.h"

namespace {

using namespace test;

constexpr u32 jisx0208 = PVZAN_SET_JIS_X_0208_1990, nec = PVZAN_SET_NEC_EXT,
              ibm = PVZAN_SET_IBM_EXT, user_defined = PVZAN_SET_WINDOWS_31J_USER;

decoded decode_code(session& s, u32 code, std::size_t length = 2) {
    const std::string input = code_text(code, length);
    give_input(s, input);
    return decode_next(s, destWINDOWS31J);
}

// Which codes are characters, other tests tell: here, what is used up of which input.
TEST(Windows31j, ReadsEveryByteSequence) {
    const session_owner s = open("windows31j", "utf-8");
    EXPECT_EQ(decode_code(*s, 0, 0), (decoded{PVZAN_DONE, 0}));
    for (u32 code = 0; code < 0x10000; ++code) {
        const u32 lead = code >> 8;
        const decoded first = decode_code(*s, lead, 1), got = decode_code(*s, code);
        if (lead <= 0x7F || (lead >= 0xA1 && lead <= 0xDF)) {
            const u32 set = lead < 0x80 ? PVZAN_SET_JIS_X_0201_LATIN : PVZAN_SET_JIS_X_0201_KANA;
            ASSERT_EQ(got, (decoded{PVZAN_DECODED, 1, set, lead}));
            ASSERT_EQ(first, got);
            continue;
        }
        ASSERT_EQ(first, (decoded{PVZAN_INPUT_INCOMPLETE, 0})) << lead;
        if (got.status == PVZAN_DECODED) {
            ASSERT_EQ(got.position, 2);
            ASSERT_EQ(JIStoSJISex(got.code), code);
            ASSERT_EQ(s->srcCode, code);
        } else {
            ASSERT_EQ(got, (decoded{PVZAN_INVALID_INPUT, 1})) << code;
        }
    }
}

TEST(Windows31j, TakesTheFirstSetThatHasTheCode) {
    const session_owner s = open("windows31j", "utf-8");
    const auto expect = [&](u32 code, u32 set, u32 jis, u32 ucs) {
        EXPECT_EQ(decode_code(*s, code), (decoded{PVZAN_DECODED, 2, set, jis}));
        EXPECT_EQ(s->ucsCode, ucs);
    };
    const decoded refused{PVZAN_INVALID_INPUT, 1};
    expect(0x8740, nec, 0x2D21, 0x2460);
    expect(0xED40, nec, 0x7921, 0x7E8A);
    expect(0xFA40, ibm, 0x9321, 0x2170);
    expect(0xF040, user_defined, 0x7F21, 0xE000);
    expect(0xF9FC, user_defined, 0x927E, 0xE757);
    {
        const hidden_set no_user_defined(user_defined);
        EXPECT_EQ(decode_code(*s, 0xF040), refused);
        expect(0x8740, nec, 0x2D21, 0x2460);
    }
    {
        const hidden_set no_nec(nec);
        EXPECT_EQ(decode_code(*s, 0x8740), refused);
        expect(0xFA40, ibm, 0x9321, 0x2170);
    }
    { // a set without its table has every code, before all sets behind it
        const set_without_table untabled(jisx0208);
        expect(0x8740, jisx0208, 0x2D21, 0x2D21);
    }
    {
        const set_without_table untabled(user_defined);
        expect(0xF040, user_defined, 0x7F21, 0x7F21);
        expect(0x8540, user_defined, 0x2921, 0x2921);
    }
    {
        const hidden_set no_latin(PVZAN_SET_JIS_X_0201_LATIN), no_kana(PVZAN_SET_JIS_X_0201_KANA);
        EXPECT_EQ(decode_code(*s, 0x41, 1), refused);
        EXPECT_EQ(decode_code(*s, 0xB1, 1), refused);
    }
}

TEST(Windows31j, TellsItsRepertoire) {
    struct row {
        u32 charSetNo, outCode, ucsCode, expected;
    };
    constexpr u32 other = PVZAN_SET_JIS_X_0212_1990, kanji = 0x3042;
    // All of its own sets, whatever the code; of other sets private use, full-width and half-width
    // forms by the code alone, then the substitutes, then what its sets have, by the Unicode value.
    const row rows[] = {
        {PVZAN_SET_JIS_X_0201_LATIN, 0xFFE4, 0xFFE4, 1},
        {PVZAN_SET_JIS_X_0201_KANA, 0xF000, 0xF000, 1},
        {jisx0208, 0xE759, 0xE759, 1},
        {nec, 0xFF00, 0, 1},
        {ibm, 0xFF00, 0, 1},
        {user_defined, 0xE000, 0, 1},
        {other, '?', 0x4E02, 1},
        {other, 0x3013, 0x4E02, 1},
        {other, 0x3014, 0x4E02, 0},
        {other, 0x2460, 0x2460, 1},
        {other, 0x4E02, 0x4E02, 0},
        {other, 0x4E02, 0, 0},
        {other, 0xFFE3, 0xFFE3, 0},
    };
    // The last code of each run that is in it, or is not, from DFFF on.
    constexpr u32 ends[] = {0xDFFF, 0xE758, 0xF8FF, 0xFEFF, 0xFF00, 0xFF5E, 0xFF60,
                            0xFF9F, 0xFFDF, 0xFFE2, 0xFFE4, 0xFFE5, 0xFFFE, 0xFFFF};
    constexpr bool in_it[] = {true, true,  false, true,  false, true,  false,
                              true, false, true,  false, true,  false, true};
    const session_owner tables = open("utf-8", "windows31j"); // loads the encode tables
    const session_owner s = open("utf-8", "iso-10646-ucs-2");
    s->subst1.code = '?';
    s->subst2.code = 0x3013;
    const auto expect = [&](const row& r) {
        s->charSetNo = r.charSetNo;
        s->outCode = r.outCode;
        s->ucsCode = r.ucsCode;
        EXPECT_EQ(IsWIN31J(s.get()), r.expected)
            << std::hex << "set " << r.charSetNo << " code " << r.outCode << " ucs " << r.ucsCode;
    };
    std::ranges::for_each(rows, expect);
    for (u32 code = 0xDFFF, run = 0; code <= 0xFFFF; ++code) {
        run += code > ends[run];
        expect({other, code, kanji, in_it[run]});
    }
    // User-defined sets have no table to look into.
    basic_set& set = registered(jisx0208);
    set.setType = PVZAN_SET_USER_DEFINED;
    expect({other, kanji, kanji, 0});
    set.setType = PVZAN_SET_BASE;
    expect({other, kanji, kanji, 1});
}

} // namespace
