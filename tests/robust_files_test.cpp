// Definitions, tables and caches that are hostile, huge, broken or half there, and a system that
// refuses what is asked of it.
#include "cconv/definition/definition.h"
#include "cconv/tables/table.h"
#include "platform/platform.h"
#include "tests/support/charset_directory.h"
#include "tests/support/child.h"
#include "tests/support/convert.h"
#include "tests/support/linear_time.h"

#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using std::operator""sv;

const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-16\"?>\n";

std::string definition(const std::string& entities, const std::string& members) {
    return head + "<!DOCTYPE charset [\n" + entities + "]>\n<charset>\n<name>c</name>\n" +
           "<rule construle=\"constSAME\" destrule=\"destSAME\"/>\n" + members + "</charset>\n";
}

// A set in "wide.set" with a table in "wide.txt", 0x8100 to 0x81FF.
const test::charset_definition wide{"wide", "constSAME", "destSAME", {{"wide-set", 2, "wide.txt"}}};

void write_wide(const test::temp_dir& directory) {
    m_charsetpath[0] = '\0'; // whatever a test before this one settled
    test::write_definition(directory, wide);
    test::pairs all;
    for (u32 c = 0; c < 256; ++c) {
        all.emplace_back(0x8100 + c, 0x3000 + c);
    }
    directory.write("wide.txt", test::as_text(all));
}

// Opens the charset and converts two characters to themselves; 1 when it is not to be had.
u32 convert_wide(const test::temp_dir& directory, std::string& out) {
    if (m_charsetpath[0] == '\0') {
        ZAN_setCharsetPath(directory.path().c_str());
    }
    session s{};
    const test::conversion c{"wide", "wide"};
    cconvInitConvert(&s, &c.target, c.to);
    cconvChgCharset(&s, &c.source, c.from);
    u8 buffer[16];
    test::give_input(s, "\x81\x41\x81\x42\x82\0"sv);
    test::give_output(s, buffer);
    const u32 status = cconvConvert(&s);
    out = test::written(s);
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
    const bool there = fs::exists("/.cmp"); // in the root directory, to which "/" may lead
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
    EXPECT_EQ(fs::exists("/.cmp"), there);
}

// Documents of nothing but one thing.
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
        test::expect_linear_time(c.before + c.unit, [&](std::size_t bytes) {
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
            return [] {
                for (const char* name : {"x.xml", "y.xml"}) {
                    xmlReadXML(name);
                    test::charset_directory::clear_registry();
                }
            };
        });
    }
}

TEST(HostileFiles, AHugeDocumentIsOneMore) {
    const test::charset_directory directory;
    std::string text = test::widen(definition("", ""), 2, false);
    text.resize(16 << 20, ' '); // little memory may be left where it goes
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

// Every pair asks for a block of its own, of the widest values there are, too: memory has its
// limit.
TEST(HostileFiles, SparseTablesEnd) {
    const test::charset_directory directory;
    test::pairs sparse;
    for (u32 i = 1; i <= 100000; ++i) {
        sparse.emplace_back(i * 0x9E3779B1, i * 0x9E3779B1);
    }
    directory.write("text.txt", test::as_text(sparse));
    directory.write("cache.cmp", test::as_cache(sparse));
    for (const char* name : {"text.txt", "cache.txt"}) {
        for (const u32 width : {0U, 4U, 0xFFFFU}) {
            const test::owned_table table = test::make_table(width, 1, name);
            loadTablFile(table.get());
            EXPECT_GE(table->blocks->count, 1U);
            EXPECT_LE(u64{table->blocks->count} * std::max(width, 4U), 1U << 16);
        }
    }
    EXPECT_FALSE(directory.has("text.cmp"));
}

// ---- Caches and processes ----------------------------------------------------------------------

// Processes killed at any moment of loading, others starting cold at once: a cache is whole or not
// there, and every one that lives converts rightly.
TEST(HostileFiles, ProcessesThatAreKilledOrStartTogether) {
    const test::temp_dir directory;
    write_wide(directory);
    test::in_child([&] { expect_wide(directory); });
    const std::string good = directory.read("wide.cmp");
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
        test::obey_permissions();
        expect_wide(directory);
    });
    EXPECT_FALSE(directory.has("wide.cmp"));
    fs::permissions(directory.path(), fs::perms{0755});
}

TEST(HostileFiles, ADirectoryIsTakenLiterally) {
    const test::temp_dir outer, made;
    write_wide(made);
    for (const char* name : {"a*", "[b]", "c\\", "d?", "~"}) {
        fs::copy(made.path(), outer.file(name));
        test::in_child([&] {
            ZAN_setCharsetPath(outer.file(name).c_str());
            expect_wide(made); // the path was settled before
        });
        EXPECT_TRUE(outer.has(name + std::string("/wide.cmp"))) << name;
    }
}

// With so many descriptors free: what could not be read stays unknown to this process, and to no
// other.
TEST(Faults, DescriptorsRunOut) {
    const test::temp_dir directory;
    write_wide(directory);
    for (const bool definitions_read : {false, true}) {
        for (rlim_t free = 0; free < 4; ++free) {
            fs::remove(directory.file("wide.cmp"));
            test::in_child([&] {
                ZAN_setCharsetPath(directory.path().c_str());
                if (definitions_read) {
                    cconvLoadRule();
                }
                const int next = ::open("/dev/null", O_RDONLY);
                ::close(next);
                rlimit limit{};
                ::getrlimit(RLIMIT_NOFILE, &limit);
                const rlimit low{static_cast<rlim_t>(next) + free, limit.rlim_max};
                ::setrlimit(RLIMIT_NOFILE, &low);
                std::string out;
                const u32 status = convert_wide(directory, out);
                ::setrlimit(RLIMIT_NOFILE, &limit);
                if (free < 2) {
                    EXPECT_TRUE(definitions_read || free > 0 || status == PVZAN_UNKNOWN_CHARSET);
                    convert_wide(directory, out);
                } else {
                    expect_wide(directory);
                }
            });
            test::in_child([&] { expect_wide(directory); });
        }
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
