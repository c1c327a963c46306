// The tool pvzan as its users meet it: arguments, output, messages, exit statuses, files.
#include "tests/support/oracle.h"
#include "tests/support/temp_dir.h"
#include "tests/tool_test_process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using test::arguments;
using test::process;
using test::run;
using test::settings;
using outcome = test::tool_outcome;

const fs::path samples = fs::path(PVZAN_SOURCE_DIR) / "samples";

std::string content(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

std::size_t files_in(const std::string& directory) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
}

// ---- Conversions -------------------------------------------------------------------------------

// The samples against another converter. Its counterparts of ours are the ones with Windows'
// reading of the disputed characters, U+FF5E U+2015 U+2225 U+FF0D U+FFE0 U+FFE1 U+FFE2, since that
// is how our Shift_JIS and EUC-JP read 8160 815C 8161 817C 8191 8192 81CA.
TEST(Tool, ConvertsTheSamplesAsTheOracleDoes) {
    const struct {
        const char *name, *oracle;
    } encodings[] = {{"shift_jis", "CP932"}, {"euc-jp", "EUC-JP-MS"}, {"utf-16", "UTF-16"}};
    const std::string text = content(samples / "report.utf-8.txt");
    for (const auto& [name, oracle_name] : encodings) {
        SCOPED_TRACE(name);
        const fs::path sample = samples / ("report."s + name + ".txt");
        test::oracle to_utf8(oracle_name, "UTF-8");
        const outcome there = run({"convert", "-f", name, "-t", "utf-8", sample});
        EXPECT_EQ(there.status, 0) << there.messages;
        EXPECT_EQ(there.output, to_utf8(content(sample)));
        EXPECT_EQ(there.output, text);
        EXPECT_EQ(there.messages, "");

        const outcome back = run({"convert", "-f", "utf-8", "-t", name}, text);
        EXPECT_EQ(back.status, 0) << back.messages;
        if (name == "utf-16"s) { // the sample is little-endian, which the oracle need not say
            test::oracle big_endian("UTF-8", "UTF-16BE");
            EXPECT_EQ(back.output, "\xFE\xFF" + big_endian(text).value_or("refused"));
        } else {
            EXPECT_EQ(back.output, content(sample));
        }
    }
}

TEST(Tool, ReadsFilesAndStandardInputInOrder) {
    const test::temp_dir dir;
    dir.write("a", "\x82\xA0\n");
    dir.write("b", "\x82\xA2");
    dir.write("./convert", "c");
    const settings here = {.directory = dir.path()};
    EXPECT_EQ(run({"-f", "shift_jis", "a", "-", "b"}, "\xB1", here).output, "あ\nｱい");
    EXPECT_EQ(run({"-f", "shift_jis"}, "\x82\xA4", here).output, "う");
    EXPECT_EQ(run({"-f", "sjis", "-t", "euc-jp", "./convert"}, "", here).output, "c");
    // One byte-order mark for all, and none where there is no text; each text is closed.
    EXPECT_EQ(run({"-f", "sjis", "-t", "utf-16", "a", "b"}, "", here).output,
              "\xFE\xFF\x30\x42\0\n\x30\x44"s);
    EXPECT_EQ(run({"-f", "sjis", "-t", "utf-16"}).output, "");
    EXPECT_EQ(run({"-f", "sjis", "-t", "iso-2022-jp", "b", "b"}, "", here).output,
              "\x1B$B$$\x1B(B\x1B$B$$\x1B(B");
}

