// The program that builds the charset directory: what it refuses, and what it writes.
#include "cconv/definition/document.h"
#include "cconv/tables/table.h"
#include "tests/support/oracle.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct program_result {
    int status;
    std::string output;
};

program_result run_program(const std::string& command) {
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    std::string output;
    char buffer[4096];
    while (std::size_t count = std::fread(buffer, 1, sizeof buffer, pipe)) {
        output.append(buffer, count);
    }
    const int status = ::pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

// A small charset with one of everything, whose files a case then spoils.
struct source_tree {
    test::temp_dir place;

    source_tree() {
        fs::copy(PVZAN_SOURCE_DIR "/tests/data/charsets", place.file("source"),
                 fs::copy_options::recursive);
    }

    // Replaces a text that stands in the file; an empty one stands for the whole file, be it there
    // or not.
    void spoil(const std::string& file, const std::string& text, const std::string& by) const {
        std::string content = place.read("source/" + file);
        const std::size_t start = content.find(text);
        ASSERT_NE(start, std::string::npos) << file << " lacks " << text;
        content.replace(start, text.empty() ? content.size() : text.size(), by);
        place.write("source/" + file, content);
    }

    program_result build(const std::string& overlay = "") const {
        return run_program(PVZAN_BUILD_CHARSETS " " + place.file("source") + " " +
                           place.file("output") + " " + overlay);
    }
};

// \n, \t and \xNN, as they are written in C.
std::string unescaped(const std::string& text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char kind = text[at] == '\\' ? text[++at] : '\0';
        if (kind == 'x') {
            result += static_cast<char>(std::stoul(text.substr(at + 1, 2), nullptr, 16));
            at += 2;
        } else {
            result += kind == 'n' ? '\n' : kind == 't' ? '\t' : text[at];
        }
    }
    return result;
}

TEST(CharsetBuilder, NamesFileLineAndFault) {
    std::ifstream list(PVZAN_SOURCE_DIR "/tests/data/charset_faults.tsv");
    int rows = 0;
    for (std::string line; std::getline(list, line);) {
        if (line.starts_with('#')) {
            continue;
        }
        SCOPED_TRACE(line);
        std::string file, text, other, message;
        std::istringstream row(line);
        for (std::string* column : {&file, &text, &other, &message}) {
            std::getline(row, *column, '\t');
        }
        const source_tree tree;
        tree.spoil(file, unescaped(text), unescaped(other));
        const program_result result = tree.build();
        EXPECT_EQ(result.status, 1);
        const std::string place = tree.place.file("source/") + (message[0] == ':' ? file : "");
        EXPECT_EQ(result.output.find(place + message), 0U) << result.output;
        EXPECT_FALSE(tree.place.has("output"));
        ++rows;
    }
    EXPECT_GT(rows, 30);
}

// An overlay that changes one pair of more.txt, and leaves out the one charset that uses it or not.
struct overlay_case {
    const char *table, *changes, *omit;
    const char* message; // behind the overlay's directory; nullptr: none
};

