// Detection of real text, marks, XML declarations and line breaks.
#include "tests/detect_support.h"
#include "tests/support/oracle.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

using namespace std::string_literals;
using test::ask;

const std::string prose =
    "漢字の符号化について、この文章は検出を試すために書かれた。\n"
    "日本語の文書には、ひらがな、カタカナ、漢字のほかに、ASCII の英数字や記号が混じる。\n"
    "たとえば version 1.0 や https://example.jp/ のような文字列である。\n"
    "改行の数え方も確かめる。\n";

std::string convert(const std::string& text, const char* to) {
    test::oracle converter("UTF-8", to);
    const auto converted = converter(text);
    EXPECT_TRUE(converted.has_value()) << to;
    return converted.value_or("");
}

// Fixed EUC-JP from EUC-JP: single bytes get a zero byte, half-width katakana lose their shift.
std::string fixed(const std::string& euc) {
    std::string out;
    for (std::size_t i = 0; i < euc.size(); ++i) {
        const auto byte = static_cast<unsigned char>(euc[i]);
        const bool single = byte < 0x80 || byte == 0x8E;
        out += single ? '\0' : euc[i];
        out += euc[byte < 0x80 ? i : ++i];
    }
    return out;
}

reference::answer named(const char* name, u32 newline = 0, u32 big_endian = 1) {
    const bool aware = cconvIsEndianAware(name) != 0;
    return {1, name, 0, 0, big_endian, newline, aware ? 4098U : 1U};
}

TEST(DetectText, EveryEncoding) {
    struct row {
        const char* encoding;
        const char* name;
        u32 big_endian;
    };
    const row rows[] = {
        {"CP932", "WINDOWS31J", 1},        {"EUC-JP", "EUC-JP", 1},
        {"ISO-2022-JP", "ISO-2022-JP", 1}, {"UTF-8", "UTF-8", 1},
        {"UTF-16BE", "UTF-16", 1},         {"UTF-16LE", "UTF-16", 0},
        {"UCS-4BE", "ISO-10646-UCS-4", 1}, {"UCS-4LE", "ISO-10646-UCS-4", 0},
    };
    std::string long_prose;
    for (int i = 0; i < 20; ++i) { // the first 2048 bytes end inside a character in some
        long_prose += prose;
    }
    for (const row& r : rows) {
        for (const std::string& text :
             {prose, long_prose, prose.substr(0, prose.find('\n') + 1) + "abc"}) {
            EXPECT_EQ(ask(convert(text, r.encoding)), named(r.name, PVZAN_NEWLINE_LF, r.big_endian))
                << r.encoding << ", " << text.size();
        }
    }
    for (const std::string& text : {prose, long_prose}) {
        EXPECT_EQ(ask(fixed(convert(text, "EUC-JP"))), named("EUC-JP-FIX", PVZAN_NEWLINE_LF));
    }
    EXPECT_EQ(ask("Plain text,\nwith 3 lines,\n~\\{}@.\n"), named("ISO-646IRV", PVZAN_NEWLINE_LF));
}

// What a text of few bytes is taken for, and why.
TEST(DetectText, CloseCalls) {
    struct row {
        std::string text;
        const char* name;
    };
    const row rows[] = {
        {"", "unknown"},
        {"\0"s, "unknown"},
        {"\x1B", "unknown"},
        {" ", "ISO-646IRV"},
        {"\x80", "unknown"},
        // Two bytes behind any E9 make a UTF-8 sequence, and the pair is Shift_JIS: UTF-8 wins a
        // tie.
        {"caf\xE9 au lait", "UTF-8"},
        {"\xE9"s + "ab", "UTF-8"},
        // Katakana bytes alone are high bytes of Shift_JIS, not double-byte characters.
        {"\xB1\xB2\xB3", "ISO-8859-1"},
        {"\x8E\xB1\x8E\xB2", "WINDOWS31J"},
        // EUC-JP whose bytes may be half-width katakana as well.
        {"\xB4\xC1\xBB\xFA", "ISO-8859-1"},
        {"\xB4\xC1\xBB\xFA"s + "A", "WINDOWS31J"},
        // UTF-16 needs a letter of ASCII, and must be better than all others.
        {"\x30\x42\x30\x44", "ISO-646IRV"},
        {"\0A"s, "UTF-16"},
        {"\0A\x30\x42"s, "UTF-16"},
        {"A\0\x42\x30"s, "UTF-16"},
        {"\0\0\0A"s, "ISO-10646-UCS-4"},
        {"A\0\0\0"s, "ISO-10646-UCS-4"},
        // No other pass survives an escape.
        {"\x1B$B$\"\x1B(B", "ISO-2022-JP"},
        {"\x1B$(D\x22\x2F", "ISO-2022-JP"},
        {"\x1B(I\x31\x32", "unknown"}, // katakana there has the high bit set
        {"\x1B(I\xB1\xB2", "ISO-2022-JP"},
        {"\x1B$Babc", "ISO-2022-JP"},
        {"a\x1B$A!!", "unknown"},
    };
    for (const row& r : rows) {
        EXPECT_EQ(ask(r.text).name, r.name) << test::to_hex(r.text);
    }
    EXPECT_EQ(ask("\0A\0\x7F"s).name, "unknown"); // half of the units fit: too few
    // Only the first 2048 bytes are tested.
    const std::string letters(2047, 'a');
    EXPECT_EQ(ask(letters + "\x82\xA0").name, "ISO-646IRV"); // the lead, alone, is a small fault
    EXPECT_EQ(ask(letters.substr(1) + "\x82\xA0").name, "WINDOWS31J");
    EXPECT_EQ(ask("\x82\xA0" + letters.substr(1) + "\xFF\xFF\xFF").name, "WINDOWS31J");
}