// Output comes as soon as there is a line, as a filter between two programs needs it.
TEST(Tool, PassesLinesOnAtOnce) {
    process tool({"-f", "shift_jis"}, {});
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(::write(tool.input(), "\x82\xA0.\n", 4), 4);
        pollfd ready = {tool.output(), POLLIN, 0};
        ASSERT_EQ(::poll(&ready, 1, 10'000), 1) << "no output for a line of input";
        std::string line;
        ASSERT_TRUE(process::read(tool.output(), line));
        EXPECT_EQ(line, "あ.\n");
    }
    std::string output, messages;
    tool.talk("", output, messages);
    EXPECT_EQ(tool.wait(), 0);
}

TEST(Tool, TakesInputOfAnySizeInLittleMemory) {
    const std::string sample = content(samples / "report.shift_jis.txt");
    const std::string text = content(samples / "report.utf-8.txt");
    std::string input, expected;
    for (int i = 0; i < 2000; ++i) {
        input += sample;
        expected += text;
    }
    settings limited;
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    limited.memory = 8 << 20;
#endif
    const outcome o = run({"-f", "shift_jis"}, input, limited);
    EXPECT_EQ(o.status, 0) << o.messages;
    EXPECT_TRUE(o.output == expected); // too long to be printed
}

// ---- Problems ----------------------------------------------------------------------------------

TEST(Tool, StopsTellingAfterTwentyProblemsAndCountsOn) {
    std::string input;
    for (int i = 0; i < 30'000; ++i) {
        input += "\xFD\n";
    }
    const outcome o = run({"-f", "shift_jis"}, input);
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(std::ranges::count(o.messages, '\n'), 22);
    EXPECT_NE(o.messages.find("20:1: error"), std::string::npos);
    EXPECT_NE(o.messages.find("29,980 more problems"), std::string::npos);
    EXPECT_NE(o.messages.find("30,000 invalid sequences"), std::string::npos);
}

TEST(Tool, TellsTroubleByItsStatus) {
    const test::temp_dir dir;
    dir.write("good", "a");
    dir.write("bad", "\xFD\n");
    const std::string good = dir.file("good"), bad = dir.file("bad"), missing = dir.file("missing");
    const struct {
        arguments args;
        int status;
        std::string says;
    } cases[] = {
        {{"-f", "sjis", good}, 0, ""},
        {{"--help"}, 0, ""},
        {{"--version"}, 0, ""},
        {{"-f", "sjis", good, bad}, 1, bad + ":1:1: error"},
        {{"-f", "sjis", bad, missing, good}, 2, missing + ": cannot open: No such file"},
        {{"-f", "sjis", dir.path()}, 2, "Is a directory"},
        {{"-f", "sjis", good, "-o", missing + "/out"}, 2, "cannot create"},
        {{"-f", "sjis", good, "-o", "/dev/full"}, 2, "No space left"},
        {{"-f", "nosuch", good}, 2, "unknown charset 'nosuch'"},
        {{"-f", "sjis", "-t", "no\x1Bsuch", good}, 2, "unknown charset 'no\\x1bsuch'"},
        {{good}, 0, ""},
        {{"-f", "sjsi", good}, 2, "did you mean Shift_JIS?"},
        {{"-f", "sjis//TRANSLIT", good}, 2, "-e subst"},
        {{"-f", "sjis", "-t", "ascii", "-e", "subst=あ", good},
         2,
         "U+3042 あ has no code in ASCII"},
        {{"-i", "-o", missing, good}, 2, "cannot both be"},
        {{"-f", "sjis", "--nosuch"}, 2, "--nosuch"},
        {{"-f", "sjis", "--charset-dir", missing, good}, 2, missing},
        {{"-f", "sjis", "--charset-dir", dir.path(), good}, 2, "no charset definitions"},
    };
    for (const auto& c : cases) {
        const outcome o = run(c.args);
        EXPECT_EQ(o.status, c.status) << testing::PrintToString(c.args) << o.messages;
        EXPECT_NE(o.messages.find(c.says), std::string::npos) << o.messages;
        EXPECT_EQ(o.messages.empty(), c.status == 0) << o.messages;
    }
}

TEST(Tool, ChecksItsStandardOutput) {
    const int full = ::open("/dev/full", O_WRONLY);
    ASSERT_GE(full, 0);
    const outcome no_room = run({"-f", "sjis"}, "a", {.output = full});
    ::close(full);
    EXPECT_EQ(no_room.status, 2);
    EXPECT_NE(no_room.messages.find("standard output: cannot write: No space"), std::string::npos);

    // A file to be read must not become the closed standard output.
    const test::temp_dir dir;
    dir.write("a", "text");
    const outcome closed = run({"-f", "sjis", dir.file("a")}, "", {.without_output = true});
    EXPECT_EQ(closed.status, 2);
    EXPECT_NE(closed.messages.find("standard output: cannot write"), std::string::npos);
    EXPECT_EQ(dir.read("a"), "text");
}

// ---- Output files ------------------------------------------------------------------------------

TEST(Tool, WritesAFileOnlyWhole) {
    const test::temp_dir dir;
    dir.write("out", "as it was");
    ASSERT_EQ(::chmod(dir.file("out").c_str(), 0640), 0);
    EXPECT_EQ(run({"-f", "sjis", "-o", dir.file("out")}, "abc\xFD\n").status, 1);
    EXPECT_EQ(run({"-f", "sjis", "-o", dir.file("new")}, "abc\xFD\n").status, 1);
    EXPECT_EQ(run({"-f", "sjis", "-o", dir.file("new"), "-", dir.file("missing")}, "abc").status,
              2);
    EXPECT_EQ(dir.read("out"), "as it was");
    EXPECT_EQ(files_in(dir.path()), 1U);

    fs::create_symlink("out", dir.file("link"));
    const outcome o = run({"-f", "sjis", "-o", dir.file("link")}, "\x82\xA0");
    EXPECT_EQ(o.status, 0) << o.messages;
    EXPECT_EQ(o.output, "");
    EXPECT_EQ(dir.read("out"), "あ");
    EXPECT_TRUE(fs::is_symlink(dir.file("link")));
    EXPECT_EQ(fs::status(dir.file("out")).permissions(), fs::perms{0640});
    EXPECT_EQ(files_in(dir.path()), 2U);
}

TEST(Tool, RefusesToWriteWhatItReads) {
    const test::temp_dir dir;
    dir.write("a", "\x82\xA0");
    fs::create_hard_link(dir.file("a"), dir.file("b"));
    const outcome named = run({"-f", "sjis", dir.file("a"), "-o", dir.file("b")});
    EXPECT_EQ(named.status, 2);
    EXPECT_NE(named.messages.find("is the output, too"), std::string::npos);

    const int appended = ::open(dir.file("a").c_str(), O_WRONLY | O_APPEND);
    ASSERT_GE(appended, 0);
    EXPECT_EQ(run({"-f", "sjis", dir.file("a")}, "", {.output = appended}).status, 2);
    ::close(appended);
    EXPECT_EQ(dir.read("a"), "\x82\xA0");
}

TEST(Tool, LeavesNothingWhenASignalEndsIt) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const test::temp_dir dir;
        process tool({"-f", "sjis", "-o", dir.file("out")}, {});
        ASSERT_EQ(::write(tool.input(), "abcd\n", 5), 5);
        for (int i = 0; i < 1000 && files_in(dir.path()) == 0; ++i) {
            ::usleep(10'000);
        }
        EXPECT_EQ(files_in(dir.path()), 1U) << "the temporary";
        ASSERT_EQ(::kill(tool.id(), signal), 0);
        const int status = tool.wait();
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal);
        EXPECT_EQ(files_in(dir.path()), 0U);
    }
}

