// HZ to GB 2312.
#include "tests/support/convert.h"
#include "tests/support/oracle.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <optional>

namespace {

using namespace std::string_literals;

constexpr char untouched = '?';

struct result {
    std::uint32_t value;
    std::optional<std::uint32_t> count; // nothing: left alone
    std::string out;                    // as long as the input
    bool operator==(const result&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const result& r) {
    return stream << r.value << ", count " << (r.count ? std::to_string(*r.count) : "none") << ": "
                  << test::to_hex(r.out);
}

// Input and output end where memory ends.
result convert(const std::string& text, std::int32_t size) {
    const test::guarded_buffer in(text.size() + 1), out(text.size());
    std::ranges::copy(text, in.data());
    in.data()[text.size()] = 0;
    std::fill_n(out.data(), out.size(), static_cast<std::uint8_t>(untouched));
    constexpr std::uint32_t left_alone = 0xAAAAAAAA;
    std::uint32_t count = left_alone;
    result r = {ZAN_HZtoGB2312(out.data(), in.data(), size, &count), {}, {}};
    if (count != left_alone) {
        r.count = count;
    }
    r.out.assign(reinterpret_cast<const char*>(out.data()), out.size());
    return r;
}

// The rules once more, with positions for pointers and text for states.
result reference(const std::string& text, std::int32_t size) {
    result r = {0, 0, std::string(text.size(), untouched)};
    std::int64_t n = 0;
    std::size_t to = 0;
    bool gb = false;
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] != '~') {
            r.out[to++] = gb ? static_cast<char>(text[at] | 0x80) : text[at];
            ++n, ++at;
            continue;
        }
        if (!(n + 1 < size)) {
            return {static_cast<std::uint32_t>(n % 65536), {}, r.out};
        }
        const std::string escape = text.substr(at, 2);
        if (escape == (gb ? "~}" : "~{")) {
            gb = !gb;
            at += 2;
        } else if (gb) {
            r.out[to++] = '\xFE';
            ++n, ++at;
        } else if (escape == "~~") {
            r.out[to++] = '~';
            ++n, ++at;
        } else {
            ++to;
            at += escape == "~\n" ? 2U : 1U;
        }
    }
    r.count = static_cast<std::uint32_t>(n % 65536);
    return r;
}

TEST(Hz, KnownTexts) {
    const struct {
        std::string in, out;
        std::uint32_t count;
    } rows[] = {
        {"", "", 0},
        {"~{<>~}", "\xBC\xBE????", 2},
        {"a~}b", "a?}b", 3},  // unknown: a byte is left out
        {"a~\nb", "a?b?", 2}, // the line goes on
        {"~~", "~?", 1},      // the second one opens an escape that the end cuts
        {"~~{<>~}", "~\xBC\xBE????", 3},
        {"~{~a\n", "\xFE\xE1\x8A??", 3}, // in GB 2312 everything else has its high bit set
        {"~", "?", 0},
        {"\xE9~{\xE9", "\xE9\xE9??", 2},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(convert(row.in, 1000), (result{0, row.count, row.out})) << row.in;
    }
    // Room counts only at a "~".
    EXPECT_EQ(convert("abc", 0), (result{0, 3, "abc"}));
    EXPECT_EQ(convert("abc", -5), (result{0, 3, "abc"}));
    EXPECT_EQ(convert("~{<>~}", 1), (result{0, {}, "??????"}));
    EXPECT_EQ(convert("~{<>~}", -1), (result{0, {}, "??????"}));
    EXPECT_EQ(convert("~{<>~}", 3), (result{2, {}, "\xBC\xBE????"}));
    EXPECT_EQ(convert("ab~", INT32_MIN), (result{2, {}, "ab?"}));
}

// Every text of up to six of the bytes that matter, with every size around its length.
TEST(Hz, EveryShortText) {
    const std::string bytes = "~{}\nA\xB0";
    for (std::size_t length = 1; length <= 6; ++length) {
        std::string text(length, bytes[0]);
        for (std::size_t digits = 0; !::testing::Test::HasFailure(); ++digits) {
            std::size_t rest = digits;
            for (char& byte : text) {
                byte = bytes[rest % bytes.size()];
                rest /= bytes.size();
            }
            if (rest != 0) {
                break;
            }
            const auto size = static_cast<std::int32_t>(digits % (length + 3));
            ASSERT_EQ(convert(text, size), reference(text, size))
                << test::to_hex(text) << ", " << size;
            ASSERT_EQ(convert(text, 100), reference(text, 100)) << test::to_hex(text);
        }
    }
}

// Counts are given modulo 65536; room is counted in full.
TEST(Hz, LongTexts) {
    EXPECT_EQ(convert(std::string(70000, 'a'), 1).count, 70000U - 65536U);
    EXPECT_EQ(convert(std::string(65536, 'a'), 1).count, 0U);
    const std::string stops = std::string(70000, 'a') + "~{";
    EXPECT_EQ(convert(stops, 70001).value, 70000U - 65536U);
    EXPECT_EQ(convert(stops, 70001).count, std::nullopt);
    EXPECT_EQ(convert(stops, 70002).count, 70000U - 65536U);
    EXPECT_EQ(convert(std::string(65536, 'a') + "~", 9).value, 0U);
}

TEST(Hz, NullPointers) {
    std::uint8_t byte = 0;
    std::uint32_t count = 7;
    EXPECT_EQ(ZAN_HZtoGB2312(nullptr, &byte, 1, &count), 0U);
    EXPECT_EQ(ZAN_HZtoGB2312(&byte, nullptr, 1, &count), 0U);
    EXPECT_EQ(ZAN_HZtoGB2312(&byte, &byte, 1, nullptr), 0U);
    EXPECT_EQ(count, 7U);
}

} // namespace