// Names of texts cut after 0, 1, 2... bytes.
TEST(DetectText, EveryPrefix) {
    struct row {
        const char* encoding;
        const char* text;
        std::vector<const char*> names;
    };
    const char *const none = "unknown", *const u8s = "UTF-8", *const euc = "EUC-JP",
                      *const sjis = "WINDOWS31J", *const jis = "ISO-2022-JP",
                      *const u16s = "UTF-16";
    const row rows[] = {
        {"EUC-JP", "日本語A", {none, none, u8s, euc, u8s, euc, euc, euc}},
        {"CP932", "日本語A", {none, none, sjis, sjis, sjis, sjis, sjis, sjis}},
        {"UTF-8", "日本語A", {none, none, sjis, u8s, sjis, sjis, u8s, sjis, sjis, u8s, u8s}},
        {"ISO-2022-JP", "日本A", {none, none, none, none, none, jis, jis, jis, jis, jis, jis, jis}},
        {"UTF-16BE", "A日本", {none, none, u16s, u16s, u16s, u16s, u16s}},
        // With no letter so far, every second byte of it passes for something else.
        {"UTF-16LE", "日本AB", {none, none, sjis, u8s, u8s, u8s, sjis, u16s, u16s}},
    };
    for (const row& r : rows) {
        const std::string text = convert(r.text, r.encoding);
        ASSERT_EQ(r.names.size(), text.size() + 1) << r.encoding;
        for (std::size_t length = 0; length <= text.size(); ++length) {
            EXPECT_EQ(ask(text.substr(0, length)).name, r.names[length])
                << r.encoding << ", " << length << " bytes";
        }
    }
}

// ---- Marks --------------------------------------------------------------------------------------

TEST(DetectMark, NamesTheEncoding) {
    struct row {
        std::string mark;
        const char* name;
        u32 big_endian;
        std::string line; // in that encoding
    };
    const row rows[] = {
        {"\0\0\xFE\xFF"s, "ISO-10646-UCS-4", 1, test::widen("a\r\n", 4, true)},
        {"\xFF\xFE\0\0"s, "ISO-10646-UCS-4", 0, test::widen("a\r\n", 4, false)},
        {"\xEF\xBB\xBF", "UTF-8", 1, "a\r\n"},
        {"\xFE\xFF", "UTF-16", 1, test::widen("a\r\n", 2, true)},
        {"\xFF\xFE", "UTF-16", 0, test::widen("a\r\n", 2, false)},
    };
    for (const row& r : rows) {
        reference::answer expected = named(r.name, 0, r.big_endian);
        expected.marked = 1;
        EXPECT_EQ(ask(r.mark), expected);
        EXPECT_EQ(ask(r.mark + "\x1B\x82"), expected) << "what follows does not matter";
        expected.newline = PVZAN_NEWLINE_CRLF;
        EXPECT_EQ(ask(r.mark + r.line), expected);
        EXPECT_EQ(ask("\r\n\r" + r.mark + r.line, 3), expected) << "nor what stands before";
        for (std::size_t length = 0; length < r.mark.size(); ++length) {
            const std::string start = r.mark.substr(0, length);
            EXPECT_EQ(ask(start).marked, start.starts_with("\xFF\xFE") ? 1U : 0U)
                << test::to_hex(start);
        }
    }
    for (const char* none : {"\xEF\xBB\xBE", "\xEF\xBB", "\xFE\xFE", "\xFF\xFF", "a\xFE\xFF"}) {
        EXPECT_EQ(ask(none).marked, 0U) << test::to_hex(none);
    }
    // FF FE 00 00 is a mark of UCS-4 only when the text has all four bytes.
    EXPECT_EQ(ask("\xFF\xFE\0"s).name, "UTF-16");
    EXPECT_EQ(ask("\xFF\xFE\0A"s).name, "UTF-16");
}

