// The registry's objects, and tables above all: blocks, text files, caches.
#include "cconv/definition/document.h"
#include "cconv/tables/table.h"
#include "platform/platform.h"
#include "tests/support/charset_directory.h"
#include "tests/support/child.h"
#include "tests/support/digest.h"

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace test;

pairs many_pairs(u32 count) {
    pairs all;
    for (u32 i = 0; i < count; ++i) {
        all.emplace_back(0x2121 + i, 0x4E00 + i * 3);
    }
    return all;
}

void expect_maps(table_object* table, const pairs& all) {
    for (const auto& [code, ucs] : all) {
        const u32 key = table->toUnicode == 1 ? code : ucs;
        const u32 value = table->toUnicode == 1 ? ucs : code;
        ASSERT_EQ(value_of(table, key), value) << std::hex << key;
    }
}

std::vector<std::string> names_in(const charset_directory& dir) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
        names.push_back(entry.path().filename().string());
    }
    std::ranges::sort(names);
    return names;
}

// ---- Arrays, groups, sets, limits

std::vector<void*> contents(const object_array* array) {
    return std::vector<void*>(array->items, array->items + array->count);
}

TEST(Array, BehavesLikeAVector) {
    object_array* const array = initArray();
    std::vector<void*> model;
    std::vector<char> things(64);
    std::mt19937 random(1);
    for (int step = 0; step < 20000; ++step) {
        const auto index = static_cast<u16>(random() % 40);
        if (random() % 2 == 0 && model.size() < things.size()) {
            void* thing = &things[random() % things.size()];
            model.push_back(thing);
            ASSERT_EQ(addArray(array, thing), model.size());
        } else {
            delArray(array, index);
            if (index < model.size()) {
                model.erase(model.begin() + index);
            }
        }
        ASSERT_EQ(contents(array), model);
        ASSERT_EQ(array->items == nullptr, model.empty());
        ASSERT_EQ(getArray(array, index), index < model.size() ? model[index] : nullptr);
    }
    termArray(array);
}

TEST(Array, RefusesNullsAndMoreThanItCanCount) {
    object_array* const array = initArray();
    char thing = 0;
    EXPECT_EQ(addArray(nullptr, &thing) | addArray(array, nullptr) | array->count, 0);
    EXPECT_EQ(getArray(nullptr, 0), nullptr);
    delArray(nullptr, 0);
    constexpr u16 most = 0xFFFF;
    array->items = static_cast<void**>(ZAN_malloc(most * static_cast<i32>(sizeof(void*))));
    array->count = most;
    std::fill_n(array->items, most, &thing);
    EXPECT_EQ(addArray(array, &thing), 0);
    delArray(array, most);
    EXPECT_EQ(array->count, most);
    delArray(array, most - 1);
    EXPECT_EQ(addArray(array, &thing), most);
    termArray(array);
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
    charset_group* other = add_group("utf-8");
    const charset_group* first = add_group("Shift_JIS");
    add_group("shift_jis");
    EXPECT_EQ(findGroupArray(g_ProcessObject.groups, PVZAN_SHIFT_JIS), first);
    EXPECT_EQ(findGroupArray(g_ProcessObject.groups, PVZAN_UTF_16), nullptr);
    EXPECT_EQ(findGroupArray(nullptr, PVZAN_SHIFT_JIS), nullptr);
    EXPECT_EQ(TheAddGroup(nullptr), 0U);

    basic_set* set = initBasic(name.data(), PVZAN_SET_DIFFERENCE, 3);
    EXPECT_EQ(name, "JIS_X0208-1990"); // the caller's text is not folded
    EXPECT_EQ(set->decodeTable->loadTries, -1);
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
    termGroup(nullptr), termBasic(nullptr), termTable(nullptr), termTableArray(nullptr);
    termBlock(nullptr), termLimit(nullptr), termLimitArray(nullptr), termStruct(nullptr);
    termName(initName());
}

// In order, within the bounds; single codes count as ranges.
TEST(Registry, Limits) {
    test::digest answers("limits");
    limit_array* const limits = initLimitArray();
    for (const auto& [low, high] : {std::pair(0x20U, 0x7EU), {0x30U, 0x39U}, {0x8EU, 0x8EU}}) {
        addArray(limits->ranges, initLimit(low, high));
    }
    for (const u32 min : {0U, 0x21U}) {
        for (const u32 max : {0U, 0x7EU, 0x8EU}) {
            limits->minCode = min;
            limits->maxCode = max;
            for (u32 code = 0; code < 0x100; ++code) {
                const limit* found = findLimitArray(limits, code);
                answers.add({found != nullptr ? found->low : 0});
            }
        }
    }
    EXPECT_EQ(findLimitArray(nullptr, 0x20), nullptr);
    termLimitArray(limits);
}

