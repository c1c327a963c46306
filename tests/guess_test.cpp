// What texts are guessed to be, by rows of tests/data/guesses.tsv; how the text comes does not
// count.
#include "pvzan_text.h"
#include "tests/support/oracle.h"
#include "tests/support/rows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

struct answer {
    pvzan_guess_result result;
    std::string charset, candidates;
    bool sure;
};

answer guess(std::string_view text, const char* language, const char* among = nullptr,
             std::size_t piece = std::string_view::npos, bool complete = true) {
    test::use_shipped_charsets();
    pvzan_guesser* g = pvzan_guess_open(among, language);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    for (std::size_t at = 0; at < text.size(); at += std::min(piece, text.size() - at)) {
        pvzan_guess_feed(g, bytes + at, std::min(piece, text.size() - at));
    }
    answer told = {};
    told.result.size = sizeof told.result;
    pvzan_candidate found[8] = {};
    found[0].size = sizeof *found;
    const std::size_t count = pvzan_guess_end(g, complete ? 1 : 0, &told.result, found, 8);
    for (std::size_t i = 0; i < count; ++i) {
        told.candidates += std::string(found[i].name.shown) + " '" + found[i].reading + "' ";
    }
    told.sure = told.result.verdict == PVZAN_GUESS_SURE;
    told.charset = count > 0 ? found[0].name.shown : "";
    pvzan_guess_close(g);
    return told;
}

bool is_shipped(const std::string& name) {
    test::use_shipped_charsets();
    pvzan_converter* reads = pvzan_open(name.c_str(), "utf-8", nullptr, nullptr);
    pvzan_close(reads);
    return name.empty() || reads != nullptr;
}

TEST(Guess, SaysWhatTheRowsSay) {
    const char* const verdicts[] = {"none", "sure", "unsure", "binary"};
    for (const test::row_cells& row : test::rows_of("guesses.tsv", 6)) {
        const std::string &text = row[1], &language = row[2], &charset = row[4], &why = row[5];
        if (!is_shipped(charset)) {
            continue;
        }
        SCOPED_TRACE(text + ' ' + language);
        std::string all;
        for (int i = std::stoi(row[0]); i > 0; --i) {
            all += text;
        }
        const answer whole = guess(all, language.c_str());
        EXPECT_EQ(verdicts[whole.result.verdict], row[3]) << whole.candidates;
        EXPECT_TRUE(charset.empty() || whole.charset == charset) << whole.candidates;
        EXPECT_TRUE(std::string_view(whole.result.why).find(why) != why.npos) << whole.result.why;
        EXPECT_EQ(guess(all, language.c_str(), nullptr, 1).candidates, whole.candidates);
    }
}

// And a line that has no way back stays.
TEST(Repair, FindsAndUndoesWhatTheRowsSay) {
    test::use_shipped_charsets();
    for (const test::row_cells& row : test::rows_of("misreadings.tsv", 3)) {
        SCOPED_TRACE(row[0]);
        const std::string text = row[0] + "\n\xEB\x8B\x88\n";
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
        pvzan_misreading m = {};
        m.size = sizeof m;
        const bool found = pvzan_find_misreading(bytes, text.size(), &m) != 0;
        EXPECT_EQ(found ? m.words : "", row[1]);
        std::string out(3 * text.size(), '\0');
        std::uint64_t undone = 0;
        out.resize(pvzan_undo_misreading(&m, bytes, text.size(),
                                         reinterpret_cast<std::uint8_t*>(out.data()), out.size(),
                                         &undone));
        EXPECT_EQ(out, found ? row[2] + "\n\xEB\x8B\x88\n" : text);
        EXPECT_EQ(undone, found ? 1U : 0U);
    }
}

TEST(Guess, ReadsToTheEnd) {
    const std::string ascii(200000, 'a'), line = "\x82\xA0\x82\xA2\x82\xA4\x93\xFA\x96\x7B\n";
    std::string text = ascii + "\n", sets;
    for (int i = 0; i < 60000; ++i) {
        text += line;
        sets += "\x1B$B4A;z\x1B(B\n";
    }
    for (const std::size_t piece : {std::size_t{1} << 12, std::size_t{65536}, text.npos}) {
        EXPECT_EQ(guess(text, "C", nullptr, piece).charset, "Windows-31J");
        EXPECT_EQ(guess(sets + "\x1B$A<:\x1B(B\n", "C", nullptr, piece).charset, "ISO-2022-JP-2");
        const answer cut = guess(text + "\x82", "C", nullptr, piece);
        EXPECT_FALSE(cut.sure);
        EXPECT_EQ(cut.result.doubt, text.size());
        EXPECT_TRUE(guess(text + "\x82", "C", nullptr, piece, false).sure);
        std::string damaged = text;
        damaged[ascii.size() + 1 + 11 * 50000] = '\xFF';
        EXPECT_STREQ(guess(damaged, "C", nullptr, piece).result.why,
                     "but FF is invalid, at byte 750001");
    }
}

// Words behind those that are weighed first decide between charsets that read those alike; a single
// one of another language does not.
TEST(Guess, WeighsBytesThatComeLate) {
    std::string dos, german, english, chinese;
    for (int i = 0; i < 1500; ++i) { // a word that is repeated would count only twice
        dos += "Gr\x94\xE1" + std::to_string(i) + " ";
        german += "sch\xF6n" + std::to_string(i) + " ";
        english += "the \x93word" + std::to_string(i) + "\x94 it\x92s ";
        chinese += "\xA4\xA4\xA4\xE5" + std::to_string(i) + "\n";
    }
    EXPECT_EQ(guess(chinese + "\xA4\xA4\x88\x66\n", "C").charset,
              "Big5-HKSCS");                                               // private use in Big5
    EXPECT_EQ(guess(dos + "kostet 5 \xD5 heute\n", "C").charset, "CP858"); // the euro sign
    EXPECT_EQ(guess(german + "\xBDuvre n\xBDud c\xBDur s\xBDur\n", "C").charset, "ISO-8859-15");
    EXPECT_FALSE(guess(german + "Jana \xA6v\xE1rov\xE1\n", "C").sure);
    EXPECT_EQ(
        guess(english + "l\xFDu th\xFD m\xF5i \xF0\xF3 \xD0\xF3ng th\xE1ng n\xE3m\n", "C").charset,
        "Windows-1258");
    // 81, a fault, stands in a word that is weighed late.
    EXPECT_FALSE(guess(german + "caf\xE9\x81\xE9\n", "C", "windows-1252").sure);
}

TEST(Guess, TakesNames) {
    EXPECT_EQ(guess("\x93\xFA\x96\x7B", "C", "euc-jp,windows-31j").charset, "Windows-31J");
    EXPECT_EQ(guess("abc", "C", "euc-jp,cp932").charset, "Windows-31J");
    EXPECT_EQ(guess("B0D0", "C", "no such,utf-16").charset, "UTF-16LE");
    EXPECT_EQ(pvzan_guess(nullptr, 0, 1, nullptr), PVZAN_GUESS_SURE);
    EXPECT_EQ(pvzan_guess_feed(nullptr, nullptr, 0), 0);
    EXPECT_EQ(pvzan_guess_end(nullptr, 1, nullptr, nullptr, 0), 0U);
    pvzan_guess_close(nullptr);
}

} // namespace
