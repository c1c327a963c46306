// The conversions that need no session: HZ to GB 2312, UTF-7 to UCS-4.
#include "tests/support/convert.h"
#include "tests/support/digest.h"

namespace {

using namespace std::string_literals;

// What a conversion says and writes; where it leaves the count alone, that is ~0. For HZ all of the
// output, which is as long as the input, for UTF-7 what was counted.
template <class Text>
struct result {
    std::uint32_t value, count;
    Text out;
    bool operator==(const result&) const = default;
};

// Lets a conversion write so many elements; input and output end where memory ends.
template <class Text, class Element>
result<Text> run(std::uint32_t (*convert)(Element*, const std::uint8_t*, std::int32_t,
                                          std::uint32_t*),
                 const std::string& text, std::int32_t size, std::size_t room) {
    const test::guarded_buffer in(text.size() + 1), out(room * sizeof(Element));
    std::ranges::copy(text, in.data());
    in.data()[text.size()] = 0;
    std::fill_n(out.data(), out.size(), std::uint8_t{'?'});
    auto* const elements = reinterpret_cast<Element*>(out.data());
    result<Text> r{0, ~0U, {}};
    r.value = convert(elements, in.data(), size, &r.count);
    r.out.assign(elements, elements + room);
    return r;
}

using hz_result = result<std::string>;

hz_result from_hz(const std::string& text, std::int32_t size) {
    return run<std::string>(ZAN_HZtoGB2312, text, size, text.size());
}

using utf7_result = result<std::u32string>;

utf7_result from_utf7(const std::string& text, std::int32_t size) {
    const auto room = static_cast<std::size_t>(std::max(size, 0));
    utf7_result r = run<std::u32string>(ZAN_UTF_7ToUCS_4, text, size, room);
    EXPECT_TRUE(r.count == ~0U || r.count <= room);
    r.out.resize(r.count == ~0U ? 0 : r.count);
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
}

// Counts are given modulo 65536; room is counted in full.
TEST(Hz, KnownAndLongTexts) {
    EXPECT_EQ(from_hz("a~}~~{<>~}", 1000), (hz_result{0, 5, "a?}~\xBC\xBE????"}));
    EXPECT_EQ(from_hz("~{<>~}", 3), (hz_result{2, ~0U, "\xBC\xBE????"}));
    EXPECT_EQ(from_hz("abc", -5), (hz_result{0, 3, "abc"}));
    EXPECT_EQ(from_hz("ab~", INT32_MIN), (hz_result{2, ~0U, "ab?"}));
    const std::string letters(70000, 'a');
    EXPECT_TRUE(from_hz(letters, 1) == (hz_result{0, 70000 % 65536, letters}));
    EXPECT_TRUE(from_hz(letters + "~{", 70001) == (hz_result{70000 % 65536, ~0U, letters + "??"}));
    EXPECT_TRUE(from_hz(letters + "~{", 70002) == (hz_result{0, 70000 % 65536, letters + "??"}));
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
    EXPECT_EQ(from_utf7("a+2D0AYQ-", 100),
              expected(2, U"a")); // a high surrogate before another character
}

// Every character, as another converter writes it, in runs of all lengths.
TEST(Utf7, EveryCharacter) {
    test::oracle to_utf7("UCS-4BE", "UTF-7");
    if (!to_utf7.available()) {
        GTEST_SKIP() << "no UTF-7 here";
    }
    std::mt19937 random(7);
    std::u32string text;
    std::string bytes;
    for (char32_t c = 1; c <= 0x10FFFF; ++c) {
        c = c == 0xD800 ? 0xE000 : c;
        text += c;
        if (random() % 5 == 0) {
            text += static_cast<char32_t>('!' + random() % 94);
        }
        if (text.size() < 500 && c < 0x10FFFF) {
            continue;
        }
        bytes.clear();
        for (const char32_t each : text) {
            bytes += test::ucs4({each});
        }
        const auto utf7 = to_utf7(bytes);
        ASSERT_TRUE(utf7.has_value()) << static_cast<std::uint32_t>(c);
        ASSERT_EQ(from_utf7(*utf7, static_cast<std::int32_t>(text.size())), expected(0, text));
        text.clear();
    }
}

TEST(StandAlone, NullPointers) {
    std::uint8_t byte = 'a';
    std::uint32_t out = 7, count = 7;
    EXPECT_EQ(ZAN_HZtoGB2312(nullptr, &byte, 1, &count), 0U);
    EXPECT_EQ(ZAN_HZtoGB2312(&byte, nullptr, 1, &count), 0U);
    EXPECT_EQ(ZAN_HZtoGB2312(&byte, &byte, 1, nullptr), 0U);
    EXPECT_EQ(count, 7U);
    std::uint8_t in[] = {'a', 0};
    EXPECT_EQ(ZAN_UTF_7ToUCS_4(nullptr, in, 1, &count), 1U);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(ZAN_UTF_7ToUCS_4(&out, nullptr, 1, &count), 0U);
    EXPECT_EQ(ZAN_UTF_7ToUCS_4(&out, in, 1, nullptr), 0U);
    EXPECT_EQ(out, 7U);
}

} // namespace
