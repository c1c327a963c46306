// Detection of short and long texts: phrases kept here, and the manual pages of Debian packages
// that scripts/derive-guess-tables did not learn from.
#include "tests/support/oracle.h"
#include "tools/pvzan/guess.h"

#include "pvzan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fmt/core.h>
#include <memory>
#include <random>
#include <regex>

namespace {

constexpr std::array charsets = {"windows-31j", "euc-jp",   "iso-2022-jp",
                                 "utf-8",       "utf-16le", "utf-16be"};
const std::vector<std::string> japanese(charsets.begin(), charsets.end());

tool::bytes_view view(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// Empty when the charset lacks a character.
std::string encode(std::string_view utf8, const std::string& name) {
    test::use_shipped_charsets();
    const tool::charset_name charset = tool::resolve_charset(name);
    const auto session = std::make_unique<pvzan_session>();
    pvzan_target_options target{};
    target.dstBigEndian = charset.big_endian ? 1 : 0;
    pvzan_source_options source{};
    source.srcBigEndian = 1;
    EXPECT_EQ(cconvInitConvert(session.get(), &target, charset.library.c_str()), PVZAN_DONE);
    EXPECT_EQ(cconvChgCharset(session.get(), &source, "utf-8"), PVZAN_DONE);
    std::vector<std::uint8_t> out(utf8.size() * 4 + 16);
    session->inBuf = view(utf8).data();
    session->inLen = static_cast<std::int32_t>(utf8.size());
    session->outBuf = out.data();
    session->outLen = static_cast<std::int32_t>(out.size());
    if (cconvConvert(session.get()) != PVZAN_DONE ||
        cconvTermConvert(session.get()) != PVZAN_DONE) {
        return {};
    }
    return {out.begin(), out.begin() + session->outPos};
}

bool is_right(const tool::charset_guess& guess, const std::string& name) {
    const tool::charset_name wanted = tool::resolve_charset(name);
    return guess.known && guess.charset.library == wanted.library &&
           guess.charset.big_endian == wanted.big_endian;
}

TEST(Guess, TellsShortPhrases) {
    for (const char* phrase :
         {"日本",       "表示",   "はい", "ありがとう", "テスト",     "見積書",      "東京都",
          "今日の天気", "ソ連",   "能力", "予定表",     "申込",       "エラー",      "ファイル名",
          "いろは",     "第１章", "あ、", "山田太郎様", "カタカナ語", "終わり。\r\n"}) {
        for (const char* charset : charsets) {
            const std::string bytes = encode(phrase, charset);
            const auto guess = tool::guess_charset(view(bytes), true, japanese);
            EXPECT_TRUE(is_right(guess, charset))
                << phrase << ", " << charset << ": " << guess.charset.shown;
        }
    }
}

TEST(Guess, TellsWhatDecides) {
    using namespace std::string_view_literals;
    test::use_shipped_charsets();
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
        {"\xFF\xFE\x42\x30\x0A\0"sv, "UTF-16LE", "LF", true, true, false, ""},
        {"\xEF\xBB\xBF"
         "a\r",
         "UTF-8", "-", true, true, false, ""},
        {"\0\1\2\3\xFF\xFE\0\0"sv, "", "", false, false, true, ""},
        {"", "UTF-8", "-", true, false, false, ""},
    };
    for (const row& r : rows) {
        const auto guess = tool::guess_charset(view(r.bytes), true, {});
        SCOPED_TRACE(fmt::format("{} {}", guess.charset.shown, guess.reason));
        EXPECT_EQ(guess.sure, r.sure);
        EXPECT_EQ(guess.mark, r.mark);
        EXPECT_EQ(guess.binary, r.binary);
        EXPECT_EQ(guess.known, !r.binary);
        EXPECT_NE(guess.reason.find(r.reason), std::string::npos);
        if (guess.known && *r.charset != '\0') {
            EXPECT_EQ(guess.charset.shown, r.charset);
        }
        if (guess.known) {
            EXPECT_STREQ(guess.breaks, r.breaks);
        }
    }
}

// ---- Real text ---------------------------------------------------------------------------------

// Every second manual page by name, of which the tables know nothing; as lines.
std::vector<std::string> unseen_lines(const std::string& language) {
    const std::string command =
        "ls /usr/share/man/" + language +
        "/man[1-8]/*.gz 2>/dev/null | LC_ALL=C sort | awk 'NR % 2 == 0' | head -120 | "
        "xargs -r zcat 2>/dev/null | grep -v '^[.]'";
    std::vector<std::string> lines;
    FILE* pipe = ::popen(command.c_str(), "r");
    std::array<char, 8192> buffer;
    while (pipe != nullptr && std::fgets(buffer.data(), buffer.size(), pipe) != nullptr) {
        std::string line = std::regex_replace(std::string(buffer.data()),
                                              std::regex(R"(\\f.|\\\(..|\\-|\\&|\n)"), "");
        if (!line.empty() && line.size() < 2000) {
            lines.push_back(line);
        }
    }
    if (pipe != nullptr) {
        ::pclose(pipe);
    }
    return lines;
}

std::vector<std::size_t> starts_of_characters(const std::string& line) {
    std::vector<std::size_t> starts;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if ((line[i] & 0xC0) != 0x80) {
            starts.push_back(i);
        }
    }
    starts.push_back(line.size());
    return starts;
}

