// The fast path against the rules, in the same calls with the same text: the session and the bytes
// must be the same. fuzz_lockstep does that with texts and charsets that nobody thought of.
#include "cconv/fast/kernels/kernels.h"
#include "cconv/fast/pair.h"
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

struct settings {
    pvzan_source_options source{.srcBigEndian = 1, .srcCheckBom = 0, .skipInvalid = 0};
    pvzan_target_options target = test::conversion::big_endian_target();
};

settings normalising(std::uint32_t mode) {
    settings how;
    how.target.convertNewline = 1;
    how.target.newlineMode = mode;
    return how;
}

std::string text_in(const char* charset, const std::u32string& text, bool big_endian = true) {
    test::conversion c{.from = "utf-8", .to = charset};
    c.target.dstBigEndian = big_endian ? 1 : 0;
    c.input = test::utf8(text);
    return test::run(c, {c.input}, 65536).bytes;
}

// Converts in calls of so many bytes.
void in_pieces(both_paths& paths, const std::string& text, std::size_t piece, std::size_t room) {
    paths.pieces(
        test::bytes_of(text), [=] { return piece; }, [=] { return room; });
}

settings random_settings(std::mt19937& random) {
    settings how;
    how.source.srcBigEndian = random() % 2;
    how.source.srcCheckBom = random() % 8 == 0;
    how.source.skipInvalid = random() % 4 == 0;
    how.target.dstBigEndian = random() % 4 != 0;
    how.target.dstWriteBom = random() % 8 == 0;
    how.target.useSubstitute = random() % 3 == 0;
    constexpr std::uint16_t substitutes[] = {'?', '*', '\r', 0x3013, 0x25A0, 0x2028, 0xFFFF};
    how.target.substChar1 = substitutes[random() % std::size(substitutes)];
    how.target.substChar2 = substitutes[random() % std::size(substitutes)];
    how.target.convertNewline = random() % 2;
    how.target.newlineMode = static_cast<std::uint32_t>(random() % 7);
    how.target.charRefMode = random() % 8 == 0;
    return how;
}

// These come first: the others settle the charset directory of the process.

// A table that is written to after it was loaded; one that counts as loaded, and empty, from the
// second attempt to read its missing file on.
TEST(Fast, SeesTablesChange) {
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
        const settings how;
        const auto convert = [&](const char* from) {
            both_paths paths(from, "unicode", how.source, how.target);
            paths.convert(test::bytes_of("AAAAAA"), 100);
            return paths.fast_characters();
        };
        EXPECT_EQ(convert("made-by-test"), 6U);
        putTable(set->decodeTable, 'A', 0x4E01);
        EXPECT_EQ(convert("made-by-test"), 6U);
        both_paths paths("made-late", "unicode", how.source, how.target);
        paths.convert(test::bytes_of("AAAAAA"), 100);
        std::strcpy(table->fileName, "missing.tbl");
        EXPECT_EQ(loadTableFile(table), 0U);
        EXPECT_EQ(loadTableFile(table), 1U);
        paths.convert(test::bytes_of("AAAAAA"), 100);
        EXPECT_EQ(paths.fast_characters(), 6U);
    });
}

