// Definitions, tables and caches that are hostile, huge, broken or half there, and a system that
// refuses what is asked of it.
#include "cconv/definition.h"
#include "cconv/names.h"
#include "cconv/table.h"
#include "platform/platform.h"
#include "tests/support/charset_directory.h"
#include "tests/support/child.h"
#include "tests/support/definitions.h"

#include <gtest/gtest.h>

#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-16\"?>\n";

std::string definition(const std::string& entities, const std::string& members) {
    return head + "<!DOCTYPE charset [\n" + entities + "]>\n<charset>\n<name>c</name>\n" +
           "<rule construle=\"constSAME\" destrule=\"destSAME\"/>\n" + members + "</charset>\n";
}

double cpu_seconds() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// A set in "wide.set" with a table in "wide.txt", 0x8100 to 0x81FF.
const test::charset_definition wide{"wide", "constSAME", "destSAME", {{"wide-set", 2, "wide.txt"}}};

void write_wide(const test::temp_dir& directory) {
    m_charsetpath[0] = '\0'; // whatever a test before this one settled
    test::write_definition(directory, wide);
    std::string pairs;
    for (int c = 0; c < 256; ++c) {
        char line[32];
        std::snprintf(line, sizeof line, "%X %X\r\n", 0x8100 + c, 0x3000 + c);
        pairs += line;
    }
    directory.write("wide.txt", test::widen(pairs + "  ", 2, false));
}

// Opens the charset and converts two characters to themselves; 1 when it is not to be had.
u32 convert_wide(const test::temp_dir& directory, std::string& out) {
    if (m_charsetpath[0] == '\0') {
        ZAN_setCharsetPath(directory.path().c_str());
    }
    const auto s = std::make_unique<session>();
    target_options target{};
    target.dstBigEndian = 1;
    const source_options source{.srcBigEndian = 1, .srcCheckBom = 0, .skipInvalid = 0};
    if (cconvInitConvert(s.get(), &target, "wide") != 0 ||
        cconvChgCharset(s.get(), &source, "wide") != 0) {
        return PVZAN_UNKNOWN_CHARSET;
    }
    const u8 in[] = {0x81, 0x41, 0x81, 0x42, 0x82, 0x00};
    u8 buffer[16];
    s->inBuf = in;
    s->inLen = sizeof in;
    s->outBuf = buffer;
    s->outLen = sizeof buffer;
    const u32 status = cconvConvert(s.get());
    out.assign(buffer, buffer + s->outPos);
    return status;
}

// The table has both characters and lacks the third.
void expect_wide(const test::temp_dir& directory) {
    std::string out;
    EXPECT_EQ(convert_wide(directory, out), PVZAN_INVALID_INPUT);
    EXPECT_EQ(out, "\x81\x41\x81\x42");
}

// ---- Definitions -------------------------------------------------------------------------------

TEST(HostileFiles, EntitiesThatNameNoFile) {
    const test::charset_directory directory;
    fs::create_directory(directory.file("folder"));
    ASSERT_EQ(::mkfifo(directory.file("pipe").c_str(), 0600), 0);
    fs::create_symlink("/dev/zero", directory.file("zero"));
    fs::create_symlink("loop", directory.file("loop"));
    const std::string names[] = {"x.xml", "folder",    "pipe", "zero",
                                 "loop",  "missing",   "",     "/",
                                 ".",     "/dev/zero", "..",   std::string(10000, 'n')};
    const std::string set = head + "<subseta>\n<name>s</name>\n<lang domain=\"\"/>\n" +
                            "<code bytenum=\"1\"/>\n<srtable>&t;</srtable>\n</subseta>\n";
    directory.write_utf16("good.set", set);
    for (const std::string& name : names) {
        const std::string long_name = name.size() > 100 ? name : "e";
        for (const bool for_table : {false, true}) {
            const std::string entity = "<!ENTITY t SYSTEM \"" + name + "\">\n<!ENTITY " +
                                       long_name + " SYSTEM \"" + (for_table ? "good.set" : name) +
                                       "\">\n";
            directory.write_utf16("x.xml",
                                  definition(entity, "<baseset>&" + long_name + ";</baseset>"));
            xmlReadXML("x.xml");
            for (basic_set* read : items_of<basic_set>(g_ProcessObject.basics)) {
                read->decodeTable->loaded = 0;
                loadTableFile(read->decodeTable);
                EXPECT_TRUE(name == "x.xml" || read->decodeTable->blocks->count == 0) << name;
            }
            test::charset_directory::clear_registry();
        }
    }
}