// ---- The charset directory ---------------------------------------------------------------------

// A directory that knows the charset "private" only beside the shipped ones.
void make_charset_directory(const fs::path& path) {
    fs::copy(PVZAN_BASE2_DIR, path, fs::copy_options::recursive);
    const std::string ascii = content(path / "iso-646irv.xml");
    std::string renamed;
    const std::string name = test::widen("ISO-646IRV</name>", 2, false);
    const std::size_t at = ascii.find(name);
    ASSERT_NE(at, std::string::npos);
    renamed = ascii.substr(0, at) + test::widen("private</name>", 2, false) +
              ascii.substr(at + name.size());
    std::ofstream(path / "private.xml", std::ios::binary) << renamed;
}

TEST(Tool, NeverTakesTheCharsetDirectoryFromWhereItRuns) {
    const test::temp_dir dir;
    make_charset_directory(dir.path() + "base2");
    const settings here = {.directory = dir.path()};
    EXPECT_EQ(run({"-f", "private"}, "a", here).status, 2);
    EXPECT_EQ(run({"-f", "private", "--charset-dir", "base2"}, "a", here).output, "a");
}

TEST(Tool, TakesTheFirstCharsetDirectoryThatExists) {
    const test::temp_dir dir;
    make_charset_directory(dir.path() + "mine");
    fs::create_directory(dir.path() + "empty");
    const std::string variable = "PVZAN_CHARSET_DIR=" + dir.path();
    const auto with = [](const std::string& setting) { return settings{.environment = {setting}}; };
    EXPECT_EQ(run({"-f", "private"}, "a", with(variable + "mine")).output, "a");
    EXPECT_EQ(run({"-f", "private"}, "a", with(variable + "missing")).status, 2);
    EXPECT_EQ(run({"-f", "sjis"}, "a", with(variable + "missing")).output, "a");
    EXPECT_EQ(run({"-f", "sjis"}, "a", with(variable + "empty")).status, 2);
    EXPECT_EQ(
        run({"-f", "private", "--charset-dir", dir.path() + "mine"}, "a", with(variable + "empty"))
            .output,
        "a");
    EXPECT_NE(run({"--version"}, "", with(variable + "mine"))
                  .output.find(dir.path() + "mine (PVZAN_CHARSET_DIR)"),
              std::string::npos);
}

