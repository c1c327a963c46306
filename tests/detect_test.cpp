// Detection against the reference, byte by byte: every score, and the whole answer.
#include "cconv/detect.h"
#include "tests/detect_support.h"
#include "tests/support/oracle.h"
#include "tests/support/temp_dir.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <vector>

namespace {

using namespace std::string_literals;

bytes_view bytes_of(const std::string& text) {
    return {reinterpret_cast<const u8*>(text.data()), text.size()};
}

reference::scores scores_of(const std::string& text) {
    const bytes_view bytes = bytes_of(text);
    const utf8_score u8s = score_utf8(bytes);
    const shift_jis_score sjis = score_shift_jis(bytes);
    const ordered_score u16s = score_utf16(bytes), u32s = score_ucs4(bytes);
    reference::scores all;
    all.iso2022_jp = score_iso2022_jp(bytes);
    all.utf8 = u8s.score;
    all.utf8_multibyte = u8s.multibyte;
    all.utf8_latin1 = u8s.latin1;
    all.euc_jp_fix = score_euc_jp_fix(bytes);
    all.utf16_big = u16s.big;
    all.utf16_little = u16s.little;
    all.ucs4_big = u32s.big;
    all.ucs4_little = u32s.little;
    all.euc_jp = score_euc_jp(bytes);
    all.shift_jis = sjis.score;
    all.shift_jis_double = sjis.double_bytes;
    all.shift_jis_high = sjis.high_bytes;
    return all;
}

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
        const u32 flavour = below(9), faults = below(3) != 0 ? 0 : 1 + below(40);
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
        static const char* const keywords[] = {"encoding", "ENCODING", "encoding", "Encoding",
                                               "enc"};
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
        static const std::string escapes[] = {"\x1B$B", "\x1B$@", "\x1B$(D", "\x1B$(Q",
                                              "\x1B$A", "\x1B(B", "\x1B(J",  "\x1B(I",
                                              "\x1B(H", "\x1BN",  "\x1B$B",  "\x1B(B"};
        static constexpr u32 units[] = {'A',    'z',    0x09,   0x0A,   0x0D,   0x20,   0x7F,
                                        0xA0,   0x2028, 0x2029, 0x3042, 0x4E00, 0x4EA6, 0x4F00,
                                        0x6F22, 0x9FA5, 0x9FA6, 0xAC00, 0xFF01, 0xFFEE, 0x200B};
        switch (flavour) {
        case 0: return byte(below(256));
        case 1: return byte(one_of(edges));
        case 2: return ascii();
        case 3: // ISO-2022-JP
            return below(6) == 0   ? one_of(escapes)
                   : below(9) == 0 ? within(0xA0, 0xE0)
                                   : within(0x21, 0x7E) + within(0x21, 0x7E);
        case 4: // UTF-8, to six bytes, over-long ones too
            switch (below(8)) {
            case 0: return "\xE2\x80" + within(0xA7, 0xAA);
            case 1: return within(0xC0, 0xDF) + within(0x80, 0xBF);
            case 2: return within(0xF0, 0xF7) + within(0x80, 0xBF) + "\x80\x80";
            case 3: return within(0xF8, 0xFB) + within(0x80, 0x90) + "\x80\x80\x80";
            case 4: return within(0xFC, 0xFF) + within(0x80, 0x90) + "\x80\x80\x80\x80";
            default: return within(0xE0, 0xEF) + within(0x80, 0xBF) + within(0x80, 0xBF);
            }
        case 5: // EUC-JP
            switch (below(8)) {
            case 0: return "\x8E" + within(0xA0, 0xE0);
            case 1: return "\x8F" + within(0xA0, 0xE0) + within(0xA0, 0xFF);
            case 2: return ascii();
            default: return within(0xA1, 0xE1) + within(0xA0, 0xFE);
            }
        case 6: // Shift_JIS
            switch (below(5)) {
            case 0: return within(0x9F, 0xE0);
            case 1: return ascii();
            case 2: return within(0xE0, 0xFF) + within(0x40, 0xFF);
            default: return within(0x80, 0x9F) + within(0x3F, 0xFF);
            }
        case 7: // code units of two bytes, or fixed EUC-JP
            switch (below(3)) {
            case 0: return ordered(pair(one_of(units)));
            case 1: return byte(0) + ascii();
            default: return within(0xA1, 0xDF) + within(0x21, 0xFF);
            }
        default: // code units of four bytes
            const u32 plane = below(30) == 0 ? one_of(edges) : below(20) == 0 ? 16U : 0U;
            return ordered(byte(0) + byte(plane) + pair(one_of(units)));
        }
    }

    std::mt19937 random_{20210707};
    bool big_endian_ = true;
};

