// Searches over documents: keywords, elements, attributes, numbers, entities.
#include "tests/support/document.h"

#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace {

using test::ascii;
using test::made_document;
using test::offset;

constexpr i32 smallest = std::numeric_limits<i32>::min(), largest = std::numeric_limits<i32>::max();

// A string that an operation made.
std::optional<std::string> taken(char* made) {
    if (made == nullptr) {
        return std::nullopt;
    }
    std::string text = made;
    ZAN_free(made);
    return text;
}

TEST(DocumentSearch, Keywords) {
    made_document d("ab<ab/>ab");
    struct {
        std::string key;
        i32 pos;
        u32 found;
        std::size_t behind;
    } const cases[] = {
        {"ab", 0, 1, 2},         {"ab", offset(1), 1, 5},
        {"ab", offset(7), 1, 9}, {"ab", offset(8), 0, 0},
        {"ab", largest, 0, 0},   {"ab", smallest, 1, 2},
        {"<ab", 0, 1, 5},        {"/>", 0, 1, 7},
        {"/>ab", 0, 1, 9},       {std::string(511, 'a'), 0, 0, 0},
        {"abc", 0, 0, 0},
    };
    for (const bool tags : {false, true}) {
        if (tags) {
            d.tagPos = static_cast<i32*>(ZAN_malloc(2 * sizeof(i32)));
            d.tagPos[0] = 2;
            d.tagPos[1] = 5;
            d.tagCount = 2;
        }
        for (const auto& c : cases) {
            i32 behind = -7;
            d.pos = c.pos;
            ASSERT_EQ(xmlSeekObj1(&d, c.key.c_str(), &behind), c.found) << c.key;
            EXPECT_EQ(behind, c.found != 0 ? offset(c.behind) : -7) << c.key;
            EXPECT_EQ(d.pos, c.pos);
        }
    }
}

TEST(DocumentSearch, Elements) {
    struct {
        const char *text, *name;
        u32 found;
        std::size_t start, end;
    } const cases[] = {
        {"<a>x</a>", "a", 1, 3, 4},
        {"<a k=1>x</a>", "a", 1, 3, 8}, // attributes count as content
        {"<a k=1/><a>", "a", 1, 3, 6},
        {"<ab>x</ab><a>y</a>", "a", 1, 13, 14},
        {"<a >1</a><a>2</a>", "a", 1, 3, 5}, // whichever form comes first
        {"<a>1</a><a >2</a>", "a", 1, 3, 4},
        {"<a><b/>", "a", 1, 3, 5}, // no closing tag: the next "/>", be it another element's
        {"<a>x", "a", 0, 3, 0},
        {"</a>", "a", 0, 0, 0},
        {"<a/>", "a", 0, 0, 0}, // neither form: no blank behind the name
    };
    for (const auto& c : cases) {
        made_document d(c.text);
        i32 start = -7, end = 0;
        EXPECT_EQ(xmlSeekObj2(&d, c.name, &start, &end), c.found) << c.text;
        EXPECT_EQ(start, offset(c.start)) << c.text;
        EXPECT_EQ(end, offset(c.end)) << c.text;
        EXPECT_EQ(d.pos, 0);
    }
    for (const std::size_t length : {508U, 509U, 510U, 6000U}) {
        const std::string name(length, 'n');
        made_document d("<" + name + ">x<b/></" + name + ">");
        d.pos = 0;
        i32 start = 0, end = 0;
        EXPECT_EQ(xmlSeekObj2(&d, name.c_str(), &start, &end), length <= 509) << length;
        // A closing tag of 512 characters is too long a key.
        EXPECT_EQ(end - start, length == 508 ? 20 : length == 509 ? 12 : 0) << length;
    }
}

// A buffer for texts, with a guard behind its end.
struct text_buffer {
    char text[text_bytes];
    char guard = 'g';
    ~text_buffer() { EXPECT_EQ(guard, 'g'); }
};