TEST(CharsetBuilder, AppliesAnOverlayOrNamesItsFault) {
    const char* const good = "%bytes 21 21-7E\n%changes 1\n2122\t3046\n";
    const overlay_case rows[] = {
        {"more.tsv", good, "# none\n", nullptr},
        {"more.tsv", "%bytes 21 21-7E\n%pairs 1\n2122\t3046\n", "mini.xml\n", nullptr},
        {"more.tsv", "%bytes 21 21-7E\n%changes 1\n2124\t3046\n", "\n",
         "tables/more.tsv:3: the table has no two-way code 2124"},
        {"more.tsv", "%bytes 21 21-7E\n%changes 1\n2122\t3044\n", "\n",
         "tables/more.tsv:3: the table has this pair already"},
        {"more.tsv", "%bytes 21 21-7E\n%changes 2\n2122\t3046\n", "\n",
         "tables/more.tsv: declares 2 pairs, has 1"},
        {"less.tsv", good, "\n", "tables/less.tsv: there is no such table to change"},
        {"more.tsv", good, "\nnone.xml\n", "omit:2: there is no definition none.xml"},
    };
    for (const overlay_case& row : rows) {
        SCOPED_TRACE(row.message != nullptr ? row.message : row.omit);
        const source_tree tree;
        fs::create_directories(tree.place.file("overlay/tables"));
        tree.place.write(std::string("overlay/tables/") + row.table, row.changes);
        tree.place.write("overlay/omit", row.omit);
        const program_result result = tree.build(tree.place.file("overlay"));
        if (row.message != nullptr) {
            EXPECT_EQ(result.status, 1);
            EXPECT_EQ(result.output.find(tree.place.file("overlay/") + row.message), 0U)
                << result.output;
            continue;
        }
        EXPECT_EQ(result.status, 0) << result.output;
        const bool left_out = std::string(row.omit) == "mini.xml\n";
        for (const char* file : {"mini.xml", "more.set", "more.txt", "more.cmp", "signs.txt"}) {
            EXPECT_EQ(tree.place.has(std::string("output/") + file), !left_out) << file;
        }
        if (!left_out) {
            EXPECT_NE(tree.place.read("output/more.txt").find(test::widen("2122\t3046", 2, false)),
                      std::string::npos);
        }
    }
    const source_tree tree;
    tree.spoil("tables/more.tsv", "%pairs", "%changes");
    EXPECT_NE(tree.build().output.find("more.tsv: only an overlay has %changes"),
              std::string::npos);
}

TEST(CharsetBuilder, RefusesNumbersThatCollide) {
    // 4000 plus each byte times its place: 'o' + 2 'w' + 3 'n' is also 'm' + 2 'x' + 3 'n'.
    const source_tree tree;
    std::string set = tree.place.read("source/sets/own.set");
    set.replace(set.find("Own"), 3, "mxn");
    tree.place.write("source/sets/mxn.set", set);
    const program_result result = tree.build();
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find("own.set: the coded sets mxn and Own share the number"),
              std::string::npos)
        << result.output;
}

TEST(CharsetBuilder, WritesWhatTheLibraryReads) {
    const source_tree tree;
    fs::create_directories(tree.place.file("output"));
    for (const char* stale : {"old.xml", "old.set", "old.txt", "old.cmp", "kept.md"}) {
        tree.place.write(std::string("output/") + stale, "stale");
    }
    const program_result result = tree.build();
    EXPECT_EQ(result.status, 0) << result.output;
    for (const char* stale : {"old.xml", "old.set", "old.txt", "old.cmp"}) {
        EXPECT_FALSE(tree.place.has(std::string("output/") + stale)) << stale;
    }
    EXPECT_TRUE(tree.place.has("output/kept.md"));
    EXPECT_EQ(tree.place.read("output/more.txt"),
              "\xFF\xFE" + test::widen("2121\t3042\r\n2122\t3044\r\n2123\t3045\r\n", 2, false));
    // The pair that only decodes comes first, so that the other one encodes.
    const std::string cache = tree.place.read("output/latin.cmp");
    u32 first[4] = {};
    ASSERT_EQ(cache.size(), 129 * 8U);
    std::memcpy(first, cache.data(), sizeof first);
    EXPECT_EQ(first[0], 0x80U);
    EXPECT_EQ(first[1], 0x41U);
    EXPECT_EQ(first[2], 0U);
}

// Runs the builder up to its nth call of the system; false when it ended before.
bool killed_at_call(int n, const source_tree& tree) {
    const std::string source = tree.place.file("source"), output = tree.place.file("output");
    const pid_t child = ::fork();
    if (child == 0) {
        ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        ::execl(PVZAN_BUILD_CHARSETS, "build_charsets", source.c_str(), output.c_str(), nullptr);
        std::_Exit(127);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
        if (--n < 0) {
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
            return true;
        }
        ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    }
    return false;
}