TEST(Guess, TellsUnseenJapaneseOfAnyLength) {
    const std::vector<std::string> lines = unseen_lines("ja");
    if (lines.size() < 1000) {
        GTEST_SKIP() << "needs the package manpages-ja";
    }
    constexpr double wanted = 0.99;
    std::mt19937 random(1);
    std::string report;
    std::size_t all = 0, all_right = 0, sure_and_wrong = 0;
    for (const char* charset : charsets) {
        std::size_t tried = 0, right = 0;
        for (int round = 0; round < 6000; ++round) {
            const std::string& line = lines[random() % lines.size()];
            const std::vector<std::size_t> starts = starts_of_characters(line);
            const std::size_t length = 2 + random() % 15;
            if (starts.size() <= length) {
                continue;
            }
            const std::size_t first = random() % (starts.size() - length);
            const std::string text =
                line.substr(starts[first], starts[first + length] - starts[first]);
            // At least two characters are Japanese.
            if (std::ranges::count_if(text, [](char c) { return (c & 0xC0) == 0x80; }) < 4) {
                continue;
            }
            const std::string bytes = encode(text, charset);
            if (bytes.empty()) {
                continue;
            }
            const auto guess = tool::guess_charset(view(bytes), true, japanese);
            const bool good = is_right(guess, charset);
            ++tried;
            right += good ? 1U : 0U;
            sure_and_wrong += !good && guess.sure ? 1U : 0U;
        }
        report += fmt::format("{}: {} of {}\n", charset, right, tried);
        EXPECT_GE(static_cast<double>(right), wanted * static_cast<double>(tried)) << charset;
        all += tried;
        all_right += right;
    }
    fmt::print("{}all: {} of {}, {} sure and wrong\n", report, all_right, all, sure_and_wrong);
}

TEST(Guess, CallsNoWesternTextJapanese) {
    std::mt19937 random(2);
    std::size_t tried = 0, wrong = 0;
    for (const char* language : {"de", "fr", "es"}) {
        for (const std::string& line : unseen_lines(language)) {
            const std::string bytes = encode(line, "iso-8859-1");
            if (bytes.size() < 2 || bytes.size() == line.size() || random() % 8 != 0) {
                continue;
            }
            const auto guess = tool::guess_charset(view(bytes), true, {});
            ++tried;
            wrong += guess.known && guess.sure && guess.charset.is_japanese() ? 1U : 0U;
        }
    }
    if (tried < 200) {
        GTEST_SKIP() << "needs manual pages in German, French or Spanish";
    }
    fmt::print("{} of {} Western lines taken for Japanese\n", wrong, tried);
    EXPECT_LE(wrong * 500, tried); // single lines; longer texts leave less room
}

} // namespace