// Moved away from its build, the tool finds the directory that lies beside the library, and says
// where it looked when there is none.
TEST(Tool, FindsTheCharsetDirectoryBesideTheLibrary) {
    const test::temp_dir dir;
    const fs::path library = fs::path(dir.path()) / "tree" / "lib";
    fs::create_directories(library);
    fs::copy(PVZAN_LIBRARY, library / "libPVZAN.so.1");
    fs::create_directory_symlink(PVZAN_BASE2_DIR, dir.path() + "base2");
    const settings moved = {.directory = dir.path(),
                            .environment = {"LD_LIBRARY_PATH=" + library.string()}};
    const outcome none = run({"-f", "sjis"}, "a", moved);
    EXPECT_EQ(none.status, 2);
    EXPECT_NE(none.messages.find(library / "pvzan" / "base2"), std::string::npos) << none.messages;
    EXPECT_EQ(none.messages.find("./base2"), std::string::npos);

    fs::create_directory(library / "pvzan");
    fs::create_directory_symlink(PVZAN_BASE2_DIR, library / "pvzan" / "base2");
    const outcome found = run({"-f", "sjis"}, "a", moved);
    EXPECT_EQ(found.output, "a") << found.messages;
}

// ---- The other verbs ---------------------------------------------------------------------------

TEST(Tool, ListsTheCharsetsThatItConverts) {
    const test::temp_dir dir;
    make_charset_directory(dir.path() + "mine");
    dir.write("mine/zz.xml", "no definition");
    dir.write("mine/zzz.xml", content(dir.path() + "mine/utf-8.xml")); // the first one has settled
    const outcome o = run({"list", "--charset-dir", dir.path() + "mine"});
    EXPECT_EQ(o.status, 0) << o.messages;
    std::istringstream lines(o.output);
    std::size_t count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        const std::string name = line.substr(0, line.find(' '));
        EXPECT_EQ(run({"-f", name, "-t", name, "--charset-dir", dir.path() + "mine"}).status, 0)
            << name;
    }
    std::size_t shipped = 0;
    for (const auto& file : fs::directory_iterator(PVZAN_BASE2_DIR)) {
        shipped += file.path().extension() == ".xml" ? 1U : 0U;
    }
    EXPECT_EQ(count, shipped + 1);
    EXPECT_NE(
        o.output.find("windows31j        1002        destWINDOWS31J        constWINDOWS31J     "
                      "   JIS_X0201Latin (2002), JIS_X0201Kana (2003), JIS_X0208-1990 (2006), "
                      "IBM_ExtSet (2009), NEC_ExtSet (2008), Windows31J-Usr (3001)\n"),
        std::string::npos)
        << o.output;
}

TEST(Tool, DetectsWhatTheSamplesAre) {
    const settings here = {.directory = samples};
    EXPECT_EQ(run({"detect", "report.euc-jp.txt", "report.shift_jis.txt", "report.utf-16.txt",
                   "report.utf-8.txt"},
                  "", here)
                  .output,
              "report.euc-jp.txt      EUC-JP            LF     sure\n"
              "report.shift_jis.txt   Windows-31J       LF     sure\n"
              "report.utf-16.txt      UTF-16LE, BOM     LF     sure\n"
              "report.utf-8.txt       UTF-8             LF     sure\n");
    EXPECT_EQ(
        run({"detect", "-f", "euc-jp,windows-31j", "--json", "report.euc-jp.txt"}, "", here).output,
        R"({"file":"report.euc-jp.txt","charset":"EUC-JP","sure":true,"eol":"lf",)"
        R"("bom":false,"candidates":[{"charset":"EUC-JP","score":1.00}]})"
        "\n");
    EXPECT_EQ(run({"detect", "-f", "nkf-sjis", "report.euc-jp.txt"}, "", here).status, 2);
    const outcome missing = run({"detect", "nosuch", "report.utf-8.txt"}, "", here);
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.output, "report.utf-8.txt   UTF-8             LF     sure\n");
    EXPECT_EQ(run({"detect"}, std::string(50, '\0'), here).status, 1);
}

} // namespace