// Whenever it is killed, there is the old directory, or the new one, or none: a table that is not
// there would let its codes through as they are.
TEST(CharsetBuilder, KilledAtAnyCallItLeavesNoPart) {
    const source_tree tree;
    const auto files_of = [&](const char* directory) {
        std::map<std::string, std::string> files;
        for (const auto& entry : fs::directory_iterator(tree.place.file(directory))) {
            const std::string name = entry.path().filename().string();
            files[name] = tree.place.read(directory + ("/" + name));
        }
        return files;
    };
    ASSERT_EQ(tree.build().status, 0);
    tree.place.write("output/kept.md", "");
    fs::copy(tree.place.file("output"), tree.place.file("old"));
    tree.spoil("tables/more.tsv", "2121\t3042\t\xE3\x81\x82", "2121\t3043");
    ASSERT_EQ(tree.build().status, 0);
    const auto old_files = files_of("old"), new_files = files_of("output");
    ASSERT_NE(old_files, new_files);
    int found_old = 0, found_new = 0, n = 0;
    for (bool killed = true; killed; ++n) {
        fs::remove_all(tree.place.file("output"));
        fs::copy(tree.place.file("old"), tree.place.file("output"));
        killed = killed_at_call(n, tree);
        if (tree.place.has("output")) {
            const auto files = files_of("output");
            found_old += files == old_files;
            found_new += files == new_files;
            ASSERT_TRUE(files == old_files || files == new_files) << "killed at call " << n;
        }
    }
    EXPECT_GT(found_old, 100);
    EXPECT_GT(found_new, 1);
    EXPECT_FALSE(tree.place.has("output.next") || tree.place.has("output.previous"));
}

// Every cache is what the library itself would have written on loading the text.
TEST(CharsetBuilder, CachesEqualTheLibrarysOwn) {
    const test::temp_dir place;
    std::vector<std::string> tables;
    for (const auto& entry : fs::directory_iterator(PVZAN_BASE2_DIR)) {
        if (entry.path().extension() == ".txt") {
            tables.push_back(entry.path().stem().string());
            fs::copy_file(entry.path(), place.file(entry.path().filename().string()));
        }
    }
    ASSERT_GE(tables.size(), 30U);
    my_init();
    ASSERT_EQ(ZAN_setCharsetPath(place.path().c_str()), 1U);
    for (const std::string& name : tables) {
        table_object* table = initTable(4, 1);
        copy_text(table->fileName, (name + ".txt").c_str());
        table->textEncoding = encoding_utf16;
        EXPECT_EQ(loadTableFile(table), 1U) << name;
        termTable(table);
        std::FILE* shipped = std::fopen((PVZAN_BASE2_DIR "/" + name + ".cmp").c_str(), "rb");
        ASSERT_NE(shipped, nullptr) << name;
        std::string cache(4 << 20, '\0');
        cache.resize(std::fread(cache.data(), 1, cache.size(), shipped));
        std::fclose(shipped);
        EXPECT_TRUE(place.read(name + ".cmp") == cache) << name;
    }
}

// Of a copy of the committed tables with three faults the derivation complains of these and of
// nothing else.
TEST(CharsetTables, AreReproducedByTheirDerivation) {
    const test::temp_dir place;
    for (const char* part : {"tables", "further"}) {
        fs::copy(PVZAN_SOURCE_DIR "/charsets/" + std::string(part), place.file(part));
    }
    place.write("further/koi8-r.tsv", place.read("further/koi8-r.tsv") + "\n");
    place.write("tables/stray.tsv", "\n");
    fs::remove(place.file("tables/jis.tsv"));
    const program_result derived =
        run_program("python3 -B " PVZAN_SOURCE_DIR "/charsets/derive.py --check " + place.path());
    constexpr int source_missing = 77, not_found = 127;
    if (derived.status == source_missing || derived.status == not_found) {
        GTEST_SKIP() << "no Python 3, Perl or iconv here to derive the tables: " << derived.output;
    }
    EXPECT_EQ(derived.status, 1);
    std::string expected;
    for (const char* fault : {"further/koi8-r.tsv is not what the sources say\n",
                              "tables/jis.tsv is not what the sources say\n",
                              "tables/stray.tsv is not derived here\n"}) {
        expected += "derive.py: " + place.file(fault);
    }
    EXPECT_EQ(derived.output, expected);
}

} // namespace
