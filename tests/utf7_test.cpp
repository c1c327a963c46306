// UTF-7 to UCS-4.
#include "tests/support/convert.h"
#include "tests/support/oracle.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace {

struct result {
    std::uint32_t value;
    std::u32string text;
    bool operator==(const result&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const result& r) {
    stream << r.value << ":";
    for (const char32_t c : r.text) {
        stream << " " << std::hex << static_cast<std::uint32_t>(c);
    }
    return stream;
}

// Input and output end where memory ends.
result convert(const std::string& text, std::int32_t size) {
    const test::guarded_buffer in(text.size() + 1);
    const test::guarded_buffer out(4 * static_cast<std::size_t>(std::max(size, 0)));
    std::ranges::copy(text, in.data());
    in.data()[text.size()] = 0;
    auto* characters = reinterpret_cast<std::uint32_t*>(out.data());
    std::uint32_t count = 0xAAAAAAAA;
    result r = {ZAN_UTF_7ToUCS_4(characters, in.data(), size, &count), {}};
    EXPECT_LE(count, out.size() / 4);
    r.text.assign(characters, characters + std::min<std::size_t>(count, out.size() / 4));
    return r;
}

TEST(Utf7, KnownTexts) {
    const struct {
        const char* in;
        const char32_t* out;
    } rows[] = {
        {"", U""},
        {"A+ImIDkQ.", U"A\u2262\u0391."},
        {"Hi Mom -+Jjo--!", U"Hi Mom -\u263A-!"},
        {"+ZeVnLIqe-", U"\u65E5\u672C\u8A9E"},
        {"+ZeVnLIqe", U"\u65E5\u672C\u8A9E"}, // the end of the text ends a run
        {"+ZeVnLIqe---", U"\u65E5\u672C\u8A9E--"},
        {"+-", U"+"},
        {"+AGE-+AGI-", U"ab"},
        {"+2D3cAQ-", U"\U0001F401"},
        {"+2//f/w-", U"\U0010FFFF"},
        {"+AH4-+AFw-+AAE-", U"~\\\x01"},
        {"}{|_@!\t\r\n\x01\x1F", U"}{|_@!\t\r\n\x01\x1F"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(convert(row.in, 100), (result{0, row.out})) << row.in;
    }
}

TEST(Utf7, MalformedTexts) {
    const struct {
        const char* in;
        std::uint32_t read; // before the fault
        const char32_t* out;
    } rows[] = {
        {"ab~", 2, U"ab"},
        {"ab\\", 2, U"ab"},
        {"ab\x7F", 2, U"ab"},
        {"ab\x80", 2, U"ab"},
        {"a\xE3\x81\x82", 1, U"a"},
        {"a+", 1, U"a"},
        {"a+ b", 1, U"a"},
        {"a+~", 1, U"a"},
        {"a+A-", 1, U"a"},             // 6 bits,
        {"a+AG-", 1, U"a"},            // 12
        {"a+AGEA-", 5, U"aa"},         // 16, and a letter too many
        {"a+AGEAY", 5, U"aa"},         // 16, and a character cut
        {"a+AGF-b", 5, U"aa"},         // padding that is not zero
        {"a+AGE+AGI", 8, U"aa\u3E00"}, // a "+" is a letter inside a run
        {"a+2D0-", 1, U"a"},           // high surrogate alone
        {"a+2D0AYQ-", 1, U"a"},        // and before another character
        {"a+2D3YPQ-", 1, U"a"},        // two of them
        {"a+AGHYPQ-", 5, U"aa"},       // a good character before it
        {"a+3AE-", 1, U"a"},           // low surrogate alone
        {"a+2D3cAdg9-", 8, U"a\U0001F401"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(convert(row.in, 100), (result{row.read + 1, row.out})) << row.in;
    }
}

// A character that does not fit is left whole, and so is a pair.
TEST(Utf7, EveryOutputSize) {
    const std::string text = "a+-+ZeVnLIqe-b+AGHYPdwBAGI-c";
    const std::u32string all = U"a+\u65E5\u672C\u8A9Eba\U0001F401bc";
    const std::uint32_t read[] = {0, 1, 3, 7, 10, 13, 14, 18, 23, 27};
    ASSERT_EQ(std::size(read), all.size());
    for (std::size_t size = 0; size <= all.size() + 2; ++size) {
        const bool fits = size >= all.size();
        EXPECT_EQ(convert(text, static_cast<std::int32_t>(size)),
                  (result{fits ? 0 : read[size] + 1, all.substr(0, size)}))
            << size;
    }
    EXPECT_EQ(convert("a", -1), (result{1, U""}));
    EXPECT_EQ(convert("", INT32_MIN), (result{0, U""}));
    std::uint8_t in[] = {'a', 0};
    std::uint32_t out = 7, count = 7;
    EXPECT_EQ(ZAN_UTF_7ToUCS_4(nullptr, in, 1, &count), 1U);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(ZAN_UTF_7ToUCS_4(&out, nullptr, 1, &count), 0U);
    EXPECT_EQ(ZAN_UTF_7ToUCS_4(&out, in, 1, nullptr), 0U);
    EXPECT_EQ(out, 7U);
}

// Every character, as another converter writes it, in runs of all lengths.
TEST(Utf7, EveryCharacter) {
    test::oracle to_utf7("UCS-4LE", "UTF-7");
    if (!to_utf7.available()) {
        GTEST_SKIP() << "no UTF-7 here";
    }
    std::mt19937 random(7);
    std::u32string text;
    for (char32_t c = 1; c <= 0x10FFFF; ++c) {
        c = c == 0xD800 ? 0xE000 : c;
        text += c;
        if (random() % 5 == 0) {
            text += static_cast<char32_t>('!' + random() % 94);
        }
        if (text.size() < 500 && c < 0x10FFFF) {
            continue;
        }
        std::string bytes;
        for (const char32_t each : text) {
            for (unsigned shift = 0; shift < 32; shift += 8) {
                bytes += static_cast<char>(each >> shift & 0xFF);
            }
        }
        const auto utf7 = to_utf7(bytes);
        ASSERT_TRUE(utf7.has_value()) << static_cast<std::uint32_t>(c);
        ASSERT_EQ(convert(*utf7, static_cast<std::int32_t>(text.size())), (result{0, text}));
        text.clear();
    }
}

} // namespace
