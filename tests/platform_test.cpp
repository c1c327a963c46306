// Directory listings, files and memory. Paths are in functions_test.cpp.
#include "platform/platform.h"
#include "tests/support/temp_dir.h"

// An impossible allocation answers null under the sanitizers, too.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

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
