// Detection against the reference over random texts, and against known answers.
#include "cconv/detect.h"
#include "tests/detect_reference.h"
#include "tests/support/convert.h"

#include <bit>
#include <map>

namespace {

using namespace std::string_literals;

// Makes texts of which every part is likely to matter to some pass.
class text_maker {
public:
    u32 below(u32 n) { return static_cast<u32>(random_() % n); }

    template <class List>
    const auto& one_of(const List& list) {
        return list[below(static_cast<u32>(std::size(list)))];
    }

    // At least length bytes of one flavour, a part of them spoilt.
    std::string text(std::size_t length) {
        const u32 flavour = below(10), faults = below(3) != 0 ? 0 : 1 + below(40);
        big_endian_ = below(2) == 0;
        std::string made;
        while (made.size() < length) {
            made += below(100) < faults ? byte(one_of(edges)) : unit(flavour);
        }
        return made;
    }

    // Mostly an XML declaration, in units of any width, often damaged.
    std::string declaration() {
        static const std::string marks[] = {
            "",         "",         "\xEF\xBB\xBF",  "\xFE\xFF",
            "\xFF\xFE", "\xEF\xBB", "\0\0\xFE\xFF"s, "\xFF\xFE\0\0"s};
        static const char* const opening[] = {"<?xml", "<?XML", "<?xml", "<?xml", "<?xMl", "<?xm"};
        static const char* const versions[] = {"", " version='1.0' ", " ", " version=\"1.0\"\n",
                                               "\r"};
        static const char* const keywords[] = {"encoding", "ENCODING", "encoding", "enc"};
        static const char* const values[] = {
            "=\"Shift_JIS\"",       "='UTF-16'", "=\"x'", "=''", "=\"open", " = 'ISO-2022-JP'",
            "=\"ISO-10646-UCS-2\"", ""};
        static const char* const rests[] = {"?>\n<a/>\r\n", "?>", "", "'", "\r\r\n\n\n'"};
        std::string ascii = one_of(opening);
        for (const char* part :
             {one_of(versions), one_of(keywords), one_of(values), one_of(rests)}) {
            ascii += part;
        }
        static constexpr std::size_t widths[] = {1, 2, 4};
        std::string made = one_of(marks) + std::string(below(4) == 0 ? below(4) : 0, 'x') +
                           test::widen(ascii, one_of(widths), below(2) == 0);
        if (below(4) == 0) {
            made.resize(below(static_cast<u32>(made.size()) + 1));
        }
        for (u32 n = below(8) == 0 ? 1 + below(3) : 0; n > 0 && !made.empty(); --n) {
            made[below(static_cast<u32>(made.size()))] = byte(one_of(edges))[0];
        }
        return made;
    }

private:
    // Bytes at which some pass changes its mind, and neighbours.
    static constexpr u8 edges[] = {0x00, 0x01, 0x08, 0x09, 0x0A, 0x0B, 0x0D, 0x10, 0x11, 0x1B, 0x1F,
                                   0x20, 0x21, '$',  '(',  '@',  'A',  'B',  'D',  'I',  'J',  0x4E,
                                   0x4F, 0x7E, 0x7F, 0x80, 0x81, 0x85, 0x8E, 0x8F, 0x9F, 0xA0, 0xA1,
                                   0xA8, 0xA9, 0xBF, 0xC0, 0xC1, 0xDF, 0xE0, 0xE2, 0xEF, 0xF0, 0xF7,
                                   0xF8, 0xF9, 0xFA, 0xFB, 0xFC, 0xFD, 0xFE, 0xFF};

    static std::string byte(u32 value) { return {static_cast<char>(value)}; }
    static std::string pair(u32 value) { return byte(value >> 8) + byte(value & 0xFF); }
    std::string ordered(std::string unit) const {
        if (!big_endian_) {
            std::ranges::reverse(unit);
        }
        return unit;
    }
    std::string within(u32 low, u32 high) { return byte(low + below(high - low + 1)); }
    std::string ascii() {
        static const std::string breaks[] = {"\r\n", "\r", "\n", "\n\r", " ", "\t"};
        return below(5) == 0 ? one_of(breaks) : within(0x21, 0x7E);
    }

