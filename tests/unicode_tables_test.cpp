// Unicode charsets whose sets have tables, so that they hold some characters only: membership,
// language tags, references beyond the BMP. The shipped sets have none and hold every character.
// Each case makes a charset directory of its own, for a process of its own.
#include "tests/support/charset_directory.h"
#include "tests/support/child.h"
#include "tests/support/convert.h"
#include "tests/support/digest.h"

namespace {

using test::conversion;
using test::expect_conversion;
using test::fault;
using test::session_owner;
using u32 = std::uint32_t;
using test::utf8;
using namespace std::string_literals;

// Letters and a few other characters, and no tag characters.
void in_directory(const std::function<void()>& body) {
    const test::temp_dir directory;
    test::pairs few{{0x20, 0x20}, {0x3042, 0x3042}, {0x304B, 0x304B}, {0x20BB7, 0x20BB7}};
    for (u32 letter = 'A'; letter <= 'z'; ++letter) {
        few.emplace_back(letter, letter);
    }
    directory.write("few.txt", test::as_text(few));
    directory.write("bmp.txt", test::as_text({{0x3042, 0x3042}, {0x41, 0x41}}));
    const test::set_definition all{"few", 4, "few.txt"};
    test::write_definition(directory, {"utf-8", "constUTF-8", "destUTF-8", {all}});
    test::write_definition(directory, {"utf-16", "constUTF-16", "destUTF-16", {all}});
    test::write_definition(
        directory, {"iso-10646-ucs-4", "constISO-10646-UCS-4", "destISO-10646-UCS-4", {all}});
    test::write_definition(directory, {"iso-10646-ucs-2",
                                       "constISO-10646-UCS-2",
                                       "destISO-10646-UCS-2",
                                       {{"bmp", 2, "bmp.txt"}}});
    test::in_child([&] {
        ASSERT_EQ(ZAN_setCharsetPath(directory.path().c_str()), 1U);
        body();
    });
}

constexpr const char* forms[] = {"utf-8", "utf-16", "iso-10646-ucs-4"};
constexpr const char* targets[] = {"utf-8", "utf-16", "iso-10646-ucs-4", "iso-10646-ucs-2"};

std::string in_form(const std::string& form, std::u32string_view text) {
    const char* const peer = form == "utf-8"             ? "UTF-8"
                             : form == "iso-10646-ucs-4" ? "UCS-4BE"
                                                         : "UTF-16BE";
    return test::oracle("UTF-8", peer)(utf8(text)).value();
}

// What tags are made of, characters that the tables have, and some that they have not: all
// sequences of up to four, from every form, also cut in two. Recorded when tests that spelled these
// out had found them right: tags are written where the language changes, and only if a language was
// asked for; one without letters cancels; letters outside a tag go out as NUL, deliberately;
// membership is told by the table, but that everything below 80 belongs to every set. In UCS-2
// references stand for all characters, since no Windows-31J is there to have any, and come before
// substitutes.
TEST(UnicodeTables, EverySequence) {
    in_directory([] {
        constexpr std::u32string_view tokens[] = {
            U"A",          U"\U000E0001", U"\U000E0061", U"か",
            U"\U000E007F", U"\u309A",     U"い\u0001",   U"\U00020BB7\U00020BB8"};
        test::digest answers("sequences of tags");
        for (u32 number = 0; number < 4096; ++number) {
            std::u32string text;
            for (u32 rest = number; rest != 0; rest /= 8) {
                text += tokens[rest % 8];
            }
            for (const char* from : forms) {
                for (const char* language : {"", "a"}) {
                    conversion c{
                        .from = from, .to = targets[number % 4], .input = in_form(from, text)};
                    c.source.skipInvalid = number / 4 % 2;
                    c.target.charRefMode = number / 8 % 3;
                    c.target.useSubstitute = number / 24 % 2;
                    c.target.substChar1 = c.target.substChar2 = 0x3042;
                    std::strcpy(c.target.langTag, language);
                    const std::string_view whole = c.input;
                    const std::size_t cut = number % (whole.size() + 1);
                    for (const auto& pieces :
                         {std::vector{whole}, {whole.substr(0, cut), whole.substr(cut)}}) {
                        const test::outcome got = test::run(c, pieces, 24);
                        answers.add(got.bytes,
                                    {got.in_count, got.out_count, static_cast<u32>(got.unread)});
                        for (const fault& f : got.faults) {
                            answers.add({f.status, static_cast<u32>(f.position)});
                        }
                    }
                }
            }
        }
        conversion c{.from = "utf-8", .to = "utf-8"};
        std::strcpy(c.target.langTag, "en");
        c.input = utf8(U"A\U000E0001\U000E006A\U000E0061B\U000E0001\U000E0065\U000E006EC");
        c.expected = utf8(U"A\U000E0001\U000E006A\U000E0061B\U000E0001\U000E007FC");
        c.enough_room = 24; // a tag of two letters and what follows
        expect_conversion(c);
    });
}

// What becomes of one call.
session_owner converted(conversion c, std::u32string_view text, std::span<std::uint8_t> out) {
    std::strcpy(c.target.langTag, "en");
    c.input = in_form(c.from, text);
    auto s = test::open_session(c);
    test::give_input(*s, c.input);
    test::give_output(*s, out);
    cconvConvert(s.get());
    return s;
}

// The longest language has 4095 letters; the next letter makes the tag invalid and changes nothing.
// Tags inside tags: the outer one's letters before the first inner one count; nothing recurses.
// When the innermost is cancelled, up to 32 are given back to be read, and more are used up.
TEST(UnicodeTables, LongAndNestedTags) {
    in_directory([] {
        std::vector<std::uint8_t> out(32768);
        const conversion c{.from = "iso-10646-ucs-4", .to = "iso-10646-ucs-4"};
        for (const std::size_t letters : {4095U, 4096U}) {
            const auto s =
                converted(c, U"\U000E0001" + std::u32string(letters, 0xE0061) + U"A", out);
            const bool valid = letters < 4096;
            EXPECT_EQ(s->status, valid ? PVZAN_DONE : PVZAN_INVALID_INPUT);
            EXPECT_EQ(s->inPos, 4 * 4097);
            EXPECT_EQ(s->curLang, valid ? std::string(letters, 'a') : "en");
            EXPECT_EQ(s->outPos, valid ? s->inLen : 0);
        }
        for (const std::size_t inner : {1U, 31U, 32U, 33U, 1000U}) {
            const auto s =
                converted(c, U"A" + std::u32string(inner + 1, 0xE0001) + U"\U000E007F", out);
            EXPECT_EQ(s->status, PVZAN_INVALID_INPUT);
            EXPECT_EQ(s->inPos, inner > 32 ? s->inLen : 4) << inner;
        }
        const auto s = converted(c, std::u32string(200000, 0xE0001) + U"A", out);
        EXPECT_EQ(s->status, PVZAN_DONE);
        EXPECT_EQ(test::written(*s), in_form(c.to, U"A"));
    });
}

} // namespace
