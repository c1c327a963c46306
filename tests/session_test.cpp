// The session record: what each call sets and leaves, and statuses as resume points.
#include "tests/support/convert.h"

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
    constexpr std::size_t last = offsetof(pvzan_session, subst1); // which has unnamed bytes inside
    EXPECT_EQ(std::memcmp(s.get(), expected.get(), last), 0);
    for (const pvzan_substitute& none : {s->subst1, s->subst2}) {
        EXPECT_EQ(none.setNo | none.setType | none.code | none.bytes, 0U);
    }
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
    const std::string endless(100000, 'x');
    const struct {
        const char *to, *from;
        std::uint32_t opened, changed;
    } rows[] = {
        {"X-Unknown", "utf-8", PVZAN_UNKNOWN_CHARSET, PVZAN_DONE},
        {"utf-8", "utf-8", PVZAN_DONE, PVZAN_DONE},
        {"utf-8", "", PVZAN_DONE, PVZAN_UNKNOWN_CHARSET}, // the source before it is gone, too
        {"jis_x0208-1990", "utf-8", PVZAN_UNKNOWN_CHARSET, PVZAN_DONE}, // a coded set
        {endless.c_str(), "utf-8", PVZAN_UNKNOWN_CHARSET, PVZAN_DONE},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(cconvInitConvert(s.get(), nullptr, row.to), row.opened);
        EXPECT_EQ(cconvChgCharset(s.get(), nullptr, row.from), row.changed);
        test::give_input(*s, "a");
        test::give_output(*s, out);
        const bool known = row.opened == PVZAN_DONE && row.changed == PVZAN_DONE;
        EXPECT_EQ(cconvConvert(s.get()), known ? PVZAN_DONE : PVZAN_UNKNOWN_CHARSET);
        EXPECT_EQ(s->inPos + s->outPos, known ? 2 : 0) << row.to;
    }
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

} // namespace
