// Paths in parts, directory listings, files and memory.
#include "platform/platform.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <string>
#include <vector>

// An impossible allocation answers null under the sanitizers, too.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

// Root, directory, base name and extension, and the four joined again.
using parts = std::vector<std::string>;

parts split(const std::string& path) {
    const auto p = std::make_unique<split_path>();
    std::memset(p.get(), 'x', sizeof *p);
    splitPath(path.c_str(), p.get());
    for (const auto& field : {p->root, p->directory, p->baseName, p->extension}) {
        const std::size_t length = std::strlen(field);
        EXPECT_EQ(std::count(field + length, field + text_bytes, '\0'),
                  static_cast<std::ptrdiff_t>(text_bytes - length))
            << path << " leaves what was there";
    }
    std::string joined(text_bytes, 'x');
    mergePath(joined.data(), p.get());
    return {p->root, p->directory, p->baseName, p->extension, joined.c_str()};
}

TEST(Path, Parts) {
    const std::pair<const char*, parts> cases[] = {
        {"", {"", "", "", ""}},
        {"/", {"/", "", "", ""}},
        {"//", {"/", "/", "", ""}},
        {"./base2/*.xml", {"", "./base2/", "*", ".xml"}},
        {"/usr/share/a.b.txt", {"/", "usr/share/", "a.b", ".txt"}},
        {"/a", {"/", "", "", "a"}},
        {"a/b", {"", "a/", "", "b"}},
        {".profile", {"", "", "", ".profile"}},
        {"d/.profile", {"", "d/", "", ".profile"}},
        {"a.", {"", "", "a", "."}},
        {"a/", {"", "a/", "", ""}},
        // A delimiter that ends the text hides the ones before it.
        {"a/b/", {"", "", "", "a/b/"}},
        {"a.b.", {"", "", "", "a.b."}},
    };
    for (auto [path, expected] : cases) {
        expected.push_back(path);
        EXPECT_EQ(split(path), expected) << path;
    }
}

TEST(Path, LongPathsAreCut) {
    for (const std::size_t n : {4094U, 4095U, 4096U, 100000U}) {
        const auto cut = [](const std::string& text) { return text.substr(0, text_bytes - 1); };
        const std::string name(n, 'n');
        const std::string directory = cut(name + "/");
        EXPECT_EQ(split("/" + name + "/" + name + ".txt"),
                  (parts{"/", directory, cut(name), ".txt", cut("/" + directory + name + ".txt")}))
            << n;
        EXPECT_EQ(split(name)[3], cut(name)) << n;
    }
}

TEST(Path, Delimiters) {
    struct {
        const char* text;
        i32 next, path_break;
    } const cases[] = {
        {"", 0, 0},     {"/", 0, 0},        {"a", 1, 0},
        {"abc", 3, 0},  {"/abc", 0, 0},     {"a/b/c", 1, 3},
        {"ab/c", 2, 2}, {"/usr/lib", 0, 4}, {"./base2/x.xml", 1, 7},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ZAN_nextPathDelimiter(c.text), c.next) << c.text;
        EXPECT_EQ(ZAN_nextDrivePathDelimiter(c.text), c.next) << c.text;
        EXPECT_EQ(ZAN_getPathBreak(c.text), c.path_break) << c.text;
    }
}

TEST(Path, LastOccurrence) {
    // One that ends the text hides the ones before it.
    const std::pair<std::string, int> cases[] = {{"", -1},    {"a", -1},  {"/", 0},   {"a/b/c", 3},
                                                 {"/a/", -1}, {"//", -1}, {"ab/", 2}, {"/a", 0}};
    for (auto [text, at] : cases) {
        EXPECT_EQ(_right(text.data(), '/'), at < 0 ? nullptr : text.data() + at) << text;
    }
}

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