// ---- Blocks

// Zeroed; the width is a number of sixteen bits, and the last key may lie beyond all keys.
TEST(Registry, Blocks) {
    test::digest answers("blocks");
    for (const u16 entries : {u16{0}, u16{16}, u16{65535}}) {
        for (const u32 first : {0U, 1U, 0x3021U, 0xFFFFFFF0U}) {
            for (const u32 width : {1U, 2U, 4U, 0x10003U}) {
                g_ProcessObject.blockEntries = entries;
                table_block* block = initBlock(first, width);
                g_ProcessObject.blockEntries = 0;
                answers.add({block->firstKey, block->endKey, block->valueBytes});
                const std::size_t size = std::size_t{block->endKey - first} * block->valueBytes;
                EXPECT_EQ(std::count(block->data, block->data + size, 0), size);
                termBlock(block);
            }
        }
    }
}

// Keys near each other and near both ends of the numbers, so that blocks, each of the 4096 keys
// from the one that made it, overlap and wrap: the first made wins. Recorded when a plain map of
// such blocks agreed. Values keep their low bytes.
TEST(TableBlocks, OverlapWrapAndKeepTheirOrder) {
    const charset_directory dir;
    constexpr u32 centres[] = {0, 0x3000, 0x5000, 0x10000, 0xFFFFE000, 0xFFFFF800, 0xFFFFFFFF};
    test::digest answers("blocks of tables");
    std::mt19937 random(4);
    const auto random_key = [&] {
        const u32 centre = centres[random() % std::size(centres)];
        return centre + static_cast<u32>(random() % 6000) - 3000;
    };
    for (u32 round = 0; round < 20; ++round) {
        const u32 width = round < 14 ? 4 : round % 7; // 0 to 6 bytes a value
        const owned_table one_by_one = make_table(width, 1);
        const owned_table from_cache = make_table(width, 1, "t.txt");
        pairs all;
        for (int i = 0; i < 2000; ++i) {
            const u32 value = static_cast<u32>(random()) | 1;
            all.emplace_back(random_key(), value);
            ASSERT_EQ(putTable(one_by_one.get(), all.back().first, all.back().second), 1U);
        }
        dir.write("t.cmp", as_cache(all));
        one_by_one->loaded = 1;
        ASSERT_EQ(loadTableFile(from_cache.get()), 1U);
        for (table_object* table : {one_by_one.get(), from_cache.get()}) {
            answers.add({table->blocks->count, table->minKey, table->maxKey});
        }
        for (std::size_t i = 0; i < 3000; ++i) {
            const u32 key = i < 2000 ? all[i].first : random_key();
            const u32 value = value_of(one_by_one.get(), key);
            ASSERT_EQ(value_of(from_cache.get(), key), value) << std::hex << key;
            answers.add({value});
        }
    }
    u8 bytes[4];
    putEndian(bytes, 0x12345678);
    EXPECT_EQ(std::vector<u8>(bytes, bytes + 4), (std::vector<u8>{0x12, 0x34, 0x56, 0x78}));
}

// ---- Loading

TEST(TableLoading, WhichTablesCount) {
    const charset_directory dir;
    struct {
        const char* text;
        u32 first, second; // results of two calls
        std::size_t keys;
    } const cases[] = {
        {"2121 3000\r\n", 1, 1, 1},
        {"0 0\r\n", 0, 1, 1},
        {"FFFFFFF 1\r\n", 1, 1, 1},
        {"10000000 1\r\n", 0, 1, 1}, // alone it cannot be a code
        {"10000000 1\r\n5 1\r\n", 1, 1, 2},
        {"2121 3000", 0, 1, 0}, // the last number is lost
                                // without two characters behind
                                // it
        {"no numbr\r\n", 0, 1, 0},
    };
    for (const auto& c : cases) {
        dir.write("t.txt", widen(c.text, 2, false));
        const owned_table table = make_table(4, 1, "t.txt");
        EXPECT_EQ(loadTableFile(table.get()), c.first) << c.text;
        EXPECT_EQ(table->loadTries, 0) << c.text;
        EXPECT_EQ(loadTableFile(table.get()), c.second) << c.text;
        EXPECT_EQ(table->blocks->count != 0, c.keys != 0) << c.text;
        removeFile(dir.file("t.cmp").c_str());
    }
    const owned_table nameless = make_table(4, 1);
    EXPECT_EQ(loadTableFile(nameless.get()), 0U);
    EXPECT_EQ(loadTableFile(nameless.get()), 0U);
    EXPECT_EQ(nameless->loadTries, -1);
}

