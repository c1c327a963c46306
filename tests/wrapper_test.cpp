// pvzan.hpp: strict and the same however a text is cut.
#include "tests/support/child.h"
#include "tests/support/oracle.h"
#include "tests/support/temp_dir.h"

#undef PVZAN_DEFAULT_CHARSET_DIR // as in a program that does not know the build
#include "pvzan.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <random>
#include <sstream>
#include <unistd.h>

namespace {

using namespace std::string_literals;

// Each in a process of its own: the directory is settled once.
TEST(Wrapper, SettlesTheCharsetDirectoryAndNeverTakesTheCurrentOne) {
    const test::temp_dir current;
    ASSERT_EQ(::symlink(PVZAN_BASE2_DIR, current.file("base2").c_str()), 0);
    test::in_child([&] {
        ASSERT_EQ(::chdir(current.path().c_str()), 0);
        ::unsetenv("PVZAN_CHARSET_DIR");
        EXPECT_EQ(pvzan::convert("x", "ascii", "utf-8").why, pvzan::status::no_charset_directory);
        EXPECT_FALSE(pvzan::detect("x"));
    });
    test::in_child([] {
        ::setenv("PVZAN_CHARSET_DIR", PVZAN_BASE2_DIR, 1);
        EXPECT_EQ(pvzan::convert("x", "ascii", "utf-8").text, "x");
        EXPECT_EQ(pvzan::charset_directory(), PVZAN_BASE2_DIR);
        EXPECT_FALSE(pvzan::use_charsets("/another"));
        EXPECT_TRUE(pvzan::use_charsets(PVZAN_BASE2_DIR));
    });
    test::in_child([] {
        EXPECT_EQ(ZAN_setCharsetPath(PVZAN_BASE2_DIR), 1U); // the program's own choice stands
        EXPECT_FALSE(pvzan::use_charsets("/"));
        EXPECT_EQ(pvzan::charset_directory(), PVZAN_BASE2_DIR);
    });
    test::in_child([] {
        ::setenv("PVZAN_CHARSET_DIR", PVZAN_BASE2_DIR, 1);
        EXPECT_FALSE(pvzan::use_charsets("/no/such/directory"));
        EXPECT_FALSE(pvzan::converter("ascii", "utf-8"));
    });
}

struct outcome {
    std::string text, faults; // why@position:length, and what was lost
    std::uint64_t position, characters, codes;
    bool operator==(const outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const outcome& o) {
    return out << test::to_hex(o.text) << " | " << o.faults << "| " << o.position << ' '
               << o.characters << ' ' << o.codes;
}

// Drops what is at fault. Pieces of the size given, or a whole.
outcome run(const char* from, const char* to, std::string_view text, std::size_t size,
            std::minstd_rand* cuts = nullptr) {
    outcome o{};
    pvzan::options how;
    how.on_fault = [&o](const pvzan::fault& f) {
        o.faults += std::to_string(static_cast<std::uint32_t>(f.why)) + '@' +
                    std::to_string(f.position) + ':' + std::to_string(f.bytes.size()) + ' ';
        return std::string();
    };
    const auto keep = [&o](const pvzan::summary& s) {
        o.position = s.position, o.characters = s.characters, o.codes = s.codes;
    };
    pvzan::converter converter(from, to, how);
    EXPECT_TRUE(converter) << from << ' ' << to;
    if (size == 0) {
        pvzan::result r = converter.convert(text);
        o.text = r.text;
        keep(r);
        return o;
    }
    pvzan::stream stream(converter, [&o](std::string_view piece) { o.text += piece; });
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = cuts != nullptr ? (*cuts)() % size : size;
        stream.feed(text.substr(at, length));
        at += length;
    }
    keep(stream.finish());
    return o;
}

struct row {
    const char *from, *to;
    std::string text, expected, faults;
};

TEST(Wrapper, IsStrictAndKnowsPlaces) {
    test::use_shipped_charsets();
    const std::vector<row> rows = {
        {"sjis", "UTF-8", "A\x82\xA0\x82", "Aあ", "12@3:1 "},
        {"utf-8", "sjis", "あ\xC0\x80い\xED\xA0\x80", "\x82\xA0\x82\xA2",
         "13@3:1 13@4:1 13@8:1 13@9:1 13@10:1 "},
        {"utf-8", "utf-16le", "A\xE3\x81\xF0\x9F\x98\x80", "A\0\x3D\xD8\0\xDE"s, "13@1:2 "},
        {"utf-16", "utf-8", "\xFF\xFE\x42\x30\x00\xD8"s, "あ", "12@4:2 "},
        {"utf-16be", "utf-8", "\xDC\x00\x30\x42"s, "あ", "13@0:2 "},
        {"utf-8", "utf-16",
         "\xEF\xBB\xBF"
         "A",
         "\xFE\xFF\0A"s, ""},
        // Control codes that would switch sets, pairs that the target lacks.
        {"utf-8", "iso-2022-jp", "A\x1B(Bあ\x0E", "\x1B(BA(B\x1B$B$\"\x1B(B", "23@1:1 23@7:1 "},
        {"euc-jp", "iso-2022-jp", "\x1B\xA4\xA2", "\x1B$B$\"\x1B(B", "23@0:1 "},
        {"sjis", "UTF-8", "A\xFF", "A", "13@1:1 "},
        {"utf-8", "euc-jp", "A\x7F", "A", "23@1:1 "},
        {"utf-8", "sjis", "か\u309Aき", "\x82\xA9\x82\xAB", "23@3:3 "},
        {"sjis-2004", "euc-jp", "\x82\xF5\x82\xA9", "\xA4\xAB", "23@0:2 "},
        {"sjis-2004", "utf-8", "\x82\xF5", "か\u309A", ""},
        {"utf-8", "sjis-2004", "か\u309A\u02E9\u02E5\u02E9", "\x82\xF5\x86\x85\x86\x84", ""},
        // Codes without a character, in a set that the target shares.
        {"euc-jp", "sjis", "\xA9\xA1\xA4\xA2", "\x82\xA0", "13@0:2 "},
        {"euc-jp-fix", "utf-8", "\x80\xA1\0A"s, "A", "13@0:2 "},
        {"iso-2022-jp", "utf-8", "\x1B$B!\x1B(BA", "A", "13@3:1 "},
        {"iso-2022-jp", "utf-8", "\x1B(Zab", "(Zab", "13@0:1 "},
        {"iso-2022-jp-2004", "utf-8", "\x1B$(P!!!\"\x1B(BA", "\U00020089\u4E02A", ""},
        {"utf-8", "iso-2022-jp-2004", "A\U00020089あA", "\x1B(BA\x1B$(P!!\x1B$(Q$\"\x1B(BA", ""},
    };
    for (const row& r : rows) {
        const outcome whole = run(r.from, r.to, r.text, 0);
        EXPECT_EQ(test::to_hex(whole.text), test::to_hex(r.expected)) << r.from << ' ' << r.to;
        EXPECT_EQ(whole.faults, r.faults) << r.from << ' ' << r.to << ' ' << test::to_hex(r.text);
        for (const std::size_t size : {1U, 2U, 3U, 5U}) {
            EXPECT_EQ(run(r.from, r.to, r.text, size), whole)
                << r.from << ' ' << r.to << ' ' << size;
        }
    }
}

// Random text of every charset, damaged here and there, long enough for several windows.
TEST(Wrapper, DoesNotHangOnWhereTheTextIsCut) {
    test::use_shipped_charsets();
    constexpr const char* all[] = {
        "sjis",   "windows31j", "ucs-2",       "ucs-4",     "utf-16le",     "utf-8",
        "euc-jp", "euc-jp-fix", "iso-2022-jp", "sjis-2004", "euc-jis-2004", "iso-2022-jp-2004",
        "gbk",    "big5",       "uhc",         "gb18030",   "ascii",        "latin1"};
    constexpr const char* targets[] = {
        "utf-8", "sjis", "iso-2022-jp", "euc-jis-2004", "iso-2022-jp-2004", "utf-16"};
    constexpr const char* letters[] = {"A",       "あ",
                                       "か",      "\u309A",
                                       "\u02E9",  "\u02E5",
                                       "æ\u0300", "漢字かな交じり文",
                                       "\n",      "\x0E",
                                       "\x1B(B",  "\U00020089",
                                       "丂",      "plain ASCII for a while, and more of it. "};
    std::minstd_rand random(20);
    for (const char* from : all) {
        std::string letters_only;
        for (int i = 0; i < 3000; ++i) {
            letters_only += letters[random() % std::size(letters)];
        }
        std::string text = run("utf-8", from, letters_only, 0).text;
        for (std::size_t at = 0; at < text.size(); at += random() % 4000) {
            text[at] = static_cast<char>(random());
        }
        for (const char* to : targets) {
            const outcome whole = run(from, to, text, 0);
            EXPECT_EQ(whole.position, text.size());
            EXPECT_TRUE(run(from, to, text, 300, &random) == whole) << from << ' ' << to;
            EXPECT_TRUE(run(from, to, text, 30000, &random) == whole) << from << ' ' << to;
            // What was written is read back without a fault.
            EXPECT_EQ(run(to, "utf-8", whole.text, 0).faults, "") << from << ' ' << to;
        }
    }
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
    EXPECT_EQ(replaced.characters, 3U);

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
    std::ostringstream file;
    {
        pvzan::output_filter filter(file.rdbuf(), "utf-8", "iso-2022-jp");
        std::ostream out(&filter);
        for (std::size_t at = 0; at < text.size(); at += 777) {
            out << text.substr(at, 777) << std::flush;
        }
        out << "。";
        EXPECT_TRUE(out);
    }
    const std::string written = file.str();
    EXPECT_EQ(written.substr(written.size() - 3), "\x1B(B");
    std::istringstream source(written);
    pvzan::input_filter filter(source.rdbuf(), "iso-2022-jp", "utf-8");
    std::istream in(&filter);
    const std::string read((std::istreambuf_iterator<char>(in)), {});
    EXPECT_TRUE(filter.so_far());
    EXPECT_EQ(read, text + "。");

    std::ostringstream refused;
    pvzan::output_filter strict(refused.rdbuf(), "utf-8", "sjis");
    std::ostream out(&strict);
    out << "☃" << std::flush;
    EXPECT_FALSE(out);
    EXPECT_FALSE(strict.finish());
}

TEST(Wrapper, NamesWhatItDetects) {
    test::use_shipped_charsets();
    for (const char* name : {"sjis", "euc-jp", "iso-2022-jp", "utf-8", "utf-16"}) {
        std::string text;
        for (int i = 0; i < 20; ++i) {
            text += "これは日本語の文章です。\r\n";
        }
        const std::string bytes = pvzan::convert(text, "utf-8", name).value();
        const auto found = pvzan::detect(bytes);
        ASSERT_TRUE(found) << name;
        EXPECT_EQ(found->line_break, PVZAN_NEWLINE_CRLF) << name;
        EXPECT_EQ(pvzan::convert(bytes, found->charset_name(), "utf-8").text, text) << name;
    }
    EXPECT_FALSE(pvzan::detect(""));
}

} // namespace
