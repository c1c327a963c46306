// Text tables: bytes, characters and numbers, across the refills of the buffer.
#include "cconv/definition/document.h"
#include "cconv/tables/table.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using test::widen;

// A reader over a file of the given bytes.
class text_file {
public:
    text_file(const std::string& bytes, u32 encoding, u32 bigEndian) : buffer_(TABLE_READ_BYTES) {
        dir_.write("t", bytes);
        reader.file = std::fopen(dir_.file("t").c_str(), "r");
        reader.encoding = encoding;
        reader.bigEndian = bigEndian;
        reader.readBuf = buffer_.data();
        reader.remaining = static_cast<i32>(bytes.size());
    }
    ~text_file() { std::fclose(reader.file); }
    text_file(const text_file&) = delete;
    text_file& operator=(const text_file&) = delete;

    table_reader reader{};

private:
    test::temp_dir dir_;
    std::vector<u8> buffer_;
};

std::vector<u32> numbers(const std::string& bytes, u32 encoding, u32 bigEndian) {
    text_file file(bytes, encoding, bigEndian);
    std::vector<u32> all;
    for (u32 value = 0; hex32(&file.reader, &value) != 0;) {
        all.push_back(value);
    }
    return all;
}

std::string random_bytes(std::size_t size) {
    std::mt19937 random(5);
    std::string bytes(size, '\0');
    std::ranges::generate(bytes, [&] { return static_cast<char>(random()); });
    return bytes;
}

TEST(TableBytes, AllButTheLastOnesAreHandedOut) {
    const std::string bytes = random_bytes(70000);
    for (const std::size_t size :
         {0U, 1U, 2U, 3U, 8192U, 8193U, 16383U, 16384U, 16385U, 24576U, 24578U, 70000U}) {
        for (const i32 count : {1, 2, 3, 4, 7, 1000, 8191}) {
            text_file file(bytes.substr(0, size), 0, 0);
            std::string got, part(static_cast<std::size_t>(count), '\0');
            while (readFIO(&file.reader, part.data(), count) != 0) {
                got += part;
            }
            const std::size_t step = part.size();
            ASSERT_EQ(got.size(), size == 0 ? 0 : (size - 1) / step * step) << size << '/' << count;
            ASSERT_TRUE(got == bytes.substr(0, got.size())) << size << '/' << count;
        }
    }
}

TEST(TableBytes, BadCountsAndShortFilesGiveNothing) {
    u8 out[4];
    for (const i32 count : {-1, 16384, 0x7FFFFFFF, -0x7FFFFFFF - 1}) {
        text_file file(random_bytes(20000), 0, 0);
        EXPECT_EQ(readFIO(&file.reader, out, count), 0U) << count;
        EXPECT_EQ(readFIO(&file.reader, out, 4), 1U) << count;
    }
    // Less in the file than was said of it: at the first read, or at a later one.
    for (const i32 size : {100, 20000}) {
        text_file file(random_bytes(static_cast<std::size_t>(size)), 0, 0);
        file.reader.remaining = 40000;
        i32 read = 0;
        while (readFIO(&file.reader, out, 4) != 0) {
            ASSERT_LT(read += 4, size);
        }
        EXPECT_EQ(readFIO(&file.reader, out, 4), 0U);
    }
}

