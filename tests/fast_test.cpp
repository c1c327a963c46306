// The fast path against the rules, in the same calls with the same text: the session and the bytes
// must be the same. The fuzzer's driver, which does that with texts and charsets that nobody
// thought of, is part of this program.
#include "cconv/fast/kernels/kernels.h"
#include "cconv/fast/pair.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/tables/table.h"
#include "fuzz/both_paths.h"
#include "fuzz/made_charset.h"
#include "tests/support/child.h"
#include "tests/support/convert.h"
#include "tests/support/temp_dir.h"

#include <barrier>
#include <filesystem>
#include <set>
#include <thread>
#include <unistd.h>

namespace {

using fuzz::both_paths;
using fuzz::made_charset;

test::conversion normalising(const char* from, const char* to, const std::u32string& text) {
    test::conversion c{.from = from, .to = to, .input = test::utf8(text)};
    c.target.convertNewline = 1;
    c.target.newlineMode = 1;
    return c;
}
std::string result_of(const test::conversion& c) {
    return test::run(c, {c.input}, 8 * c.input.size() + 64).bytes;
}
// Both ways; the characters that the fast path converted.
std::uint64_t compare(const test::conversion& c) {
    both_paths paths(c.from, c.to, c.source, c.target);
    paths.convert(test::bytes_of(c.input), 4000);
    return paths.fast_characters();
}

// These come first: the others settle the charset directory of the process.

// A table that is written to after it was loaded; one that counts as loaded, and empty, from the
// second attempt to read its missing file on; one of a Unicode charset.
TEST(Fast, SeesItsTablesChange) {
    const test::temp_dir directory;
    test::in_child([&] {
        ASSERT_EQ(ZAN_setCharsetPath(directory.path().c_str()), 1U);
        ASSERT_EQ(cconvLoadRule(), 0U);
        made_charset unicode("unicode", "destUTF-8", "constUTF-8");
        unicode.add(4);
        made_charset made("made-by-test", "destSAME", "constSAME");
        basic_set* set = made.add(1);
        made_charset::put(set, 'A', 0x4E00);
        made_charset late("made-late", "destSAME", "constSAME");
        table_object* table = late.add(1)->decodeTable;
        const test::conversion by_set{.from = "made-by-test", .to = "unicode", .input = "AAAAAA"},
            by_file{.from = "made-late", .to = "unicode", .input = "AAAAAA"};
        EXPECT_EQ(compare(by_set), 6U);
        putTable(set->decodeTable, 'A', 0x4E01);
        EXPECT_EQ(compare(by_set), 6U);
        EXPECT_EQ(compare(by_file), 6U);
        std::strcpy(table->fileName, "missing.tbl");
        EXPECT_EQ(loadTableFile(table), 0U);
        EXPECT_EQ(loadTableFile(table), 1U);
        EXPECT_EQ(compare(by_file), 0U);
        made_charset mapped("made-unicode", "destUTF-8", "constUTF-8");
        made_charset::put(mapped.add(4), 'B', 'A');
        compare({.from = "unicode", .to = "made-unicode", .input = "AAAAAA"});
    });
}

// No table is read, and no cache written, but those that the text needs.
TEST(Fast, TouchesNoFileUnasked) {
    const auto caches_after = [](bool off, char32_t scalar) {
        const test::temp_dir directory(test::without_caches);
        test::in_child([&] {
            ASSERT_EQ(ZAN_setCharsetPath(directory.path().c_str()), 1U);
            fast::by_hand.off = off;
            for (const char* to : {"shift_jis", "windows31j", "euc-jp", "iso-2022-jp", "gb18030"}) {
                ASSERT_NE(result_of(normalising("utf-8", to, std::u32string(100, scalar))), "");
            }
        });
        std::set<std::string> caches;
        for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
            if (entry.path().extension() == ".cmp") {
                caches.insert(entry.path().filename());
            }
        }
        return caches;
    };
    for (const char32_t scalar : {U'a', U'漢'}) {
        EXPECT_EQ(caches_after(false, scalar), caches_after(true, scalar));
    }
}

