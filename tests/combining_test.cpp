// Base letters with combining marks, which are one character in JIS X 0213 and two in Unicode.
#include "cconv/engine/engine.h"
#include "cconv/rulefunc/rules.h"
#include "tests/support/convert.h"

#include <numeric>

namespace {

using test::conversion;
using test::expect_conversion;

// The characters of JIS X 0213 that Unicode writes as two (JIS X 0213:2004, annex 4).
struct pair_row {
    u32 code;
    std::u32string text;
};

const pair_row pairs[] = {
    {0x2477, U"か\u309A"},     {0x2478, U"き\u309A"},     {0x2479, U"く\u309A"},
    {0x247A, U"け\u309A"},     {0x247B, U"こ\u309A"},     {0x2577, U"カ\u309A"},
    {0x2578, U"キ\u309A"},     {0x2579, U"ク\u309A"},     {0x257A, U"ケ\u309A"},
    {0x257B, U"コ\u309A"},     {0x257C, U"セ\u309A"},     {0x257D, U"ツ\u309A"},
    {0x257E, U"ト\u309A"},     {0x2678, U"ㇷ\u309A"},     {0x2B44, U"æ\u0300"},
    {0x2B48, U"\u0254\u0300"}, {0x2B49, U"\u0254\u0301"}, {0x2B4A, U"\u028C\u0300"},
    {0x2B4B, U"\u028C\u0301"}, {0x2B4C, U"\u0259\u0300"}, {0x2B4D, U"\u0259\u0301"},
    {0x2B4E, U"\u025A\u0300"}, {0x2B4F, U"\u025A\u0301"}, {0x2B65, U"\u02E9\u02E5"},
    {0x2B66, U"\u02E5\u02E9"},
};

std::vector<std::size_t> cuts_inside(std::size_t first, std::size_t last) {
    std::vector<std::size_t> cuts(last - first + 1);
    std::iota(cuts.begin(), cuts.end(), first);
    return cuts;
}

TEST(CombiningPairs, Lookups) {
    // All codes, and all pairs of what occurs in the table and its neighbours.
    std::vector<u32> values = {0, 0x3099, 0x309B, 0x02FF, 0x0302};
    u32 codes = 0;
    for (std::size_t i = 0; i < std::size(pairs); ++i) {
        const auto& [code, text] = pairs[i];
        EXPECT_EQ(JISX0213CombiningTable[i].code, code);
        EXPECT_EQ(JISX0213CombiningTable[i].base, text[0]);
        EXPECT_EQ(JISX0213CombiningTable[i].mark, text[1]);
        values.push_back(text[0]);
        values.push_back(text[1]);
    }
    EXPECT_EQ(JISX0213CombiningTable[25].code, 0U);
    for (u32 code = 0; code < 0x20000; ++code) {
        u32 base = 0xAAAA, mark = 0xBBBB;
        const u32 found = ConvJISX0213CombiningToUCS(code, &base, &mark);
        ASSERT_EQ(IsJISX0213Combining(code), found);
        if (found == 0) {
            ASSERT_EQ(base, 0xAAAAU) << code; // only the mark is cleared
            ASSERT_EQ(mark, 0U) << code;
            continue;
        }
        ++codes;
        u32 back = 0;
        EXPECT_EQ(ConvJISX0213CombiningFromUCS(base, mark, &back), 1U);
        EXPECT_EQ(back, code);
    }
    EXPECT_EQ(codes, std::size(pairs));
    for (const u32 base : values) {
        for (const u32 mark : values) {
            u32 expected = 0, code = 0xCCCC;
            for (const auto& row : pairs) {
                expected = row.text == std::u32string{base, mark} ? row.code : expected;
            }
            EXPECT_EQ(IsJISX0213CombiningUCS(base, mark), expected != 0);
            const conversion c{.from = "utf-16", .to = "utf-8", .input = test::utf16({base, mark})};
            EXPECT_EQ(test::run(c, {c.input}, 16).in_count, expected != 0 ? 1U : 2U);
            EXPECT_EQ(ConvJISX0213CombiningFromUCS(base, mark, &code), expected != 0);
            EXPECT_EQ(code, expected != 0 ? expected : 0xCCCC);
        }
    }
}

TEST(CombiningPairs, AreOneCharacterOfJisX0213) {
    test::oracle peer("UTF-8", "SHIFT_JISX0213");
    for (const auto& [code, text] : pairs) {
        const std::string utf8_text = test::utf8(text), jis = test::utf16({JIStoSJIS2004(code)});
        if (peer.available()) {
            EXPECT_EQ(peer(utf8_text), jis);
        }
        const std::size_t base_end = 1 + test::utf8(text[0]).size();
        const auto from_unicode = [&](const char* from, std::size_t cut, std::size_t mark_size) {
            return conversion{.from = from,
                              .to = "shift_jis-2004",
                              .input = test::convert("utf-8", from, "A" + utf8_text + "B"),
                              .expected = "A" + jis + "B",
                              .other_at = cuts_inside(cut, cut + mark_size - 1),
                              .least_room = 2};
        };
        // A base letter whose mark is not there yet is a character by itself.
        expect_conversion(from_unicode("utf-8", base_end, test::utf8(text[1]).size()));
        expect_conversion(from_unicode("utf-16", 4, 2));
        // The UCS-4 and UCS-2 decoders do not look ahead, so the mark comes alone: it is written
        // where JIS X 0213 has it, else refused.
        for (const char* form : {"iso-10646-ucs-4", "iso-10646-ucs-2"}) {
            const conversion c{.from = form,
                               .to = "shift_jis-2004",
                               .input = test::convert("utf-8", form, utf8_text),
                               .expected = {}};
            const test::outcome alone = test::run(c, {c.input}, 16);
            EXPECT_EQ(alone.bytes.substr(0, 2),
                      test::convert("utf-8", "shift_jis-2004", test::utf8(text[0])));
            EXPECT_EQ(alone.faults.size(), text[1] == U'\u309A' ? 1U : 0U);
        }
        // And back; to itself it keeps its code.
        const std::pair<const char*, std::size_t> targets[] = {{"utf-8", utf8_text.size()},
                                                               {"utf-16", 4},
                                                               {"iso-10646-ucs-4", 8},
                                                               {"shift_jis-2004", 2}};
        for (const auto& [to, room] : targets) {
            expect_conversion({.from = "shift_jis-2004",
                               .to = to,
                               .input = jis,
                               .expected = test::convert("utf-8", to, utf8_text),
                               .least_room = room});
        }
        // Between Unicode forms a pair stays two characters, counted as one where it was read
        // ahead.
        const conversion through{.from = "utf-8",
                                 .to = "utf-8",
                                 .input = utf8_text,
                                 .expected = utf8_text,
                                 .other_at = cuts_inside(base_end - 1, utf8_text.size() - 1)};
        expect_conversion(through);
        const test::outcome counted = test::run(through, {through.input}, 16);
        EXPECT_EQ(counted.in_count, 1U);
        EXPECT_EQ(counted.out_count, 2U);
    }
}

TEST(CombiningPairs, CutBetweenBaseAndMark) {
    const std::string base = "か", mark = "\u309A";
    const struct {
        const char* to;
        std::string whole, cut;
        std::vector<test::fault> faults;
    } rows[] = {
        {"utf-8", base + mark, base + mark, {}},
        {"shift_jis-2004", "\x82\xF5", "\x82\xA9", {{PVZAN_UNREPRESENTABLE, 6}}},
        // Without JIS X 0213 the mark's value goes through the target's arithmetic like a code,
        // deliberately; alone it is refused.
        {"shift_jis", "\x82\xA9\x89\x18", "\x82\xA9", {{PVZAN_UNREPRESENTABLE, 6}}},
        {"euc-jp", "\xA4\xAB\xB0\x9A", "\xA4\xAB", {{PVZAN_UNREPRESENTABLE, 6}}},
    };
    for (const auto& row : rows) {
        const conversion c{.from = "utf-8", .to = row.to, .input = base + mark};
        const std::string_view text = c.input;
        const test::outcome whole = test::run(c, {text}, 16);
        EXPECT_EQ(test::to_hex(whole.bytes), test::to_hex(row.whole)) << row.to;
        EXPECT_TRUE(whole.faults.empty());
        for (std::size_t cut = 3; cut < 6; ++cut) {
            const test::outcome got = test::run(c, {text.substr(0, cut), text.substr(cut)}, 16);
            EXPECT_EQ(test::to_hex(got.bytes), test::to_hex(row.cut)) << row.to;
            EXPECT_EQ(got.faults, row.faults) << row.to;
            EXPECT_EQ(got.in_count, 2U);
        }
    }
    // A base that the target lacks takes its mark with it.
    expect_conversion({.from = "utf-8",
                       .to = "shift_jis",
                       .input = "\u0254\u0300x",
                       .expected = "x",
                       .faults = {{PVZAN_UNREPRESENTABLE, 4}},
                       .other_at = {2, 3}});
}

} // namespace