TEST(DocumentSearch, Attributes) {
    struct {
        const char *text, *lang, *rule;
        u16 bytenum;
        const char* based_on;
    } const cases[] = {
        {R"(domain="ja" bytenum="3" basedon="x")", "ja", "ja", 3, "x"},
        {R"(basedon= "b" bytenum= "12x" domain=  "d")", "d", "b", 12, "b"},
        {R"(domain="" bytenum="")", "", "", 0, ""},
        {R"(domain="ja)", "", "", 2, ""},
        {R"(bytenum=" 	4")", "", " 	4", 4, ""},
        {R"(bytenum="65538")", "", "65538", 2, ""},
        {R"(bytenum="1A" domain)", "", "1A", 1, ""},
    };
    for (const auto& c : cases) {
        made_document d(c.text);
        text_buffer out;
        u16 bytenum = 99;
        xmlGetLang(&d, 0, d.textBytes, out.text);
        EXPECT_STREQ(out.text, c.lang) << c.text;
        xmlGetRule(&d, 0, out.text);
        EXPECT_STREQ(out.text, c.rule) << c.text;
        xmlGetBytenum(&d, 0, d.textBytes, &bytenum);
        EXPECT_EQ(bytenum, c.bytenum) << c.text;
        EXPECT_EQ(xmlGetBasedon(&d, 0, d.textBytes, out.text), *c.based_on != '\0') << c.text;
        EXPECT_STREQ(out.text, c.based_on) << c.text;
    }
}

// The end of the extent counts characters, though it is an offset in bytes.
TEST(DocumentSearch, BasedonLooksBeyondItsExtentNotBeyondTheText) {
    for (std::size_t gap = 0; gap < 60; ++gap) {
        const std::string text = "basedon=" + std::string(gap, ' ') + "\"x\"";
        made_document d(text);
        text_buffer out;
        const i32 end = offset(8);
        EXPECT_EQ(xmlGetBasedon(&d, 0, end, out.text), gap + 3 <= 32) << gap;
        EXPECT_EQ(xmlGetBasedon(&d, 0, largest, out.text), 1U) << gap;
        EXPECT_EQ(xmlGetBasedon(&d, 0, offset(0), out.text), 0U);
        EXPECT_EQ(xmlGetBasedon(&d, offset(1), largest, out.text), 0U);
        EXPECT_EQ(d.pos, offset(1));
    }
}

TEST(DocumentSearch, HexadecimalNumbers) {
    struct {
        const char* text;
        std::vector<u32> values;
    } const cases[] = {
        {"8140-84BE 889F", {0x8140, 0x84BE}}, // nothing follows the last one
        {"8140-84BE 889F ", {0x8140, 0x84BE, 0x889F}},
        {"0x2121 ", {0, 0x2121}},
        {"fFg1z", {0xFF, 1}},
        {"face, bed.", {0xFACE, 0xBED}},
        {"123456789 ", {0x23456789}},
        {"@G`g/:", {}},
    };
    for (const auto& c : cases) {
        const std::u32string text = ascii(c.text);
        const std::vector<u32> characters(text.begin(), text.end());
        const i32 count = static_cast<i32>(text.size());
        std::vector<u32> values;
        u32 value = 0;
        for (i32 at = 0; xmlGetHex(characters.data(), at, count, &at, &value) != 0;) {
            values.push_back(value);
        }
        EXPECT_EQ(values, c.values) << c.text;
        for (const i32 from : {smallest, -1, count, count + 1, largest}) {
            i32 next = 0;
            EXPECT_EQ(xmlGetHex(characters.data(), from, count, &next, &value), 0U);
        }
    }
    EXPECT_EQ(xatoi(" \t1Fz"), 0x1FU);
    EXPECT_EQ(xatoi("0x10"), 0U);
    EXPECT_EQ(xatoi("-1"), 0U);
    EXPECT_EQ(xatoi("123456789"), 0x23456789U);
    EXPECT_EQ(xatoi(""), 0U);
}

