// Memory that runs out at each single allocation: a status, nothing lost, nothing wrong left on
// disk, and afterwards the library works with what it read.
#include "cconv/convert/lifecycle.h"
#include "cconv/definition/definition.h"
#include "cconv/tables/table.h"
#include "platform/platform.h"
#include "pvzan_text.h"
#include "tests/support/charset_directory.h"
#include "tests/support/child.h"
#include "tests/support/convert.h"

// ---- An allocator that fails when told to ------------------------------------------------------

namespace {

long calls;          // since it was armed
long first_failure;  // the call that fails, 0 for none
bool all_from_there; // fail all later ones, too
long live;           // blocks not given back

bool refused() {
    ++calls;
    const bool fails =
        first_failure != 0 && (all_from_there ? calls >= first_failure : calls == first_failure);
    if (fails) {
        errno = ENOMEM;
    }
    return fails;
}

void* counted(void* memory) {
    live += memory != nullptr;
    return memory;
}

} // namespace

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void __libc_free(void*);

void* malloc(std::size_t size) {
    return refused() ? nullptr : counted(__libc_malloc(size));
}
void* calloc(std::size_t count, std::size_t size) {
    return refused() ? nullptr : counted(__libc_calloc(count, size));
}
void* realloc(void* memory, std::size_t size) {
    if (refused()) {
        return nullptr;
    }
    return memory == nullptr ? counted(__libc_realloc(nullptr, size))
                             : __libc_realloc(memory, size);
}
void free(void* memory) {
    live -= memory != nullptr;
    __libc_free(memory);
}
}

namespace {

// ---- A small charset directory -----------------------------------------------------------------

void write_directory(const test::temp_dir& directory) {
    test::write_definition(
        directory,
        {"one", "constSAME", "destSAME", {{"low", 1, "low.txt"}, {"wide", 2, "wide.txt"}}});
    test::write_definition(directory, {"two", "constUTF-8", "destUTF-8", {{"all", 4}}});
    test::pairs low, wide;
    for (u32 c = 0x20; c < 0x7F; ++c) {
        low.emplace_back(c, c);
        wide.emplace_back(0x8100 + c, 0x3000 + c);
    }
    directory.write("low.txt", test::as_text(low));
    directory.write("wide.txt", test::as_text(wide));
    // An extra table that only some characters need.
    directory.write("extra.txt", test::as_text({{0x8141, 0x4E00}, {0x8142, 0x4E01}}));
    std::string text = directory.read("one.xml");
    const auto insert = [&](std::string_view before, std::string_view what) {
        text.insert(text.find(test::widen(before, 2, false)), test::widen(what, 2, false));
    };
    insert("]>", "<!ENTITY table-extra SYSTEM \"extra.txt\">\n");
    insert("</baseset>", "<dstable bytenum=\"2\">&table-extra;</dstable>");
    directory.write("one.xml", text);
}

const char* const caches[] = {"low.cmp", "wide.cmp", "extra.cmp"};

// ---- What a program does with the library ------------------------------------------------------

struct result {
    u32 status = PVZAN_UNKNOWN_CHARSET;
    std::string_view text; // in the caller's room: nothing here allocates
};

result convert(session& s, const char* from, const char* to, std::string_view text,
               std::span<u8> room) {
    const test::conversion big_endian{from, to};
    u32 status = cconvInitConvert(&s, &big_endian.target, to);
    if (status == PVZAN_DONE) {
        status = cconvChgCharset(&s, &big_endian.source, from);
    }
    if (status != PVZAN_DONE) {
        return {status, {}};
    }
    test::give_input(s, text);
    test::give_output(s, room);
    status = cconvConvert(&s);
    cconvTermConvert(&s);
    return {status, test::text_of(room.first(static_cast<std::size_t>(s.outPos)))};
}

// The calls that conversions do not make; each gives null or 0 for want of memory.
void make_and_release(const char* definition) {
    char name[] = "name", rule[] = "rule";
    if (object_array* array = initArray()) {
        for (char& c : name) {
            addArray(array, &c);
        }
        delArray(array, 1);
        termArray(array);
    }
    termGroup(initGroup(name, rule, rule));
    termBasic(initBasic(name, 1, 2));
    termLimitArray(initLimitArray());
    termName(initName());
    if (table_object* table = initTable(2, 1)) {
        putTable(table, 1, 2);
        putTable(table, 10000, 2);
        termTable(table);
    }
    const u32 wide[] = {'a', 'b'};
    ZAN_free(UCS4toASCII(wide, 2, nullptr));
    ZAN_free(ASCIItoUCS4(name, 2, nullptr));
    document d{};
    if (xmlReadFile(definition, encoding_utf16, 0, &d) != 0) {
        ZAN_free(d.text);
        ZAN_free(d.tagPos);
    }
}

// Before memory fails: nothing is loaded, and there are no caches; nothing is loaded; every table
// is, and what remains is the fast path's memory.
enum class start { cold, cached, loaded };

// Both directions between the two charsets, in a process that has not used the library before.
struct both_ways {
    session s{};
    std::array<u8, 2048> room, back_room;
    result there, back;