// Documents of nothing but one thing: sixteen times as much takes sixteen times as long, give or
// take the machine, not the square of it.
TEST(HostileFiles, TheWorstDocumentsTakeLinearTime) {
    const test::charset_directory directory;
    directory.write_utf16("d.set", head + "<subseta>\n<name>s</name>\n<lang domain=\"\"/>\n" +
                                       "<code bytenum=\"1\"/>\n</subseta>\n");
    const std::string entity = "<!ENTITY e SYSTEM \"d.set\">\n";
    const std::string one = "<baseset>&e;</baseset>";
    const struct {
        std::string before, unit, after;
    } cases[] = {
        {"", "<range ", ""},
        {"", "<range a/>", ""},
        {"", "<range>", ""},
        {one, "<dstable ", ""},
        {"<baseset>&e;", "<dstable/>", "</baseset>"},
        {"<baseset>&e;", "<dstable a=\"&x;\"/>", "</baseset>"},
        {"", one, ""},
        {"", "<baseset", ""},
        {one, "<diffset", ""},
        {"", "<!--", ""},
        {"", "<?", ""},
        {"<eudcset>", "/>", ""},
        {"", "&e ", ""},
    };
    for (const auto& c : cases) {
        const auto seconds = [&](std::size_t bytes) {
            std::string text = c.before;
            while (text.size() < bytes) {
                text += c.unit;
            }
            text += c.after;
            directory.write_utf16("x.xml", definition(entity, text));
            directory.write_utf16("r.set", head + "<subseta><name>r</name><lang domain=\"\"/>\n" +
                                               "<code bytenum=\"1\"/>" + text + "</subseta>");
            directory.write_utf16(
                "y.xml", definition("<!ENTITY r SYSTEM \"r.set\">\n", "<baseset>&r;</baseset>"));
            double best = 1e9;
            for (int i = 0; i < 3; ++i) {
                const double start = cpu_seconds();
                xmlReadXML("x.xml");
                test::charset_directory::clear_registry();
                xmlReadXML("y.xml");
                test::charset_directory::clear_registry();
                best = std::min(best, cpu_seconds() - start);
            }
            return best;
        };
        constexpr std::size_t small = 20000;
        EXPECT_LT(seconds(16 * small), 4 * 16 * (seconds(small) + 1e-4)) << c.before << c.unit;
    }
}

TEST(HostileFiles, AHugeDocumentIsOneMore) {
    const test::charset_directory directory;
    std::string text = test::widen(definition("", ""), 2, false);
    text.resize(100 << 20, ' ');
    directory.write("x.xml", "\xFF\xFE" + text);
    EXPECT_EQ(xmlReadXML("x.xml"), 1U);
    fs::resize_file(directory.file("x.xml"), std::uintmax_t{1} << 40);
    EXPECT_EQ(xmlReadXML("x.xml"), 0U);
}

TEST(HostileFiles, TenThousandDefinitions) {
    const test::temp_dir directory;
    write_wide(directory);
    const std::string text = test::widen(head + "<charset><name>n</name>", 2, false);
    for (int i = 0; i < 10000; ++i) {
        directory.write("f" + std::to_string(i) + ".xml", i % 2 != 0 ? text : "");
    }
    test::in_child([&] { expect_wide(directory); });
}

// ---- Caches and processes ----------------------------------------------------------------------

TEST(HostileFiles, CachesOfEveryLengthAndContent) {
    const test::temp_dir directory;
    write_wide(directory);
    test::in_child([&] { expect_wide(directory); });
    const std::string whole = directory.read("wide.cmp");
    ASSERT_EQ(whole.size(), 256U * 8);
    u32 seed = 1;
    for (std::size_t size = 0; size <= whole.size(); size += size < 64 ? 1 : 7) {
        for (const bool changed : {false, true}) {
            std::string bytes = whole.substr(0, size);
            for (char& byte : bytes) {
                seed = seed * 1664525 + 1013904223;
                byte = changed && seed >> 29 == 0 ? static_cast<char>(seed >> 16) : byte;
            }
            directory.write("wide.cmp", bytes);
            test::in_child([&] {
                std::string out;
                convert_wide(directory, out);
                if (!changed && size / 8 > 0x42) { // what is there counts
                    EXPECT_EQ(out, "\x81\x41\x81\x42");
                }
            });
        }
    }
}

