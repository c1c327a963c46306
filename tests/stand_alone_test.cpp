// The conversions that need no session: HZ to GB 2312, UTF-7 to UCS-4. What fits less room is
// compared by fuzz/text.cpp.
#include "tests/support/convert.h"
#include "tests/support/digest.h"

namespace {

using namespace std::string_literals;

constexpr std::uint32_t not_set = ~0U;

// What a conversion says, counts and writes. For HZ all of the output, which is as long as the
// input, for UTF-7 what was counted. Input and output end where memory ends.
template <class Text>
struct result {
    std::uint32_t value = 0, count = not_set;
    Text out = {};
    bool operator==(const result&) const = default;
};
using hz_result = result<std::string>;
using utf7_result = result<std::u32string>;

hz_result from_hz(const std::string& text, std::int32_t size) {
    const test::guarded_buffer in(text.size() + 1), out(text.size());
    std::memcpy(in.data(), text.c_str(), in.size());
    std::fill_n(out.data(), out.size(), std::uint8_t{'?'});
    hz_result r;
    r.value = ZAN_HZtoGB2312(out.data(), in.data(), size, &r.count);
    r.out = test::text_of({out.data(), out.size()});
    return r;
}

utf7_result from_utf7(const std::string& text, std::int32_t size) {
    const auto room = static_cast<std::size_t>(std::max(size, 0));
    const test::guarded_buffer in(text.size() + 1), out(room * sizeof(std::uint32_t));
    std::memcpy(in.data(), text.c_str(), in.size());
    auto* const units = reinterpret_cast<std::uint32_t*>(out.data());
    utf7_result r;
    r.value = ZAN_UTF_7ToUCS_4(units, in.data(), size, &r.count);
    EXPECT_TRUE(r.count == not_set || r.count <= room);
    r.out.assign(units, units + (r.count == not_set ? 0 : r.count));
    return r;
}

// Every text of so many of the pieces that matter.
template <std::size_t Count, class Ask>
void for_each_text(const std::string (&pieces)[Count], std::size_t longest, Ask ask) {
    for (std::size_t length = 0, texts = 1; length <= longest; ++length, texts *= Count) {
        for (std::size_t number = 0; number < texts; ++number) {
            std::string text;
            std::size_t rest = number;
            for (std::size_t i = 0; i < length; ++i, rest /= Count) {
                text += pieces[rest % Count];
            }
            ask(text, number);
        }
    }
}

// Recorded when it was found to be what a second reading of the rules gives.
TEST(Hz, EveryShortText) {
    const std::string bytes[] = {"~", "{", "}", "\n", "A", "\xB0"};
    test::digest answers("HZ");
    for_each_text(bytes, 5, [&](const std::string& text, std::size_t number) {
        for (const std::size_t size : {number % (text.size() + 3), std::size_t{100}}) {
            const hz_result r = from_hz(text, static_cast<std::int32_t>(size));
            answers.add({r.value, r.count});
            answers.add(r.out);
        }
    });
    EXPECT_EQ(from_hz("a~}~~{<>~}", 1000), (hz_result{0, 5, "a?}~\xBC\xBE????"}));
    EXPECT_EQ(from_hz("abc", -5), (hz_result{0, 3, "abc"}));
    EXPECT_EQ(from_hz("ab~", INT32_MIN), (hz_result{2, not_set, "ab?"}));
    // Counts are given modulo 65536; room is counted in full.
    const std::string letters(70000, 'a');
    EXPECT_TRUE(from_hz(letters, 1) == (hz_result{0, 70000 % 65536, letters}));
    EXPECT_TRUE(from_hz(letters + "~{", 70001) ==
                (hz_result{70000 % 65536, not_set, letters + "??"}));
}

utf7_result expected(std::uint32_t value, const std::u32string& text) {
    return {value, static_cast<std::uint32_t>(text.size()), text};
}

// In rooms around its length, and known texts: recorded when spelled-out cases had been found
// right. A character that does not fit is left whole, and so is a pair.
TEST(Utf7, EveryShortText) {
    const std::string pieces[] = {"a", "+", "-", "AGE", "A", "2D3c", "Adg9", "~", "\xE3", "/w"};
    test::digest answers("UTF-7");
    const auto ask = [&](const std::string& text, std::size_t = 0) {
        for (const std::int32_t size : {INT32_MIN, -1, 0, 1, 2, 3, 5, 100}) {
            const utf7_result r = from_utf7(text, size);
            answers.add({r.value, r.count});
            for (const char32_t c : r.out) {
                answers.add({c});
            }
        }
    };
    for_each_text(pieces, 3, ask);
    for (int byte = 1; byte < 0x100; ++byte) {
        const std::string c(1, static_cast<char>(byte));
        ask(c);
        ask("+A" + c + "E-" + c);
    }
    EXPECT_EQ(from_utf7("Hi Mom -+Jjo--+2//f/w-", 100), expected(0, U"Hi Mom -\u263A-\U0010FFFF"));
    EXPECT_EQ(from_utf7("a+2D0AYQ-", 100), expected(2, U"a")); // half a pair before another letter
}

// Every character, as another converter writes it, in runs of all lengths.
TEST(Utf7, EveryCharacter) {
    test::oracle to_utf7("UTF-8", "UTF-7");
    if (!to_utf7.available()) {
        GTEST_SKIP() << "no UTF-7 here";
    }
    std::mt19937 random(7);
    std::u32string text;
    for (char32_t c = 1; c <= 0x10FFFF; c += c == 0xD7FF ? 0x801 : 1) {
        text += c;
        if (random() % 5 == 0) {
            text += static_cast<char32_t>('!' + random() % 94);
        }
        if (text.size() >= 500 || c == 0x10FFFF) {
            const std::string utf7 = to_utf7(test::utf8(text)).value();
            ASSERT_EQ(from_utf7(utf7, static_cast<std::int32_t>(text.size())), expected(0, text));
            text.clear();
        }
    }
}

TEST(StandAlone, NullPointers) {
    std::uint8_t in[] = {'a', 0};
    std::uint32_t out = 7, count = 7;
    EXPECT_EQ(ZAN_HZtoGB2312(nullptr, in, 1, &count), 0U);
    EXPECT_EQ(ZAN_HZtoGB2312(in, nullptr, 1, &count), 0U);
    EXPECT_EQ(ZAN_HZtoGB2312(in, in, 1, nullptr), 0U);
    EXPECT_EQ(count, 7U);
    EXPECT_EQ(ZAN_UTF_7ToUCS_4(nullptr, in, 1, &count), 1U);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(ZAN_UTF_7ToUCS_4(&out, nullptr, 1, &count), 0U);
    EXPECT_EQ(ZAN_UTF_7ToUCS_4(&out, in, 1, nullptr), 0U);
    EXPECT_EQ(out, 7U);
}

} // namespace
