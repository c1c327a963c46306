// Names and their numbers; registry objects: arrays, groups, sets, blocks, limits.
#include "cconv/convert/lifecycle.h"
#include "cconv/registry/names.h"
#include "cconv/registry/registry.h"
#include "cconv/rulefunc/rules.h"
#include "platform/platform.h"

#include <algorithm>
#include <cctype>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

// ---- Names -------------------------------------------------------------------------------------

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

// The name is folded in place.
void expect_number(std::string name, const std::string& folded, u32 number) {
    EXPECT_EQ(TheCreateNo(name.data()), number) << folded.substr(0, 20);
    EXPECT_EQ(name, folded);
}

TEST(Names, KnownOnesAreNumberedAndOthersHashedByByteAndPosition) {
    ASSERT_EQ(std::size(known_names), std::size(groupList));
    for (const auto& [name, number] : known_names) {
        std::string upper = name;
        std::ranges::transform(upper, upper.begin(),
                               [](char c) { return static_cast<char>(std::toupper(c)); });
        expect_number(name, name, number);
        expect_number(upper, name, number);
    }
    expect_number("", "", 4000);
    expect_number("AB", "ab", 4293);
    // Bytes count as unsigned; only letters of ASCII are folded, not their neighbours.
    expect_number("\xC1", "\xC1", 4193);
    expect_number("@[`{Z", "@[`{z", 4000 + 64 + 2 * 91 + 3 * 96 + 4 * 123 + 5 * 122);
    // 255 * (6000 * 6001 / 2) + 4000 = 4590769000, which wraps
    expect_number(std::string(6000, '\xFF'), std::string(6000, '\xFF'), 295801704);
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

// ---- Objects -----------------------------------------------------------------------------------

struct array_release {
    void operator()(object_array* array) const { termArray(array); }
};
using owned_array = std::unique_ptr<object_array, array_release>;

std::vector<void*> contents(const object_array* array) {
    return std::vector<void*>(array->items, array->items + array->count);
}

TEST(Array, BehavesLikeAVector) {
    const owned_array array(initArray());
    ASSERT_NE(array, nullptr);
    std::vector<void*> model;
    std::vector<char> things(64);
    std::mt19937 random(1);
    for (int step = 0; step < 20000; ++step) {
        const auto index = static_cast<u16>(random() % 40);
        if (random() % 2 == 0 && model.size() < things.size()) {
            void* thing = &things[random() % things.size()];
            model.push_back(thing);
            ASSERT_EQ(addArray(array.get(), thing), model.size());
        } else {
            delArray(array.get(), index);
            if (index < model.size()) {
                model.erase(model.begin() + index);
            }
        }
        ASSERT_EQ(contents(array.get()), model);
        ASSERT_EQ(array->items == nullptr, model.empty());
        ASSERT_EQ(getArray(array.get(), index), index < model.size() ? model[index] : nullptr);
    }
}

TEST(Array, RefusesNullsAndMoreThanItCanCount) {
    const owned_array array(initArray());
    char thing = 0;
    EXPECT_EQ(addArray(nullptr, &thing), 0);
    EXPECT_EQ(addArray(array.get(), nullptr), 0);
    EXPECT_EQ(contents(array.get()), std::vector<void*>());
    EXPECT_EQ(getArray(nullptr, 0), nullptr);
    delArray(nullptr, 0);

    constexpr u16 most = std::numeric_limits<u16>::max();
    array->items = static_cast<void**>(ZAN_malloc(most * static_cast<i32>(sizeof(void*))));
    array->count = most;
    std::fill_n(array->items, most, &thing);
    EXPECT_EQ(addArray(array.get(), &thing), 0);
    EXPECT_EQ(array->count, most);
    delArray(array.get(), most);
    EXPECT_EQ(array->count, most);
    delArray(array.get(), most - 1);
    EXPECT_EQ(addArray(array.get(), &thing), most);
}

TEST(Registry, GroupsAndSetsAreFoundByNumberAndTheFirstWins) {
    ASSERT_EQ(initProcess(), 1U);
    const auto add_basic = [](std::string name) {
        basic_set* set = initBasic(name.data(), PVZAN_SET_BASE, 2);
        EXPECT_NE(TheAddBasic(set), 0U);
        return set;
    };
    const auto add_group = [](std::string name) {
        std::string rule = "constSAME";
        charset_group* group = initGroup(name.data(), rule.data(), rule.data());
        EXPECT_NE(TheAddGroup(group), 0U);
        return group;
    };
    EXPECT_EQ(findGroupArray(nullptr, PVZAN_SHIFT_JIS), nullptr);
    EXPECT_EQ(findBasicArray(nullptr, PVZAN_SET_JIS_X_0208_1990), nullptr);
    charset_group* other = add_group("utf-8");
    const charset_group* first = add_group("Shift_JIS");
    add_group("shift_jis");
    EXPECT_EQ(findGroupArray(g_ProcessObject.groups, PVZAN_SHIFT_JIS), first);
    EXPECT_EQ(findGroupArray(g_ProcessObject.groups, PVZAN_UTF_16), nullptr);
    EXPECT_EQ(TheAddGroup(nullptr), 0U);

    basic_set* set = add_basic("JIS_X0208-1990");
    add_basic("jis_x0208-1990");
    EXPECT_EQ(findBasicArray(g_ProcessObject.basics, PVZAN_SET_JIS_X_0208_1990), set);
    EXPECT_EQ(addNameArray(other->memberSets, PVZAN_SET_JIS_X_0208_1990), 1U);
    EXPECT_EQ(addNameArray(other->memberSets, PVZAN_SET_JIS_X_0213), 0U);
    EXPECT_EQ(addNameArray(nullptr, PVZAN_SET_JIS_X_0208_1990), 0U);
    EXPECT_EQ(contents(other->memberSets), std::vector<void*>{set});
    termProcess();
}

TEST(RegistryObjects, AreMadeFromTheirNames) {
    std::string name = "JIS_X0208-1990", encode = "constEUC-JP", decode = "destEUC-JP";
    basic_set* set = initBasic(name.data(), PVZAN_SET_DIFFERENCE, 3);
    charset_group* group = initGroup(name.data(), encode.data(), decode.data());
    EXPECT_EQ(name, "JIS_X0208-1990"); // the caller's text is not folded
    EXPECT_STREQ(set->name, "JIS_X0208-1990");
    EXPECT_EQ(set->setNo, u32{PVZAN_SET_JIS_X_0208_1990});
    EXPECT_EQ(set->setType, PVZAN_SET_DIFFERENCE);
    EXPECT_EQ(set->byteNum, 3);
    EXPECT_EQ(set->decodeTable->valueBytes << 4 | set->decodeTable->toUnicode, 0x41U);
    EXPECT_EQ(set->encodeTable->valueBytes << 4 | set->encodeTable->toUnicode, 0x30U);
    EXPECT_EQ(set->decodeTable->loadTries, -1);
    EXPECT_EQ(set->decodeTable->loaded, 0U);
    EXPECT_EQ(group->groupNo, u32{PVZAN_SET_JIS_X_0208_1990});
    EXPECT_STREQ(group->constRule, "constEUC-JP");
    EXPECT_STREQ(group->destRule, "destEUC-JP");
    termBasic(set);
    termGroup(group);

    termGroup(nullptr);
    termBasic(nullptr);
    termTable(nullptr);
    termTableArray(nullptr);
    termBlock(nullptr);
    termLimit(nullptr);
    termLimitArray(nullptr);
    termName(initName());
    termStruct(nullptr);
}

TEST(RegistryObjects, BlocksHoldTheirKeysZeroed) {
    struct {
        u16 entries;
        u32 first, width, end, stored_width;
    } const cases[] = {
        {0, 0x3021, 2, 0x4021, 2},    {0, 0, 4, 4096, 4},         {16, 0x3021, 4, 0x3031, 4},
        {65535, 1, 1, 65536, 1},      {0, 5, 0x10003, 0x1005, 3}, // the width is a 16-bit number
        {0, 0xFFFFFFF0, 2, 0xFF0, 2},                             // beyond the last key
    };
    for (const auto& c : cases) {
        g_ProcessObject.blockEntries = c.entries;
        table_block* block = initBlock(c.first, c.width);
        g_ProcessObject.blockEntries = 0;
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(block->firstKey, c.first);
        EXPECT_EQ(block->endKey, c.end);
        EXPECT_EQ(block->valueBytes, c.stored_width);
        const std::size_t size = std::size_t{c.end - c.first} * c.stored_width;
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(block->data), size),
                  std::string(size, '\0'));
        termBlock(block);
    }
}

TEST(RegistryObjects, LimitsAreTriedInOrderWithinTheBounds) {
    limit_array* limits = initLimitArray();
    limit* const wide = initLimit(0x20, 0x7E);
    limit* const single = initLimit(0x8E, 0x8E);
    for (limit* range : {wide, initLimit(0x30, 0x39), single}) {
        addArray(limits->ranges, range);
    }
    const struct {
        u32 min, max, code;
        const limit* found;
    } cases[] = {
        {0, 0, 0x20, nullptr},      {0, 0x7E, 0x1F, nullptr},    {0, 0x7E, 0x20, wide},
        {0, 0x7E, 0x35, wide},      {0, 0x7E, 0x7E, wide},       {0, 0x7E, 0x8E, nullptr},
        {0x21, 0x8E, 0x8E, single}, {0x21, 0x8E, 0x20, nullptr},
    };
    for (const auto& c : cases) {
        limits->minCode = c.min;
        limits->maxCode = c.max;
        EXPECT_EQ(findLimitArray(limits, c.code), c.found) << c.max << ' ' << c.code;
    }
    EXPECT_EQ(findLimitArray(nullptr, 0x20), nullptr);
    termLimitArray(limits);
}

} // namespace
