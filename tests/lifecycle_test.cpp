// Start and end of the library, the charset directory, and the one-time reading of definitions.
// Each case has a process of its own, in which nothing was settled before.
#include "cconv/convert/lifecycle.h"
#include "cconv/directory/directory.h"
#include "cconv/registry/registry.h"
#include "platform/platform.h"
#include "tests/support/charset_directory.h"
#include "tests/support/child.h"

#include <unistd.h>

// An impossible allocation answers null under the sanitizers, too.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

using test::in_child;
using test::temp_dir;
using namespace std::string_literals;

// A charset of one table-less set, of codes of so many bytes, in FILE.xml.
void write_charset(const temp_dir& directory, const std::string& file, const std::string& name,
                   const std::string& set, int bytes = 4) {
    test::write_definition(directory, {name, "constUTF-8", "destUTF-8", {{set, bytes}}});
    std::filesystem::rename(directory.file(name + ".xml"), directory.file(file));
}

bool can_open(const char* charset) {
    const auto s = std::make_unique<session>();
    return cconvInitConvert(s.get(), nullptr, charset) == PVZAN_DONE &&
           cconvChgCharset(s.get(), nullptr, charset) == PVZAN_DONE;
}

std::string stored_path(std::size_t size = text_bytes) {
    std::string buffer(text_bytes + 16, '#');
    const char* result = getCharsetPath(buffer.data(), static_cast<u32>(size));
    if (result == nullptr) {
        return buffer[0] == '\0' ? "(refused)" : "(refused, not emptied)";
    }
    EXPECT_EQ(result, buffer.data());
    return result;
}

// ---- The charset directory ---------------------------------------------------------------------

TEST(CharsetPath, IsSetOnceAndGetsOneSlashOrIsTheDefault) {
    const std::string longest(4095, 'p');
    for (const std::string& path : {""s, "/"s, "a"s, "a/"s, "a//"s, longest, longest + "p"}) {
        in_child([&] {
            EXPECT_EQ(ZAN_setCharsetPath(nullptr), 0U);
            EXPECT_STREQ(ZAN_getCharsetPath(), "");
            EXPECT_EQ(ZAN_getCharsetPath(), m_charsetpath);
            EXPECT_EQ(ZAN_setCharsetPath(path.c_str()),
                      path.empty() ? 0U : 1U); // without my_init, too
            EXPECT_EQ(ZAN_getCharsetPath(), path.substr(0, 4095));
            if (path.size() >= 4095) { // no room for the slash
                EXPECT_EQ(stored_path(), "(refused)");
                EXPECT_EQ(cconvLoadRule(), 0U);
                EXPECT_FALSE(can_open("utf-8"));
                return;
            }
            const std::string settled = path.empty() ? "./base2" : path;
            EXPECT_EQ(stored_path(), settled.ends_with('/') ? settled : settled + "/");
            EXPECT_EQ(ZAN_setCharsetPath("somewhere"), 0U);
        });
    }
}

TEST(CharsetPath, NeedsRoomForTheSlash) {
    in_child([] {
        EXPECT_EQ(ZAN_setCharsetPath("12345678"), 1U); // 8 bytes, "/" and NUL
        for (const std::size_t size : {2U, 3U, 8U, 9U, 10U, 11U, 0U, 1U}) {
            // Buffers that are known to be large enough are said to be of 0 or 1 bytes.
            EXPECT_EQ(stored_path(size), size < 2 || size > 10 ? "12345678/" : "(refused)");
        }
        EXPECT_EQ(getCharsetPath(nullptr, text_bytes), nullptr);
    });
}

// ---- Reading the definitions -------------------------------------------------------------------

TEST(Definitions, FirstConversionUsesTheDefaultDirectory) {
    const temp_dir here;
    std::filesystem::create_directory_symlink(PVZAN_BASE2_DIR, here.file("base2"));
    for (const bool started : {false, true}) {
        in_child([&] {
            ASSERT_EQ(::chdir(here.path().c_str()), 0);
            ::alarm(60); // a lock taken twice would wait for ever
            if (started) {
                my_init();
            }
            EXPECT_TRUE(can_open("shift_jis"));
            EXPECT_STREQ(ZAN_getCharsetPath(), "./base2/");
            EXPECT_EQ(ZAN_setCharsetPath("elsewhere"), 0U);
            EXPECT_TRUE(can_open("utf-8"));
        });
    }
}