TEST(TableText, Numbers) {
    const std::pair<const char*, std::vector<u32>> cases[] = {
        {"2121 3000\r\n", {0x2121, 0x3000}},
        {"aBcD\tEf09\r\n", {0xABCD, 0xEF09}},
        {"<21 22>23<24>25<2>6  ", {0x23, 0x25, 6}}, // markup is skipped
        {"21<22  ", {0x21}},
        {"21>22  ", {0x21, 0x22}},
        {"0x2121 ;", {0, 0x2121}},
        {"# a comment\r\n", {0xA, 0xC, 0xE}}, // there are none
        {"123456789 ;", {0x23456789}},
        {"00000000000000000021 ;", {0x21}},
        {"12,34", {0x12}}, // cut numbers are lost
        {"12,34,", {0x12}},
        {"12,34,,", {0x12, 0x34}},
        {"G`g@/:", {}},
        {"", {}},
    };
    for (const auto& [text, expected] : cases) {
        for (const u32 bigEndian : {0U, 1U}) {
            const bool big = bigEndian != 0;
            EXPECT_EQ(numbers(widen(text, 2, big), encoding_utf16, bigEndian), expected) << text;
            EXPECT_EQ(numbers(widen(text, 2, big), encoding_ucs2, bigEndian), expected) << text;
            EXPECT_EQ(numbers(widen(text, 4, big), encoding_ucs4, bigEndian), expected) << text;
        }
        for (const u32 encoding :
             {u32{encoding_none}, u32{encoding_utf8}, u32{encoding_shift_jis}, 99U}) {
            EXPECT_EQ(numbers(text, encoding, 0), std::vector<u32>()) << text;
        }
    }
}

TEST(TableText, CharactersAndTheirSurrogates) {
    using namespace std::string_literals;
    const std::string units =
        "\xD8\x42\xDF\xB7\xDF\xB7\xD8\x42\xD8\x00\x00\x31\x00\x32\x30\x42..\0\0"s;
    const auto read = [&](u32 encoding, u32 bigEndian) {
        text_file file(units, encoding, bigEndian);
        std::vector<u32> characters;
        for (u32 c = 0; read32(&file.reader, &c) != 0;) {
            characters.push_back(c);
        }
        return characters;
    };
    // The second unit is taken as the high one, unless only it is a high surrogate.
    const u32 odd = 0x31 * 1024U + 0xD800U - 0x35FDC00U;
    EXPECT_EQ(read(encoding_utf16, 1),
              (std::vector<u32>{0x1FD842, 0x1FD842, odd, 0x32, 0x3042, 0x2E2E}));
    EXPECT_EQ(read(encoding_ucs2, 1), (std::vector<u32>{0xD842, 0xDFB7, 0xDFB7, 0xD842, 0xD800,
                                                        0x31, 0x32, 0x3042, 0x2E2E}));
    EXPECT_EQ(read(encoding_ucs4, 1),
              (std::vector<u32>{0xD842DFB7, 0xDFB7D842, 0xD8000031, 0x323042}));
    EXPECT_EQ(read(encoding_ucs4, 0),
              (std::vector<u32>{0xB7DF42D8, 0x42D8B7DF, 0x310000D8, 0x42303200}));
}

// A number ends at a character that is given back, but only the second unit of a pair is.
TEST(TableText, ANumberBeforeAPairOfSurrogates) {
    const std::string text = widen("21", 2, true) + "\xD8\x42\xDF\xB7" + widen("22 33 ;", 2, true);
    EXPECT_EQ(numbers(text, encoding_utf16, 1), (std::vector<u32>{0x21, 2, 0x33}));
}

// Files longer than the buffer, moved unit by unit across its refills.
TEST(TableText, NothingIsLostAtRefills) {
    std::string text;
    std::vector<u32> expected;
    for (u32 i = 0; i < 4000; ++i) {
        const std::size_t from = text.size();
        text += "0123456789ABCDEF"[i % 16];
        text += std::to_string(i);
        expected.push_back(static_cast<u32>(std::stoul(text.substr(from), nullptr, 16)));
        text += i % 7 == 0 ? "<!-- 77 -->" : i % 3 == 0 ? "\r\n" : "\t";
    }
    text += "\r\n";
    for (std::size_t shift = 0; shift < 24; ++shift) {
        const std::string moved = std::string(shift, ' ') + text;
        for (const bool big : {false, true}) {
            ASSERT_EQ(numbers(widen(moved, 2, big), encoding_utf16, big), expected) << shift;
            ASSERT_EQ(numbers(widen(moved, 4, big), encoding_ucs4, big), expected) << shift;
        }
    }
}

TEST(TableText, WithoutEnd) {
    for (const char* start : {"", "<"}) {
        EXPECT_EQ(numbers(widen(start + std::string(60000, 'f'), 2, false), encoding_utf16, 0),
                  std::vector<u32>());
    }
}

} // namespace