    explicit both_ways(const test::temp_dir& directory) {
        ZAN_setCharsetPath(directory.path().c_str());
    }
    void use(std::string_view text) {
        there = convert(s, "two", "one", text, room);
        back = convert(s, "one", "two", there.text, back_room);
    }
};

// Makes the allocation `needed` fail, and says in a file whether so many were made at all.
void use_without_memory(const test::temp_dir& directory, start from, long needed, bool later_too,
                        const std::string& sample) {
    both_ways both(directory);
    const long live_before = live;
    if (from == start::loaded) {
        both.use("\xE4\xB8\x80");
        EXPECT_EQ(both.back.status, PVZAN_DONE);
    }
    calls = 0;
    all_from_there = later_too;
    first_failure = needed;
    both.use(sample);
    make_and_release("one.xml");
    pvzan_guess_close(pvzan_guess_open(nullptr, nullptr));
    first_failure = 0;
    const bool enough = calls < needed;
    if (enough) {
        directory.write("enough", "");
    }
    for (int round = 0; round < 2; ++round) {
        for (const u32 status : {both.there.status, both.back.status}) {
            EXPECT_TRUE(status <= PVZAN_UNKNOWN_CHARSET || status == PVZAN_INVALID_INPUT ||
                        status == PVZAN_UNREPRESENTABLE)
                << status;
        }
        if (from == start::loaded || enough) {
            EXPECT_EQ(both.there.text, directory.read("there")) << round;
            EXPECT_EQ(both.back.text, directory.read("back")) << round;
        }
        both.use(sample);
    }
    while (g_ProcessObject.refCount != 0) {
        termProcess();
    }
    EXPECT_EQ(live, live_before);
}

void expect_recovery(start from) {
    const test::temp_dir directory;
    write_directory(directory);
    std::string sample;
    for (int i = 0; i < 30; ++i) {
        sample += "letters, \xE3\x81\x81\xE3\x81\x82\xE4\xB8\x80"; // U+3041 U+3042 U+4E00
    }
    test::in_child([&] {
        both_ways both(directory);
        both.use(sample);
        EXPECT_EQ(both.there.status, PVZAN_DONE);
        EXPECT_EQ(both.back.status, PVZAN_DONE);
        EXPECT_NE(both.back.text.find("letters, \xE3\x81\x81\xE3\x81\x82"), std::string::npos);
        directory.write("there", both.there.text);
        directory.write("back", both.back.text);
    });
    std::string good[std::size(caches)];
    for (std::size_t i = 0; i < std::size(caches); ++i) {
        good[i] = directory.read(caches[i]);
        ASSERT_NE(good[i], "") << caches[i];
    }
    long needed = 0;
    while (!directory.has("enough")) {
        ++needed;
        for (const bool later_too : {false, true}) {
            for (const char* cache : caches) {
                if (from == start::cold) {
                    removeFile(directory.file(cache).c_str());
                }
            }
            test::in_child([&] { use_without_memory(directory, from, needed, later_too, sample); });
            // A cache is whole, or not there.
            for (std::size_t i = 0; i < std::size(caches); ++i) {
                EXPECT_TRUE(!directory.has(caches[i]) || directory.read(caches[i]) == good[i])
                    << caches[i];
            }
            ASSERT_FALSE(::testing::Test::HasFailure()) << "allocation " << needed << later_too;
        }
    }
    EXPECT_GT(needed, from == start::loaded ? 20 : 80); // it was not for nothing
}

TEST(Faults, EveryAllocationMayFail) {
    for (const start from : {start::cold, start::cached, start::loaded}) {
        SCOPED_TRACE(static_cast<int>(from));
        expect_recovery(from);
    }
}

} // namespace