void expect_same(const std::string& buffer, std::size_t pos = 0) {
    ASSERT_EQ(test::ask(buffer, pos), reference::detect(buffer, pos, buffer.size()))
        << "from " << pos << " of " << test::to_hex(buffer);
}

TEST(DetectScores, EqualTheReference) {
    text_maker make;
    for (int round = 0; round < 60000 && !::testing::Test::HasFailure(); ++round) {
        const std::string text = make.text(make.below(make.below(20) == 0 ? 2200 : 60));
        ASSERT_EQ(scores_of(text), reference::score(text)) << test::to_hex(text);
    }
}

TEST(DetectScores, PlausibleCharacters) {
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
        ++names[test::ask(text).name];
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
        const reference::answer a = test::ask(buffer, before.size());
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
        const std::string buffer = make.declaration().erase(0, make.below(12) == 0 ? 5 : 0);
        const auto end = static_cast<i32>(make.below(static_cast<u32>(buffer.size()) + 1));
        const i32 width = static_cast<i32>(make.below(6)) - 1; // any but 2 and 4 counts as 1
        const std::size_t unit = width == 2 || width == 4 ? static_cast<std::size_t>(width) : 1;
        ASSERT_EQ(findEncoding(bytes_of(buffer).data(), end, width),
                  static_cast<i32>(reference::find_keyword(
                      buffer.substr(0, static_cast<std::size_t>(end)), 0, unit)))
            << "width " << width << ", end " << end << " of " << test::to_hex(buffer);
    }
    EXPECT_EQ(findEncoding(nullptr, 100, 1), 0);
    EXPECT_EQ(findEncoding(bytes_of("encoding").data(), -1, 1), 0);
}

// Nothing outside the text is read: it lies against a missing page, first at its end, then at its
// start, for every length of patterns that make a pass want more.
TEST(DetectAnswer, ReadsNothingElse) {
    const std::string wide = "<?xml encoding='x'",
                      declared = "<?xml version='1.0' encoding='EUC-JP'";
    std::vector<std::string> hostile = {
        "\xFF\xFE\0\0"s, "\0\0\xFE\xFF"s, "\xEF\xBB\xBF", "\x1B$(", "\x1B$",    "\x1B$B",
        "\x1B$BA\n",     "\xFC\x84",      "\xE2\x80",     "\xF8",   "\x8F\xA1", "\x8E",
        "\xA1",          "\x81",          "\r",           "\n",     "\0A"s,     "A\0"s,
        "\0\0\0A"s,      "\0"s,           declared};
    for (const std::size_t width : {1U, 2U, 4U}) {
        for (const bool big : {false, true}) {
            for (const char* mark : {"", "\xFE\xFF", "\xFF\xFE", "\xEF\xBB\xBF"}) {
                hostile.push_back(mark + test::widen(wide, width, big));
                hostile.push_back(mark + "xx"s + test::widen(wide, width, big));
            }
        }
    }
    test::lone_page page;
    for (const std::string& pattern : hostile) {
        std::string text;
        while (text.size() < 64) {
            text += pattern;
        }
        for (std::size_t length = 0; length <= text.size(); ++length) {
            const std::string start = text.substr(0, length);
            const reference::answer expected = reference::detect(start, 0, length);
            const auto end = static_cast<i32>(length);
            ASSERT_EQ(test::ask(page.at_end(start), 0, end), expected) << test::to_hex(start);
            for (const i32 pos : {1, 2, 8}) {
                const auto before = static_cast<std::size_t>(pos);
                ASSERT_EQ(
                    test::ask(page.at_start(start) - pos, pos, pos + end),
                    reference::detect(std::string(before, 'x') + start, before, before + length))
                    << "from " << pos << ": " << test::to_hex(start);
            }
        }
    }
}

// An extent that makes no sense holds nothing.
TEST(DetectAnswer, ImpossibleExtents) {
    test::lone_page page;
    constexpr i32 least = INT32_MIN, most = INT32_MAX;
    const std::pair<i32, i32> extents[] = {{0, 0},     {5, 5},     {1, 0},        {0, -1},
                                           {-1, 4},    {-4, -2},   {least, most}, {most, least},
                                           {0, least}, {least, 0}, {most, most},  {-1, -1}};
    for (const auto& [pos, end] : extents) {
        EXPECT_EQ(test::ask(page.behind(), pos, end), reference::answer{}) << pos << " " << end;
    }
    EXPECT_EQ(test::ask(nullptr, 0, 100), reference::answer{});
    EXPECT_EQ(cconvChkEncode(nullptr), 0U);
}

} // namespace