TEST(Definitions, AreSoughtOnlyOnce) {
    const temp_dir empty;
    for (const std::string& path : {empty.path(), empty.file("missing"), empty.file("a-file")}) {
        in_child([&] {
            ZAN_setCharsetPath(path.c_str());
            EXPECT_EQ(cconvLoadRule(), 0U);
            EXPECT_EQ(cconvLoadRule(), 0U);
            EXPECT_FALSE(can_open("utf-8"));
            // What comes later is not looked for.
            write_charset(empty, "utf-8.xml", "utf-8", "plain");
            EXPECT_EQ(cconvLoadRule(), 0U);
            EXPECT_FALSE(can_open("utf-8"));
            std::filesystem::remove(empty.file("plain.set"));
            std::filesystem::remove(empty.file("utf-8.xml"));
        });
        empty.write("a-file", "not a directory");
    }
}

TEST(Definitions, BadFilesDoNotHideGoodOnes) {
    const temp_dir directory;
    write_charset(directory, "b.xml", "good", "plain");
    write_charset(directory, "c.xml", "lacks-its-set", "missing");
    write_charset(directory, "d.XML", "not-asked-for", "plain");
    std::filesystem::remove(directory.file("missing.set"));
    directory.write("a.xml", "this is no definition");
    directory.write("f.xml", "");
    std::filesystem::create_directory(directory.file("g.xml"));
    in_child([&] {
        ZAN_setCharsetPath(directory.path().c_str());
        EXPECT_EQ(cconvLoadRule(), 1U);
        EXPECT_TRUE(can_open("Good"));
        EXPECT_FALSE(can_open("lacks-its-set"));
        EXPECT_FALSE(can_open("not-asked-for"));
        EXPECT_EQ(g_ProcessObject.groups->count, 1);
    });
    in_child([&] { // nothing but bad ones
        std::filesystem::remove(directory.file("b.xml"));
        ZAN_setCharsetPath(directory.path().c_str());
        EXPECT_EQ(cconvLoadRule(), 0U);
    });
}

TEST(Definitions, AreReadInTheOrderOfTheirFileNames) {
    const temp_dir directory;
    // Sets are one by their number: the first definition decides what it is.
    write_charset(directory, "b.xml", "second", "PLAIN", 4);
    write_charset(directory, "a.xml", "First", "plain", 2);
    write_charset(directory, "c.xml", "first", "pLAIN", 4);
    in_child([&] {
        ZAN_setCharsetPath(directory.path().c_str());
        EXPECT_EQ(cconvLoadRule(), 1U);
        ASSERT_EQ(g_ProcessObject.groups->count, 2);
        ASSERT_EQ(g_ProcessObject.basics->count, 1);
        const auto* set = static_cast<const basic_set*>(getArray(g_ProcessObject.basics, 0));
        EXPECT_EQ(set->byteNum, 2);
        const auto* group = static_cast<const charset_group*>(getArray(g_ProcessObject.groups, 0));
        EXPECT_STREQ(group->name, "first");
    });
}

// ---- References --------------------------------------------------------------------------------

TEST(Lifecycle, TheRegistryLivesFromTheFirstReferenceToTheLast) {
    in_child([] {
        const auto expect_references = [](u32 count) {
            EXPECT_EQ(g_ProcessObject.refCount, count);
            EXPECT_EQ(g_ProcessObject.groups != nullptr, count > 0);
            EXPECT_EQ(g_ProcessObject.basics != nullptr, count > 0);
        };
        expect_references(0);
        my_init();
        expect_references(1);
        EXPECT_EQ(g_ProcessObject.groups->count, 0);
        EXPECT_EQ(initProcess(), 1U);
        startProcess();
        expect_references(3);
        my_fini();
        endProcess();
        termProcess();
        expect_references(0);
        my_init();
        ZAN_setCharsetPath(PVZAN_BASE2_DIR);
        const auto s = std::make_unique<session>();
        EXPECT_EQ(cconvChgCharset(s.get(), nullptr, "utf-8"), PVZAN_UNKNOWN_CHARSET); // not yet
        EXPECT_TRUE(can_open("utf-8") && can_open("shift_jis"));
        expect_references(2); // loading has one of its own
        my_fini();
        EXPECT_TRUE(can_open("utf-8")); // the registry outlives the host's reference
        // Once it is gone all the same, nothing is read again.
        termProcess();
        expect_references(0);
        EXPECT_EQ(cconvLoadRule(), 1U);
        EXPECT_FALSE(can_open("utf-8"));
        my_init();
        EXPECT_FALSE(can_open("utf-8"));
    });
}