TEST(DocumentSearch, Entities) {
    const std::string entities = R"(<!ENTITY ab-table SYSTEM "no"> <!ENTITY ab SYSTEM "a.txt">)"
                                 R"(<!ENTITY c SYSTEM  "x"> <!ENTITY d SYSTEM "open)";
    struct {
        const char* reference;
        std::optional<std::string> link, file;
    } const cases[] = {
        {"&ab;", "ab", "a.txt"},
        {"x&  ab;y&c;", "ab", "a.txt"},
        {"&c;", "c", std::nullopt}, // two blanks
        {"&d;", "d", std::nullopt},
        {"&le;", "le", "no"}, // the end of a longer name does
        {"&ab", std::nullopt, std::nullopt},
        {"ab;", std::nullopt, std::nullopt},
    };
    for (const auto& c : cases) {
        made_document main(entities);
        made_document in(c.reference);
        main.pos = 40;
        EXPECT_EQ(taken(xmlGetLink(&in, 0, in.textBytes)), c.link) << c.reference;
        if (c.link) {
            EXPECT_EQ(taken(xmlFindEntry(&main, c.link->c_str())), c.file) << c.reference;
        }
        table_object* const table = initTable(2, 0);
        main.encoding = encoding_ucs2;
        main.bigEndian = 1;
        EXPECT_EQ(xmlGetTable(&main, &in, 0, in.textBytes, nullptr, table), c.file.has_value());
        EXPECT_EQ(table->fileName, c.file.value_or("")) << c.reference;
        EXPECT_EQ(table->textEncoding, c.file ? u32{encoding_ucs2} : 0U);
        EXPECT_EQ(table->textBigEndian, c.file ? 1U : 0U);
        termTable(table);
        EXPECT_EQ(main.pos, 40);
    }
}

TEST(DocumentSearch, WideningAndNarrowing) {
    u32 wide[4] = {9, 9, 9, 9};
    EXPECT_EQ(ASCIItoUCS4("a\xFF", 2, wide), wide);
    EXPECT_EQ(std::vector<u32>(wide, wide + 4), (std::vector<u32>{'a', 0xFF, 0, 9}));
    const u32 characters[] = {0x3042, 'b', 0x1FF41};
    EXPECT_EQ(taken(UCS4toASCII(characters, 3, nullptr)), "\x42"
                                                          "bA");
    u32* const made = ASCIItoUCS4("", 0, nullptr);
    EXPECT_EQ(*made, 0U);
    ZAN_free(made);
    for (const i32 count : {-1, smallest, largest}) {
        EXPECT_EQ(ASCIItoUCS4("", count, nullptr), nullptr);
    }
}

// Every operation with senseless positions.
TEST(DocumentSearch, NoPositionBreaksIt) {
    made_document d(R"(<a bytenum="12" domain="ja" basedon="x">&name;</a> name SYSTEM "12AF-)");
    const i32 positions[] = {smallest, -1, 0, offset(9), d.textBytes, d.textBytes + 1, largest};
    text_buffer out;
    for (const i32 start : positions) {
        for (const i32 end : positions) {
            d.pos = start;
            i32 found_start = 0, found_end = 0;
            u16 number = 0;
            if (xmlSeekObj2(&d, "a", &found_start, &found_end) != 0) {
                EXPECT_LE(found_end, d.textBytes);
            }
            xmlGetName(&d, start, end, out.text);
            xmlGetLang(&d, start, end, out.text);
            xmlGetRule(&d, start, out.text);
            xmlGetBytenum(&d, start, end, &number);
            xmlGetBasedon(&d, start, end, out.text);
            taken(xmlGetLink(&d, start, end));
            taken(xmlFindEntry(&d, "name"));
        }
    }
}

} // namespace
