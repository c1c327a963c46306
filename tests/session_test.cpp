// The session record: what each call sets and leaves, statuses as resume points, and records that a
// careless caller filled in.
#include "tests/support/convert.h"

#include "tests/support/oracle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <string>

namespace {

using test::conversion;

TEST(Session, IsClearedByTheTargetAndLeavesThePositionsAlone) {
    test::use_shipped_charsets();
    const auto s = std::make_unique<pvzan_session>();
    std::memset(s.get(), 0x5A, sizeof *s);
    const pvzan_session before = *s;
    pvzan_target_options options{};
    options.dstWriteBom = 1;
    std::strcpy(options.langTag, "en");
    options.newlineMode = 77;
    ASSERT_EQ(cconvInitConvert(s.get(), &options, "UTF-8"), 0U);

    // All but what the caller owns: zero, the options, their language, the target.
    const auto expected = std::make_unique<pvzan_session>();
    std::memcpy(expected.get(), &before, offsetof(pvzan_session, status));
    expected->source = before.source;
    expected->target = options;
    for (char* language : {expected->baseLang, expected->outLang, expected->curLang}) {
        std::strcpy(language, "en");
    }
    expected->dstGroupNo = 1006;
    expected->dstGroup = s->dstGroup;
    expected->dstRule = s->dstRule;
    constexpr std::size_t last = offsetof(pvzan_session, subst2) + sizeof s->subst2;
    const auto bytes = [](const pvzan_session& all) {
        return std::string_view(reinterpret_cast<const char*>(&all), last);
    };
    const auto difference = std::ranges::mismatch(bytes(*s), bytes(*expected)).in1;
    EXPECT_EQ(difference - bytes(*s).begin(), std::ptrdiff_t{last}) << "the first difference";
    EXPECT_NE(s->dstRule, nullptr);
    EXPECT_EQ(cconvConvert(s.get()), PVZAN_UNKNOWN_CHARSET); // no source yet
    EXPECT_EQ(s->status, PVZAN_UNKNOWN_CHARSET);

    s->charSetNo = s->srcCode = s->setCode = s->ucsCode = s->outCode = 99;
    ASSERT_EQ(cconvChgCharset(s.get(), nullptr, "SHIFT_jis"), 0U);
    EXPECT_EQ(s->srcGroupNo, 1001U);
    EXPECT_EQ(s->srcShiftSet, 2001U);
    EXPECT_EQ(s->charSetNo | s->srcCode | s->setCode | s->ucsCode | s->outCode, 0U);
    EXPECT_EQ(s->source.srcBigEndian | s->source.srcCheckBom | s->source.skipInvalid, 0U);

    ASSERT_EQ(cconvInitConvert(s.get(), nullptr, "utf-8"), 0U);
    const pvzan_target_options none{};
    EXPECT_EQ(std::memcmp(&s->target, &none, sizeof none), 0);
}

TEST(Session, UnknownCharsetsLeaveItWithoutRules) {
    test::use_shipped_charsets();
    std::uint8_t out[8];
    const auto s = std::make_unique<pvzan_session>();
    EXPECT_EQ(cconvTermConvert(s.get()), 0U); // no target: nothing to close
    const auto expect_no_conversion = [&] {
        test::give_input(*s, "a");
        test::give_output(*s, out);
        EXPECT_EQ(cconvConvert(s.get()), PVZAN_UNKNOWN_CHARSET);
        EXPECT_EQ(s->inPos, 0);
        EXPECT_EQ(s->outPos, 0);
    };
    char name[] = "X-Unknown";
    EXPECT_EQ(cconvInitConvert(s.get(), nullptr, name), PVZAN_UNKNOWN_CHARSET);
    EXPECT_STREQ(name, "X-Unknown");
    expect_no_conversion();
    EXPECT_EQ(cconvChgCharset(s.get(), nullptr, "utf-8"), 0U);
    expect_no_conversion();
    EXPECT_EQ(cconvInitConvert(s.get(), nullptr, "utf-8"), 0U);
    EXPECT_EQ(cconvChgCharset(s.get(), nullptr, "utf-8"), 0U);
    EXPECT_EQ(cconvChgCharset(s.get(), nullptr, ""), PVZAN_UNKNOWN_CHARSET);
    expect_no_conversion(); // the source before it is gone, too
    // Names of coded sets are no charsets.
    EXPECT_EQ(cconvInitConvert(s.get(), nullptr, "jis_x0208-1990"), PVZAN_UNKNOWN_CHARSET);
    EXPECT_EQ(cconvInitConvert(s.get(), nullptr, std::string(100000, 'x').c_str()),
              PVZAN_UNKNOWN_CHARSET);
}

TEST(Session, EveryStatusIsAResumePointOrAFreshStart) {
    const std::string text = "a\x82\xA0";
    for (const std::uint32_t status : {0U, 1U, 12U, 13U, 21U, 23U, 31U, 99U, UINT32_MAX}) {
        const auto s = test::open("shift_jis", "utf-8");
        std::uint8_t out[16];
        test::give_input(*s, text);
        test::give_output(*s, out);
        s->status = status;
        s->setCode = s->srcCode = 'x'; // a character that was dropped
        EXPECT_EQ(cconvConvert(s.get()), 0U) << status;
        EXPECT_EQ(test::written(*s), "a\xE3\x81\x82") << status;
        EXPECT_EQ(s->inPos, 3);
        EXPECT_EQ(s->inCount, 2U);
        EXPECT_EQ(s->outCount, 2U);
        // Used up: no rule is called, the characters stay as they are.
        s->status = status;
        EXPECT_EQ(cconvConvert(s.get()), 0U);
        EXPECT_EQ(s->srcCode, 0x82A0U);
        EXPECT_EQ(s->outCount, 2U);
    }
}

TEST(Session, FaultsAreReportedOnceAndWithTheCharacter) {
    const auto s = test::open("utf-8", "shift_jis");
    std::uint8_t out[4];
    test::give_input(*s, "\u00E9b");
    test::give_output(*s, out);
    EXPECT_EQ(cconvConvert(s.get()), PVZAN_UNREPRESENTABLE);
    EXPECT_EQ(s->ucsCode, 0xE9U);
    EXPECT_EQ(s->inPos, 2);
    EXPECT_EQ(s->outPos, 0);
    EXPECT_EQ(cconvConvert(s.get()), 0U);
    EXPECT_EQ(test::written(*s), "b");
}

TEST(Session, TheSourceMayChangeUnderWay) {
    conversion c{.from = "shift_jis", .to = "iso-2022-jp"};
    const auto s = test::open_session(c);
    std::uint8_t out[64];
    test::give_output(*s, out);
    const auto feed = [&](const char* charset, std::string_view text) {
        ASSERT_EQ(cconvChgCharset(s.get(), &c.source, charset), 0U);
        test::give_input(*s, text);
        ASSERT_EQ(cconvConvert(s.get()), 0U);
    };
    feed("shift_jis", "\x82\xA0");
    feed("utf-8", "い");
    feed("euc-jp", "\xA4\xA6.");
    EXPECT_EQ(cconvTermConvert(s.get()), 0U);
    // One designation for the three, one for the full stop.
    EXPECT_EQ(test::written(*s), "\x1B$B$\"$$$&\x1B(B.");
    EXPECT_EQ(s->inCount, 4U);

    // The counts go on where another conversion starts.
    ASSERT_EQ(cconvInitConvert(s.get(), &c.target, "utf-8"), 0U);
    s->outPos = 0;
    feed("shift_jis", "abc");
    EXPECT_EQ(s->inCount, 7U);
}

// ---- Records that a careless caller fills in ---------------------------------------------------

TEST(Session, SenselessPositionsConvertNothing) {
    const test::guarded_buffer in(16), out(16);
    constexpr std::int32_t positions[] = {INT32_MIN, -1, 0, 8, INT32_MAX};
    for (const char* from : test::all_charsets) {
        for (const char* to : {"utf-8", "utf-16", "shift_jis", "iso-2022-jp", "iso-10646-ucs-2"}) {
            const auto opened = test::open(from, to);
            pvzan_session s = *opened;
            for (const std::uint32_t status : {0U, 12U, 21U}) {
                for (const std::int32_t position : positions) {
                    for (const std::int32_t length : positions) {
                        if (position >= 0 && position < length) {
                            continue;
                        }
                        s = *opened;
                        s.status = status;
                        s.inBuf = in.data();
                        s.inPos = position;
                        s.inLen = length;
                        test::give_output(s, {out.data(), 16});
                        ASSERT_EQ(cconvConvert(&s), 0U) << from << position << ", " << length;
                        ASSERT_EQ(s.inPos, position);
                        ASSERT_EQ(s.outPos, 0);
                        ASSERT_EQ(s.inCount, 0U);
                    }
                }
            }
        }
    }
}

TEST(Session, SenselessOutputPositionsWriteNothing) {
    const std::string text = test::convert("utf-8", "utf-16", "A");
    const test::guarded_buffer out(16);
    std::memset(out.data(), 0xDB, 16);
    const std::string untouched(16, '\xDB');
    for (const char* to : test::all_charsets) {
        conversion c{.from = "utf-16", .to = to};
        for (const bool mark : {false, true}) {
            for (const bool newline : {false, true}) {
                c.target.dstWriteBom = mark;
                c.target.convertNewline = newline;
                const std::string input = newline ? std::string("\0\r", 2) : text;
                const struct {
                    std::uint8_t* buffer;
                    std::int32_t position, length;
                } rows[] = {{out.data(), -1, 16},
                            {out.data(), INT32_MIN, 16},
                            {out.data(), INT32_MIN, INT32_MIN},
                            {out.data(), 0, -1},
                            {out.data(), 17, 16},
                            {out.data(), INT32_MAX, INT32_MAX},
                            {nullptr, 0, 16}};
                for (const auto& row : rows) {
                    const auto s = test::open_session(c);
                    test::give_input(*s, input);
                    s->outBuf = row.buffer;
                    s->outPos = row.position;
                    s->outLen = row.length;
                    ASSERT_EQ(cconvConvert(s.get()), PVZAN_OUTPUT_FULL) << to;
                    ASSERT_EQ(s->outPos, row.position);
                    ASSERT_EQ(std::string(out.data(), out.data() + 16), untouched);
                    // The character is not lost.
                    test::give_output(*s, {out.data(), 16});
                    ASSERT_EQ(cconvConvert(s.get()), 0U);
                    ASSERT_GT(s->outPos, 0) << to;
                    std::memset(out.data(), 0xDB, 16);
                }
            }
        }
    }
}

// A room that ends where positions end: sums of position and width must not wrap.
TEST(Session, RoomAtTheEndOfAllPositions) {
    for (const char* to : {"utf-8", "utf-16", "iso-10646-ucs-4", "shift_jis", "euc-jp"}) {
        const auto s = test::open("utf-8", to);
        std::uint8_t byte = 0;
        test::give_input(*s, "あ");
        s->outBuf = &byte; // not written to: there is room for one byte only
        s->outPos = INT32_MAX - 1;
        s->outLen = INT32_MAX;
        EXPECT_EQ(cconvConvert(s.get()), PVZAN_OUTPUT_FULL);
        EXPECT_EQ(s->outPos, INT32_MAX - 1);
    }
}

} // namespace
