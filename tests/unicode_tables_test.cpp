// Unicode charsets whose sets have tables, so that they hold some characters only: membership,
// language tags, references beyond the BMP. The shipped sets have none and hold every character.
// Each case makes a charset directory of its own, for a process of its own.
#include "tests/support/child.h"
#include "tests/support/convert.h"
#include "tests/support/definitions.h"

namespace {

using test::conversion;
using test::expect_conversion;
using test::fault;
using test::utf8;
using namespace std::string_literals;

// Letters and a few other characters, and no tag characters.
void in_directory(const std::function<void()>& body) {
    const test::temp_dir directory;
    std::string table = "0020 0020\r\n3042 3042\r\n304B 304B\r\n20BB7 20BB7\r\n";
    for (char letter = 'A'; letter <= 'z'; ++letter) {
        const std::string code = test::to_hex(std::string(1, letter));
        table += code + " " + code + "\r\n";
    }
    directory.write_utf16("few.txt", table);
    directory.write_utf16("bmp.txt", "3042 3042\r\n0041 0041\r\n");
    const test::set_definition few{"few", 4, "few.txt"};
    test::write_definition(directory, {"utf-8", "constUTF-8", "destUTF-8", {few}});
    test::write_definition(directory, {"utf-16", "constUTF-16", "destUTF-16", {few}});
    test::write_definition(
        directory, {"iso-10646-ucs-4", "constISO-10646-UCS-4", "destISO-10646-UCS-4", {few}});
    test::write_definition(directory, {"iso-10646-ucs-2",
                                       "constISO-10646-UCS-2",
                                       "destISO-10646-UCS-2",
                                       {{"bmp", 2, "bmp.txt"}}});
    test::in_child([&] {
        ASSERT_EQ(ZAN_setCharsetPath(directory.path().c_str()), 1U);
        body();
    });
}

constexpr const char* tagged_forms[] = {"utf-8", "utf-16", "iso-10646-ucs-4"};

std::string in_form(const std::string& form, std::u32string_view text) {
    const char* const peer = form == "utf-8"             ? "UTF-8"
                             : form == "iso-10646-ucs-4" ? "UCS-4BE"
                                                         : "UTF-16BE";
    return test::oracle("UTF-8", peer)(utf8(text)).value();
}

// Text in which [ja] stands for the tag of that language and [] for a tag's cancelling.
std::u32string tagged(std::u32string_view text) {
    std::u32string result;
    bool inside = false;
    for (const char32_t c : text) {
        if (c == '[') {
            result += 0xE0001;
            inside = true;
        } else if (c == ']') {
            if (result.back() == 0xE0001) {
                result += 0xE007F;
            }
            inside = false;
        } else {
            result += inside ? 0xE0000 + c : c;
        }
    }
    return result;
}

struct tag_row {
    const char* language; // of the target options
    std::u32string_view input, expected;
    std::vector<std::u32string_view> read_until_fault = {}; // input up to each fault
};

const tag_row tag_rows[] = {
    // asked for nothing: nothing is written
    {"", U"[ja]A[en]B", U"AB"},
    // the options' language needs no tag; another one does, once; back again it is cancelled
    {"en", U"AB", U"AB"},
    {"en", U"[en]A", U"A"},
    {"en", U"[ja]ABあ", U"[ja]ABあ"},
    {"en", U"A[ja]B[ja]C[fr]D[en]E", U"A[ja]BC[fr]D[]E"},
    {"ja", U"[en]A[ja]B", U"[en]A[]B"},
    // a tag without letters means no language of its own; cancelling is reported as invalid
    {"en", U"[ja]A[]B", U"[ja]A[]B", {U"[ja]A[]"}},
    // a base letter and its mark behind a tag
    {"en", U"[ja]か\u309AB", U"[ja]か\u309AB"},
};

TEST(LanguageTags, AreReadAndWrittenInEveryForm) {
    in_directory([] {
        for (const char* from : tagged_forms) {
            for (const char* to : tagged_forms) {
                for (const tag_row& row : tag_rows) {
                    const bool pair = row.input.find(U'\u309A') != std::u32string_view::npos;
                    if (pair && std::strcmp(from, "iso-10646-ucs-4") == 0) {
                        continue; // which does not join base and mark
                    }
                    conversion c{.from = from,
                                 .to = to,
                                 .input = in_form(from, tagged(row.input)),
                                 .expected = in_form(to, tagged(row.expected))};
                    std::strcpy(c.target.langTag, row.language);
                    for (const auto text : row.read_until_fault) {
                        c.faults.push_back(
                            {PVZAN_INVALID_INPUT, in_form(from, tagged(text)).size()});
                    }
                    if (pair) {
                        const std::size_t mark =
                            in_form(from, tagged(row.input.substr(0, 5))).size();
                        const std::size_t size = in_form(from, U"\u309A").size();
                        for (std::size_t cut = 0; cut < size; ++cut) {
                            c.other_at.push_back(mark + cut);
                        }
                    }
                    c.enough_room = 24; // a tag of two letters and what follows
                    expect_conversion(c);

                    c.source.skipInvalid = 1;
                    c.faults.clear();
                    expect_conversion(c);
                }
            }
        }
    });
}

TEST(LanguageTags, CutOnesWaitForMore) {
    in_directory([] {
        for (const char* form : tagged_forms) {
            const std::string whole = in_form(form, tagged(U"A[ja]"));
            const std::size_t tag = in_form(form, U"A").size();
            for (std::size_t length = tag + 1; length <= whole.size(); ++length) {
                conversion c{.from = form,
                             .to = "utf-8",
                             .input = whole.substr(0, length),
                             .expected = "A",
                             .unread = length - tag};
                std::strcpy(c.target.langTag, "en");
                expect_conversion(c);
            }
        }
    });
}

// The longest language has 4095 letters; the next letter makes the tag invalid and changes nothing.
TEST(LanguageTags, OverlongOnesAreInvalid) {
    in_directory([] {
        for (const std::size_t letters : {4095U, 4096U}) {
            conversion c{.from = "iso-10646-ucs-4", .to = "iso-10646-ucs-4"};
            c.input = in_form(c.from, U"\U000E0001" + std::u32string(letters, 0xE0061) + U"A");
            std::strcpy(c.target.langTag, "en");
            const auto s = test::open_session(c);
            std::vector<std::uint8_t> out(32768);
            test::give_input(*s, c.input);
            test::give_output(*s, out);
            if (letters < 4096) {
                EXPECT_EQ(cconvConvert(s.get()), PVZAN_DONE);
                EXPECT_EQ(s->curLang, std::string(letters, 'a'));
                EXPECT_EQ(s->outPos, s->inLen);
                continue;
            }
            EXPECT_EQ(cconvConvert(s.get()), PVZAN_INVALID_INPUT);
            EXPECT_EQ(s->inPos, 4 * (1 + 4096));
            EXPECT_STREQ(s->curLang, "en");
            EXPECT_EQ(s->outPos, 0);
        }
    });
}

// Tags inside tags: the outer one's letters before the first inner one count; nothing recurses.
// When the innermost is cancelled, up to 32 are given back to be read, and more are used up.
TEST(LanguageTags, NestedOnesDoNotExhaustTheStack) {
    in_directory([] {
        conversion c{.from = "iso-10646-ucs-4", .to = "utf-8"};
        std::strcpy(c.target.langTag, "en");
        c.input = in_form(c.from, U"\U000E0001\U000E0062\U000E0001\U000E0063" + U"A"s);
        c.expected = in_form("utf-8", tagged(U"[b]A"));
        c.enough_room = 16;
        expect_conversion(c);

        for (const std::size_t inner : {1U, 32U, 33U, 1000U}) {
            const auto s = test::open_session(c);
            c.input = in_form(c.from, U"A" + std::u32string(inner + 1, 0xE0001) + U"\U000E007F");
            std::vector<std::uint8_t> out(64);
            test::give_input(*s, c.input);
            test::give_output(*s, out);
            EXPECT_EQ(cconvConvert(s.get()), PVZAN_INVALID_INPUT);
            EXPECT_EQ(s->inPos, inner > 32 ? s->inLen : 4) << inner;
        }

        c.input = in_form(c.from, std::u32string(200000, 0xE0001) + U"A");
        const test::outcome got = test::run(c, {c.input}, 64);
        EXPECT_EQ(got.bytes, "A");
        EXPECT_TRUE(got.faults.empty());
    });
}

// A tag letter outside a tag has nothing to be written as, but a control code may be: NUL,
// deliberately.
TEST(LanguageTags, StrayLettersGoOutAsNul) {
    in_directory([] {
        for (const char* form : tagged_forms) {
            expect_conversion({.from = form,
                               .to = "utf-8",
                               .input = in_form(form, U"A\U000E0061B"),
                               .expected = "A\0B"s});
        }
    });
}

TEST(Membership, IsToldByTheTableAndNothingElse) {
    in_directory([] {
        // Everything below 80 belongs to every set, all else only by the table.
        for (const char* form : tagged_forms) {
            const std::u32string text = U"0\u0001あいé\U00020BB7\U00020BB8";
            conversion c{.from = form, .to = "utf-16", .input = in_form(form, text)};
            for (const std::size_t last : {4U, 5U, 7U}) {
                const std::size_t read = in_form(form, text.substr(0, last)).size();
                c.faults.push_back({PVZAN_INVALID_INPUT, read});
            }
            c.expected = in_form("utf-16", U"0\u0001あ\U00020BB7");
            expect_conversion(c);
        }
    });
}

// There is no Windows-31J in this directory, so no character of the BMP belongs to it, either.
TEST(CharacterReferences, StandForWhatUcs2SetsLackBeyondTheBmp) {
    in_directory([] {
        conversion c{.from = "utf-8",
                     .to = "iso-10646-ucs-2",
                     .input = "A\U00020BB7あ",
                     .expected = in_form("utf-16", U"Aあ"),
                     .faults = {{PVZAN_UNREPRESENTABLE, 5}},
                     .least_room = 2};
        expect_conversion(c);

        c.faults = {};
        c.enough_room = c.least_room = 19; // nine units, and a byte to spare
        c.target.charRefMode = PVZAN_CHARREF_HEX;
        c.expected = test::widen("&#x41;&#x20BB7;&#x3042;", 2, true);
        expect_conversion(c);
        c.target.charRefMode = PVZAN_CHARREF_DECIMAL;
        c.expected = test::widen("&#65;&#134071;&#12354;", 2, true);
        expect_conversion(c);

        // References come before substitutes, whose own code is never written as a reference.
        c.target.useSubstitute = 1;
        c.target.substChar1 = c.target.substChar2 = 0x3042;
        c.expected = test::widen("&#65;&#134071;", 2, true) + "\x30\x42";
        expect_conversion(c);
    });
}

} // namespace
