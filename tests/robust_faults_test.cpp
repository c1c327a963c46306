// Memory that runs out at each single allocation: a clear result, nothing lost, nothing wrong left
// on disk, and afterwards the library works.
#include "cconv/definition.h"
#include "cconv/lifecycle.h"
#include "cconv/names.h"
#include "cconv/table.h"
#include "platform/platform.h"
#include "tests/support/child.h"
#include "tests/support/definitions.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

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
    std::string low, wide;
    for (int c = 0x20; c < 0x7F; ++c) {
        char line[64];
        std::snprintf(line, sizeof line, "%X %X\r\n", c, c);
        low += line;
        std::snprintf(line, sizeof line, "%X %X\r\n", 0x8100 + c, 0x3000 + c);
        wide += line;
    }
    directory.write("low.txt", test::widen(low + "  ", 2, false));
    directory.write("wide.txt", test::widen(wide + "  ", 2, false));
    // An extra table that only some characters need.
    directory.write("extra.txt", test::widen("8141 4E00\r\n8142 4E01\r\n  ", 2, false));
    std::string text = directory.read("one.xml");
    const auto insert = [&](std::string_view before, std::string_view what) {
        const std::string added = test::widen(what, 2, false);
        text.insert(text.find(test::widen(before, 2, false)), added);
    };
    insert("]>", "<!ENTITY table-extra SYSTEM \"extra.txt\">\n");
    insert("</baseset>", "<dstable bytenum=\"2\">&table-extra;</dstable>");
    directory.write("one.xml", text);
}

// ---- What a program does with the library ------------------------------------------------------

struct result {
    u32 status = PVZAN_UNKNOWN_CHARSET;
    char bytes[2048]{};
    i32 length = 0;
};

// Converts there and back; by then every table is loaded, and the fast path has its memory.
void convert(session& s, const char* from, const char* to, const char* text, i32 length,
             result& r) {
    target_options target{};
    target.dstBigEndian = 1;
    const source_options source{.srcBigEndian = 1, .srcCheckBom = 0, .skipInvalid = 0};
    r.length = 0;
    if ((r.status = cconvInitConvert(&s, &target, to)) != 0 ||
        (r.status = cconvChgCharset(&s, &source, from)) != 0) {
        return;
    }
    s.inBuf = reinterpret_cast<const u8*>(text);
    s.inPos = 0;
    s.inLen = length;
    s.outBuf = reinterpret_cast<u8*>(r.bytes);
    s.outPos = 0;
    s.outLen = sizeof r.bytes;
    r.status = cconvConvert(&s);
    cconvTermConvert(&s);
    r.length = s.outPos;
}

const std::string& sample() {
    static const std::string text = [] {
        std::string made;
        for (int i = 0; i < 30; ++i) {
            made += "letters, \xE3\x81\x81\xE3\x81\x82\xE4\xB8\x80"; // U+3041 U+3042 U+4E00
        }
        return made;
    }();
    return text;
}

// The calls that the two conversions do not make; each gives null or 0 for want of memory.
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

const char* const caches[] = {"low.cmp", "wide.cmp", "extra.cmp"};

void expect_recovery(bool warm) {
    const test::temp_dir directory;
    write_directory(directory);
    const auto s = std::make_unique<session>();
    result there, back;
    const auto use = [&] {
        convert(*s, "two", "one", sample().data(), static_cast<i32>(sample().size()), there);
        if (there.status == PVZAN_DONE) {
            convert(*s, "one", "two", there.bytes, there.length, back);
        }
        make_and_release("one.xml");
    };
    const auto text_back = [&] {
        return std::string(back.bytes, static_cast<std::size_t>(back.length));
    };
    static_cast<void>(sample());
    // How it should be.
    std::string good[3];
    long needed = 0;
    test::in_child([&] {
        ZAN_setCharsetPath(directory.path().c_str());
        use();
        EXPECT_EQ(there.status, PVZAN_DONE);
        EXPECT_EQ(back.status, PVZAN_DONE);
        EXPECT_NE(text_back().find("letters, \xE3\x81\x81\xE3\x81\x82"), std::string::npos);
    });
    for (std::size_t i = 0; i < std::size(caches); ++i) {
        ASSERT_TRUE(directory.has(caches[i])) << caches[i];
        good[i] = directory.read(caches[i]);
        ASSERT_NE(good[i], "") << caches[i];
    }
    bool more = true;
    for (needed = 1; more; ++needed) {
        for (const bool later_too : {false, true}) {
            for (const char* cache : caches) {
                if (!warm) {
                    removeFile(directory.file(cache).c_str());
                }
            }
            const std::string marker = directory.file("enough");
            test::in_child([&] {
                ZAN_setCharsetPath(directory.path().c_str());
                const long live_before = live;
                calls = 0;
                all_from_there = later_too;
                first_failure = needed;
                use();
                first_failure = 0;
                const bool enough = calls < needed;
                EXPECT_TRUE(there.status <= PVZAN_UNKNOWN_CHARSET ||
                            there.status == PVZAN_UNREPRESENTABLE)
                    << there.status;
                const result first_there = there, first_back = back;
                use();
                EXPECT_EQ(there.status, PVZAN_DONE);
                EXPECT_EQ(back.status, PVZAN_DONE);
                for (const auto& [first, now] :
                     {std::pair(&first_there, &there), {&first_back, &back}}) {
                    if (first->status == PVZAN_DONE) { // then it was right
                        EXPECT_EQ(
                            std::string_view(first->bytes, static_cast<std::size_t>(first->length)),
                            std::string_view(now->bytes, static_cast<std::size_t>(now->length)));
                    }
                }
                while (g_ProcessObject.refCount != 0) {
                    termProcess();
                }
                EXPECT_EQ(live, live_before);
                if (enough) {
                    directory.write("enough", "");
                }
            });
            for (std::size_t i = 0; i < std::size(caches); ++i) {
                if (directory.has(caches[i])) {
                    EXPECT_EQ(directory.read(caches[i]), good[i]) << caches[i];
                }
            }
            more = !directory.has("enough");
            ASSERT_FALSE(::testing::Test::HasFailure()) << "allocation " << needed << later_too;
        }
    }
    EXPECT_GT(needed, 80); // it was not for nothing
}

TEST(Faults, EveryAllocationMayFailWithoutCaches) {
    expect_recovery(false);
}

TEST(Faults, EveryAllocationMayFailWithCaches) {
    expect_recovery(true);
}

} // namespace
