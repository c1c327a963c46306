// Registry objects: arrays, groups, sets, blocks, limits.
#include "cconv/convert/lifecycle.h"
#include "cconv/registry/registry.h"
#include "platform/platform.h"
#include "tests/support/test.h"

namespace {

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
    EXPECT_EQ(addArray(nullptr, &thing) | addArray(array.get(), nullptr), 0);
    EXPECT_EQ(contents(array.get()), std::vector<void*>());
    EXPECT_EQ(getArray(nullptr, 0), nullptr);
    delArray(nullptr, 0);

    constexpr u16 most = 0xFFFF;
    array->items = static_cast<void**>(ZAN_malloc(most * static_cast<i32>(sizeof(void*))));
    array->count = most;
    std::fill_n(array->items, most, &thing);
    EXPECT_EQ(addArray(array.get(), &thing), 0);
    delArray(array.get(), most);
    EXPECT_EQ(array->count, most);
    delArray(array.get(), most - 1);
    EXPECT_EQ(addArray(array.get(), &thing), most);
}

// What they are made of is in definition_test.cpp.
TEST(Registry, ObjectsAreFoundByTheirNumbersAndTheFirstWins) {
    ASSERT_EQ(initProcess(), 1U);
    std::string rule = "constSAME", name = "JIS_X0208-1990";
    const auto add_group = [&](std::string of) {
        charset_group* group = initGroup(of.data(), rule.data(), rule.data());
        EXPECT_NE(TheAddGroup(group), 0U);
        return group;
    };
    const auto find_group = [](u32 number) {
        return findGroupArray(g_ProcessObject.groups, number);
    };
    charset_group* other = add_group("utf-8");
    const charset_group* first = add_group("Shift_JIS");
    add_group("shift_jis");
    EXPECT_EQ(find_group(PVZAN_SHIFT_JIS), first);
    EXPECT_EQ(find_group(PVZAN_UTF_16), nullptr);
    EXPECT_EQ(findGroupArray(nullptr, PVZAN_SHIFT_JIS), nullptr);
    EXPECT_EQ(TheAddGroup(nullptr), 0U);

    basic_set* set = initBasic(name.data(), PVZAN_SET_DIFFERENCE, 3);
    EXPECT_EQ(name, "JIS_X0208-1990"); // the caller's text is not folded
    EXPECT_EQ(set->decodeTable->loadTries, -1);
    EXPECT_EQ(set->decodeTable->loaded, 0U);
    EXPECT_NE(TheAddBasic(set), 0U);
    EXPECT_NE(TheAddBasic(initBasic(name.data(), PVZAN_SET_BASE, 2)), 0U);
    EXPECT_EQ(findBasicArray(nullptr, PVZAN_SET_JIS_X_0208_1990), nullptr);
    EXPECT_EQ(findBasicArray(g_ProcessObject.basics, PVZAN_SET_JIS_X_0208_1990), set);
    EXPECT_EQ(addNameArray(other->memberSets, PVZAN_SET_JIS_X_0208_1990), 1U);
    EXPECT_EQ(addNameArray(other->memberSets, PVZAN_SET_JIS_X_0213), 0U);
    EXPECT_EQ(addNameArray(nullptr, PVZAN_SET_JIS_X_0208_1990), 0U);
    EXPECT_EQ(contents(other->memberSets), std::vector<void*>{set});
    termProcess();
    // What is not there is released all the same.
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

TEST(Registry, BlocksHoldTheirKeysZeroed) {
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

TEST(Registry, LimitsAreTriedInOrderWithinTheBounds) {
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
