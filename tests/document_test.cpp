// Reading definition documents: encodings, characters, normalisation.
#include "tests/support/charset_directory.h"
#include "tests/support/document.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

using test::ascii;
using test::charset_directory;
using test::owned_document;
using test::text_of;
using test::widen;

// ---- Encodings

enum : u32 { failed = 99 };

struct encoding_case {
    const char* about;
    std::string bytes;
    u32 encoding, bigEndian;  // expected; failed for a refused file
    std::u32string text = {}; // expected, unless it is empty
};

std::vector<encoding_case> encoding_cases() {
    const std::string declared = "<! encoding=\"UTF-16\"       ->", ucs2 = "ISO-10646-UCS-2";
    const std::string le = "\xFF\xFE", be = "\xFE\xFF";
    const std::u32string mark = U"\xFEFF";
    using namespace std::string_literals;
    return {
        {"mark and UTF-16, little-endian", le + widen(declared, 2, false), encoding_utf16, 0,
         mark + ascii(declared)},
        {"mark and UTF-16, big-endian", be + widen(declared, 2, true), encoding_utf16, 1,
         mark + ascii(declared)},
        {"UCS-2, big-endian", be + widen(ucs2 + " ", 2, true), encoding_ucs2, 1,
         mark + ascii(ucs2 + " ")},
        {"the earlier name wins", le + widen(ucs2 + "UTF-16        ", 2, false), encoding_ucs2, 0,
         mark + ascii(ucs2 + "UTF-16        ")},
        // Undecided: the defaults of the call, UTF-16 big-endian here.
        {"a mark alone settles no byte order", le + widen("ab", 2, false), encoding_utf16, 1,
         U"\xFFFE\x6100\x6200"},
        {"declaration on the second line", le + widen("\n" + declared + ucs2, 2, false),
         encoding_utf16, 1},
        {"a byte 0A of another character ends the line",
         le + "\x41\x0A" + widen(declared + ucs2, 2, false), encoding_utf16, 1},
        {"the name 30 bytes before the end counts",
         le + widen("UTF-16" + std::string(9, 'x'), 2, false), encoding_utf16, 0,
         mark + ascii("UTF-16xxxxxxxxx")},
        {"and 28 bytes before the end does not",
         le + widen("UTF-16" + std::string(8, 'x'), 2, false), encoding_utf16, 1},
        {"four-byte units, big-endian", "\xFE\x00\x00\xFF"s + widen("ab", 4, true), encoding_ucs4,
         1,
         U"\xFE0000FF"
         "ab"},
        {"no mark, no name", widen("<a/>", 2, true), encoding_utf16, 1, U"<a/>"},
        {"utf-8 anywhere", widen("<a/>", 2, true) + "xutf-8x", failed, 0},
        {"shift anywhere", widen("<a/>", 2, true) + "shift_jis", failed, 0},
        {"upper case is no name", "UTF-8 " + widen("a", 2, true), encoding_utf16, 1},
        {"a name as the very end is not seen", "xutf-8", encoding_utf16, 1},
        {"an odd byte is left over", widen("ab", 2, true) + "x", encoding_utf16, 1, U"ab"},
        {"nothing", "", failed, 0},
    };
}

TEST(DocumentFile, Encodings) {
    const charset_directory dir;
    for (const encoding_case& c : encoding_cases()) {
        dir.write("d.xml", c.bytes);
        owned_document d;
        const u32 done = xmlReadFile("d.xml", encoding_utf16, 1, &d);
        ASSERT_EQ(done, c.encoding != failed) << c.about;
        if (done == 0) {
            EXPECT_EQ(d.text, nullptr) << c.about;
            EXPECT_EQ(d.textBytes, 0) << c.about;
            continue;
        }
        EXPECT_EQ(d.encoding, c.encoding) << c.about;
        EXPECT_EQ(d.bigEndian, c.bigEndian) << c.about;
        if (!c.text.empty()) {
            EXPECT_TRUE(text_of(d) == c.text) << c.about;
        }
    }
    dir.write("d.xml", "ab");
    for (const u32 unread : {encoding_none, encoding_utf8, encoding_shift_jis}) {
        owned_document d;
        EXPECT_EQ(xmlReadFile("d.xml", unread, 0, &d), 0U) << unread;
    }
}