// Processes killed at any moment of loading, others starting cold at once: a cache is whole or not
// there, and every one that lives converts rightly.
TEST(HostileFiles, ProcessesThatAreKilledOrStartTogether) {
    const test::temp_dir directory;
    write_wide(directory);
    std::string good;
    test::in_child([&] { expect_wide(directory); });
    good = directory.read("wide.cmp");
    for (useconds_t delay = 0; delay < 60; ++delay) {
        fs::remove(directory.file("wide.cmp"));
        pid_t children[3];
        for (pid_t& child : children) {
            child = ::fork();
            if (child == 0) {
                expect_wide(directory);
                std::_Exit(::testing::Test::HasFailure() ? 1 : 0);
            }
        }
        ::usleep(100 * delay);
        ::kill(children[0], SIGKILL);
        for (const pid_t child : children) {
            int status = 0;
            ::waitpid(child, &status, 0);
            EXPECT_TRUE(child == children[0] || status == 0) << delay;
        }
        EXPECT_EQ(directory.read("wide.cmp"), good);
    }
}

TEST(HostileFiles, AReadOnlyDirectoryWorksWithoutACache) {
    const test::temp_dir directory;
    write_wide(directory);
    fs::permissions(directory.path(), fs::perms{0555});
    test::in_child([&] {
        if (::geteuid() == 0) {
            ASSERT_EQ(::setuid(65534), 0); // the superuser may write everywhere
        }
        expect_wide(directory);
    });
    EXPECT_FALSE(directory.has("wide.cmp"));
    fs::permissions(directory.path(), fs::perms{0755});
}

TEST(HostileFiles, ADirectoryIsTakenLiterally) {
    const test::temp_dir outer;
    for (const char* name : {"a*", "[b]", "c\\", "d?", "~"}) {
        const std::string path = outer.file(name) + "/";
        fs::create_directory(path);
        const test::temp_dir made;
        write_wide(made);
        fs::copy(made.path(), path, fs::copy_options::recursive);
        test::in_child([&] {
            ZAN_setCharsetPath(path.c_str());
            expect_wide(made); // the path was settled before
        });
        EXPECT_TRUE(fs::exists(path + "wide.cmp")) << name;
    }
}

// With so many descriptors free: it works, or says that it does not; nothing stays wrong.
TEST(Faults, DescriptorsRunOut) {
    const test::temp_dir directory;
    write_wide(directory);
    for (rlim_t free = 0; free < 4; ++free) {
        fs::remove(directory.file("wide.cmp"));
        test::in_child([&] {
            const int next = ::open("/dev/null", O_RDONLY);
            ::close(next);
            rlimit limit{};
            ::getrlimit(RLIMIT_NOFILE, &limit);
            const rlimit low{static_cast<rlim_t>(next) + free, limit.rlim_max};
            ::setrlimit(RLIMIT_NOFILE, &low);
            std::string out;
            const u32 status = convert_wide(directory, out);
            EXPECT_TRUE(status == PVZAN_UNKNOWN_CHARSET || out == "\x81\x41\x81\x42") << free;
            EXPECT_TRUE(status == PVZAN_INVALID_INPUT || free < 2) << free;
            ::setrlimit(RLIMIT_NOFILE, &limit);
            expect_wide(directory);
        });
        test::in_child([&] { expect_wide(directory); });
    }
}

// A stream that gives little at a time and is interrupted in between.
ssize_t trickle(void* cookie, char* out, std::size_t size) {
    auto& rest = *static_cast<std::string_view*>(cookie);
    static int turn = 0;
    if (++turn % 3 == 0) {
        errno = EINTR;
        return -1;
    }
    const std::size_t count =
        std::min({size, rest.size(), turn % 2 != 0 ? std::size_t{1} : std::size_t{2}});
    rest.remove_prefix(rest.copy(out, count));
    return static_cast<ssize_t>(count);
}

TEST(Faults, ShortAndInterruptedReadsGoOn) {
    std::string text;
    for (int i = 0; i < 5000; ++i) {
        text += std::to_string(i % 10);
    }
    std::string_view rest = text;
    const owned_file file(::fopencookie(&rest, "r", {trickle, nullptr, nullptr, nullptr}));
    ASSERT_NE(file, nullptr);
    std::string got(text.size(), '\0');
    EXPECT_EQ(ZAN_FileRead(got.data(), 2, 1000, file.get()), 1000);
    EXPECT_EQ(ZAN_FileRead(got.data() + 2000, 1, 4000, file.get()), 3000);
    EXPECT_EQ(got, text);
    for (const auto& [size, count] : {std::pair(-1, 1), {1, -1}, {0, 5}, {-1, -1}}) {
        EXPECT_EQ(ZAN_FileRead(nullptr, size, count, file.get()), 0);
    }
}

} // namespace