TEST(TableLoading, BothDirectionsShareTextAndCache) {
    const charset_directory dir;
    const pairs all = many_pairs(11000);
    dir.write("t.txt", as_text(all));
    for (const u32 toUnicode : {1U, 0U, 0U, 1U}) { // from the text first, then from the cache
        const owned_table table = make_table(4, toUnicode, "t.txt");
        ASSERT_EQ(loadTableFile(table.get()), 1U);
        expect_maps(table.get(), all);
        EXPECT_TRUE(dir.read("t.cmp") == as_cache(all));
    }
    EXPECT_EQ(names_in(dir), (std::vector<std::string>{"t.cmp", "t.txt"}));
}

TEST(TableLoading, FileNamesFoldAndKeepTheirDirectory) {
    const charset_directory dir;
    std::filesystem::create_directories(dir.file("Sub.d"));
    struct {
        const char *name, *text, *cache;
    } const cases[] = {
        {"T.TXT", "t.txt", "t.cmp"},
        {"Sub.d/JisX.Y.Txt", "Sub.d/jisx.y.txt", "Sub.d/jisx.y.cmp"},
        {"plain", "plain", ".cmp"},
    };
    for (const auto& c : cases) {
        dir.write(c.text, widen("21 3000\r\n", 2, false));
        const owned_table table = make_table(4, 1, c.name);
        EXPECT_EQ(loadTableFile(table.get()), 1U) << c.name;
        EXPECT_EQ(value_of(table.get(), 0x21), 0x3000U) << c.name;
        EXPECT_EQ(dir.read(c.cache), as_cache({{0x21, 0x3000}})) << c.name;
    }
}

// ---- Caches

// Of any other size it is tested where it is damaged (robust_files_test.cpp).
TEST(TableCache, OneTooLargeToBeReadGivesNothing) {
    const charset_directory dir;
    dir.write("t.txt", as_text({{0x8140, 0x3000}}));
    dir.write("t.cmp", "");
    std::filesystem::resize_file(dir.file("t.cmp"), std::uintmax_t{1} << 32);
    const owned_table table = make_table(2, 0, "t.txt");
    EXPECT_EQ(loadTableFile(table.get()), 0U);
    EXPECT_EQ(std::filesystem::file_size(dir.file("t.cmp")), std::uintmax_t{1} << 32);
}

// What is missing, too large, or in no encoding of tables is so for every process. A text that this
// process merely could not read is not: the next one finds it in its place.
TEST(TableCache, OnlyATextThatIsNotThereLeavesAnEmptyOne) {
    const charset_directory dir;
    const std::string text = widen("8140 3000\r\n8141 3001\r\n", 2, false);
    dir.write("shift.txt", text);
    dir.write("huge.txt", text);
    std::filesystem::resize_file(dir.file("huge.txt"), std::uintmax_t{1} << 32);
    std::filesystem::create_directory(dir.file("folder.txt"));
    std::filesystem::create_symlink("nowhere", dir.file("dangling.txt"));
    std::filesystem::create_symlink("loop.txt", dir.file("loop.txt"));
    const char* const shorter_than_said = "/sys/kernel/fscaps";
    std::filesystem::create_symlink(shorter_than_said, dir.file("cut.txt"));
    dir.write("forbidden.txt", text);
    std::filesystem::permissions(dir.path(), std::filesystem::perms::all);
    std::filesystem::permissions(dir.file("forbidden.txt"), std::filesystem::perms::none);
    const struct {
        const char* base;
        u32 encoding;
        bool leaves_cache;
    } cases[] = {
        {"missing", encoding_utf16, true}, {"dangling", encoding_utf16, true},
        {"huge", encoding_utf16, true},    {"shift", encoding_shift_jis, true},
        {"folder", encoding_utf16, false}, {"loop", encoding_utf16, false},
        {"cut", encoding_utf16, false},    {"forbidden", encoding_utf16, false},
    };
    for (const auto& c : cases) {
        const std::string text_name = c.base + std::string(".txt"),
                          cache = c.base + std::string(".cmp");
        if (text_name == "cut.txt" && !std::filesystem::exists(shorter_than_said)) {
            continue; // no /sys here
        }
        test::in_child([&] {
            test::obey_permissions();
            const owned_table table = make_table(2, 0, text_name);
            table->textEncoding = c.encoding;
            EXPECT_EQ(loadTableFile(table.get()), 0U);
        });
        EXPECT_EQ(dir.has(cache), c.leaves_cache) << c.base;
        EXPECT_EQ(dir.read(cache), "") << c.base;
        // A text that comes then is too late where there is a cache.
        std::filesystem::remove(dir.file(text_name));
        dir.write(text_name, text);
        const owned_table table = make_table(2, 0, text_name);
        EXPECT_EQ(loadTableFile(table.get()), c.leaves_cache ? 0U : 1U) << c.base;
    }
}

