// Windows-31J: which set takes which code, both ways, and the repertoire test.
#include "tests/codec_bench.h"

#include <map>

namespace {

using namespace bench;

constexpr u32 jisx0208 = PVZAN_SET_JIS_X_0208_1990, nec = PVZAN_SET_NEC_EXT,
              ibm = PVZAN_SET_IBM_EXT, user_defined = PVZAN_SET_WINDOWS_31J_USER;

constexpr bool in_range(u32 value, u32 first, u32 last) {
    return value >= first && value <= last;
}

constexpr bool is_single(u32 byte) {
    return byte <= 0x7F || in_range(byte, 0xA1, 0xDF);
}

constexpr bool is_double_byte_code(u32 code) {
    const u32 lead = code >> 8, trail = code & 0xFF;
    return (in_range(lead, 0x81, 0x9F) || in_range(lead, 0xE0, 0xFC)) &&
           in_range(trail, 0x40, 0xFC) && trail != 0x7F;
}

decoded decode_code(session& s, u32 code, std::size_t length = 2) {
    const std::string input = code_text(code, length);
    give_input(s, bytes_of(input));
    return decode_next(s, destWINDOWS31J);
}

// Whatever code it stands for, a double-byte lead alone is incomplete, an invalid code uses up one
// byte. The sets' sizes are those of the code page.
TEST(Windows31j, ReadsEveryByteSequence) {
    const session_owner s = open("windows31j", "utf-8");
    EXPECT_EQ(decode_code(*s, 0, 0), (decoded{PVZAN_DONE, 0}));
    std::map<u32, int> sizes;
    for (u32 byte = 0; byte < 0x100; ++byte) {
        const decoded got = decode_code(*s, byte, 1);
        if (is_single(byte)) {
            const u32 set = byte < 0x80 ? PVZAN_SET_JIS_X_0201_LATIN : PVZAN_SET_JIS_X_0201_KANA;
            EXPECT_EQ(got, (decoded{PVZAN_DECODED, 1, set, byte}));
        } else {
            EXPECT_EQ(got, (decoded{PVZAN_INPUT_INCOMPLETE, 0})) << byte;
        }
    }
    for (u32 code = 0; code < 0x10000; ++code) {
        if (is_single(code >> 8)) {
            continue;
        }
        const decoded got = decode_code(*s, code);
        if (got.status != PVZAN_DECODED) {
            EXPECT_EQ(got, (decoded{PVZAN_INVALID_INPUT, 1})) << code;
            continue;
        }
        EXPECT_TRUE(is_double_byte_code(code)) << code;
        EXPECT_EQ(got.position, 2);
        EXPECT_EQ(JIStoSJISex(got.code), code);
        EXPECT_EQ(s->srcCode, code);
        ++sizes[got.set];
    }
    EXPECT_EQ(sizes,
              (std::map<u32, int>{{jisx0208, 6879}, {nec, 457}, {ibm, 388}, {user_defined, 1880}}));
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

// Characters with several codes go out as the code page has them: JIS X 0208, then NEC's row 13,
// then IBM; the codes that NEC selected from IBM's are read only.
TEST(Windows31j, WritesOneOfSeveralCodes) {
    struct row {
        std::vector<u32> codes; // the first is the one written
        u32 ucs;
    };
    const row rows[] = {
        {{0x81E0, 0x8790}, 0x2252},
        {{0x81E6, 0x879A, 0xFA5B}, 0x2235},
        {{0x81CA, 0xEEF9, 0xFA54}, 0xFFE2},
        {{0x8754, 0xFA4A}, 0x2160},
        {{0x878A, 0xFA58}, 0x3231},
        {{0x8782, 0xFA59}, 0x2116},
        {{0x8784, 0xFA5A}, 0x2121},
        {{0xFA40, 0xEEEF}, 0x2170},
        {{0xFA55, 0xEEFA}, 0xFFE4},
        {{0xFA5C, 0xED40}, 0x7E8A},
        {{0xF040}, 0xE000},
        {{0x8740}, 0x2460},
    };
    for (const row& r : rows) {
        const session_owner reader = open("windows31j", "utf-8");
        for (const u32 code : r.codes) {
            EXPECT_EQ(decode_code(*reader, code).status, PVZAN_DECODED);
            EXPECT_EQ(reader->ucsCode, r.ucs) << code;
        }
        test::expect_conversion({.from = "iso-10646-ucs-2",
                                 .to = "windows31j",
                                 .input = code_text(r.ucs, 2),
                                 .expected = code_text(r.codes.front(), 2)});
    }
}

TEST(Windows31j, TellsItsRepertoire) {
    struct row {
        u32 charSetNo, outCode, ucsCode, expected;
    };
    constexpr u32 other = PVZAN_SET_JIS_X_0212_1990;
    const row rows[] = {
        // all of these sets, whatever the code
        {PVZAN_SET_JIS_X_0201_LATIN, 0xFFE4, 0xFFE4, 1},
        {PVZAN_SET_JIS_X_0201_KANA, 0xF000, 0xF000, 1},
        {jisx0208, 0xE759, 0xE759, 1},
        {nec, 0xFF00, 0, 1},
        {ibm, 0xFF00, 0, 1},
        // private use: by the code alone
        {user_defined, 0xE000, 0, 1},
        {other, 0xE758, 0, 1},
        {other, 0xE759, 0x3042, 0},
        {other, 0xF8FF, 0x3042, 0},
        {other, 0xF900, 0x3042, 1},
        {other, 0xDFFF, 0x3042, 1},
        // full-width and half-width forms: by the code alone
        {other, 0xFEFF, 0x3042, 1},
        {other, 0xFF00, 0x3042, 0},
        {other, 0xFF01, 0, 1},
        {other, 0xFF5E, 0, 1},
        {other, 0xFF5F, 0x3042, 0},
        {other, 0xFF60, 0x3042, 0},
        {other, 0xFF61, 0, 1},
        {other, 0xFF9F, 0, 1},
        {other, 0xFFA0, 0x3042, 0},
        {other, 0xFFDF, 0x3042, 0},
        {other, 0xFFE0, 0, 1},
        {other, 0xFFE2, 0, 1},
        {other, 0xFFE3, 0xFFE3, 0},
        {other, 0xFFE4, 0xFFE4, 0},
        {other, 0xFFE5, 0, 1},
        {other, 0xFFE6, 0x3042, 0},
        {other, 0xFFFE, 0x3042, 0},
        {other, 0xFFFF, 0x3042, 1},
        // substitutes
        {other, '?', 0x4E02, 1},
        {other, 0x3013, 0x4E02, 1},
        {other, 0x3014, 0x4E02, 0},
        // the sets of the charset, by the Unicode value
        {other, 0x3042, 0x3042, 1},
        {other, 0x2460, 0x2460, 1},
        {other, 0x4E02, 0x4E02, 0},
        {other, 0x4E02, 0, 0},
    };
    const session_owner tables = open("utf-8", "windows31j"); // loads the encode tables
    const session_owner s = open("utf-8", "iso-10646-ucs-2");
    s->subst1.code = '?';
    s->subst2.code = 0x3013;
    for (const row& r : rows) {
        s->charSetNo = r.charSetNo;
        s->outCode = r.outCode;
        s->ucsCode = r.ucsCode;
        EXPECT_EQ(IsWIN31J(s.get()), r.expected)
            << std::hex << "set " << r.charSetNo << " code " << r.outCode << " ucs " << r.ucsCode;
    }
    // User-defined sets have no table to look into.
    basic_set& kanji = registered(jisx0208);
    s->charSetNo = other;
    s->outCode = s->ucsCode = 0x3042;
    kanji.setType = PVZAN_SET_USER_DEFINED;
    EXPECT_EQ(IsWIN31J(s.get()), 0U);
    kanji.setType = PVZAN_SET_BASE;
    EXPECT_EQ(IsWIN31J(s.get()), 1U);
}

} // namespace