TEST(DetectMark, EndianAwareNames) {
    for (const char* name : {"UTF-16", "ISO-10646-UCS-2", "ISO-10646-UCS-4"}) {
        EXPECT_EQ(cconvIsEndianAware(name), 1U) << name;
    }
    for (const char* name :
         {"", "utf-16", "UTF-16 ", "UTF-1", "UTF-8", "ISO-10646-UCS-22", "unknown"}) {
        EXPECT_EQ(cconvIsEndianAware(name), 0U) << name;
    }
    EXPECT_EQ(cconvIsEndianAware(nullptr), 0U);
}

// ---- XML declarations ---------------------------------------------------------------------------

const char* usual_name(std::size_t width) {
    return width == 2 ? "UTF-16" : width == 4 ? "ISO-10646-UCS-4" : "UTF-8";
}

const std::string& mark_of(std::size_t width, bool big_endian) {
    static const std::string marks[] = {"\xEF\xBB\xBF", "\xFE\xFF", "\xFF\xFE", "\0\0\xFE\xFF"s,
                                        "\xFF\xFE\0\0"s};
    return marks[width == 1 ? 0 : (width == 2 ? 1 : 3) + (big_endian ? 0 : 1)];
}

// The name that a declaration gives, in every unit, in both byte orders, with a mark and without,
// and at any place of a buffer.
void expect_declared(const std::string& ascii, const char* name) {
    for (const std::size_t width : {1U, 2U, 4U}) {
        for (const bool big_endian : {true, false}) {
            for (const bool marked : {false, true}) {
                const std::string text = (marked ? mark_of(width, big_endian) : "") +
                                         test::widen(ascii, width, big_endian);
                for (const std::size_t pos : {0U, 4U, 8U}) {
                    const reference::answer a = ask(std::string(pos, 'x') + text, pos);
                    EXPECT_EQ(a.name, name != nullptr ? name : usual_name(width)) << ascii;
                    EXPECT_EQ(a.declared, 1U) << ascii;
                    EXPECT_EQ(a.marked, marked ? 1U : 0U) << ascii;
                    EXPECT_EQ(a.big_endian, big_endian || width == 1 ? 1U : 0U) << ascii;
                    EXPECT_EQ(a.result, 1U) << ascii;
                }
            }
        }
    }
}

TEST(DetectDeclaration, NamesTheEncoding) {
    expect_declared("<?xml version=\"1.0\" encoding=\"Shift_JIS\"?>\n<a/>", "Shift_JIS");
    expect_declared("<?XML VERSION='1.0' ENCODING = 'x-any name'?>", "x-any name");
    expect_declared("<?xml encoding=\"mixed'?>", "mixed");
    expect_declared("<?xml encoding=\n'next line'?>", "next line");
    expect_declared("<?xml encoding version='1.0'", "1.0"); // whatever is quoted first
    // Without a name it is the usual one for the unit.
    expect_declared("<?xml version='1.0'?>\n<a encoding='b'/>", nullptr);
    expect_declared("<?xml version='1.0'?>\r<a encoding='b'/>", nullptr);
    expect_declared("<?xml Encoding='a'?>", nullptr);
    expect_declared("<?xml encoding=''?>", nullptr);
    expect_declared("<?xml encoding='open", nullptr);
    expect_declared("<?xml encoding=none?>", nullptr);
    expect_declared("<?xml encoding", nullptr);
    expect_declared("<?xml?>", nullptr);
    // A line that ends before the text begins is another one.
    EXPECT_EQ(ask("a\r\n<?xml encoding='EUC-JP'?>", 3).name, "EUC-JP");
    EXPECT_EQ(ask("encoding='b' <?xml encoding='EUC-JP'?>", 13).name, "EUC-JP");
    EXPECT_EQ(ask("encoding='b' <?xml?>", 13).name, "UTF-8");
}