    std::string unit(u32 flavour) {
        static constexpr u32 units[] = {'A',    'z',    0x09,   0x0A,   0x0D,   0x20,   0x7F,
                                        0xA0,   0x2028, 0x2029, 0x3042, 0x4E00, 0x4EA6, 0x4F00,
                                        0x6F22, 0x9FA5, 0x9FA6, 0xAC00, 0xFF01, 0xFFEE, 0x200B};
        static const std::string escapes[] = {"\x1B$B", "\x1B$@", "\x1B$(D", "\x1B$(Q", "\x1B$A",
                                              "\x1B(B", "\x1B(J", "\x1B(I",  "\x1B(H",  "\x1BN"};
        if (flavour >= 5 && below(6) == 0) {
            return flavour == 9 ? byte(0) + ascii() : ascii();
        }
        switch (flavour) {
        case 0: return byte(below(256));
        case 1: return byte(one_of(edges));
        case 2: return ascii();
        case 3: return ordered(pair(one_of(units)));
        case 4: {
            const u32 plane = below(30) == 0 ? one_of(edges) : below(20) == 0 ? 16U : 0U;
            return ordered(byte(0) + byte(plane) + pair(one_of(units)));
        }
        case 5:
            return below(2) == 0   ? one_of(escapes)
                   : below(8) == 0 ? within(0xA0, 0xE0)
                                   : within(0x21, 0x7E) + within(0x21, 0x7E);
        case 6: {
            if (below(8) == 0) {
                return "\xE2\x80" + within(0xA7, 0xAA);
            }
            const u32 lead = below(2) == 0 ? 0xE0 + below(16) : 0xC0 + below(64);
            std::string made = byte(lead);
            for (int more = std::countl_one(static_cast<u8>(lead)); more > 1; --more) {
                made += within(0x80, below(2) == 0 ? 0x90 : 0xBF);
            }
            return made;
        }
        case 7:
            return below(5) == 0   ? "\x8E" + within(0xA0, 0xE0)
                   : below(4) == 0 ? "\x8F" + within(0xA0, 0xE0) + within(0xA0, 0xFF)
                                   : within(0xA1, 0xE1) + within(0xA0, 0xFE);
        case 8:
            return below(4) == 0
                       ? within(0x9F, 0xE0)
                       : within(below(3) == 0 ? 0xE0 : 0x80, below(2) == 0 ? 0xFF : 0xE0) +
                             within(0x3F, 0xFF);
        default: return within(0xA1, 0xDF) + within(0x21, 0xFF);
        }
    }

