// pvzan.hpp, but for what clients_test.py sees: faults and cuts.
#include "tests/support/child.h"
#include "tests/support/oracle.h"

#include "pvzan.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

namespace {

using namespace std::string_literals;

// In a process of its own: the directory is settled once.
TEST(Wrapper, SettlesTheCharsetDirectory) {
    test::in_child([] {
        ::setenv("PVZAN_CHARSET_DIR", "/", 1);
        EXPECT_EQ(ZAN_setCharsetPath(PVZAN_BASE2_DIR), 1U); // the program's own choice stands
        EXPECT_EQ(pvzan::convert("x", "ascii", "utf-8").text, "x");
        EXPECT_EQ(pvzan::charset_directory(), PVZAN_BASE2_DIR);
        EXPECT_FALSE(pvzan::use_charsets("/"));
        EXPECT_TRUE(pvzan::use_charsets(PVZAN_BASE2_DIR));
    });
}

TEST(Wrapper, StopsReplacesAndThrowsAsAsked) {
    test::use_shipped_charsets();
    const pvzan::result stopped = pvzan::convert("あ☃い", "utf-8", "iso-2022-jp");
    EXPECT_EQ(stopped.why, pvzan::status::unrepresentable);
    EXPECT_EQ(stopped.position, 3U);
    EXPECT_EQ(stopped.text, "\x1B$B$\"\x1B(B"); // closed
    EXPECT_THROW(static_cast<void>(stopped.value()), pvzan::error);
    EXPECT_EQ(pvzan::convert("x", "utf-8", "no-such").why, pvzan::status::unknown_charset);
    EXPECT_EQ(pvzan::convert("x", "utf-8\0"s, "sjis").why, pvzan::status::unknown_charset);

    pvzan::options how;
    how.on_fault = pvzan::replace_with("[〓☃]");
    how.newlines = pvzan::newline::crlf;
    const pvzan::result replaced = pvzan::convert("あ☃\n\xFFい", "utf-8", "iso-2022-jp", how);
    EXPECT_EQ(pvzan::convert(replaced.text, "iso-2022-jp", "utf-8").value(), "あ[〓?]\r\n[〓?]い");
    EXPECT_EQ(replaced.faults, 2U);
    EXPECT_EQ(replaced.characters, 4U);

    how = {};
    how.substitutes = {u'_', u'〓'};
    EXPECT_EQ(pvzan::convert("☃", "utf-8", "euc-jp", how).value(), "\xA2\xAE");
}

TEST(Wrapper, FiltersStreams) {
    test::use_shipped_charsets();
    std::string text;
    for (int i = 0; i < 5000; ++i) {
        text += "文字コード" + std::to_string(i) + "\n";
    }
    text += "。"; // whose set is to be closed
    std::ostringstream file, refused;
    {
        pvzan::output_filter filter(file.rdbuf(), "utf-8", "iso-2022-jp");
        std::ostream out(&filter);
        for (std::size_t at = 0; at < text.size(); at += 777) {
            out << text.substr(at, 777) << std::flush;
        }
        EXPECT_TRUE(out);
    }
    std::istringstream source(file.str());
    pvzan::input_filter filter(source.rdbuf(), "iso-2022-jp", "utf-8");
    std::istream in(&filter);
    EXPECT_EQ(std::string((std::istreambuf_iterator<char>(in)), {}), text);
    EXPECT_TRUE(filter.so_far());

    pvzan::output_filter strict(refused.rdbuf(), "utf-8", "sjis");
    std::ostream out(&strict);
    out << "☃" << std::flush;
    EXPECT_FALSE(out);
    EXPECT_FALSE(strict.finish());
}

TEST(Wrapper, NamesWhatItDetects) {
    test::use_shipped_charsets();
    std::string japanese = "<?xml version='1.0'?> encoding ",
                russian = "<?xml version='1.0' encoding='koi8-r'?>";
    for (int i = 0; i < 20; ++i) {
        japanese += "これは日本語の文章です。\r\n";
        russian += "\u2028Это русский текст, который надо узнать.\n";
    }
    const struct {
        const char* charset;
        const std::string& text;
        std::uint32_t line_break;
    } rows[] = {
        {"cp932", japanese, PVZAN_NEWLINE_CRLF},
        {"euc-jp", japanese, PVZAN_NEWLINE_CRLF},
        {"iso-2022-jp", japanese, PVZAN_NEWLINE_CRLF},
        {"utf-8", japanese, PVZAN_NEWLINE_CRLF},
        {"utf-16", japanese, PVZAN_NEWLINE_CRLF},
        {"utf-16le", japanese, PVZAN_NEWLINE_CRLF},
        {"utf-8-sig", russian, 4},
        {"koi8-r", russian, PVZAN_NEWLINE_LF},
    };
    for (const auto& [charset, text, line_break] : rows) {
        pvzan::options how;
        how.on_fault = pvzan::replace_with("");
        const std::string bytes = pvzan::convert(text, "utf-8", charset, how).text;
        const auto found = pvzan::detect(bytes);
        ASSERT_TRUE(found) << charset;
        EXPECT_EQ(found->line_break, line_break) << charset;
        EXPECT_EQ(found->declared, text == russian) << charset;
        EXPECT_EQ(found->big_endian, charset != std::string("utf-16le"));
        EXPECT_EQ(found->mark, bytes[0] == '\xFE' || bytes[0] == '\xEF') << charset;
        EXPECT_EQ(pvzan::convert(bytes, found->charset_name(), "utf-8").text,
                  pvzan::convert(bytes, charset, "utf-8").text)
            << charset << ' ' << found->name;
    }
    EXPECT_FALSE(pvzan::detect(""));
    EXPECT_FALSE(pvzan::detect("\x7F\x45LF\2\1\1\0\0\0\0"s));
}

} // namespace
