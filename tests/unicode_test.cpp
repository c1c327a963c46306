// UTF-8, UTF-16, UCS-4 and UCS-2: the transfer forms and their limits, byte-order marks, combining
// pairs and character references. What iconv(3) can judge is compared with it in oracle_test.cpp.
#include "platform/base.h"
#include "tests/support/convert.h"

namespace {

using test::conversion;
using test::expect_conversion;
using test::swapped;
using test::ucs4;
using test::utf16;
using namespace std::string_literals;

// ---- The forms over all their values -----------------------------------------------------------

// Beyond what iconv(3) judges, UTF-8 is tested by what returns: surrogates, and values beyond
// Unicode.
TEST(Unicode, Utf8ReturnsAllOtherValues) {
    std::string values;
    for (u32 value = 0xD800; value <= 0xDFFF; ++value) {
        values += ucs4({value});
    }
    for (u32 bits = 17; bits <= 31; ++bits) {
        values += ucs4({(1U << bits) - 1, 1U << (bits - 1), 0x9E3779B9U >> (32 - bits)});
    }
    const std::string text = test::convert("iso-10646-ucs-4", "utf-8", values);
    EXPECT_TRUE(test::convert("utf-8", "iso-10646-ucs-4", text) == values);
}

TEST(Unicode, Utf8IsReadLeniently) {
    const struct {
        std::string input, values;
        std::size_t unread = 0;
    } rows[] = {
        // each length at its limits
        {"\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF", ucs4({0x7F, 0x80, 0x7FF, 0x800, 0xFFFF})},
        {"\xF0\x90\x80\x80\xF7\xBF\xBF\xBF", ucs4({0x10000, 0x1FFFFF})},
        {"\xF8\x88\x80\x80\x80\xFB\xBF\xBF\xBF\xBF", ucs4({0x200000, 0x3FFFFFF})},
        {"\xFC\x84\x80\x80\x80\x80\xFD\xBF\xBF\xBF\xBF\xBF", ucs4({0x4000000, 0x7FFFFFFF})},
        // over-long forms
        {"\xC0\x80\xC1\xBF\xE0\x80\x80\xF0\x82\x82\xAC", ucs4({0, 0x7F, 0, 0x20AC})},
        {"\xF8\x80\x80\x80\x80\xFC\x80\x80\x80\x80\x81", ucs4({0, 1})},
        // surrogates, paired too
        {"\xED\xA0\x80\xED\xB0\x80", ucs4({0xD800, 0xDC00})},
        // bytes that are no continuation bytes, and continuation bytes alone
        {"\xC3\x28\xE3\x41\x42\xF1\xC3\xE3\xFF", ucs4({0xE8, 0x3042, 0x438FF})},
        {"\x80\xBF"s + "A\x9F"s, ucs4({0x80, 0xBF, 'A', 0x9F})},
        // FE and FF are skipped; where nothing follows, more input is waited for
        {"\xFE\xFF\xFF"s + "A\xFE"s + "B"s, ucs4({'A', 'B'})},
        {"A\xFE\xFF", ucs4({'A'}), 2},
        {"\xFE\xE3\x81", "", 2},
        // cut characters
        {"A\xC3", ucs4({'A'}), 1},
        {"\xE3\x81", "", 2},
        {"\xF0\x9F\x98", "", 3},
        {"\xF8\x88\x80\x80", "", 4},
        {"\xFD\xBF\xBF\xBF\xBF", "", 5},
    };
    for (const auto& row : rows) {
        expect_conversion({.from = "utf-8",
                           .to = "iso-10646-ucs-4",
                           .input = row.input,
                           .expected = row.values,
                           .unread = row.unread,
                           .least_room = row.values.empty() ? 0U : 4U});
    }
}

TEST(Unicode, Utf16SurrogatesInEitherOrderAndUnpaired) {
    // The documented arithmetic, which never looks at the second unit, modulo 2^32.
    const auto joined = [](u32 first, u32 second) {
        const bool high_first = first < 0xDC00;
        const i64 high = (high_first ? i64{first} : i64{second}) - 0xD800;
        const i64 low = (high_first ? i64{second} : i64{first}) - 0xDC00;
        return static_cast<u32>(high * 0x400 + low + 0x10000);
    };
    EXPECT_EQ(joined(0xD842, 0xDFB7), 0x20BB7U);
    std::string input, values;
    for (u32 first = 0xD800; first <= 0xDFFF; first += 0x55) {
        for (u32 second = 0; second <= 0xFFFF; second += 0x4D3) {
            input += utf16({first, second});
            values += ucs4({joined(first, second)});
        }
    }
    EXPECT_EQ(test::convert("utf-16", "iso-10646-ucs-4", input), values);

    const struct {
        std::string input, values;
        std::size_t unread = 0;
    } rows[] = {
        {utf16({0xD800, 0xDC00, 0xDBFF, 0xDFFF}), ucs4({0x10000, 0x10FFFF})},
        {utf16({0xDC00, 0xD800, 0xDFFF, 0xDBFF}), ucs4({0x10000, 0x10FFFF})},
        {utf16({0xD7FF, 0xE000, 0xFFFF, 0}), ucs4({0xD7FF, 0xE000, 0xFFFF, 0})},
        {utf16({0xD800, 0x0041}), ucs4({0x2441})},
        {utf16({'A', 0xD800}), ucs4({'A'}), 2},
        {utf16({0xDC00}) + "\xD8", "", 3},
        {"\0"s, "", 1},
    };
    for (const auto& row : rows) {
        conversion c{.from = "utf-16",
                     .to = "iso-10646-ucs-4",
                     .input = row.input,
                     .expected = row.values,
                     .unread = row.unread};
        expect_conversion(c);
        c.input = swapped(c.input, 2);
        c.source.srcBigEndian = 0;
        if (c.input.size() % 2 == 0) {
            expect_conversion(c);
        }
    }
}

TEST(Unicode, ValuesBeyondTheTargetAreRefused) {
    const struct {
        const char* to;
        u32 last; // that the target has
        std::string expected;
    } rows[] = {
        {"utf-8", 0x7FFFFFFF, "\xFD\xBF\xBF\xBF\xBF\xBF"},
        {"utf-16", 0x10FFFF, utf16({0xDBFF, 0xDFFF})},
        {"iso-10646-ucs-2", 0xFFFF, "\xFF\xFF"},
    };
    for (const auto& [to, last, expected] : rows) {
        expect_conversion({.from = "iso-10646-ucs-4",
                           .to = to,
                           .input = ucs4({last, last + 1, 'A', 0xFFFFFFFF, last}),
                           .expected = expected + test::convert("utf-8", to, "A") + expected,
                           .faults = {{PVZAN_UNREPRESENTABLE, 8}, {PVZAN_UNREPRESENTABLE, 16}},
                           .least_room = expected.size()});
    }
}

TEST(Unicode, CountsAreRaisedByCodesWritten) {
    const struct {
        const char* to;
        i32 room;
        u32 status, count;
        i32 written;
    } rows[] = {
        {"utf-16", 4, PVZAN_DONE, 2, 4}, // a pair of surrogates counts as two
        // the high surrogate was counted before it was taken back, deliberately
        {"utf-16", 2, PVZAN_OUTPUT_FULL, 1, 0},
        {"utf-16", 3, PVZAN_OUTPUT_FULL, 1, 0},
        {"utf-16", 1, PVZAN_OUTPUT_FULL, 0, 0},
        {"utf-8", 4, PVZAN_DONE, 1, 4},
        {"utf-8", 3, PVZAN_OUTPUT_FULL, 0, 0},
        {"iso-10646-ucs-4", 4, PVZAN_DONE, 1, 4},
    };
    const std::string text = "\U00010000";
    for (const auto& row : rows) {
        const auto s = test::open("utf-8", row.to);
        u8 out[4];
        test::give_input(*s, text);
        test::give_output(*s, {out, static_cast<std::size_t>(row.room)});
        EXPECT_EQ(cconvConvert(s.get()), row.status) << row.to;
        EXPECT_EQ(s->outCount, row.count) << row.to;
        EXPECT_EQ(s->outPos, row.written) << row.to;
    }
}

// ---- Byte-order marks --------------------------------------------------------------------------

struct mark_row {
    const char* from;
    std::string input;
    std::u32string expected;
    std::size_t unread = 0;
};

void expect_marks(const std::vector<mark_row>& rows, bool big_endian, bool check) {
    for (const mark_row& row : rows) {
        conversion c{
            .from = row.from, .to = "iso-10646-ucs-4", .input = row.input, .unread = row.unread};
        for (const char32_t value : row.expected) {
            c.expected += ucs4({static_cast<u32>(value)});
        }
        c.source.srcBigEndian = big_endian;
        c.source.srcCheckBom = check;
        SCOPED_TRACE(check ? "checked" : "not checked");
        expect_conversion(c);
    }
}

TEST(ByteOrderMark, IsTakenAtTheStartOnly) {
    for (const bool big_endian : {false, true}) {
        expect_marks(
            {
                {"utf-8", "\xEF\xBB\xBFあ\xEF\xBB\xBF", U"あ\uFEFF"},
                {"utf-8", "\xEF\xBB\xBF", U""},
                {"utf-8", "\xEF\xBB\xBEx", U"\uFEFEx"},
                // three bytes are waited for, even for complete text
                {"utf-8", "A", U"", 1},
                {"utf-8", "\xEF\xBB", U"", 2},
                {"utf-8", "", U""},
                {"utf-16", "\xFE\xFF\0A\xFE\xFF"s, U"A\uFEFF"},
                {"utf-16", "\xFF\xFE"s + "A\0\xFF\xFE"s, U"A\uFEFF"},
                // one FE or FF makes a mark; only FE in front means the most significant byte first
                {"utf-16", "\xFF\0A\0"s, U"A"},
                {"utf-16", "\0\xFF"s + "A\0"s, U"A"},
                {"utf-16", "\x12\xFE"s + "A\0"s, U"A"},
                {"utf-16", "\xFE\x12\0A"s, U"A"},
                {"iso-10646-ucs-4", "\0\0\xFE\xFF\0\0\0A"s, U"A"},
                {"iso-10646-ucs-4", "\xFF\xFE\0\0A\0\0\0"s, U"A"},
                {"iso-10646-ucs-4", "\0\0\xFE"s, U"", 3},
                {"iso-10646-ucs-2", "\xFE\xFF\0A\xFE\xFF"s, U"A\uFEFF"},
                {"iso-10646-ucs-2", "\xFF\xFE"s + "A\0\xFF\xFE"s, U"A\uFEFF"},
            },
            big_endian, true);
    }
    // What is no mark is data, in the order of the option.
    expect_marks(
        {
            {"utf-16", "\0A\xFE\xFF"s, U"A\uFEFF"},
            {"iso-10646-ucs-4", "\0\0\0A"s, U"A"},
            {"iso-10646-ucs-4", "\0\0\xFF\xFE"s, U"\uFFFE"},
            {"iso-10646-ucs-2", "\xFE\0\xFF\0"s, U"\uFE00\uFF00"},
            {"iso-10646-ucs-2", "\x12\xFE\0A"s, U"\u12FEA"},
        },
        true, true);
    expect_marks(
        {
            {"iso-10646-ucs-4", "A\0\0\0"s, U"A"},
            {"iso-10646-ucs-2", "\0\xFF"s + "A\0"s, U"\uFF00A"},
        },
        false, true);
    // Unless it is looked for, it is a character.
    expect_marks(
        {
            {"utf-8", "\xEF\xBB\xBF", U"\uFEFF"},
            {"utf-16", "\xFE\xFF\0A"s, U"\uFEFFA"},
            {"iso-10646-ucs-4", "\0\0\xFE\xFF"s, U"\uFEFF"},
            {"iso-10646-ucs-2", "\xFF\xFE"s, U"\uFFFE"},
        },
        true, false);
}

TEST(ByteOrderMark, IsWrittenBeforeTheFirstCharacter) {
    const struct {
        const char* to;
        std::string mark_big, mark_little, big, little;
    } rows[] = {
        {"utf-8", "\xEF\xBB\xBF", "\xEF\xBB\xBF", "あA", "あA"},
        {"utf-16", "\xFE\xFF", "\xFF\xFE", "\x30\x42\0A"s, "\x42\x30"s + "A\0"s},
        {"iso-10646-ucs-2", "\xFE\xFF", "\xFF\xFE", "\x30\x42\0A"s, "\x42\x30"s + "A\0"s},
        {"iso-10646-ucs-4", "\0\0\xFE\xFF"s, "\xFF\xFE\0\0"s, "\0\0\x30\x42\0\0\0A"s,
         "\x42\x30\0\0A\0\0\0"s},
    };
    for (const auto& row : rows) {
        for (const bool big_endian : {false, true}) {
            const std::string& mark = big_endian ? row.mark_big : row.mark_little;
            conversion c{.from = "utf-8",
                         .to = row.to,
                         .input = "あA",
                         .expected = mark + (big_endian ? row.big : row.little)};
            c.target.dstBigEndian = big_endian;
            c.target.dstWriteBom = 1;
            c.least_room = mark.size();
            expect_conversion(c);

            const auto s = test::open_session(c);
            u8 out[16];
            test::give_input(*s, c.input);
            test::give_output(*s, out);
            EXPECT_EQ(cconvConvert(s.get()), 0U);
            EXPECT_EQ(s->target.dstWriteBom, 0U);
            EXPECT_EQ(s->outCount, 2U); // a mark is not counted
            const bool forced = std::strcmp(row.to, "utf-8") == 0;
            EXPECT_EQ(s->target.dstBigEndian, big_endian || forced ? 1U : 0U);

            // Nothing but the end: no mark.
            c.input = c.expected = "";
            c.least_room = 0;
            expect_conversion(c);
        }
    }
    // Where the first character cannot be written, the mark still is.
    conversion c{.from = "iso-10646-ucs-4",
                 .to = "utf-16",
                 .input = ucs4({0x110000, 'A'}),
                 .expected = "\xFE\xFF\0A"s,
                 .faults = {{PVZAN_UNREPRESENTABLE, 4}}};
    c.target.dstWriteBom = 1;
    expect_conversion(c);
}

} // namespace