TEST(DetectDeclaration, FillsTheRecord) {
    const reference::answer utf16 = ask(test::widen("<?xml encoding='UTF-16'?>\r\n", 2, false));
    EXPECT_EQ(utf16, (reference::answer{1, "UTF-16", 1, 0, 0, PVZAN_NEWLINE_CRLF, 4098}));
    EXPECT_EQ(ask("<?xml encoding='ISO-10646-UCS-2'?>").flags, 4098U);
    EXPECT_EQ(ask("<?xml encoding='utf-16'?>\n.").flags, 1U);
    // Line breaks are looked for in the units of the name, whatever the declaration's own are.
    EXPECT_EQ(ask("<?xml encoding='utf-16'?>\n.").newline, PVZAN_NEWLINE_LF + 0U);
    EXPECT_EQ(ask("<?xml encoding='UTF-16'?>\n.").newline, 0U);
    // A declaration with no name overrules a mark; one whose name is broken does not.
    EXPECT_EQ(ask("\xFE\xFF<?xml version='1.0'?>").name, "UTF-8");
    EXPECT_EQ(ask("\xFE\xFF<?xml encoding=''?>").name, "UTF-16");
    // A name that begins with a NUL is none.
    EXPECT_EQ(ask("<?xml encoding='\0a'?>"s), (reference::answer{0, "unknown", 1, 0, 1, 0, 0}));
}

TEST(DetectDeclaration, LengthOfTheName) {
    for (const std::size_t width : {1U, 2U, 4U}) {
        const std::size_t most = 4094 / width; // a name of 4095 bytes, closing NUL and all
        for (const std::size_t length : {most, most + 1, std::size_t{5000}}) {
            const std::string name(length, 'n');
            const std::string text = test::widen("<?xml encoding='" + name + "'?>", width, false);
            EXPECT_EQ(ask(text).name, length <= most ? name : usual_name(width)) << length;
        }
    }
}

// How much must stand there: the pattern and a byte behind it; behind a mark, the pattern alone,
// for it is the end's index that counts.
TEST(DetectDeclaration, LengthOfTheText) {
    const std::string xml = "<?xml", utf8 = "\xEF\xBB\xBF", big = "\xFE\xFF", little = "\xFF\xFE";
    struct row {
        std::string text;
        std::size_t least; // 0: never
    };
    const row rows[] = {
        {xml + "     ", 6},
        {" " + xml + "     ", 0},
        {utf8 + xml + "   ", 8},
        {utf8 + "xx" + xml + "  ", 10},
        {"xx" + xml + "    ", 0},
        {test::widen(xml, 2, false) + "  ", 10},
        {test::widen(xml, 2, true) + "  ", 11},
        {little + test::widen(xml, 2, false) + "  ", 11},
        {little + "xx" + test::widen(xml, 2, false) + "  ", 13},
        {big + test::widen(xml, 2, true) + "  ", 12},
        {big + "xx" + test::widen(xml, 2, true) + "  ", 14},
        {test::widen(xml, 4, false), 18},
        {test::widen(xml, 4, true) + "  ", 21},
        {mark_of(4, false) + test::widen(xml, 4, false), 21},
        {mark_of(4, false) + "xx" + test::widen(xml, 4, false), 23},
        {mark_of(4, true) + test::widen(xml, 4, true), 24},
        {mark_of(4, true) + "xx" + test::widen(xml, 4, true), 26},
    };
    for (const row& r : rows) {
        for (std::size_t length = 0; length <= r.text.size(); ++length) {
            const std::string start = r.text.substr(0, length);
            EXPECT_EQ(ask(start).declared, r.least != 0 && length >= r.least ? 1U : 0U)
                << test::to_hex(start);
        }
    }
    EXPECT_EQ(ask("<?xml").declared, 0U);
    EXPECT_EQ(ask("x<?xml", 1).declared, 1U); // the end's index counts, not the length
}

// ---- Line breaks --------------------------------------------------------------------------------

