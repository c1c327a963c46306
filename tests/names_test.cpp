// Charset names to numbers, rule names to codec functions.
#include "cconv/names.h"
#include "cconv/rulefunc/rules.h"
#include "tests/support/convert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>

namespace {

u32 number_of(std::string name) {
    return TheCreateNo(name.data());
}

// The numbers that definitions, the rules and programs in the field rely on.
constexpr group_row known_names[] = {
    {"shift_jis", 1001},       {"windows31j", 1002},     {"iso-10646-ucs-2", 1003},
    {"iso-10646-ucs-4", 1004}, {"utf-16", 1005},         {"utf-8", 1006},
    {"euc-jp", 1007},          {"euc-jp-fix", 1008},     {"iso-2022-jp", 1009},
    {"shift_jis-2004", 1010},  {"euc-jis-2004", 1011},   {"iso-2022-jp-2004", 1012},
    {"iso-646irv", 2001},      {"jis_x0201latin", 2002}, {"jis_x0201kana", 2003},
    {"jis_c6226-1978", 2004},  {"jis_x0208-1983", 2005}, {"jis_x0208-1990", 2006},
    {"jis_x0212-1990", 2007},  {"nec_extset", 2008},     {"ibm_extset", 2009},
    {"jis-78-83", 2010},       {"jis_x0213", 2011},      {"windows31j-usr", 3001},
    {"windowsntj-usr", 3002},  {"oasys_extset", 3003},   {"oasys2_extset", 3004},
    {"chinesegbk", 5000},      {"chinesebig5", 5001},    {"koreanksc", 5002},
    {"gb18030", 5003},
};

TEST(Names, KnownNamesInOrderAndInEveryCase) {
    ASSERT_EQ(std::size(known_names), std::size(groupList));
    for (std::size_t i = 0; i < std::size(known_names); ++i) {
        const auto& [name, number] = known_names[i];
        EXPECT_STREQ(groupList[i].name, name);
        EXPECT_EQ(groupList[i].number, number) << name;
        EXPECT_EQ(number_of(name), number) << name;

        std::string upper = name;
        std::ranges::transform(upper, upper.begin(),
                               [](char c) { return static_cast<char>(std::toupper(c)); });
        EXPECT_EQ(number_of(upper), number) << upper;
    }
}

TEST(Names, UnknownNamesAreHashedByByteAndPosition) {
    const struct {
        std::string name;
        u32 number;
    } rows[] = {
        {"", 4000},
        {"a", 4097},
        {"A", 4097},
        {"ab", 4293},
        {"AB", 4293},
        {"ba", 4292},
        {"\xFF", 4255},                                  // bytes count as unsigned
        {"\xC1", 4193},                                  // a byte that only a locale would fold
        {"@[`{", 4000 + 64 + 2 * 91 + 3 * 96 + 4 * 123}, // the neighbours of the letters
        {"utf-8 ", 4000 + 117 + 2 * 116 + 3 * 102 + 4 * 45 + 5 * 56 + 6 * 32},
        {std::string(1000, 'z'), 4000 + 122 * (1000 * 1001 / 2)},
        // 255 * (6000 * 6001 / 2) + 4000 = 4590769000, which wraps
        {std::string(6000, '\xFF'), 295801704},
    };
    for (const auto& [name, number] : rows) {
        EXPECT_EQ(number_of(name), number) << name.substr(0, 20);
    }
}

TEST(Names, TheNameIsFoldedInPlace) {
    std::string known = "Shift_JIS", unknown = "X-\xC0Z[";
    TheCreateNo(known.data());
    TheCreateNo(unknown.data());
    EXPECT_EQ(known, "shift_jis");
    EXPECT_EQ(unknown, "x-\xC0z[");
}

TEST(Names, RulesByTheirExactNames) {
    const struct {
        const char* name;
        rule_function function;
    } rows[] = {
        {"destSAME", destSAME},
        {"constSAME", constSAME},
        {"destShift_JIS", destSHIFT_JIS},
        {"constShift_JIS", constSHIFT_JIS},
        {"destShift_JIS-2004", destSHIFT_JIS_2004},
        {"constShift_JIS-2004", constSHIFT_JIS_2004},
        {"destWINDOWS31J", destWINDOWS31J},
        {"constWINDOWS31J", constWINDOWS31J},
        {"destISO-10646-UCS-2", destISO_10646_UCS_2},
        {"constISO-10646-UCS-2", constISO_10646_UCS_2},
        {"destISO-10646-UCS-4", destISO_10646_UCS_4},
        {"constISO-10646-UCS-4", constISO_10646_UCS_4},
        {"destUTF-16", destUTF_16},
        {"constUTF-16", constUTF_16},
        {"destUTF-8", destUTF_8},
        {"constUTF-8", constUTF_8},
        {"destEUC-JP", destEUC_JP},
        {"constEUC-JP", constEUC_JP},
        {"destEUC-JP-FIX", destEUC_JP_FIX},
        {"constEUC-JP-FIX", constEUC_JP_FIX},
        {"destEUC-JIS-2004", destEUC_JIS_2004},
        {"constEUC-JIS-2004", constEUC_JIS_2004},
        {"destISO-2022-JP", destISO_2022_JP},
        {"constISO-2022-JP", constISO_2022_JP},
        {"destISO-2022-JP-2004", destISO_2022_JP_2004},
        {"constISO-2022-JP-2004", constISO_2022_JP_2004},
        {"destOASYS_WIN", destOASYS_WIN},
        {"constOASYS_WIN", constOASYS_WIN},
        {"destOASYS_ONLINE", destOASYS_ONLINE},
        {"constOASYS_ONLINE", constOASYS_ONLINE},
    };
    ASSERT_EQ(std::size(rows), std::size(ruleList));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto& [name, function] = rows[i];
        rule_row& row = ruleList[i];
        EXPECT_STREQ(row.name, name);
        EXPECT_EQ(row.function, function) << name;
        EXPECT_EQ(TheRule(name), &row) << name;
        const char* padding = row.name + std::strlen(row.name);
        EXPECT_TRUE(std::all_of(padding, static_cast<const char*>(std::end(row.name)),
                                [](char c) { return c == '\0'; }));
    }
    EXPECT_EQ(TheRule(nullptr), nullptr);
    for (const char* name : {"", "dest", "destSAME ", "DESTSAME", "destsame", "destSHIFT_JIS",
                             "destShift_JIS-", "const", "utf-8"}) {
        EXPECT_EQ(TheRule(name), nullptr) << name;
    }
}

TEST(Names, TextsAreComparedWithoutReadingPastTheirEnds) {
    const std::string texts[] = {"", "a", "b", "ab", "ac", "abc", "abd", "\xFF", "\xFF\xFE"};
    for (const std::string& a : texts) {
        for (const std::string& b : texts) {
            // Each text ends where memory ends.
            const test::guarded_buffer left(a.size() + 1), right(b.size() + 1);
            std::memcpy(left.data(), a.c_str(), a.size() + 1);
            std::memcpy(right.data(), b.c_str(), b.size() + 1);
            const auto* x = reinterpret_cast<const char*>(left.data());
            const auto* y = reinterpret_cast<const char*>(right.data());
            EXPECT_EQ(byteCmp(x, y) != 0, a == b) << a << ", " << b;
        }
    }
}

} // namespace
