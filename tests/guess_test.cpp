// Detection of short and long texts: phrases kept here, and the manual pages of Debian packages
// that scripts/derive-guess-tables did not learn from.
#include "tests/support/oracle.h"
#include "tools/pvzan/guess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fmt/core.h>
#include <map>
#include <random>

namespace {

struct charset_row {
    const char *name, *oracle, *shown;
};
constexpr charset_row charsets[] = {
    {"windows-31j", "CP932", "Windows-31J"},       {"euc-jp", "EUC-JP", "EUC-JP"},
    {"iso-2022-jp", "ISO-2022-JP", "ISO-2022-JP"}, {"utf-8", "UTF-8", "UTF-8"},
    {"utf-16le", "UTF-16LE", "UTF-16LE"},          {"utf-16be", "UTF-16BE", "UTF-16BE"}};
const std::vector<std::string> japanese = [] {
    std::vector<std::string> names;
    for (const charset_row& row : charsets) {
        names.emplace_back(row.name);
    }
    return names;
}();

tool::charset_guess guess(std::string_view text, const std::vector<std::string>& candidates) {
    test::use_shipped_charsets();
    return tool::guess_charset({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()},
                               true, candidates);
}

TEST(Guess, TellsShortPhrases) {
    for (const char* phrase :
         {"日本",       "表示",   "はい", "ありがとう", "テスト",     "見積書",      "東京都",
          "今日の天気", "ソ連",   "能力", "予定表",     "申込",       "エラー",      "ファイル名",
          "いろは",     "第１章", "あ、", "山田太郎様", "カタカナ語", "終わり。\r\n"}) {
        for (const charset_row& row : charsets) {
            test::oracle encode("UTF-8", row.oracle);
            const auto told = guess(encode(phrase).value_or("refused"), japanese);
            EXPECT_TRUE(told.known && std::string_view(told.charset.shown) == row.shown)
                << phrase << ", " << row.name << ": " << told.charset.shown;
        }
    }
}

TEST(Guess, TellsWhatDecides) {
    using namespace std::string_view_literals;
    struct row {
        std::string_view bytes;
        const char *charset, *breaks;
        bool sure, mark, binary;
        const char* reason;
    };
    const row rows[] = {
        {"\x93\xFA\x96\x7B\x87\x40\r\n", "Windows-31J", "CRLF", true, false, false,
         "needs 87 40 ①, not in Shift_JIS"},
        {"\xB1\xB2\xB3\xB4\n", "", "LF", false, false, false, "half-width katakana only"},
        {"f\xFCr den Fall", "ISO-8859-1", "-", false, false, false, ""},
        {"plain\nASCII", "UTF-8", "LF", true, false, false, ""},
        {"\x1B[31m\1\x7F\x7F\n", "UTF-8", "LF", true, false, false, ""},
        {"\xFF\xFE\x42\x30\x0A\0"sv, "UTF-16LE", "LF", true, true, false, ""},
        {"\xEF\xBB\xBF"
         "a\r",
         "UTF-8", "-", true, true, false, ""},
        {"\0\1\2\3\xFF\xFE\0\0"sv, "", "", false, false, true, ""},
        {"", "UTF-8", "-", true, false, false, ""},
    };
    for (const row& r : rows) {
        const auto told = guess(r.bytes, {});
        SCOPED_TRACE(fmt::format("{} {}", told.charset.shown, told.reason));
        EXPECT_EQ(told.sure, r.sure);
        EXPECT_EQ(told.mark, r.mark);
        EXPECT_EQ(told.binary, r.binary);
        EXPECT_EQ(told.known, !r.binary);
        EXPECT_NE(told.reason.find(r.reason), std::string::npos);
        if (told.known && *r.charset != '\0') {
            EXPECT_STREQ(told.charset.shown, r.charset);
        }
        if (told.known) {
            EXPECT_STREQ(told.breaks, r.breaks);
        }
    }
}

// ---- Real text ---------------------------------------------------------------------------------

// Every second manual page by name, of which the tables know nothing; as lines.
std::vector<std::string> unseen_lines(const std::string& language) {
    const std::string command =
        "ls /usr/share/man/" + language +
        "/man[1-8]/*.gz 2>/dev/null | LC_ALL=C sort | awk 'NR % 2 == 0' | head -120 | "
        R"(xargs -r zcat 2>/dev/null | LC_ALL=C sed '/^[.]/d; s/\\f.\|\\(..\|\\[-&]//g')";
    std::vector<std::string> lines;
    FILE* pipe = ::popen(command.c_str(), "r");
    std::array<char, 8192> buffer;
    while (pipe != nullptr && std::fgets(buffer.data(), buffer.size(), pipe) != nullptr) {
        std::string line = buffer.data();
        line.resize(line.size() - line.ends_with('\n'));
        if (!line.empty() && line.size() < 2000) {
            lines.push_back(line);
        }
    }
    if (pipe != nullptr) {
        ::pclose(pipe);
    }
    return lines;
}

// True when there is text to test with. Where everything was installed it must be there.
bool is_enough(std::size_t found, std::size_t wanted) {
    EXPECT_TRUE(found >= wanted || std::getenv("PVZAN_TEST_ALL") == nullptr)
        << "manual pages are missing";
    return found >= wanted;
}

// Of every length of the short ones, and of all charsets: 99 of 100.
TEST(Guess, TellsUnseenJapaneseOfAnyLength) {
    std::vector<std::string> lines = unseen_lines("ja");
    if (!is_enough(lines.size(), 1000)) {
        GTEST_SKIP() << "needs the package manpages-ja";
    }
    test::oracle to_wide("UTF-8", "UTF-32LE");
    for (std::string& line : lines) {
        line = to_wide(line).value_or("");
    }
    constexpr std::size_t shortest = 2, longest_short = 16, longest = 200;
    std::mt19937 random(1);
    std::map<std::string, std::pair<int, int>> counts; // right, tried
    for (const charset_row& row : charsets) {
        test::oracle encode("UTF-32LE", row.oracle);
        for (int round = 0; round < 4000; ++round) {
            const std::string& line = lines[random() % lines.size()];
            const bool is_short = random() % 8 != 0;
            const std::size_t length =
                is_short ? shortest + random() % (longest_short - shortest + 1)
                         : longest_short + 1 + random() % (longest - longest_short);
            const std::size_t characters = line.size() / 4;
            const std::size_t most = std::min(length, is_short ? length : characters);
            if (characters < most || most < shortest) {
                continue;
            }
            const std::string text = line.substr(random() % (characters - most + 1) * 4, most * 4);
            int beyond_latin = 0; // two characters at least are Japanese
            for (std::size_t i = 0; i < text.size(); i += 4) {
                beyond_latin += static_cast<std::uint8_t>(text[i + 1]) >= 0x30 ? 1 : 0;
            }
            const auto bytes = encode(text);
            if (beyond_latin < 2 || !bytes) {
                continue;
            }
            const auto told = guess(*bytes, japanese);
            const bool right = told.known && std::string_view(told.charset.shown) == row.shown;
            const std::string size = is_short ? fmt::format("{:2}", length) : "longer";
            for (const std::string& kind : {std::string(row.name), size}) {
                counts[kind].first += right ? 1 : 0;
                ++counts[kind].second;
            }
            counts["not sure and wrong"].first += right || !told.sure ? 1 : 0;
            ++counts["not sure and wrong"].second;
        }
    }
    for (const auto& [kind, count] : counts) {
        fmt::print("{}: {} of {}\n", kind, count.first, count.second);
        EXPECT_GE(count.first * 100, count.second * 99) << kind;
        EXPECT_GE(count.second, 500) << kind;
    }
}

// Single lines; longer texts leave less room.
TEST(Guess, CallsNoWesternTextJapanese) {
    test::oracle encode("UTF-8", "ISO-8859-1");
    std::size_t tried = 0, wrong = 0;
    for (const char* language : {"de", "fr", "es"}) {
        std::size_t number = 0;
        for (const std::string& line : unseen_lines(language)) {
            const std::string bytes = encode(line).value_or("");
            if (bytes.size() < 2 || bytes.size() == line.size() || ++number % 4 != 0) {
                continue;
            }
            const auto told = guess(bytes, {});
            ++tried;
            wrong +=
                told.known && told.sure && !tool::is_charset(told.charset, {"iso-8859-1", "utf-8"})
                    ? 1U
                    : 0U;
        }
    }
    if (!is_enough(tried, 2000)) {
        GTEST_SKIP() << "needs manual pages in German, French or Spanish";
    }
    fmt::print("{} of {} Western lines taken for Japanese\n", wrong, tried);
    EXPECT_LE(wrong * 500, tried);
}

} // namespace