TEST(DetectNewline, Kinds) {
    enum : u32 { none, crlf, cr, lf, line, paragraph };
    const char *const ls = "\u2028", *const ps = "\u2029";
    struct row {
        std::string text;
        u32 kind;
    };
    const row rows[] = {
        {"a", none},
        {"a\r\nb\r\nc", crlf},
        {"a\rb\rc", cr},
        {"a\nb\nc", lf},
        {"a\n\rb", crlf}, // the other way round is the same pair
        {"a\r\n", crlf},
        {"a\r", none}, // a break in the last unit has nothing behind it to tell its kind
        {"a\n", none},
        {"a\n\n", lf},
        {"a\n\nb\r\nc", none + crlf}, // two LFs count once, and do not outnumber the pair
        {"a\n\n\nb\r\nc", lf},
        {"a\r\r\nb", none}, // a CR eats the next unit, which leaves one CR and one LF
        {"a\rb\nc", none},
        {"a\rb\nc\r\nd", crlf},
        {"a\rb\rc\nd", cr},
        {"a\r\nb\nc\n.", lf},
        {"a\r\nb\r\nc\nd\ne", crlf},
        {"a"s + ls + "b", line},
        {"a"s + ps + "b", paragraph},
        {"a"s + ls, line},
        {"a"s + ls + ps, none},
        {"a"s + ls + ps + "\r\n", crlf},
        {"a"s + ls + "\nb", none},
        {"a"s + ls + ls + "\nb", line},
        {"a"s + ps + ps + ls + "\r\n", paragraph},
    };
    struct form {
        const char* encoding;
        std::string mark;
    };
    const form forms[] = {{"UTF-8", "\xEF\xBB\xBF"},          {"UTF-16BE", "\xFE\xFF"},
                          {"UTF-16LE", "\xFF\xFE"},           {"UCS-4BE", "\0\0\xFE\xFF"s},
                          {"UCS-4LE", "\xFF\xFE\0\0"s},       {"UTF-8", "<?xml?>"},
                          {"UTF-8", "<?xml encoding='any'?>"}};
    for (const form& f : forms) {
        for (const row& r : rows) {
            const std::string text = f.mark + convert(r.text, f.encoding);
            EXPECT_EQ(ask(text).newline, r.kind) << f.encoding << ": " << test::to_hex(text);
        }
    }
    const std::string fixed_name = "<?xml encoding='EUC-JP-FIX'?> "; // an even number of bytes
    EXPECT_EQ(ask(fixed_name + "\0\r\0\n\0A"s).newline, crlf + 0U);
    EXPECT_EQ(ask(fixed_name + "\r\0\n\0A\0"s).newline, none + 0U); // always big-endian
    // An E2 80 that the end cuts; another third byte.
    EXPECT_EQ(ask("\xEF\xBB\xBF\xE2\x80").newline, none + 0U);
    EXPECT_EQ(ask("\xEF\xBB\xBF\xE2\x80\xAA").newline, none + 0U);
}

// In ISO-2022-JP single breaks win over any number of pairs, and separators do not exist.
TEST(DetectNewline, InIso2022Jp) {
    const std::pair<const char*, u32> rows[] = {
        {"\r\n\r\n\r\n", PVZAN_NEWLINE_CRLF}, {"\r\n\r\n\nb", PVZAN_NEWLINE_LF},
        {"\r\n\r\n\rb", PVZAN_NEWLINE_CR},    {"\rb\nb", 0},
        {"\rb\nb\r\n", PVZAN_NEWLINE_CRLF},   {"\rb\nb\nb", PVZAN_NEWLINE_LF},
        {"\rb\rb\nb", PVZAN_NEWLINE_CR},      {"b", 0},
        {"\u2028\nb", PVZAN_NEWLINE_LF},      {"\u2028", 0},
    };
    for (const auto& [breaks, kind] : rows) {
        EXPECT_EQ(ask("<?xml encoding='ISO-2022-JP'?>"s + breaks).newline, kind) << breaks;
        const std::string text = "\x1B$B$\"$$$&$($*$+$-$/$1$3\x1B(B"s + breaks;
        EXPECT_EQ(ask(text + "."), named("ISO-2022-JP", kind)) << test::to_hex(breaks);
    }
}

TEST(DetectNewline, OfTheFirst2048Bytes) {
    const std::string letters(2046, 'a');
    for (const char* start : {"", "\xEF\xBB\xBF", "<?xml?>"}) {
        const std::string text = (start + letters).substr(0, 2046);
        EXPECT_EQ(ask(text + "\r\n").newline, PVZAN_NEWLINE_CRLF + 0U);
        EXPECT_EQ(ask(text + "a\r\n").newline, 0U);
        EXPECT_EQ(ask(text + "aa\r\n").newline, 0U);
        EXPECT_EQ(ask("xx" + text + "\r\n", 2).newline, PVZAN_NEWLINE_CRLF + 0U);
    }
    EXPECT_EQ(ask("\xEF\xBB\xBF" + letters.substr(3) + "\xE2\x80\xA8").newline, 0U);
    EXPECT_EQ(ask("\xEF\xBB\xBF" + letters.substr(4) + "\xE2\x80\xA8").newline, 4U);
}

} // namespace
