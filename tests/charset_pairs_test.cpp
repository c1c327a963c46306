// Every pair of charsets on texts that both have: the target reads back as the text.
#include "tests/support/convert.h"

namespace {

using names = std::vector<std::string_view>;

const names unicode = {"utf-8", "utf-16", "iso-10646-ucs-2", "iso-10646-ucs-4"};
const names beyond_bmp = {"utf-8", "utf-16", "iso-10646-ucs-4"};
const names japanese = {"shift_jis",    "windows31j",  "euc-jp",
                        "euc-jp-fix",   "iso-2022-jp", "shift_jis-2004",
                        "euc-jis-2004", "oasys-win",   "iso-2022-jp-2004"};
const names with_kana = {"shift_jis",      "windows31j",   "euc-jp",   "euc-jp-fix",
                         "shift_jis-2004", "euc-jis-2004", "oasys-win"};
const names chinese_korean = {"chinesegbk", "chinesebig5", "koreanksc", "gb18030"};
const names latin = {"iso-646irv", "iso-8859-1"};

names operator+(names a, const names& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

bool contains(const names& all, std::string_view name) {
    return std::ranges::find(all, name) != all.end();
}

// These keep JIS X 0213, whose characters leave the set that ISO-2022-JP-2004 has designated alone,
// deliberately: what follows them in ASCII is not designated again.
const names jisx0213_sources = {"shift_jis-2004", "euc-jis-2004", "iso-2022-jp-2004"};

bool loses_designation(std::string_view from, std::string_view to, std::string_view text) {
    const bool has_ascii =
        std::ranges::any_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    return has_ascii && to == "iso-2022-jp-2004" && contains(jisx0213_sources, from);
}

TEST(CharsetPairs, ReturnTheText) {
    struct row {
        const char* text;
        names charsets;
    };
    const row rows[] = {
        {"", unicode + japanese + chinese_korean + latin},
        {"Plain ASCII, with\ttabs,\r\nbreaks and {\\~|}.\n",
         unicode + japanese + chinese_korean + latin},
        {"日本文字、山川人口。東京！（一二三）", unicode + japanese + chinese_korean},
        {"あ亜A弌カ\nギリシャΩ、кириллица、─┼、々〆〇。x", unicode + japanese},
        {"ｱｲｳ\uFF9E\uFF9F。A｡", unicode + with_kana},
        {"①⑳Ⅲ㈱髙﨑ⅲ￤\uE000\uE757", unicode + names{"windows31j"}},
        {"丂A侄ÀŁ", unicode + names{"euc-jp", "euc-jp-fix"}},
        {"A①𠀋𠂉か\u309Aæ\u0300\u02E5\u02E9B𩸽",
         names{"utf-8", "utf-16", "shift_jis-2004", "euc-jis-2004"}},
        {"①𠀋𠂉𩸽", beyond_bmp + jisx0213_sources},
        {"中文简体ㄅ€", unicode + names{"chinesegbk", "gb18030"}},
        {"繁體中文※", unicode + names{"chinesebig5", "chinesegbk", "gb18030"}},
        {"한국어漢字", unicode + names{"koreanksc", "gb18030"}},
        {"éß𠀀😀\U000323AF", beyond_bmp + names{"gb18030"}},
        {"éß¿", unicode + names{"iso-8859-1", "gb18030"}},
    };
    for (const row& r : rows) {
        for (const std::string_view from : r.charsets) {
            for (const std::string_view to : r.charsets) {
                if (!loses_designation(from, to, r.text)) {
                    const std::string input = test::convert("utf-8", from.data(), r.text);
                    const std::string output = test::convert(from.data(), to.data(), input);
                    EXPECT_EQ(test::convert(to.data(), "utf-8", output), r.text)
                        << from << " to " << to;
                }
            }
        }
    }
}

// What one charset has in another form than the other.
TEST(CharsetPairs, ChangeTheForm) {
    struct row {
        const char *from, *to, *input, *expected;
    };
    const row rows[] = {
        // half-width katakana cannot be designated: they are widened
        {"shift_jis", "iso-2022-jp", "\xB1\xDE", "\x1B$B%\"!+\x1B(B"},
        {"euc-jp", "iso-2022-jp-2004", "\x8E\xB1", "\x1B$(Q%\"\x1B(B"},
        // JIS X 0208 keeps its codes in JIS X 0213, whatever either charset reads there
        {"shift_jis", "euc-jis-2004", "\x81\x60\x81\x7C", "\xA1\xC1\xA1\xDD"},
        {"windows31j", "shift_jis-2004", "\x81\x60\x81\x91", "\x81\x60\x81\x91"},
        {"utf-8", "euc-jp", "〜～−－", "\xA1\xC1\xA1\xC1\xA1\xDD\xA1\xDD"},
        {"euc-jis-2004", "utf-8", "\xA1\xC1\xA1\xDD", "〜−"},
        {"euc-jp", "utf-8", "\xA1\xC1\xA1\xDD", "～－"},
        // NEC's and IBM's characters have places in JIS X 0213
        {"windows31j", "euc-jis-2004", "\x87\x40\xFA\xB1", "\xAD\xA1\xCF\xF2"},
        // a pair is one code; without JIS X 0213 it goes as base and raw mark
        {"shift_jis-2004", "utf-8", "\x82\xF5", "か\u309A"},
        {"shift_jis-2004", "euc-jis-2004", "\x82\xF5", "\xA4\xF7"},
        {"euc-jis-2004", "shift_jis-2004", "\xA4\xA2", "\x82\xA0"},
    };
    for (const row& r : rows) {
        test::expect_conversion(
            {.from = r.from, .to = r.to, .input = r.input, .expected = r.expected});
    }
    // Bytes that are no code of JIS X 0213 come no further than the set they share.
    for (const std::string_view bad : {"\xA0\xA1", "\xFF\xFF", "\x8F\xA2\xA1"}) {
        test::expect_conversion({.from = "euc-jis-2004",
                                 .to = "shift_jis-2004",
                                 .input = std::string(bad),
                                 .faults = {{PVZAN_UNREPRESENTABLE, bad.size()}}});
    }
}

} // namespace