// No table is read, and no cache written, but those that the text needs.
TEST(Fast, TouchesNoFileUnasked) {
    const auto caches_after = [](bool off, char32_t scalar) {
        const test::temp_dir directory(test::without_caches);
        test::in_child([&] {
            ASSERT_EQ(ZAN_setCharsetPath(directory.path().c_str()), 1U);
            fast::by_hand.off = off;
            pvzan_session s{};
            const settings how;
            for (const char* to : {"shift_jis", "windows31j", "euc-jp", "iso-2022-jp", "gb18030"}) {
                ASSERT_EQ(cconvInitConvert(&s, &how.target, to), 0U);
                ASSERT_EQ(cconvChgCharset(&s, &how.source, "utf-8"), 0U);
                std::vector<std::uint8_t> out(1000);
                const std::string text = text_in("utf-8", std::u32string(100, scalar) + U"A");
                test::give_input(s, text);
                test::give_output(s, out);
                ASSERT_EQ(cconvConvert(&s), 0U);
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

constexpr const char* told_charsets[] = {
    "iso-2022-jp-1",  "iso-2022-jp-2", "iso-2022-jp-3", "cp50220", "cp50221", "cp50222",
    "iso-2022-jp-ms", "iso-2022-kr",   "iso-2022-cn",   "hz",      "ibm939",  "ibm1390",
};

// Every pair of charsets, the rest at random; each set of kernels in turn.
TEST(Fast, LeavesWhatTheRulesLeave) {
    test::use_shipped_charsets();
    fast::kernel_list kernels{};
    fast::list_kernels(kernels);
    std::uint64_t characters = 0, by_fast_path = 0, seed = 0;
    for (std::size_t k = 0; kernels[k] != nullptr; ++k) {
        fast::release();
        fast::choose_kernels(kernels[k]);
        std::vector<std::pair<const char*, const char*>> all;
        for (const char* from : test::all_charsets) {
            for (const char* to : test::all_charsets) {
                all.emplace_back(from, to);
            }
            for (const char* told : told_charsets) {
                all.emplace_back(from, told);
                all.emplace_back(told, from);
            }
        }
        {
            for (const auto& [from, to] : all) {
                std::mt19937 random(static_cast<unsigned>(++seed));
                const settings how = random_settings(random);
                std::string text =
                    text_in(from,
                            test::random_text(random, 100 + random() % 2000,
                                              std::array{3U, 24U, 400U}[random() % 3]),
                            how.source.srcBigEndian != 0);
                // Anomalies: none, few, many.
                const auto damage = seed % 3;
                for (int n = damage == 0 ? 0 : damage == 1 ? 3 : 200; n > 0 && !text.empty(); --n) {
                    text[random() % text.size()] = static_cast<char>(random());
                }
                both_paths whole(from, to, how.source, how.target);
                whole.convert(test::bytes_of(text), 8 * text.size() + 100);
                const std::size_t room = static_cast<std::size_t>(whole.session().outPos);
                both_paths exact(from, to, how.source, how.target);
                exact.convert(test::bytes_of(text), room - room % 2 * (random() % 2));
                constexpr std::size_t rooms[] = {8, 30, 96, 1000};
                both_paths pieces(from, to, how.source, how.target);
                in_pieces(pieces, text, 1 + random() % 300, rooms[random() % 4]);
                // In place, where the rules alone may get it right.
                both_paths one_buffer(from, to, how.source, how.target);
                for (std::size_t at = 0;
                     one_buffer.step(test::bytes_of(text), at, text.size(), true);) {
                }
                characters += damage == 0 ? whole.characters() : 0;
                by_fast_path += damage == 0 ? whole.fast_characters() : 0;
            }
        }
    }
    fast::choose_kernels(nullptr);
    fast::release();
    // Else it would be the rules against the rules.
    EXPECT_GT(by_fast_path, characters * 6 / 10);
}

// Every end of the input, with every room: letters with and without their marks, line breaks, cut
// characters, sets that change.
TEST(Fast, EndsAnywhere) {
    test::use_shipped_charsets();
    const std::u32string text =
        U"aか\u00E6あか\u309A\u00E6\u0300\r\nか\u309Aあ\r\U00020089い\nb漢ｶ\u00A5";
    const std::string_view told[] = {"cp50222", "iso-2022-jp-2", "iso-2022-cn", "ibm939"};
    for (const char* from : {"utf-8", "utf-16", "shift_jis-2004", "euc-jis-2004", "iso-2022-jp",
                             "cp50222", "iso-2022-jp-2", "iso-2022-cn", "ibm939"}) {
        const bool first = std::string_view(from) == "utf-8";
        const bool is_told = std::ranges::find(told, from) != std::end(told);
        std::string input = text_in(from, text);
        if (std::string_view(from) == "iso-2022-jp") {
            input += "\r\x1B(J\x1B(B\n\r\x1B$B\n\x1B(B";
        }
        for (const char* to : {"utf-16", "utf-8", "shift_jis-2004", "euc-jp", "iso-2022-jp",
                               "cp50222", "iso-2022-jp-2", "iso-2022-cn", "ibm939"}) {
            if ((is_told && std::string_view(to) != "utf-8") ||
                (!first && std::ranges::find(told, to) != std::end(told))) {
                continue;
            }
            for (const std::uint32_t mode : {0U, 1U, 3U}) {
                const settings how = normalising(mode);
                for (std::size_t size = 1; size <= input.size(); ++size) {
                    for (std::size_t room = 0; room < 3 * size + 8; ++room) {
                        both_paths paths(from, to, how.source, how.target);
                        paths.convert(test::bytes_of(input).first(size), room);
                    }
                }
            }
        }
    }
}

// ---- What it rests on --------------------------------------------------------------------------

// What the fuzzer makes of random choices: charsets with sets of any width in any order, shared,
// user-defined, with extra tables, without CR or LF; and both shipped ends, with marks and tags.
TEST(Fast, HoldsForCharsetsOfOnesOwn) {
    LLVMFuzzerInitialize(nullptr, nullptr);
    std::mt19937 random(1);
    for (int round = 0; round < 6000; ++round) {
        std::vector<std::uint8_t> input(40);
        std::ranges::generate(input, [&] { return static_cast<std::uint8_t>(random()); });
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    fast::choose_kernels(nullptr);
}

// Answers given under other options, or other tables, are no answers.
TEST(Fast, KeepsAnswersApart) {
    test::use_shipped_charsets();
    const std::string text = test::utf8(U"A\r\nか\\~é\r\u2028漢\U00020089\n\uE000☃");
    const std::string tagged = test::utf8(U"a\U000E0001\U000E006A\U000E0061漢\U000E0041字");
    std::mt19937 random(7);
    for (int round = 0; round < 800; ++round) {
        settings how = random_settings(random);
        how.target.charRefMode = static_cast<std::uint32_t>(random() % 3);
        std::strcpy(how.target.langTag, random() % 3 == 0 ? "ja" : "");
        constexpr const char* targets[] = {"iso-10646-ucs-2", "utf-16", "shift_jis", "iso-2022-jp"};
        both_paths paths("utf-8", targets[random() % 4], how.source, how.target);
        paths.convert(test::bytes_of(text), 200);
        paths.convert(test::bytes_of(tagged), 200);
        paths.change_source("shift_jis");
        paths.convert(test::bytes_of(text), 200);
    }
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
}

// UTF-8 in too many bytes ends a block: the rules read it, strict conversion does not.
TEST(Fast, EndsBlocksAtOverLongForms) {
    fast::kernel_list list{};
    fast::list_kernels(list);
    for (const std::string form : {"\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF"}) {
        for (std::size_t i = 0; list[i]->has_blocks; ++i) {
            for (std::size_t at = 0; at + 3 < 2 * fast::chunk_bytes; ++at) {
                u16 scalars[4 * fast::chunk_codes];
                const std::string in =
                    std::string(2 * fast::chunk_bytes, 'a').replace(at, form.size(), form);
                ASSERT_LE(list[i]->decode_utf8(test::bytes_of(in).data(), 2, scalars).bytes, at);
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
        std::vector<u8> text(unit.bytes * (1 + random() % (round % 4 == 0 ? 1200 : 200)));
        std::ranges::generate(text, [&] { return static_cast<u8>("\r\n\0\0\0a"[random() % 6]); });
        const std::size_t units = text.size() / unit.bytes - 1;
        const auto at = [&](std::size_t i) {
            return load_code(std::span(text).subspan(i * unit.bytes, unit.bytes), unit.big_endian);
        };
        u64 breaks = 0;
        for (std::size_t i = 0; i < units; ++i) {
            breaks += at(i) == lf || (at(i) == '\r' && at(i + 1) != lf) ? 1U : 0U;
        }
        for (const fast::kernels* const* k = list; *k != nullptr; ++k) {
            ASSERT_EQ((*k)->count_breaks(text.data(), units, {unit, lf, '\r'}), breaks);
        }
    }
}

// ---- What is shared ----------------------------------------------------------------------------

// Many options, every pair of charsets: the budget holds, and the pair in use is as fast as ever.
TEST(Fast, StaysWithinItsBudget) {
    test::use_shipped_charsets();
    const std::string text = text_in("utf-8", std::u32string(500, U'漢') + U"abcかな\r\n");
    const auto share = [&](const settings& how) {
        both_paths paths("utf-8", "shift_jis", how.source, how.target);
        paths.convert(test::bytes_of(text), 4000);
        return paths.fast_characters();
    };
    settings how = normalising(1);
    share(how);
    const std::uint64_t at_first = share(how);
    for (unsigned round = 0; round < 2000; ++round) {
        how.target.useSubstitute = 1;
        how.target.substChar2 = static_cast<std::uint16_t>(0x4E00 + round);
        share(how);
    }
    for (const char* from : test::all_charsets) {
        for (const char* to : test::all_charsets) {
            both_paths paths(from, to, how.source, how.target);
            paths.convert(test::bytes_of(text), 4000);
            ASSERT_LE(fast::bytes_claimed(), fast::budget_bytes);
        }
    }
    share(how);
    EXPECT_EQ(share(how), at_first);
    EXPECT_GE(at_first, 500U);
    fast::release();
    EXPECT_EQ(fast::bytes_claimed(), 0U);
}

// Threads ask about characters while others run on what is known, and pairs are freed under them.
TEST(Fast, ThreadsAskAtOnce) {
    test::use_shipped_charsets();
    std::u32string scalars;
    for (char32_t c = U'ァ'; c <= U'ヶ'; ++c) { // each among known ones
        scalars += std::u32string(12, U'か') + std::u32string(12, U'な') + c + U'か' + U"AB\r\n";
    }
    const std::string text = test::utf8(scalars);
    const auto convert = [&](const char* to) {
        const auto s = std::make_unique<pvzan_session>();
        const settings how = normalising(1);
        EXPECT_EQ(cconvInitConvert(s.get(), &how.target, to), 0U);
        EXPECT_EQ(cconvChgCharset(s.get(), &how.source, "utf-8"), 0U);
        std::vector<std::uint8_t> output(text.size() * 2);
        test::give_input(*s, text);
        test::give_output(*s, output);
        EXPECT_EQ(cconvConvert(s.get()), PVZAN_DONE);
        return test::written(*s);
    };
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
                    fast::free_unheld(); // under the others
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
            fast::free_unheld();
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
