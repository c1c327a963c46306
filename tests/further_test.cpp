// Charsets that are read when they are asked for: that nobody else pays for them, that they are
// found and told apart by name, and that threads may ask for any of them at any time.
#include "tests/support/charset_directory.h"
#include "tests/support/child.h"
#include "tests/support/convert.h"
#include "tests/support/temp_dir.h"

#include "pvzan_text.h"

#include <barrier>
#include <sys/inotify.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// ASCII of the directory's own set, and 80 for one character.
void write_further(const test::temp_dir& directory, const std::string& name, char32_t scalar) {
    const std::string own = "further/" + name;
    test::write_definition(directory,
                           {own,
                            "constSAME",
                            "destSAME",
                            {{"iso-646irv", -1, "iso-646irv.txt"}, {own, 1, own + ".txt"}}});
    directory.write(own + ".txt", test::as_text({{0x80, scalar}}));
}

// The shipped directory with further charsets of our own.
struct charset_tree : test::temp_dir {
    charset_tree() {
        fs::copy(PVZAN_BASE2_DIR, path(), fs::copy_options::recursive);
        fs::create_directory(file("further"));
    }
};

bool can_open(const char* charset) {
    const auto s = std::make_unique<pvzan_session>();
    return cconvInitConvert(s.get(), nullptr, charset) == PVZAN_DONE &&
           cconvChgCharset(s.get(), nullptr, charset) == PVZAN_DONE;
}

// How often each file of a directory is opened while something is done.
std::map<std::string, int> opened(const std::string& directory, const std::function<void()>& act) {
    const int watch = ::inotify_init1(IN_NONBLOCK);
    EXPECT_GE(::inotify_add_watch(watch, directory.c_str(), IN_OPEN), 0);
    act();
    std::map<std::string, int> counts;
    alignas(inotify_event) char events[1 << 16];
    const ssize_t bytes = ::read(watch, events, sizeof events);
    for (ssize_t at = 0; at < bytes;) {
        const auto* event = reinterpret_cast<const inotify_event*>(events + at);
        if (event->len > 0) {
            ++counts[event->name];
        }
        at += static_cast<ssize_t>(sizeof *event + event->len);
    }
    ::close(watch);
    return counts;
}

TEST(FurtherCharsets, CostOnlyThoseWhoAsk) {
    const charset_tree tree;
    for (unsigned i = 0; i < 500; ++i) {
        write_further(tree, "many-" + std::to_string(i), 0x3041 + i);
    }
    const auto open_shipped = [] {
        for (const char* name : test::all_charsets) {
            EXPECT_TRUE(can_open(name)) << name;
        }
    };
    test::in_child([&] {
        ZAN_setCharsetPath(tree.path().c_str());
        const auto at_start = opened(tree.path(), [] { EXPECT_EQ(cconvLoadRule(), 1U); });
        EXPECT_EQ(at_start.count("jis_x0208-1990.set"), 1U);
        for (const auto& [name, count] : at_start) {
            EXPECT_EQ(count, 1) << name;
        }
        EXPECT_EQ(opened(tree.file("further"), open_shipped).size(), 0U);
        // Its own four files, once, and none of what is read already.
        const auto open_one = [] { EXPECT_TRUE(can_open("Many-77")); };
        std::map<std::string, int> own;
        EXPECT_EQ(opened(tree.path(), [&] { own = opened(tree.file("further"), open_one); }).size(),
                  0U);
        EXPECT_EQ(own["many-77.xml"] + own["many-77.set"] + own["many-77.txt"], 3);
        EXPECT_EQ(opened(tree.file("further"), open_one).size(), 0U);
    });
    test::in_child([&] { // nothing but names is needed to list them
        ZAN_setCharsetPath(tree.path().c_str());
        const auto files = opened(tree.file("further"), [] {
            pvzan_name name = {};
            std::size_t count = 0;
            for (name.size = sizeof name; pvzan_each_charset(count, &name) == 1; ++count) {
            }
            EXPECT_GE(count, 500 + std::size(test::all_charsets));
        });
        EXPECT_EQ(files.size(), 0U);
    });
}

TEST(FurtherCharsets, AreFoundByNameAlone) {
    const charset_tree tree;
    // Numbers are hashes: 'o' + 2 'w' + 3 'n' is also 'm' + 2 'x' + 3 'n'.
    write_further(tree, "own", 0x20AC);
    write_further(tree, "mxn", 0x3042);
    write_further(tree, "utf-8", 0x3044);
    write_further(tree, "other", 0x3046);
    fs::rename(tree.file("further/other.xml"), tree.file("further/renamed.xml"));
    fs::create_directory(tree.file("further/no-file.xml"));
    write_further(tree, "lacks", 0x3048);
    fs::rename(tree.file("further/lacks.set"), tree.file("further/later.set"));
    test::in_child([&] {
        ZAN_setCharsetPath(tree.path().c_str());
        EXPECT_EQ(test::convert("own", "utf-8", "A\x80"), "A\u20AC");
        EXPECT_EQ(test::convert("MXN", "utf-8", "A\x80"), "A\u3042");
        EXPECT_EQ(test::convert("mxn", "utf-8", "A\x80"), "A\u3042");
        EXPECT_EQ(test::character_converter("own", "mxn")("\x80"), std::nullopt);
        EXPECT_EQ(test::convert("utf-8", "utf-16", "\u3042").size(), 2U);
        for (const char* name : {"other", "renamed", "no-file", "lacks", "../further/own", ".own",
                                 "further/own", "", "own.xml"}) {
            EXPECT_FALSE(can_open(name)) << name;
        }
        EXPECT_FALSE(can_open(std::string(5000, 'x').c_str()));
        // What could not be read is looked for again.
        fs::rename(tree.file("further/later.set"), tree.file("further/lacks.set"));
        EXPECT_TRUE(can_open("lacks"));
        write_further(tree, "new", 0x304A);
        EXPECT_TRUE(can_open("new"));
        // Behind the registry's end there is none to read into.
        while (g_ProcessObject.refCount > 0) {
            termProcess();
        }
        EXPECT_FALSE(can_open("own"));
        EXPECT_FALSE(can_open("mxn"));
    });
}

TEST(FurtherCharsets, AreOpenedByManyThreadsWhileOthersConvert) {
    constexpr unsigned count = 24, threads = 8;
    const charset_tree tree;
    for (unsigned i = 0; i < count; ++i) {
        write_further(tree, "many-" + std::to_string(i), 0x3041 + i);
    }
    test::in_child([&] {
        ZAN_setCharsetPath(tree.path().c_str());
        std::barrier start(std::ptrdiff_t{threads});
        std::vector<std::thread> running;
        for (unsigned thread = 0; thread < threads; ++thread) {
            running.emplace_back([&, thread] {
                start.arrive_and_wait();
                for (unsigned i = 0; i < count; ++i) {
                    const unsigned at = (thread / 2 * 5 + i) % count;
                    const std::string name = "many-" + std::to_string(at);
                    const std::string text = {'\xE3', '\x81', static_cast<char>(0x81 + at)};
                    if (thread % 2 == 0) {
                        EXPECT_EQ(test::convert(name.c_str(), "utf-8", "\x80"), text);
                        EXPECT_EQ(test::convert("utf-8", name.c_str(), text), "\x80");
                    } else {
                        EXPECT_EQ(test::convert("shift_jis", "euc-jp", "\x82\xA0"), "\xA4\xA2");
                        EXPECT_FALSE(can_open(("none-" + name).c_str()));
                    }
                }
            });
        }
        for (std::thread& thread : running) {
            thread.join();
        }
    });
}

} // namespace