TEST(TableCache, IsReadByThoseWhoEnterTheDirectoryWhateverTheUmask) {
    constexpr std::pair<unsigned, unsigned> modes[] = {{0777, 0644}, {0755, 0644}, {0750, 0640},
                                                       {0700, 0600}, {0711, 0600}, {0705, 0604}};
    for (const auto& [directory, cache] : modes) {
        for (const mode_t mask : {0U, 022U, 077U, 0777U}) {
            const charset_directory dir;
            dir.write("t.txt", widen("21 3000\r\n", 2, false));
            std::filesystem::permissions(dir.path(), std::filesystem::perms{directory});
            const mode_t before = ::umask(mask);
            const owned_table table = make_table(4, 1, "t.txt");
            EXPECT_EQ(loadTableFile(table.get()), 1U);
            ::umask(before);
            EXPECT_EQ(
                static_cast<unsigned>(std::filesystem::status(dir.file("t.cmp")).permissions()),
                cache)
                << std::oct << directory << " under " << mask;
        }
    }
}

TEST(TableCache, OneThatCannotBeWrittenLeavesNothing) {
    const charset_directory dir;
    const pairs all = many_pairs(11000);
    dir.write("t.txt", as_text(all));
    const auto expect_table = [&] {
        const owned_table table = make_table(4, 1, "t.txt");
        EXPECT_EQ(loadTableFile(table.get()), 1U);
        expect_maps(table.get(), all);
    };
    // A file size limit stands for a full disk, at every point of buffered writing.
    for (const rlim_t most : {0U, 1U, 4096U, 50000U, 87999U}) {
        test::in_child([&] {
            std::signal(SIGXFSZ, SIG_IGN);
            const rlimit limit{most, most};
            ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
            expect_table();
            EXPECT_EQ(names_in(dir), std::vector<std::string>{"t.txt"}) << most;
        });
    }
    // Something stands in its place.
    std::filesystem::create_directories(dir.file("t.cmp/d"));
    expect_table();
    EXPECT_EQ(names_in(dir), (std::vector<std::string>{"t.cmp", "t.txt"}));
}

TEST(TableLookup, TheFirstTableThatMapsTheCodeWins) {
    const charset_directory dir;
    dir.write("a.txt", widen("21 3000\r\n0 3001\r\n22 3005\r\n", 2, false));
    dir.write("b.txt", widen("23 3000\r\n8124 3001\r\n26 3009\r\n", 2, false));
    const owned_table missing = make_table(1, 0, "missing.txt"), nameless = make_table(1, 0),
                      a = make_table(1, 0, "a.txt"), b = make_table(2, 0, "b.txt");
    void* items[] = {missing.get(), nameless.get(), a.get(), b.get()};
    object_array tables{4, items};
    struct {
        u32 code, found, value;
        u16 bytes;
    } const cases[] = {
        {0x3000, 1, 0x21, 1}, {0x3001, 1, 0x8124, 2}, {0x3005, 1, 0x22, 1}, {0x3009, 1, 0x26, 2},
        {0x3003, 0, 7, 7},    {0x2FFF, 0, 7, 7},      {0x300A, 0, 7, 7},    {0, 0, 7, 7},
    };
    for (int round = 0; round < 2; ++round) {
        for (const auto& c : cases) {
            u32 value = 7;
            u16 bytes = 7;
            EXPECT_EQ(dstDsTableArray(&tables, c.code, &value, &bytes), c.found) << c.code;
            EXPECT_EQ(value, c.value) << c.code;
            EXPECT_EQ(bytes, c.bytes) << c.code;
        }
    }
    u32 value = 7;
    u16 bytes = 7;
    EXPECT_EQ(dstDsTableArray(nullptr, 0x3000, &value, &bytes), 0U);
    EXPECT_EQ(a->loaded & b->loaded & missing->loaded, 1U);
    EXPECT_EQ(nameless->loaded, 0U);
}

} // namespace
