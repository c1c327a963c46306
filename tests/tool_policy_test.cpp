// What the tool's conversion promises of its policies, its threads and its reading back, over
// random texts of all charsets.
#include "tests/support/oracle.h"
#include "tools/pvzan/text_stream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

namespace {

using namespace std::string_literals;
using tool::error_policy;

constexpr std::array byte_charsets = {
    "utf-8", "shift_jis", "windows31j", "shift_jis-2004", "euc-jp",      "euc-jis-2004",    "gbk",
    "big5",  "euc-kr",    "gb18030",    "iso-8859-1",     "iso-2022-jp", "iso-2022-jp-2004"};
constexpr std::array targets = {"utf-8", "utf-16le", "windows31j",  "euc-jp",
                                "ascii", "gb18030",  "iso-2022-jp", "iso-2022-jp-2004"};

struct converted {
    std::string output;
    std::uint64_t problems = 0;
    bool failed = false;
};

tool::bytes_view view(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// piece: how much of the text arrives at once.
converted convert(const char* from, const char* to, std::string_view text,
                  const tool::text_options& options, std::size_t piece = 1'000'000) {
    test::use_shipped_charsets();
    converted c;
    tool::text_stream stream(
        tool::resolve_charset(from), tool::resolve_charset(to),
        {[&](tool::bytes_view bytes) { c.output.append(bytes.begin(), bytes.end()); },
         [&](const tool::problem&) { ++c.problems; }},
        options);
    EXPECT_TRUE(stream.open());
    std::size_t used = 0;
    for (std::size_t arrived = piece; arrived < text.size(); arrived += piece) {
        used += stream.feed(view(text.substr(used, arrived - used)));
    }
    stream.finish(view(text.substr(used)));
    c.failed = stream.failed();
    return c;
}

// Records of fields, in which every second byte may be anything.
std::string random_records(std::mt19937& random, std::size_t length) {
    constexpr std::string_view parts = ",,\t\n\n\"\r\n :a0\x82\xA0\xE3\x81\x82\x8F\x1B";
    std::string text;
    while (text.size() < length) {
        text += random() % 2 == 0 ? parts[random() % parts.size()] : static_cast<char>(random());
    }
    return text;
}

std::string only(std::string_view text, std::string_view wanted) {
    std::string found;
    std::ranges::copy_if(text, std::back_inserter(found),
                         [&](char c) { return wanted.find(c) != wanted.npos; });
    return found;
}

// Line breaks and what fields are parted by come through every policy as they were, and the output
// is text of its charset that nothing is wrong with.
TEST(ToolPolicy, KeepsRecordsAndFields) {
    std::mt19937 random(11);
    for (const char* from : byte_charsets) {
        const bool switches = std::string_view(from).starts_with("iso-2022");
        const std::string_view kept = switches ? "\n\r" : ",\t\n\r\": ";
        for (const char* to : targets) {
            for (const error_policy policy :
                 {error_policy::subst, error_policy::ref, error_policy::hex, error_policy::skip}) {
                const std::string text = random_records(random, 400);
                SCOPED_TRACE(from + " to "s + to + ", policy " +
                             std::to_string(static_cast<int>(policy)) + ": " + test::to_hex(text));
                tool::text_options options;
                options.on_error = policy;
                const converted c = convert(from, to, text, options);
                EXPECT_FALSE(c.failed);
                const converted again = convert(to, "utf-8", c.output, {});
                EXPECT_EQ(again.problems, 0U);
                const std::string expected = only(text, kept);
                ASSERT_EQ(only(again.output, kept), expected);
            }
        }
    }
}

// A text of characters that the target has comes back byte for byte, and reading back finds
// nothing; a character that would not come back is found, at once and in the middle of much text.
TEST(ToolPolicy, ReadsBackWhatItWrites) {
    const std::string sound = "かなカナ漢字 ABC\r\n。「」ー\n";
    const struct {
        const char *from, *to;
        std::string odd; // in the source charset; empty: there is none
    } cases[] = {
        {"utf-8", "windows31j", "〜"},
        {"utf-8", "euc-jp", "¥"},
        {"utf-8", "iso-2022-jp", "ｱ"},
        {"utf-8", "gb18030", "\xEE\x9E\x8D"},
        {"utf-8", "utf-16", ""},
        {"utf-8", "iso-2022-jp-2004", ""},
        {"windows31j", "utf-8", "\xED\x40"},
        {"iso-2022-jp", "euc-jp", ""},
        {"euc-jp", "iso-2022-jp", ""},
        {"utf-16le", "shift_jis", "\x1C\x30"s},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.from + " to "s + c.to);
        tool::text_options options;
        options.read_back = true;
        std::string text;
        for (int i = 0; i < 500; ++i) {
            text += sound;
        }
        text = convert("utf-8", c.from, text, {}).output;
        const converted there = convert(c.from, c.to, text, options);
        EXPECT_EQ(there.problems, 0U);
        EXPECT_EQ(convert(c.to, c.from, there.output, {}).output, text);
        if (!c.odd.empty()) {
            EXPECT_EQ(convert(c.from, c.to, c.odd, options).problems, 1U);
            EXPECT_EQ(convert(c.from, c.to, text + c.odd + text, options).problems, 1U);
        }
    }
}

TEST(ToolPolicy, StopsAboveTheMostErrors) {
    tool::text_options options;
    options.on_error = error_policy::skip;
    options.most_errors = 2;
    EXPECT_EQ(convert("utf-8", "ascii", "aéboüc", options).output, "aboc");
    const converted c = convert("utf-8", "ascii", "aéboüç!", options);
    EXPECT_EQ(c.output, "abo");
    EXPECT_TRUE(c.failed);
}

// CR, LF and CR LF become what was asked for, in all charsets and wherever the text is cut, and
// nothing else does, whatever else may part lines. A byte-order mark is written as asked, too.
TEST(ToolPolicy, WritesBreaksAndMarksAsAsked) {
    std::mt19937 random(17);
    constexpr std::array parts = {"\r",     "\n",   "\r\n", "\u0085", "\u2028",
                                  "\u2029", "\v\f", "あ",   "A"};
    std::vector<const char*> all(targets.begin(), targets.end());
    all.insert(all.end(),
               {"utf-16be", "ucs-2le", "ucs-4", "ucs-4le", "euc-jp-fix", "oasys-online"});
    for (const char* to : all) {
        for (const char* asked : {"\n", "\r\n", "\r"}) {
            std::string text, wanted;
            for (int i = 0; i < 300; ++i) {
                const std::string_view part = parts[random() % parts.size()];
                const bool joins = text.ends_with('\r') && part == "\n";
                text += part;
                wanted += part[0] != '\r' && part[0] != '\n' ? part : joins ? "" : asked;
            }
            tool::text_options options;
            options.on_error = error_policy::subst;
            options.mark = tool::mark_rule::add;
            const std::string expected = convert("utf-8", to, wanted, options).output;
            options.breaks = asked[0] == '\n'   ? tool::line_breaks::lf
                             : asked[1] == '\n' ? tool::line_breaks::crlf
                                                : tool::line_breaks::cr;
            for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, text.size()}) {
                ASSERT_EQ(test::to_hex(convert("utf-8", to, text, options, piece).output),
                          test::to_hex(expected))
                    << to << ", pieces of " << piece;
            }
        }
    }
    tool::text_options options;
    options.mark = tool::mark_rule::keep;
    EXPECT_EQ(convert("utf-8", "utf-16be", "\xEF\xBB\xBF\na", options).output, "\xFE\xFF\0\n\0a"s);
    EXPECT_EQ(convert("utf-8", "utf-16be", "\n", options).output, "\0\n"s);
}

} // namespace
