// Conversions on many threads, loading definitions and tables at once.
#include "cconv/registry/registry.h"
#include "tests/support/child.h"
#include "tests/support/convert.h"
#include "tests/support/temp_dir.h"

#include <barrier>
#include <filesystem>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace {

// Katakana, kanji, the yen sign and a dash that only extra tables have, in text long enough for
// threads to overlap.
std::string sample() {
    std::string text;
    for (int i = 0; i < 20; ++i) {
        text += "かな漢字ｶﾅABC\u00A5\u2014\u2016終\n";
    }
    return text;
}

// Converts there and, where the target can be read, back, and detects what was written.
std::string convert_both_ways(const char* to, const std::string& text) {
    const auto run = [](const char* from, const char* into, const std::string& input) {
        const test::outcome made = test::run({from, into}, {input}, input.size() * 6 + 64);
        return made.bytes + (made.stuck ? "stuck" : "");
    };
    const std::string there = run("utf-8", to, text);
    const auto request = std::make_unique<pvzan_detection_request>();
    request->text = reinterpret_cast<const std::uint8_t*>(there.data());
    request->textEnd = static_cast<std::int32_t>(there.size());
    cconvChkEncode(request.get());
    return there + request->encodingName + run(to, "utf-8", there);
}

// UTF-8 to every charset and back, beginning with another one for each thread: they meet at the
// loading of shared sets and extra tables.
std::vector<std::string> convert_all(std::size_t first) {
    const std::string text = sample();
    std::vector<std::string> results(std::size(test::all_charsets));
    for (std::size_t i = 0; i < std::size(test::all_charsets); ++i) {
        const std::size_t at = (first + i) % std::size(test::all_charsets);
        results[at] = convert_both_ways(test::all_charsets[at], text);
    }
    return results;
}

void expect_threads_agree(std::size_t threads, bool started_by_host,
                          const char* directory = PVZAN_BASE2_DIR) {
    if (started_by_host) {
        my_init();
    }
    ZAN_setCharsetPath(directory);
    std::vector<std::vector<std::string>> results(threads);
    std::barrier start(static_cast<std::ptrdiff_t>(threads));
    std::vector<std::thread> running;
    for (std::size_t i = 0; i < threads; ++i) {
        running.emplace_back([&, i] {
            start.arrive_and_wait();
            results[i] = convert_all(i);
        });
    }
    for (std::thread& thread : running) {
        thread.join();
    }
    // One thread alone, on what is loaded by now. And every definition was read once.
    const std::vector<std::string> alone = convert_all(0);
    for (std::size_t i = 0; i < threads; ++i) {
        EXPECT_TRUE(results[i] == alone) << "thread " << i;
    }
    std::size_t definitions = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        definitions += entry.path().extension() == ".xml";
    }
    EXPECT_EQ(g_ProcessObject.groups->count, definitions);
}

TEST(Threads, LoadAtOnce) {
    test::in_child([] { expect_threads_agree(2, true); });
    test::in_child([] { expect_threads_agree(2, false); });
    test::in_child([] { expect_threads_agree(32, true); });
}

// Tables are read as text, and their caches written.
TEST(Threads, FourLoadWithoutCaches) {
    const test::temp_dir directory(test::without_caches);
    test::in_child([&] { expect_threads_agree(4, true, directory.path().c_str()); });
    EXPECT_TRUE(directory.has("jis_x0208-1990.cmp"));
}

// Cancelled or forked at any moment of loading, a thread leaves no lock behind: others, and the
// child, go on to convert.
TEST(Threads, CancelAndForkLeaveNoLock) {
    const auto convert = [] {
        ::alarm(60); // for a lock that nobody gives back
        EXPECT_EQ(convert_both_ways("shift_jis", "かな漢字ｶﾅABC\u00A5\u2014\u2016終\n"),
                  "\x82\xA9\x82\xC8\x8A\xBF\x8E\x9A\xB6\xC5"
                  "ABC\\\x81\x5C\x81\x61\x8F\x49\n"
                  "WINDOWS31J"
                  "かな漢字ｶﾅABC\\\u2015\u2225終\n");
    };
    for (useconds_t delay = 0; delay < 10 && !::testing::Test::HasFailure(); ++delay) {
        for (const bool cancel : {true, false}) {
            const test::temp_dir directory(test::without_caches);
            test::in_child([&] {
                ZAN_setCharsetPath(directory.path().c_str());
                test::use_shipped_charsets(); // not in the thread: a fork may interrupt it
                pthread_t loading{};
                const auto load_all = [](void*) -> void* {
                    convert_all(0);
                    return nullptr;
                };
                ASSERT_EQ(::pthread_create(&loading, nullptr, load_all, nullptr), 0);
                ::usleep(1000 + delay * delay * 1500);
                if (cancel) {
                    ::pthread_cancel(loading);
                } else {
                    test::in_child(convert);
                }
                ::pthread_join(loading, nullptr);
                convert();
            });
        }
    }
}

} // namespace