std::string units(const std::vector<u32>& values) {
    std::string bytes;
    for (const u32 value : values) {
        bytes += {static_cast<char>(value & 0xFF), static_cast<char>(value >> 8)};
    }
    return bytes;
}

TEST(DocumentFile, SurrogatesAreJoinedTheOldWay) {
    const charset_directory dir;
    struct {
        std::vector<u32> in;
        u32 encoding;
        std::u32string out;
    } const cases[] = {
        {{'a', 0xD842, 0xDFB7, 'b'},
         encoding_utf16,
         U"a\x1FD842"
         U"b"}, // second unit taken as high
        {{0xDFB7, 0xD842}, encoding_utf16, U"\x1FD842"},
        {{0xD800, 'a'},
         encoding_utf16,
         {static_cast<char32_t>('a' * 1024U + 0xD800U - 0x35FDC00U)}},
        {{'a', 0xD842}, encoding_utf16, U"a"}, // cut
        {{0xD7FF, 0xE000}, encoding_utf16, U"\xD7FF\xE000"},
        {{'a', 0xD842, 0xDFB7}, encoding_ucs2, {'a', 0xD842, 0xDFB7}},
    };
    for (const auto& c : cases) {
        dir.write("d.xml", units(c.in));
        owned_document d;
        ASSERT_EQ(xmlReadFile("d.xml", c.encoding, 0, &d), 1U);
        EXPECT_TRUE(text_of(d) == c.out) << testing::PrintToString(text_of(d));
    }
}

TEST(DocumentFile, DeclarationsCommentsAndLineBreaksGo) {
    const charset_directory dir;
    struct {
        const char *in, *out;
        std::vector<i32> tags;
    } const cases[] = {
        {"<?xml?><a/>", "<a/>", {0, 2}},
        {"a<?b", "a?b", {}},
        {"<?>?>x", "x", {}},
        {"<!-- <a> -->x", "<!>x", {0}},
        {"a--b", "a-b", {}},
        {"---x", "-x", {}}, // the pairs may not overlap
        {"-----x", "-x", {}},
        {"a\r\nb\rc\nd\te", "a b c d e", {}},
        {"\r\r\n\n", "   ", {}},
        {"<a><b/ ></a>", "<a><b/ ></a>", {0, 3, 8}},
        {"/>/", "/>/", {0}},
        {"<?a--b?>-- <? --c", "c", {}},
        {"<", "<", {0}},
    };
    for (const auto& c : cases) {
        dir.write("d.xml", widen(c.in, 2, false));
        owned_document d;
        ASSERT_EQ(xmlReadFile("d.xml", encoding_utf16, 0, &d), 1U);
        EXPECT_TRUE(text_of(d) == ascii(c.out))
            << c.in << " -> " << testing::PrintToString(text_of(d));
        EXPECT_EQ(std::vector<i32>(d.tagPos, d.tagPos + d.tagCount), c.tags) << c.in;
    }
}

TEST(DocumentFile, NamesFoldAndDirectoriesGo) {
    const charset_directory dir;
    dir.write_utf16("jisx0208.xml", "<a/>");
    std::filesystem::create_directory(dir.file("directory.xml"));
    ASSERT_EQ(::mkfifo(dir.file("pipe.xml").c_str(), 0600), 0);
    struct {
        std::string name;
        u32 done;
    } const cases[] = {
        {"jisx0208.xml", 1},
        {"JISX0208.XML", 1},
        {"sub/JisX0208.xml", 1},
        {"/etc/jisx0208.xml", 1},
        {"../JISX0208.xml", 1},
        {"jisx0208", 0},
        {"", 0},
        {"directory.xml", 0},
        {"pipe.xml", 0},
        {std::string(4090, 'n'), 0},
        {std::string(100000, 'n') + ".xml", 0},
    };
    for (const auto& c : cases) {
        owned_document d;
        EXPECT_EQ(xmlReadFile(c.name.c_str(), encoding_utf16, 0, &d), c.done) << c.name;
    }
}

} // namespace