    std::mt19937 random_{20210707};
    bool big_endian_ = true;
};

// Asks the library about text[pos, end); the caller's fields must come back as they were.
reference::answer ask(const u8* text, i32 pos, i32 end) {
    const auto request = std::make_unique<pvzan_detection_request>();
    std::memset(request.get(), 'x', sizeof *request); // what the call does not set shows
    request->text = text;
    request->textPos = pos;
    request->textEnd = end;
    reference::answer a;
    a.result = cconvChkEncode(request.get());
    EXPECT_EQ(request->text, text);
    EXPECT_EQ(request->textPos, pos);
    EXPECT_EQ(request->textEnd, end);
    a.name = std::string(request->encodingName, ::strnlen(request->encodingName, text_bytes));
    a.declared = request->xmlDeclared;
    a.marked = request->bomFound;
    a.big_endian = request->bigEndian;
    a.newline = request->newlineKind;
    a.flags = request->resultFlags;
    return a;
}

reference::answer ask(std::string_view text, std::size_t pos = 0) {
    return ask(reinterpret_cast<const u8*>(text.data()), static_cast<i32>(pos),
               static_cast<i32>(text.size()));
}

// The text ends where memory ends.
void expect_same(const std::string& buffer, std::size_t pos = 0) {
    static const test::guarded_buffer memory(8192);
    u8* const text = memory.data() + memory.size() - buffer.size();
    std::ranges::copy(buffer, text);
    ASSERT_EQ(ask(text, static_cast<i32>(pos), static_cast<i32>(buffer.size())),
              reference::detect(buffer, pos, buffer.size()))
        << "from " << pos << " of " << test::to_hex(buffer);
}

TEST(DetectAnswer, PlausibleCharacters) {
    for (u32 value = 0; value <= 0xFFFF; ++value) {
        ASSERT_EQ(isUNICODE_BMP(value >> 8, value & 0xFF) != 0,
                  reference::plausible(value >> 8, value & 0xFF))
            << std::hex << value;
    }
}

// Every pair of bytes on its own, and between letters, where ties are decided.
TEST(DetectAnswer, EveryPairOfBytes) {
    for (u32 value = 0; value <= 0xFFFF && !::testing::Test::HasFailure(); ++value) {
        const std::string pair = {static_cast<char>(value >> 8), static_cast<char>(value & 0xFF)};
        expect_same(pair);
        expect_same(pair + "ab");
        expect_same("\xA4\xA2" + pair + "\xA4\xA2\r\n");
    }
}

TEST(DetectAnswer, EqualsTheReference) {
    text_maker make;
    std::map<std::string, int> names;
    for (int round = 0; round < 150000 && !::testing::Test::HasFailure(); ++round) {
        const u32 most = make.below(30) == 0 ? 2300 : make.below(3) == 0 ? 8 : 60;
        const std::string text = make.text(make.below(most));
        expect_same(text, make.below(4) == 0 ? make.below(static_cast<u32>(text.size()) + 1) : 0);
        ++names[ask(text).name];
    }
    // The texts are worth asking about: they have every answer, and each many times.
    for (const char* name : {"ISO-10646-UCS-4", "UTF-16", "UTF-8", "EUC-JP-FIX", "EUC-JP",
                             "WINDOWS31J", "ISO-8859-1", "ISO-646IRV", "ISO-2022-JP", "unknown"}) {
        EXPECT_GT(names[name], 100) << name;
    }
}

TEST(DetectAnswer, DeclarationsEqualTheReference) {
    text_maker make;
    std::map<std::string, int> names;
    for (int round = 0; round < 150000 && !::testing::Test::HasFailure(); ++round) {
        const std::string before = make.below(3) == 0 ? make.text(make.below(6)) : "";
        const std::string buffer = before + make.declaration();
        expect_same(buffer, before.size());
        const reference::answer a = ask(buffer, before.size());
        names[a.name] += a.declared != 0 ? 1 : 0;
    }
    for (const char* name :
         {"Shift_JIS", "UTF-16", "ISO-2022-JP", "ISO-10646-UCS-2", "ISO-10646-UCS-4", "UTF-8"}) {
        EXPECT_GT(names[name], 1000) << name;
    }
}

TEST(DetectAnswer, KeywordOfADeclaration) {
    text_maker make;
    for (int round = 0; round < 50000; ++round) {
        const std::string made = make.declaration().erase(0, make.below(12) == 0 ? 5 : 0);
        const std::string text = made.substr(0, make.below(static_cast<u32>(made.size()) + 1));
        const i32 width = static_cast<i32>(make.below(6)) - 1; // any but 2 and 4 counts as 1
        const std::size_t unit = width == 2 || width == 4 ? static_cast<std::size_t>(width) : 1;
        ASSERT_EQ(findEncoding(reinterpret_cast<const u8*>(made.data()),
                               static_cast<i32>(text.size()), width),
                  static_cast<i32>(reference::find_keyword(text, 0, unit)))
            << "width " << width << ": " << test::to_hex(text);
    }
    EXPECT_EQ(findEncoding(nullptr, 100, 1), 0);
    EXPECT_EQ(findEncoding(reinterpret_cast<const u8*>("encoding"), -1, 1), 0);
}

// An extent that makes no sense holds nothing.
TEST(DetectAnswer, ImpossibleExtents) {
    const test::guarded_buffer page(0);
    constexpr i32 least = INT32_MIN, most = INT32_MAX;
    const std::pair<i32, i32> extents[] = {{0, 0},     {5, 5},      {1, 0},        {0, -1},
                                           {-1, 4},    {-4, -2},    {least, most}, {most, least},
                                           {least, 0}, {most, most}};
    for (const auto& [pos, end] : extents) {
        EXPECT_EQ(ask(page.data(), pos, end), reference::answer{}) << pos << " " << end;
    }
    EXPECT_EQ(ask(nullptr, 0, 100), reference::answer{});
    EXPECT_EQ(cconvChkEncode(nullptr), 0U);
    EXPECT_EQ(cconvIsEndianAware(nullptr), 0U);
    for (const char* name : {"", "utf-16", "UTF-16 ", "UTF-1", "ISO-10646-UCS-22"}) {
        EXPECT_EQ(cconvIsEndianAware(name), 0U) << name;
    }
}

// ---- Known answers ------------------------------------------------------------------------------

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
    const std::pair<std::string, const char*> rows[] = {
        {"", "unknown"},
        {" ", "ISO-646IRV"},
        // Two bytes behind any E9 make a UTF-8 sequence, and the pair is Shift_JIS: UTF-8 wins a
        // tie.
        {"caf\xE9 au lait", "UTF-8"},
        // Katakana bytes alone are high bytes of Shift_JIS, not double-byte characters.
        {"\xB1\xB2\xB3", "ISO-8859-1"},
        // EUC-JP whose bytes may be half-width katakana as well.
        {"\xB4\xC1\xBB\xFA", "ISO-8859-1"},
        // UTF-16 needs a letter of ASCII, and must be better than all others.
        {"\x30\x42\x30\x44", "ISO-646IRV"},
        {"\0A"s, "UTF-16"},
        // No other pass survives an escape.
        {"\x1B$B$\"\x1B(B", "ISO-2022-JP"},
        {"\x1B(I\x31\x32", "unknown"}, // katakana there has the high bit set
        {"\x1B(I\xB1\xB2", "ISO-2022-JP"},
    };
    for (const auto& [text, name] : rows) {
        EXPECT_EQ(ask(text).name, name) << test::to_hex(text);
    }
    EXPECT_EQ(ask("\0A\0\x7F"s).name, "unknown"); // half of the units fit: too few
    // Only the first 2048 bytes are tested.
    const std::string letters(2047, 'a');
    EXPECT_EQ(ask(letters + "\x82\xA0").name, "ISO-646IRV"); // the lead, alone, is a small fault
    EXPECT_EQ(ask(letters.substr(1) + "\x82\xA0").name, "WINDOWS31J");
    EXPECT_EQ(ask("\x82\xA0" + letters.substr(1) + "\xFF\xFF\xFF").name, "WINDOWS31J");
}

TEST(DetectDeclaration, LengthOfTheName) {
    for (const std::size_t width : {1U, 2U, 4U}) {
        const std::size_t most = 4094 / width; // a name of 4095 bytes, closing NUL and all
        for (const std::size_t length : {most, most + 1, std::size_t{5000}}) {
            const std::string name(length, 'n');
            const std::string text = test::widen("<?xml encoding='" + name + "'?>", width, false);
            EXPECT_EQ(ask(text), reference::detect(text, 0, text.size())) << length;
            EXPECT_EQ(ask(text).name == name, length <= most) << length;
        }
    }
}

} // namespace