// Texts of many scripts, damaged or not, in every charset and in such as the driver makes: with
// sets of any width in any order, shared, user-defined, without CR or LF.
TEST(Fast, LeavesWhatTheRulesLeave) {
    LLVMFuzzerInitialize(nullptr, nullptr);
    std::mt19937 random(1);
    for (int round = 0; round < 3000; ++round) {
        std::string input(8, '\0');
        std::ranges::generate(input, [&] { return static_cast<char>(random()); });
        input[5] = static_cast<char>(random() % 3); // so often
        const auto run_length = std::array{3U, 24U, 400U}[random() % 3];
        input += test::utf8(test::random_text(random, 1 + random() % 400, run_length));
        const auto bytes = test::bytes_of(input);
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    fast::choose_kernels(nullptr);
    // Else it would be the rules against the rules.
    EXPECT_GT(both_paths::all_fast_characters, both_paths::all_characters * 3 / 10);
}

// A caller may put another rule into a session, which the charset's own pair is not for, or a
// language, whose tag is due.
TEST(Fast, GoesByTheSessionsRules) {
    test::use_shipped_charsets();
    const std::string text =
        "B0B0B0B0" + test::utf8(std::u32string(60, U'か')); // in UTF-16, あああ
    const auto convert = [&](const std::string& rule, bool off) {
        fast::by_hand.off = off;
        const auto s = test::open("utf-8", "shift_jis");
        if (!rule.empty()) {
            (rule[0] == 'd' ? s->srcRule : s->dstRule) = TheRule(rule.c_str());
        }
        s->baseLang[0] = 'x';
        std::vector<u8> out(1000);
        test::give_input(*s, text);
        s->outBuf = out.data();
        s->outLen = static_cast<i32>(out.size());
        cconvConvert(s.get());
        fast::by_hand.off = false;
        out.resize(static_cast<std::size_t>(s->outPos));
        return out;
    };
    for (const char* rule : {"", "constEUC-JP", "destUTF-16", "", "destUTF-16", "constUTF-8"}) {
        EXPECT_EQ(convert(rule, false), convert(rule, true)) << rule;
    }
    EXPECT_NE(convert("constEUC-JP", true), convert("", true));
}

// Every end of the input, with every room: letters with and without their marks, line breaks, cut
// characters, sets that change.
TEST(Fast, EndsAnywhere) {
    test::use_shipped_charsets();
    const std::u32string text =
        U"aか\u00E6あか\u309A\u00E6\u0300\r\nか\u309Aあ\r\U00020089いabc\nb漢ｶ\u00A5";
    constexpr std::array charsets = {"utf-8",       "utf-16",       "shift_jis-2004",
                                     "iso-2022-jp", "euc-jis-2004", "cp50222",
                                     "iso-2022-cn", "ibm939",       "iso-2022-jp-2"};
    for (std::size_t from = 0; from < charsets.size(); ++from) {
        std::string input = result_of(normalising("utf-8", charsets[from], text));
        if (from == 3) {
            input += "\r\x1B(J\x1B(B\n\r\x1B$B\n\x1B(B";
        }
        // Those with states from definitions to some of each kind.
        const std::size_t targets = from == 0 || from > 4 ? charsets.size() : 5;
        const std::size_t step = from > 4 ? 3 : 1;
        for (std::size_t to = 0; to < targets; to += step) {
            for (std::uint32_t mode = 0; mode < 3; ++mode) {
                test::conversion c = normalising(charsets[from], charsets[to], {});
                c.target.convertNewline = mode > 0 ? 1 : 0;
                c.target.newlineMode = mode == 2 ? 3 : mode;
                for (std::size_t size = 1; size <= input.size(); ++size) {
                    for (std::size_t room = 0; room < 3 * size + 8; ++room) {
                        both_paths(c.from, c.to, c.source, c.target)
                            .convert(test::bytes_of(input).first(size), room);
                    }
                }
            }
        }
    }
}

// Long texts of single bytes and to them, damaged or not, and of three pieces to other charsets,
// with line breaks converted or not.
TEST(Fast, ConvertsLongTexts) {
    test::use_shipped_charsets();
    // As if it began with plane 2 designated, of which a code then needs its shift alone.
    u32& initial = test::open("utf-8", "iso-2022-cn")->dstGroup->codes->initial;
    initial = with_set(initial, 2, 4);
    std::mt19937 random(1);
    fast::kernel_list list{};
    fast::list_kernels(list);
    for (int round = 0; round < 600; ++round) {
        const char* const single = std::array{"koi8-r", "windows-1252", "ibm037"}[random() % 3];
        const char* const other = std::array{"utf-8", "utf-16", "windows-1251"}[random() % 3];
        if (round % 100 == 0) {
            fast::choose_kernels(list[round / 100 % (std::ranges::find(list, nullptr) - list)]);
            fast::release();
        }
        test::conversion c{.from = single, .to = other, .input = std::string(900, 'a')};
        c.target.convertNewline = random() % 2;
        const std::size_t every = std::array{1U, 2U, 40U, 400U}[random() % 4];
        for (std::size_t at = random() % every; at < c.input.size(); at += 1 + random() % every) {
            c.input[at] = static_cast<char>(random());
        }
        compare(c);
        std::string there = result_of(c);
        there[random() % there.size()] ^= static_cast<char>(random() % 2);
        compare({.from = other, .to = single, .input = there, .target = c.target});
        std::string text, three[3];
        for (std::string& piece : three) {
            piece = std::array{
                "a", "bcdefg", "\n", "い", "漢字", "か\u309A", "ｶ", "한글", "丏"}[random() % 9];
        }
        for (int i = 0; i < 200; ++i) {
            text += three[random() % 3];
        }
        const char* const to =
            std::array{"iso-2022-jp", "iso-2022-jp-2004", "iso-2022-cn", "euc-jp",
                       "iso-2022-kr", "iso-2022-jp-2",    "cp50222"}[random() % 7];
        compare({.from = "utf-8", .to = to, .input = text, .target = c.target});
    }
    initial = with_set(initial, 2, no_set);
    fast::release();
    fast::choose_kernels(nullptr);
}

TEST(Fast, KernelsAreThoseThatTheProcessorRuns) {
    std::ptrdiff_t count = 1;
#if defined(__x86_64__)
    const bool avx2 = __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("bmi2") != 0;
    const bool vbmi =
        __builtin_cpu_supports("avx512vbmi2") != 0 && __builtin_cpu_supports("avx512vbmi") != 0 &&
        __builtin_cpu_supports("avx512bw") != 0 && __builtin_cpu_supports("avx512vl") != 0;
    count += (avx2 ? 1 : 0) + (avx2 && vbmi ? 1 : 0);
#endif
    fast::kernel_list list{};
    fast::list_kernels(list);
    EXPECT_EQ(std::ranges::find(list, nullptr) - list, count);
    // What would be a shift is not one in the middle of a pair.
    for (std::size_t at = 1; at < fast::chunk_bytes - 4; at += 2) {
        std::string in(1 + 2 * fast::chunk_bytes, '!'); // kernels look back
        in.replace(1 + at, 2, "~}");
        for (std::size_t i = 0; list[i]->decode_utf8 != nullptr; ++i) {
            u16 codes[4 * fast::chunk_codes];
            const fast::split_shifts by{{{'~', '{'}, 2}, {{'~', '}'}, 2}, 0, 0xC000};
            EXPECT_EQ(list[i]->split_shifted(test::bytes_of(in).data() + 1, 2, by, codes).bytes,
                      at - 1);
        }
    }
    // UTF-8 in too many bytes ends a block: the rules read it, strict conversion does not. So does
    // what is no UTF-8, whatever single bytes its characters would be.
    static fast::entry_word entries[fast::key_count];
    std::ranges::fill(entries, fast::one_byte | 'x');
    for (const std::string form : {"\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xBF",
                                   "\xC2", "\xE0\xA0", "\xC2\xC2\x80", "\xF0\x90\x80\x80"}) {
        for (std::size_t i = 0; list[i]->decode_utf8 != nullptr; ++i) {
            for (std::size_t at = 0; at + 3 < 2 * fast::chunk_bytes; ++at) {
                u16 scalars[4 * fast::chunk_codes];
                std::string text(2 + 2 * fast::chunk_bytes, 'a'); // kernels look back
                const u8* const in =
                    test::bytes_of(text.replace(2 + at, form.size(), form)).data() + 2;
                ASSERT_LE(list[i]->decode_utf8(in, 2, scalars).bytes, at);
                u8 out[2 * fast::chunk_bytes];
                fast::ascii_run run{in, text.size() - 2, out, sizeof out, {}};
                std::ranges::fill(run.plain.rows, 0xFF);
                ASSERT_TRUE(list[i]->put_utf8 == nullptr ||
                            list[i]->put_utf8(entries, run).read == at);
            }
        }
    }
}

TEST(Fast, CountsLineBreaks) {
    std::mt19937 random(1);
    fast::kernel_list list{};
    fast::list_kernels(list);
    for (int round = 0; round < 20000; ++round) {
        const fast::ascii_unit unit{1U << round % 3, random() % 2 == 0};
        const u8 lf = round % 5 == 0 ? 'a' : '\n';
        const bool is_long = round % 1000 == 1; // more line feeds than a byte can count
        const u32 most = is_long ? 100000 : round % 4 == 0 ? 1200 : 200;
        std::vector<u8> text(unit.bytes * (1 + random() % most));
        const char* const letters = is_long          ? "\n\n\n\n\n\n"
                                    : round % 2 == 0 ? "\r\n\0\0\0a"
                                                     : "aa\naaa";
        std::ranges::generate(text, [&] { return static_cast<u8>(letters[random() % 6]); });
        text[random() % text.size()] = round % 8 < 4 ? 0 : '\r';
        const std::size_t units = text.size() / unit.bytes - 1;
        const auto at = [&](std::size_t i) {
            return load_code(std::span(text).subspan(i * unit.bytes, unit.bytes), unit.big_endian);
        };
        u64 breaks = 0;
        for (std::size_t i = 0; i < units; ++i) {
            breaks += at(i) == lf || (at(i) == '\r' && at(i + 1) != lf) ? 1U : 0U;
        }
        constexpr fast::byte_set plain{0, 0x40, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0, 0, 0x01, 0, 0};
        const auto stop = static_cast<std::size_t>(std::ranges::find(text, 0) - text.begin());
        for (const fast::kernels* const* k = list; *k != nullptr; ++k) {
            ASSERT_EQ((*k)->count_breaks(text.data(), units, {unit, lf, '\r'}), breaks);
            std::vector<u8> out(text.size() + 70);
            fast::ascii_breaks counted{};
            const std::size_t from = random() % 70;
            const fast::ascii_run run{text.data(), text.size(), &out[from], out.size() - from,
                                      plain};
            ASSERT_EQ((*k)->copy_and_count(run, counted), stop);
            const std::span<const u8> copied(&out[from], stop);
            ASSERT_TRUE(std::ranges::equal(copied, std::span(text).first(stop)));
            ASSERT_EQ(counted.has_returns, std::ranges::count(copied, '\r') != 0);
            ASSERT_TRUE(counted.has_returns ||
                        std::cmp_equal(std::ranges::count(copied, '\n'), counted.line_feeds));
        }
    }
}

// ---- What is shared ----------------------------------------------------------------------------

// Many options, every pair of charsets: the budget holds, and the pair in use is as fast as ever.
TEST(Fast, StaysWithinItsBudget) {
    test::use_shipped_charsets();
    test::conversion in_use =
        normalising("utf-8", "shift_jis", std::u32string(500, U'漢') + U"abcかな\r\n");
    compare(in_use);
    const std::uint64_t at_first = compare(in_use);
    EXPECT_GE(at_first, 500U);
    in_use.target.useSubstitute = 1;
    for (std::uint16_t round = 0; round < 2000; ++round) {
        ++in_use.target.substChar2;
        compare(in_use);
    }
    for (const char* from : test::all_charsets) {
        for (const char* to : test::all_charsets) {
            compare({.from = from, .to = to, .input = in_use.input});
            ASSERT_LE(fast::bytes_claimed(), fast::budget_bytes);
        }
    }
    compare(in_use);
    EXPECT_EQ(compare(in_use), at_first);
    fast::release();
    EXPECT_EQ(fast::bytes_claimed(), 0U);
}

// Threads ask about characters while others run on what is known, and pairs are freed under them.
TEST(Fast, ThreadsAskAtOnce) {
    test::use_shipped_charsets();
    std::u32string text;
    for (char32_t c = U'ァ'; c <= U'ヶ'; ++c) { // each among known ones
        text += std::u32string(12, U'か') + std::u32string(12, U'な') + c + U'か' + U"AB\r\n";
    }
    const auto convert = [&](const char* to) { return result_of(normalising("utf-8", to, text)); };
    constexpr const char* targets[] = {"gb18030", "iso-2022-jp", "utf-16", "iso-10646-ucs-4"};
    for (int round = 0; round < 40; ++round) {
        const char* const to = targets[round % 4];
        fast::by_hand.off = true;
        const std::string alone = convert(to);
        fast::by_hand.off = false;
        fast::release();
        std::barrier start(4);
        std::vector<std::thread> running;
        for (int i = 0; i < 4; ++i) {
            running.emplace_back([&, i] {
                start.arrive_and_wait();
                for (int n = 0; i == 3 && n < 8; ++n) {
                    fast::release(); // under the others
                }
                EXPECT_TRUE(convert(to) == alone) << round;
            });
        }
        for (std::thread& thread : running) {
            thread.join();
        }
    }
    // A child of a fork converts, too, whatever another thread was asking about. Sanitizers leave
    // locks of their own behind there.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    const std::string alone = convert(targets[0]);
    std::atomic<bool> enough = false;
    std::thread asking([&] {
        while (!enough) {
            convert(targets[0]);
            fast::release();
        }
    });
    for (int child = 0; child < 40; ++child) {
        test::in_child([&] {
            ::alarm(20); // for a lock that nobody gives back
            EXPECT_TRUE(convert(targets[0]) == alone);
        });
    }
    enough = true;
    asking.join();
#endif
}

} // namespace
