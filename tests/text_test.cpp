// Strict conversion by the handle of pvzan_text.h.
#include "tests/support/convert.h"
#include "tests/support/linear_time.h"
#include "tests/support/loops.h"
#include "tests/support/oracle.h"
#include "tests/support/rows.h"

#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <thread>
#include <vector>

thread_local FILE *loop_in, *loop_out;

size_t need_input(unsigned char* in, size_t size) {
    return std::fread(in, 1, size, loop_in);
}
void take_output(const unsigned char* out, int32_t size) {
    std::fwrite(out, 1, static_cast<size_t>(size), loop_out);
}

namespace {

using namespace test;
using namespace std::string_literals;

struct outcome {
    std::string text, faults; // kind@offset+length line:column why, for each
    bool operator==(const outcome&) const = default;
};
void PrintTo(const outcome& o, std::ostream* to) {
    *to << to_hex(o.text) << '\n' << o.faults;
}

struct conversion {
    const char *from, *to;
    pvzan_open_options how = {};
    std::uint32_t answer = PVZAN_HEX;

    [[nodiscard]] pvzan_converter* open() const {
        use_shipped_charsets();
        pvzan_open_options asked[] = {how, {}}; // a record with fields that are not known here
        asked->size = sizeof asked;
        asked[1].size = 1;
        pvzan_error error = {};
        error.size = sizeof error;
        EXPECT_EQ(pvzan_open(from, to, asked, &error), nullptr);
        asked[1].size = 0;
        pvzan_converter* c = pvzan_open(from, to, asked, &error);
        EXPECT_NE(c, nullptr) << error.text;
        return c;
    }
};

std::uint32_t note_fault(pvzan_converter* c, outcome& result) {
    pvzan_fault f = {};
    f.size = sizeof f;
    EXPECT_EQ(pvzan_last_fault(c, &f), 1);
    char line[300], why[256];
    const std::size_t size = pvzan_explain(c, why, sizeof why);
    EXPECT_EQ(std::strlen(why), size);
    EXPECT_EQ(pvzan_explain(c, nullptr, 0), size);
    std::snprintf(line, sizeof line, "%s%u@%d+%u %s", result.faults.empty() ? "" : " / ", f.kind,
                  static_cast<int>(f.offset), f.length, why);
    result.faults += line;
    return f.length;
}

void note_counts(const pvzan_converter* c, outcome& result) {
    pvzan_counts counts = {};
    counts.size = sizeof counts;
    pvzan_count(c, &counts);
    if (counts.composed + counts.look_alikes > 0) {
        result.faults += (result.faults.empty() ? "" : " / ") + std::to_string(counts.composed) +
                         " composed, " + std::to_string(counts.look_alikes) + " look-alikes";
    }
}

bool stands_as_saved(const pvzan_converter* c) {
    std::uint8_t state[512];
    return pvzan_stands_as(c, state, pvzan_save(c, state, sizeof state)) == 1;
}

// Feeds a piece, with so much room at a time. The caller's own words for a fault are "<あ>", or two
// bytes.
void feed(pvzan_converter* c, std::string_view piece, std::int32_t how, std::size_t room,
          std::uint32_t answer, outcome& result) {
    const std::string words = answer == PVZAN_WRITE_RAW ? "\x01\xFF" : "<あ>";
    const std::uint8_t* in = bytes_of(piece).data();
    std::size_t left = piece.size();
    const auto taken = [&](auto call) {
        std::vector<std::uint8_t> out(room + 1, 0xEE);
        std::uint8_t* end = out.data();
        std::size_t free = room;
        const pvzan_outcome said = call(&end, &free);
        EXPECT_EQ(out[room], 0xEE) << "behind the room";
        EXPECT_EQ(static_cast<std::size_t>(end - out.data()), room - free);
        result.text.append(reinterpret_cast<char*>(out.data()), room - free);
        return said;
    };
    const auto go_on = [&] {
        return taken(
            [&](auto** end, auto* free) { return pvzan_feed(c, &in, &left, end, free, how); });
    };
    const auto say = [&](std::string_view text) {
        const std::uint8_t* said = bytes_of(text).data();
        std::size_t more = text.size();
        pvzan_outcome outcome = PVZAN_FEED_MORE_ROOM;
        while (outcome == PVZAN_FEED_MORE_ROOM) {
            outcome = taken([&](auto** end, auto* free) {
                return pvzan_answer(c, static_cast<std::int32_t>(answer), &said, &more, end, free);
            });
        }
        return outcome;
    };
    ASSERT_EQ(say(words), PVZAN_FEED_MISUSE) << "there is no fault";
    pvzan_outcome said = PVZAN_FEED_MORE_ROOM;
    while (said == PVZAN_FEED_MORE_ROOM || said == PVZAN_FEED_FAULT) {
        said = go_on();
        ASSERT_TRUE(said != PVZAN_FEED_MORE_ROOM || stands_as_saved(c));
        if (said == PVZAN_FEED_FAULT) {
            const std::uint32_t length = note_fault(c, result);
            if (answer == PVZAN_TELL) { // it stays in the input
                in += length;
                left -= length;
                continue;
            }
            ASSERT_EQ(go_on(), PVZAN_FEED_FAULT) << "said again";
            ASSERT_TRUE(answer <= PVZAN_HEX || say({nullptr, 1}) == PVZAN_FEED_MISUSE);
            const pvzan_outcome answered = say(words);
            if (answer == PVZAN_WRITE_UTF8 && answered == PVZAN_FEED_FAULT) {
                pvzan_answer(c, PVZAN_DROP, nullptr, nullptr, nullptr, nullptr);
            } else {
                ASSERT_EQ(answered, PVZAN_FEED_DONE);
            }
        }
    }
    ASSERT_EQ(said, how == PVZAN_PART ? PVZAN_FEED_MORE_INPUT : PVZAN_FEED_DONE);
    ASSERT_EQ(left, 0U);
    if (how == PVZAN_LAST) {
        ASSERT_EQ(go_on(), PVZAN_FEED_MISUSE) << "the text has ended";
        note_counts(c, result);
    }
}

outcome convert(const conversion& way, std::string_view text, std::vector<std::size_t> cuts = {},
                std::size_t room = 1 << 16) {
    pvzan_converter* c = way.open();
    outcome result;
    std::size_t at = 0;
    cuts.push_back(text.size());
    for (const std::size_t cut : cuts) {
        feed(c, text.substr(at, cut - at), cut == text.size() ? PVZAN_LAST : PVZAN_PART, room,
             way.answer, result);
        at = cut;
    }
    pvzan_close(c);
    return result;
}

std::vector<std::string> charsets() {
    use_shipped_charsets();
    std::vector<std::string> names;
    pvzan_name name = {};
    for (name.size = sizeof name; pvzan_each_charset(names.size(), &name) == 1;) {
        names.emplace_back(name.charset);
    }
    return names;
}

std::string sample() {
    return utf8(U"日本語 abc\r\n\\~ｱｶﾞ〜～−－ か\u309Aæ\u0300\u02E9\u02E5 "
                U"é𠂉㐂Ê\u0304Êê\u030C\r髙①中文简体 한국어 Ж"
                U"\nは\u3099u\u0308\u0304\u2028\uE000終");
}

// ---- Texts with damage -------------------------------------------------------------------------

// Left off and gone on with elsewhere, in one call, and as long as was said.
void expect_same_elsewhere(conversion way, const std::string& text, const outcome& whole,
                           std::size_t chance) {
    pvzan_converter *first = way.open(), *second = way.open();
    outcome halves;
    const std::size_t half = chance % (text.size() + 1);
    std::uint8_t state[512];
    feed(first, std::string_view(text).substr(0, half), PVZAN_PART, 9, way.answer, halves);
    const std::size_t size = pvzan_save(first, state, sizeof state);
    ASSERT_EQ(pvzan_restore(second, state, size), 1);
    ASSERT_TRUE(pvzan_stands_as(first, state, size) == 1 &&
                pvzan_stands_as(second, state, size) == 1);
    pvzan_counts counts[2] = {};
    for (pvzan_converter* each : {first, second}) {
        counts[each == second].size = sizeof counts[0];
        pvzan_count(each, &counts[each == second]);
    }
    EXPECT_EQ(std::memcmp(&counts[0], &counts[1], sizeof counts[0]), 0);
    feed(second, std::string_view(text).substr(half), PVZAN_LAST, 9, way.answer, halves);
    ASSERT_EQ(halves, whole) << to_hex(text) << " saved at " << half;
    state[chance % size] ^= 1;
    EXPECT_EQ(pvzan_restore(second, state, size), 0);
    pvzan_close(first);
    pvzan_close(second);
    if (way.answer > PVZAN_HEX) {
        return;
    }
    way.how.on_invalid = way.how.on_missing = way.how.on_cut = way.answer;
    pvzan_converter* inside = way.open();
    std::vector<std::uint8_t> out(pvzan_most(inside, text.size()));
    pvzan_outcome said = PVZAN_FEED_FAULT;
    const std::size_t bytes =
        pvzan_convert(inside, bytes_of(text).data(), text.size(), out.data(), out.size(), &said);
    ASSERT_EQ(said, PVZAN_FEED_DONE) << to_hex(text);
    ASSERT_EQ(std::string(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(bytes)),
              whole.text);
    pvzan_close(inside);
}

TEST(Text, IsTheSameInAnyPiecesAndAnyRoom) {
    std::mt19937 random(7);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    const std::vector<std::string> all = charsets();
    ASSERT_GT(all.size(), 70U);
    for (int round = 0; round < 500; ++round) {
        conversion way{
            all[below(round % 4 == 0 ? 5 : all.size())].c_str(), // Unicode is at the head
            round % 2 == 0 ? "utf-8" : all[below(all.size())].c_str()};
        way.how.flags = static_cast<std::uint32_t>(below(8));
        way.how.breaks = static_cast<std::uint32_t>(below(4));
        way.how.mark = static_cast<std::uint32_t>(below(4));
        way.answer = PVZAN_DROP + static_cast<std::uint32_t>(below(6));
        conversion there{"utf-8", way.from, {}, PVZAN_DROP};
        there.how.mark = way.how.mark;
        there.how.to_order = static_cast<std::uint32_t>(below(3));
        std::string text = convert(there, sample()).text.substr(0, 40 + below(60));
        for (std::size_t i = below(5); i > 0 && !text.empty(); --i) {
            constexpr char odd[] = "\x1B\x81\x8F\xFF\x80\n$\xE3";
            const char byte = i % 2 == 0 ? odd[below(8)] : static_cast<char>(below(256));
            text[below(text.size())] = byte;
        }
        const outcome whole = convert(way, text);
        const std::string about = std::string(way.from) + " to " + way.to + " " + to_hex(text);
        std::vector<std::size_t> everywhere;
        for (std::size_t cut = 1; cut < text.size(); ++cut) {
            everywhere.push_back(cut);
            ASSERT_EQ(convert(way, text, {cut}, 7), whole) << about << " cut at " << cut;
        }
        for (const std::size_t room : {1U, 2U, 4U, 5U, 16U}) {
            ASSERT_EQ(convert(way, text, everywhere, room), whole) << about << " room " << room;
        }
        expect_same_elsewhere(way, text, whole, random());
    }
}

// What only differs in what was designated, held back or left undecided is another state.
TEST(Text, TellsStatesApart) {
    const struct {
        const char *from, *one, *other;
    } rows[] = {{"iso-2022-jp-2004", "\x1B$(P", "\x1B$(Q"}, // planes of one set
                {"iso-2022-jp", "\x1B$B", "\x1B(B"},
                {"hz", "~{", "~}"},
                {"shift_jis", "\x82", "\x83"},
                {"utf-16", "\xFE\xFF", "\xFF\xFE"},
                {"utf-8", "\r", "\n"}};
    for (const auto& row : rows) {
        std::uint8_t states[2][512];
        for (const int i : {0, 1}) {
            pvzan_converter* c = conversion{row.from, "utf-8"}.open();
            outcome none;
            feed(c, i == 0 ? row.one : row.other, PVZAN_PART, 9, PVZAN_DROP, none);
            const std::size_t size = pvzan_save(c, states[i], sizeof states[i]);
            EXPECT_EQ(pvzan_stands_as(c, states[0], size), i == 0 ? 1 : 0) << row.from;
            EXPECT_EQ(pvzan_begin_in(c, 0x47D5D823), 0) << row.from;
            pvzan_close(c);
        }
    }
}

TEST(Text, TellsFaultsInLinearTime) {
    expect_linear_time("faults that are told", [](std::size_t bytes) {
        std::string text;
        while (text.size() < bytes) {
            text += "\x93\xFA\xFF";
        }
        return [text] {
            std::vector<std::uint8_t> room(2 * text.size());
            const std::uint8_t* in = bytes_of(text).data();
            std::uint8_t* out = room.data();
            std::size_t left = text.size(), free = room.size();
            pvzan_converter* c = conversion{"shift_jis", "utf-8"}.open();
            while (pvzan_feed(c, &in, &left, &out, &free, PVZAN_LAST) == PVZAN_FEED_FAULT) {
                pvzan_answer(c, PVZAN_DROP, nullptr, nullptr, &out, &free);
            }
            pvzan_close(c);
        };
    });
}

// What iconv(3) takes we take, and nothing else.
TEST(Text, FindsFaultsWhereIconvDoes) {
    std::mt19937 random(3);
    const struct {
        const char *ours, *theirs;
    } rows[] = {{"utf-8", "UTF-8"}, {"utf-16le", "UTF-16LE"}, {"ucs-4be", "UTF-32BE"}};
    for (const auto& row : rows) {
        oracle theirs(row.theirs, "UTF-16BE");
        const std::string sound = convert({"utf-8", row.ours, {}, PVZAN_DROP}, sample()).text;
        for (int round = 0; round < 3000 && theirs.available(); ++round) {
            std::string text = sound.substr(0, 1 + random() % sound.size());
            text[random() % text.size()] = static_cast<char>(random());
            EXPECT_EQ(convert({row.ours, "utf-16be"}, text).faults.empty(),
                      theirs(text).has_value())
                << row.ours << ' ' << to_hex(text);
        }
    }
}

// ---- What comes through ------------------------------------------------------------------------

// What a charset takes comes back. All of Unicode, but for most of the planes from 3 on.
TEST(Text, ComesBackAsItIs) {
    std::u32string everything;
    for (char32_t c = 0; c < 0x30000; c += c == 0xD7FF ? 0x801 : 1) {
        everything += c;
    }
    everything += U"\U000E0001\U000F0000\U0010FFFF";
    const std::string text = utf8(everything);
    for (const std::string& charset : charsets()) {
        conversion there{"utf-8", charset.c_str(), {}, PVZAN_DROP};
        there.how.on_missing = PVZAN_DROP;
        const std::string taken = convert(there, text).text;
        const outcome back = convert({charset.c_str(), "utf-8"}, taken);
        EXPECT_EQ(back.faults.substr(0, 100), "") << charset;
        EXPECT_TRUE(convert(there, back.text).text == taken) << charset;
    }
}

// A word of strict.tsv.
void set_option(conversion& way, const std::string& word) {
    pvzan_open_options& how = way.how;
    const struct {
        const char* word;
        std::uint32_t *field, value;
    } words[] = {
        {"look-alikes", &how.flags, PVZAN_LOOK_ALIKES},
        {"compose", &how.flags, PVZAN_COMPOSE},
        {"read-back", &how.flags, PVZAN_READ_BACK},
        {"leave-input", &how.flags, PVZAN_LEAVE_INPUT},
        {"mark=keep", &how.mark, PVZAN_MARK_KEEP},
        {"mark=add", &how.mark, PVZAN_MARK_ADD},
        {"breaks=lf", &how.breaks, PVZAN_BREAKS_LF},
        {"breaks=cr", &how.breaks, PVZAN_BREAKS_CR},
        {"answer=substitute", &way.answer, PVZAN_SUBSTITUTE},
        {"answer=reference", &way.answer, PVZAN_REFERENCE},
        {"answer=utf-8", &way.answer, PVZAN_WRITE_UTF8},
        {"answer=skip", &way.answer, PVZAN_TELL},
        {"answer=raw", &way.answer, PVZAN_WRITE_RAW},
    };
    const auto* found = std::ranges::find_if(words, [&](const auto& w) { return w.word == word; });
    ASSERT_NE(found, std::end(words)) << word;
    *found->field = found->value;
}

TEST(Text, ConvertsAsTheTableSays) {
    for (const row_cells& row : rows_of("strict.tsv", 6)) {
        conversion way{row[0].c_str(), row[1].c_str()};
        std::istringstream words(row[2]);
        for (std::string word; words >> word;) {
            set_option(way, word);
        }
        const outcome got = convert(way, row[3]);
        EXPECT_EQ(to_hex(got.text), to_hex(row[4]))
            << row[0] << ' ' << to_hex(row[3]) << got.faults;
        EXPECT_EQ(row[5] == "*" ? "*" : got.faults, row[5]) << row[0] << ' ' << to_hex(row[3]);
    }
}

// ---- Other calls -------------------------------------------------------------------------------

// Every name means the charset it is listed for, however it is written; no two are alike.
TEST(Text, KnowsNames) {
    pvzan_name found = {};
    std::size_t count = 0;
    for (const std::string& charset : charsets()) {
        char name[64];
        for (std::size_t i = 0; pvzan_each_name(charset.c_str(), i, name, sizeof name) == 1; ++i) {
            std::string typed(name);
            std::ranges::replace(typed, '-', i % 2 == 0 ? '_' : ' ');
            std::ranges::transform(typed, typed.begin(), [](char c) {
                return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            });
            found.size = sizeof found;
            EXPECT_EQ(pvzan_resolve(typed.c_str(), 0, &found), 1) << typed;
            EXPECT_EQ(found.charset, charset) << typed;
            ++count;
        }
    }
    EXPECT_GT(count, 250U);
    const struct {
        const char* name;
        std::uint32_t flags;
        const char *charset, *shown;
        std::uint32_t order, mark, exact;
    } rows[] = {{"Shift-JIS", 0, "shift_jis", "Shift_JIS", 1, 0, 1},
                {"Shift-JIS", PVZAN_BROWSER_LABELS, "windows31j", "Windows-31J", 1, 0, 1},
                {"ks_c_5601-1987", 0, "koreanksc", "Windows-949", 1, 0, 0},
                {"euc-kr", PVZAN_BROWSER_LABELS, "koreanksc", "Windows-949", 1, 0, 1},
                {"utf-16", 0, "utf-16", "UTF-16", 1, 1, 1},
                {"utf-16le", 0, "utf-16", "UTF-16LE", 2, 0, 1},
                {"utf8-sig", 0, "utf-8", "UTF-8-SIG", 1, 2, 1},
                {"latin1", PVZAN_BROWSER_LABELS, "windows-1252", "Windows-1252", 1, 0, 1},
                {"unicode", 0, "", "UTF-16 or UCS-2", 0, 0, 0},
                {"windows-932x", 0, "", "Windows-31J", 0, 0, 0},
                {"cp20", 0, "", "", 0, 0, 0},
                {"shiftjs", 0, "", "Shift_JIS", 0, 0, 0},
                {"vixcxi", 0, "", "VISCII", 0, 0, 0}};
    for (const auto& row : rows) {
        found.size = sizeof found;
        EXPECT_EQ(pvzan_resolve(row.name, row.flags, &found), row.charset[0] != '\0' ? 1 : 0);
        EXPECT_STREQ(found.charset, row.charset) << row.name;
        EXPECT_STREQ(found.shown, row.shown) << row.name;
        EXPECT_TRUE(found.order == row.order && found.mark == row.mark && found.exact == row.exact)
            << row.name;
    }
}

// The examples of the headers, on several threads at once, which all open every charset.
TEST(Text, RunsTheLoopsOfTheHeaders) {
    use_shipped_charsets();
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([i] {
            loop_in = std::tmpfile();
            loop_out = std::tmpfile();
            const std::vector<std::string> all = charsets();
            for (std::size_t n = 0; n < all.size(); ++n) {
                const std::size_t at = n + all.size() / 8 * static_cast<std::size_t>(i);
                pvzan_close(conversion{all[at % all.size()].c_str(), "utf-8"}.open());
            }
            const bool strict = i % 2 == 0;
            const std::string sound(70001, static_cast<char>('a' + i)),
                text = sound + "\x82\xA0\xFF";
            std::fwrite(text.data(), 1, text.size(), loop_in);
            std::rewind(loop_in);
            EXPECT_EQ(strict ? convert_file(loop_in, loop_out, "shift_jis", "utf-8")
                             : convert_session("shift_jis", "utf-8"),
                      strict ? 0 : 1);
            std::string result(80000, '\0');
            std::rewind(loop_out);
            result.resize(std::fread(result.data(), 1, result.size(), loop_out));
            EXPECT_EQ(result, sound + (strict ? "あ\uFFFD" : "あ"));
            std::fclose(loop_in);
            std::fclose(loop_out);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace
