// The tool pvzan as its users meet it: arguments, output, messages, exit statuses, files.
#include "tests/support/oracle.h"
#include "tests/support/temp_dir.h"
#include "tests/tool_test_process.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using test::arguments;
using test::run;
using test::settings;
using outcome = test::tool_outcome;

const fs::path samples = fs::path(PVZAN_SOURCE_DIR) / "samples";

std::string content(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    return {std::istreambuf_iterator<char>(file), {}};
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
    EXPECT_EQ(run({"--version"}).output.find("../"), std::string::npos);
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
    EXPECT_NE(none.messages.find("no charset directory"), std::string::npos) << none.messages;
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
    const outcome o = run({"-l", "--charset-dir", dir.path() + "mine"});
    EXPECT_EQ(o.status, 0) << o.messages;
    const outcome shipped = run({"-l"});
    EXPECT_EQ(o.output, shipped.output + "private\n"); // behind those that everybody knows
    EXPECT_EQ(run({"-f", "private", "--charset-dir", dir.path() + "mine"}, "a").output, "a");
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
