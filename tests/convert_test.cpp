// The four calls that run a conversion: line breaks, substitutes, statuses, and the same outcome
// however input and output are cut.
#include "tests/support/convert.h"

namespace {

using test::conversion;
using test::expect_conversion;
using test::fault;

// A form of Unicode, or a charset of bytes.
struct text_form {
    const char* charset;
    bool big_endian = true;
};

constexpr text_form unicode_forms[] = {
    {"utf-8"},
    {"utf-16"},
    {"utf-16", false},
    {"iso-10646-ucs-2"},
    {"iso-10646-ucs-2", false},
    {"iso-10646-ucs-4"},
    {"iso-10646-ucs-4", false},
};

// What the library makes of it without line breaks to convert.
std::string in_form(const text_form& form, std::u32string_view text) {
    conversion c{.from = "utf-8", .to = form.charset, .input = test::utf8(text)};
    c.target.dstBigEndian = form.big_endian;
    return test::run(c, {c.input}, 65536).bytes;
}

// ---- Line breaks -------------------------------------------------------------------------------

struct newline_row {
    std::uint32_t mode;
    std::u32string_view in_wide_units, in_bytes;
};

constexpr newline_row newline_rows[] = {
    {0, U"\r\n", U"\r\n"},
    {PVZAN_NEWLINE_CRLF, U"\r\n", U"\r\n"},
    {PVZAN_NEWLINE_CR, U"\r", U"\r"},
    {PVZAN_NEWLINE_LF, U"\n", U"\n"},
    {PVZAN_NEWLINE_LINE_SEPARATOR, U"\u2028", U"\r\n"},
    {PVZAN_NEWLINE_PARAGRAPH_SEPARATOR, U"\u2029", U"\r\n"},
    {6, U"\r\n", U"\r\n"},
    {UINT32_MAX, U"\r\n", U"\r\n"},
};

// Every kind of break; "|" stands for one in what comes out.
constexpr std::u32string_view broken_text =
    U"a\r\nb\rc\nd\n\re\r\r\n\r\n\n\u2028\u2029\r\u2028\nf\r";
constexpr std::u32string_view broken_lines = U"a|b|c|d||e|||||||||f|";
// The same without the two separators, for charsets that lack them.
constexpr std::u32string_view plain_text = U"a\r\nb\rc\nd\n\re\r\r\n\r\n\nf\r";
constexpr std::u32string_view plain_lines = U"a|b|c|d||e||||f|";

std::u32string with_breaks(std::u32string_view lines, std::u32string_view newline) {
    std::u32string text;
    for (const char32_t c : lines) {
        if (c == '|') {
            text += newline;
        } else {
            text += c;
        }
    }
    return text;
}

void expect_newlines(const text_form& from, const text_form& to, bool plain, bool byte_codes) {
    for (const newline_row& row : newline_rows) {
        conversion c{.from = from.charset, .to = to.charset};
        c.source.srcBigEndian = from.big_endian;
        c.target.dstBigEndian = to.big_endian;
        c.target.convertNewline = 1;
        c.target.newlineMode = row.mode;
        c.input = in_form(from, plain ? plain_text : broken_text);
        const auto newline = byte_codes ? row.in_bytes : row.in_wide_units;
        c.expected = in_form(to, with_breaks(plain ? plain_lines : broken_lines, newline));
        SCOPED_TRACE("newline mode " + std::to_string(row.mode));
        expect_conversion(c);
    }
}

TEST(Newlines, BetweenUnicodeFormsInEveryMode) {
    for (const text_form& from : unicode_forms) {
        for (const text_form& to : unicode_forms) {
            expect_newlines(from, to, false, false);
        }
    }
}

TEST(Newlines, OneByteCodesHaveNoSeparators) {
    for (const char* name : {"shift_jis", "euc-jp", "shift_jis-2004", "iso-8859-1", "gb18030"}) {
        const text_form bytes{name};
        for (const text_form& unicode : unicode_forms) {
            expect_newlines(unicode, bytes, true, true);
            expect_newlines(bytes, unicode, true, false);
        }
        expect_newlines(bytes, bytes, true, true);
    }
    expect_newlines({"utf-8"}, {"windows31j"}, false, true);
}

TEST(Newlines, OnlyALineFeedRightBehindPairs) {
    conversion c{.from = "shift_jis", .to = "utf-8"};
    c.target.convertNewline = 1;
    c.target.newlineMode = PVZAN_NEWLINE_LF;
    // Something invalid stands between the two, reported or dropped.
    c.input = "\r\xA0\n";
    c.expected = "\n\n";
    c.faults = {{PVZAN_INVALID_INPUT, 2}};
    expect_conversion(c);
    c.source.skipInvalid = 1;
    c.faults = {};
    expect_conversion(c);
    // Something that the target lacks.
    c = {.from = "utf-8", .to = "shift_jis", .input = "\r\u00E9\n", .expected = "\n\n"};
    c.faults = {{PVZAN_UNREPRESENTABLE, 3}};
    c.target.convertNewline = 1;
    c.target.newlineMode = PVZAN_NEWLINE_LF;
    expect_conversion(c);
}

// ---- Substitutes -------------------------------------------------------------------------------

struct substitute_row {
    const char *to, *input, *expected;
    char16_t narrow, wide;                // asked for
    std::uint32_t narrow_code, wide_code; // resolved; 0: not
};

TEST(Substitutes, AreChosenByTheCharacterAndResolvedInOrder) {
    // U+00E9 is a code of one byte in its set, U+0E01 of more; no target here has either.
    const substitute_row rows[] = {
        {"shift_jis", "a\u00E9b\u0E01c",
         "a*b\x81\xA1"
         "c",
         u'*', u'\u25A0', 0x2A, 0x2223},
        // the first choice is found, the second is not, and the other way about
        {"shift_jis", "\u00E9\u0E01", "*\x81\xAC", u'*', u'\u0E01', 0x2A, 0x222E},
        {"shift_jis", "\u00E9\u0E01", "?\x81\xA1", u'\u0E01', u'\u25A0', 0x3F, 0x2223},
        {"shift_jis", "\u00E9\u0E01", "?\x81\xAC", 0, 0, 0x3F, 0x222E},
        // a "one-byte" substitute of two bytes, and the reverse, are taken as asked for
        {"shift_jis", "\u00E9\u0E01", "\x81\xA1*", u'\u25A0', u'*', 0x2223, 0x2A},
        // extra encode tables are not asked: U+00A5 would be written as 5C
        {"shift_jis", "\u00E9", "?", u'\u00A5', u'\u25A0', 0x3F, 0x2223},
        {"euc-jp", "\u0E01\u0E01x", "\xA2\xA3\xA2\xA3x", u'*', u'\u25A0', 0x2A, 0x2223},
        {"shift_jis-2004", "\u0E01", "\x81\xAC", u'*', u'\uFFFD', 0x2A, 0x222E},
        // KS C 5601 has the mark that stands for a missing character, and ASCII has neither: what
        // the substitute should have replaced is dropped
        {"koreanksc", "\u0E01", "\xA1\xEB", u'*', u'\uFFFD', 0x2A, 0xA1EB},
        {"iso-646irv", "a\u00E9b\u0E01c", "a?bc", u'\u25A0', u'\u25A0', 0x3F, 0},
        {"iso-646irv", "a\u00E9b\u0E01c", "a*b+c", u'*', u'+', 0x2A, 0x2B},
    };
    for (const substitute_row& row : rows) {
        conversion c{.from = "utf-8", .to = row.to, .input = row.input, .expected = row.expected};
        c.target.useSubstitute = 1;
        c.target.substChar1 = row.narrow;
        c.target.substChar2 = row.wide;
        expect_conversion(c);
        const auto s = test::open_session(c);
        EXPECT_EQ(s->subst1.code, row.narrow_code) << row.to;
        EXPECT_EQ(s->subst2.code, row.wide_code) << row.to;

        c.target.useSubstitute = 0;
        const auto without = test::open_session(c);
        EXPECT_EQ(without->subst1.code, 0U);
        EXPECT_EQ(without->subst2.code, 0U);
    }
}

// The black square that was asked for, and the fallbacks.
TEST(Substitutes, FallbacksAreKeptInTheOptions) {
    const auto resolve = [](const char* to, std::uint16_t wide) {
        conversion c{.from = "utf-8", .to = to};
        c.target.useSubstitute = 1;
        c.target.substChar1 = u'\u25A0';
        c.target.substChar2 = wide;
        const auto s = test::open_session(c);
        return std::vector<std::uint32_t>{s->target.substChar1, s->target.substChar2,
                                          s->subst1.setNo, s->subst2.setNo, s->subst2.bytes};
    };
    EXPECT_EQ(resolve("iso-646irv", u'\u25A0'),
              (std::vector<std::uint32_t>{0x3F, 0x3F, PVZAN_SET_ISO_646_IRV, 0, 0}));
    EXPECT_EQ(resolve("shift_jis", 0),
              (std::vector<std::uint32_t>{0x3F, 0x3013, PVZAN_SET_JIS_X_0208_1990,
                                          PVZAN_SET_JIS_X_0208_1990, 2}));
}

TEST(Substitutes, StandForWhatTheEncodingCannotWrite) {
    // beyond UTF-16, beyond UCS-2: refused, or substituted in that very charset
    const struct {
        const char *to, *input, *expected;
    } rows[] = {
        {"utf-16", "\x7F\xFF\xFF\xFF", "\x25\xA0"},
        {"iso-10646-ucs-2", std::string_view("\0\1\0\0", 4).data(), "\x25\xA0"},
        {"utf-8", "\x80\xFF\xFF\xFF", "\xE2\x96\xA0"},
    };
    for (const auto& [to, input, expected] : rows) {
        conversion c{.from = "iso-10646-ucs-4",
                     .to = to,
                     .input = std::string(input, 4),
                     .faults = {{PVZAN_UNREPRESENTABLE, 4}}};
        expect_conversion(c);
        c.target.useSubstitute = 1;
        c.target.substChar1 = u'*';
        c.target.substChar2 = u'\u25A0';
        c.expected = expected;
        c.faults = {};
        expect_conversion(c);
    }
}

// ---- Any cut, any room -------------------------------------------------------------------------

// Characters that the charset has, line breaks, and bytes at random.
std::string damaged_text(std::mt19937& random, const char* charset) {
    const std::string text = test::utf8(test::random_text(random, 30, 2));
    std::string bytes = test::run({.from = "utf-8", .to = charset}, {text}, 1024).bytes;
    for (int n = 0; n < 15; ++n) {
        constexpr std::string_view controls = "\r\n\x1B\x0E";
        const char odd[] = {static_cast<char>(random()), static_cast<char>(0x80 | random()),
                            static_cast<char>(0x20 + random() % 96), controls[random() % 4]};
        bytes.insert(random() % (bytes.size() + 1), 1, odd[random() % 4]);
    }
    return bytes;
}

TEST(Convert, OutcomesDoNotDependOnPiecesOrRoom) {
    std::mt19937 random(20260101);
    const auto below = [&](std::uint32_t n) { return static_cast<std::uint32_t>(random() % n); };
    for (const char* from : test::all_charsets) {
        for (const char* to : test::all_charsets) {
            conversion c{.from = from, .to = to, .input = damaged_text(random, from)};
            if (c.input.find("\x1B$(P") != std::string::npos) {
                continue; // plane 2 holds only for the character in the same call, deliberately
            }
            c.source.skipInvalid = below(2);
            c.source.srcBigEndian = below(4) != 0;
            c.target.dstBigEndian = below(4) != 0;
            c.target.dstWriteBom = below(2);
            c.target.useSubstitute = below(2);
            c.target.substChar1 = static_cast<std::uint16_t>(below(2) * 0x2A);
            c.target.substChar2 = static_cast<std::uint16_t>(below(2) * 0x25A0);
            c.target.convertNewline = below(2);
            c.target.newlineMode = below(6);
            c.target.charRefMode = below(3);
            const std::string_view input = c.input;
            const test::outcome whole = test::run(c, {input}, 4096);
            for (int round = 0; round < 12; ++round) {
                std::vector<std::string_view> pieces;
                for (std::size_t at = 0; at < input.size();) {
                    pieces.push_back(input.substr(at, below(9)));
                    at += pieces.back().size();
                }
                const test::outcome got = test::run(c, pieces, 26 + below(40));
                ASSERT_TRUE(got.bytes == whole.bytes && got.faults == whole.faults &&
                            got.unread == whole.unread && got.in_count == whole.in_count)
                    << from << " to " << to << ", input " << test::to_hex(input) << "\n expected "
                    << test::to_hex(whole.bytes) << "\n got " << test::to_hex(got.bytes);
            }
        }
    }
}

} // namespace
