// Charset names to numbers, rule names to codec functions.
#include "cconv/names.h"

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

TEST(Names, KnownNamesInEveryCase) {
    ASSERT_EQ(std::size(known_names), std::size(groupList));
    for (const auto& [name, number] : known_names) {
        EXPECT_EQ(number_of(name), number) << name;
        std::string upper = name;
        std::ranges::transform(upper, upper.begin(),
                               [](char c) { return static_cast<char>(std::toupper(c)); });
        EXPECT_EQ(number_of(upper), number) << upper;
    }
}

TEST(Names, UnknownNamesAreHashedByByteAndPosition) {
    const std::pair<std::string, u32> rows[] = {
        {"", 4000},
        {"a", 4097},
        {"AB", 4293},
        {"\xFF", 4255},                                  // bytes count as unsigned
        {"\xC1", 4193},                                  // a byte that only a locale would fold
        {"@[`{", 4000 + 64 + 2 * 91 + 3 * 96 + 4 * 123}, // the neighbours of the letters
        // 255 * (6000 * 6001 / 2) + 4000 = 4590769000, which wraps
        {std::string(6000, '\xFF'), 295801704},
    };
    for (const auto& [name, number] : rows) {
        EXPECT_EQ(number_of(name), number) << name.substr(0, 20);
    }
}

TEST(Names, TheNameIsFoldedInPlace) {
    std::string name = "X-\xC0Z[";
    TheCreateNo(name.data());
    EXPECT_EQ(name, "x-\xC0z[");
}

TEST(Names, RulesByTheirExactNames) {
    for (const rule_row& row : ruleList) {
        EXPECT_EQ(TheRule(row.name), &row) << row.name;
    }
    EXPECT_EQ(TheRule(nullptr), nullptr);
    for (const char* name : {"", "dest", "destSAME ", "destsame", "destSHIFT_JIS", "utf-8"}) {
        EXPECT_EQ(TheRule(name), nullptr) << name;
    }
}

TEST(Names, TextsAreComparedToTheirEnds) {
    constexpr const char* texts[] = {"", "a", "b", "ab", "ac", "abc", "\xFF", "\xFF\xFE"};
    for (const char* a : texts) {
        for (const char* b : texts) {
            EXPECT_EQ(byteCmp(a, b) != 0, std::string_view(a) == b) << a << ", " << b;
        }
    }
}

} // namespace