// ---- Directory listings, files and memory; paths are in functions_test.cpp ----------------------

TEST(Listing, NamesInOrderWithThePatternsDirectory) {
    const test::temp_dir dir;
    for (const char* name : {"b.xml", "a.xml", "c.d.xml", "a.txt", "xml"}) {
        dir.write(name, "");
    }
    const auto listing = std::make_unique<directory_listing>();
    ASSERT_EQ(openDir(dir.file("*.xml").c_str(), listing.get()), 1U);
    for (const char* base : {"a", "b", "c.d"}) {
        ASSERT_EQ(readDir(listing.get()), 1U);
        EXPECT_STREQ(listing->parts.baseName, base);
        EXPECT_STREQ(listing->parts.extension, ".xml");
        EXPECT_EQ(listing->parts.root + std::string(listing->parts.directory), dir.path());
        EXPECT_EQ(listing->entry.path, dir.file(base + std::string(".xml")));
    }
    EXPECT_EQ(readDir(listing.get()), 0U);
    EXPECT_EQ(readDir(listing.get()), 0U);
    closeDir(listing.get());
}

TEST(Listing, NoMatchIsEmpty) {
    const test::temp_dir dir;
    for (const std::string& pattern : {dir.file("*.xml"), dir.file("missing/*"), std::string()}) {
        listing_state state;
        listing_entry entry;
        ASSERT_EQ(ZAN_ASC_opendir(pattern.c_str(), &state), 1U) << pattern;
        EXPECT_EQ(ZAN_ASC_readdir(&state, &entry), 0U) << pattern;
        ZAN_ASC_closedir(&state);
    }
}

i32 print(FILE* stream, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const i32 written = ZAN_VfPrintf(stream, format, &arguments);
    va_end(arguments);
    return written;
}

TEST(File, WriteSeekReadRemove) {
    const test::temp_dir dir;
    const std::string path = dir.file("f");
    EXPECT_EQ(ZAN_FileOpen(path.c_str(), "rb"), nullptr);
    FILE* file = ZAN_FileOpen(path.c_str(), "wb+");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(ZAN_FileWrite("0123456789", 2, 5, file), 5);
    EXPECT_EQ(ZAN_FileSeek(file, -4, SEEK_END), 0);
    EXPECT_EQ(ZAN_FileTell(file), 6);
    char bytes[8] = {};
    EXPECT_EQ(ZAN_FileRead(bytes, 1, 8, file), 4);
    EXPECT_STREQ(bytes, "6789");
    EXPECT_EQ(ZAN_FileSeek(file, std::int64_t{5} << 30, SEEK_SET), 0); // wider than the sizes
    EXPECT_EQ(ZAN_FileTell(file), std::int64_t{5} << 30);
    EXPECT_NE(ZAN_FileSeek(file, -1, SEEK_SET), 0);
    EXPECT_EQ(ZAN_FileSeek(file, 0, SEEK_SET), 0);
    EXPECT_EQ(print(file, "%d %s", 42, "x"), 4);
    EXPECT_EQ(ZAN_FileClose(file), 0);
    EXPECT_EQ(dir.read("f").substr(0, 6), "42 x45");
    EXPECT_EQ(removeFile(path.c_str()), 0);
    EXPECT_NE(removeFile(path.c_str()), 0);
}

TEST(Memory, SizesAreSigned) {
    constexpr i32 most = std::numeric_limits<i32>::max();
    EXPECT_EQ(ZAN_malloc(-1), nullptr);
    EXPECT_EQ(ZAN_calloc(-1, 1), nullptr);
    EXPECT_EQ(ZAN_calloc(-1, most), nullptr);
    auto* bytes = static_cast<u8*>(ZAN_calloc(3, 5));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(std::vector<u8>(bytes, bytes + 15), std::vector<u8>(15));
    EXPECT_EQ(ZAN_realloc(bytes, -1), nullptr);
    bytes[14] = 7;
    bytes = static_cast<u8*>(ZAN_realloc(bytes, 5000));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(bytes[14], 7);
    ZAN_free(bytes);
    ZAN_free(nullptr);
    ZAN_memend();
}

} // namespace
