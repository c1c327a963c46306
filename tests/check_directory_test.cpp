// "pvzan list --check" over sound and broken directories, and the example of a charset of one's
// own.
#include "tests/support/temp_dir.h"
#include "tests/tool_test_process.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>

namespace {

namespace fs = std::filesystem;
using test::run;
using test::temp_dir;

constexpr std::string_view head = "<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n";

// A directory with one sound charset of one set and table.
struct sources {
    std::string definition =
        "<!DOCTYPE charset [<!ENTITY set-one SYSTEM \"one.set\"> "
        "<!ENTITY table-one SYSTEM \"one.txt\"> ]>\r\n<charset><name>private</name>"
        "<rule construle=\"constSAME\" destrule=\"destSAME\"/>"
        "<baseset>&set-one;</baseset></charset>\r\n";
    std::string set = "<subseta><name>One</name><lang domain=\"en\"/><code bytenum=\"1\"/>"
                      "<srtable>&table-one;</srtable></subseta>\r\n";
    std::string table = "41 61\r\n42 62\r\n43 63\r\n";

    void write(const temp_dir& dir) const {
        dir.write_utf16("private.xml", std::string(head) + definition);
        dir.write_utf16("one.set", std::string(head) + set);
        dir.write_utf16("one.txt", table);
    }
};

std::string without(std::string text, std::string_view part) {
    const std::size_t at = text.find(part);
    EXPECT_NE(at, std::string::npos) << part;
    return text.erase(at, part.size());
}

TEST(CheckDirectory, TakesTheShippedOne) {
    const auto outcome = run({"list", "--check", PVZAN_BASE2_DIR});
    EXPECT_EQ(outcome.status, 0) << outcome.output << outcome.messages;
    EXPECT_NE(outcome.output.find("shift_jis.xml: taken as shift_jis (1001)"), std::string::npos);
}

TEST(CheckDirectory, SaysWhatIsWrongAndWhere) {
    struct row {
        std::function<void(sources&)> damage;
        std::function<void(const temp_dir&)> damage_files;
        std::string expected;
    };
    const auto nothing = [](const temp_dir&) {};
    const auto keep = [](sources&) {};
    const row rows[] = {
        {[](sources& s) { s.definition = without(s.definition, "<name>private</name>"); }, nothing,
         "private.xml: not taken: the element name is missing"},
        {[](sources& s) { s.definition = without(s.definition, "<charset>"); }, nothing,
         "private.xml: not taken: the element charset is missing"},
        {[](sources& s) { s.definition = without(s.definition, " destrule=\"destSAME\""); },
         nothing, "private.xml: not taken: its rule element lacks construle= or destrule="},
        {[](sources& s) {
             s.definition = without(s.definition, "<!ENTITY set-one SYSTEM \"one.set\"> ");
         },
         nothing, "private.xml: the entity set-one is not declared in it"},
        {[](sources& s) {
             s.definition = without(s.definition, "<!ENTITY table-one SYSTEM \"one.txt\"> ");
         },
         nothing, "private.xml: the entity table-one of one.set is not declared in it"},
        {[](sources& s) { s.set = without(s.set, "<lang domain=\"en\"/>"); }, nothing,
         "one.set: the element lang is missing"},
        {[](sources& s) { s.set = without(s.set, "<subseta>"); }, nothing,
         "one.set: the element subseta is missing"},
        {[](sources& s) { s.definition.replace(s.definition.find("constSAME"), 9, "constNone"); },
         nothing, "private.xml: private has no encode rule"},
        {[](sources& s) { s.table.clear(); }, nothing, "one.txt: the table is empty"},
        {[](sources& s) { s.table = "41 61\n42 62\n43 63\n"; }, nothing,
         "one.txt: the table is cut"},
        {keep, [](const temp_dir& dir) { fs::remove(dir.file("one.txt")); },
         "one.txt: there is no such table"},
        {keep, [](const temp_dir& dir) { fs::remove(dir.file("one.set")); },
         "private.xml: there is no file one.set"},
        {keep, [](const temp_dir& dir) { dir.write("one.cmp", "AAAABBBB"); },
         "one.cmp: the cache differs from its table"},
        {keep, [](const temp_dir& dir) { dir.write("private.xml", "<charset>utf-8</charset>"); },
         "private.xml: not taken: private.xml is not in UTF-16, UCS-2 or UCS-4"},
        {keep,
         [](const temp_dir& dir) { fs::copy(dir.file("private.xml"), dir.file("second.xml")); },
         "second.xml: not taken: private is already defined by private.xml"},
    };
    for (const row& r : rows) {
        const temp_dir dir;
        sources s;
        r.damage(s);
        s.write(dir);
        r.damage_files(dir);
        const auto outcome = run({"list", "--check", dir.path()});
        EXPECT_NE(outcome.output.find(r.expected), std::string::npos)
            << "expected: " << r.expected << "\ngot: " << outcome.output << outcome.messages;
        EXPECT_EQ(outcome.status, 1) << r.expected;
    }
}

// Numbers are sums of letters times positions: 97 + 2 * 98 = 99 + 2 * 97.
TEST(CheckDirectory, TellsNumbersThatCollide) {
    const temp_dir dir;
    for (const char* name : {"ab", "ca"}) {
        sources s;
        s.definition.replace(s.definition.find("private"), 7, name);
        s.write(dir);
        fs::rename(dir.file("private.xml"), dir.file(std::string(name) + ".xml"));
    }
    const auto outcome = run({"list", "--check", dir.path()});
    EXPECT_NE(outcome.output.find("ca.xml: the name ca has the number 4293 of ab"),
              std::string::npos)
        << outcome.output;
    EXPECT_EQ(outcome.status, 1);
}

// Whatever a cut definition looks like, the check ends, and says "taken" only of what the library
// then lists.
TEST(CheckDirectory, AgreesWithTheLibraryOnCutDefinitions) {
    const sources whole;
    for (std::size_t length = 0; length < whole.definition.size(); length += 7) {
        const temp_dir dir;
        sources s;
        s.definition.resize(length);
        s.write(dir);
        const auto checked = run({"list", "--check", dir.path()});
        const auto listed = run({"list", "--charset-dir", dir.path()});
        EXPECT_EQ(checked.output.find(": taken as ") != std::string::npos, !listed.output.empty())
            << length << ": " << checked.output << listed.output;
        EXPECT_TRUE(checked.status == 0 || checked.status == 1) << length;
    }
}

TEST(OwnCharset, ConvertsBothWaysWithoutARebuild) {
    const temp_dir dir;
    const std::string charsets = dir.file("charsets");
    const std::string command = std::string(PVZAN_SOURCE_DIR) + "/examples/own_charset/install " +
                                PVZAN_BASE2_DIR + " " + charsets;
    ASSERT_EQ(std::system(command.c_str()), 0);
    const auto checked = run({"list", "--check", charsets});
    EXPECT_EQ(checked.status, 0) << checked.output;

    const std::string text = "snow \xE2\x98\x83 \xF0\x9F\x98\x80 \xEE\x80\x80\xEE\x81\x9D\n";
    const auto there = run({"--charset-dir", charsets, "-f", "utf-8", "-t", "acme"}, text);
    EXPECT_EQ(there.output, "snow \xA1\xA1 \xA1\xA8 \xF0\xA1\xF0\xFE\n") << there.messages;
    const auto back = run({"--charset-dir", charsets, "-f", "acme", "-t", "utf-8"}, there.output);
    EXPECT_EQ(back.output, text) << back.messages;
    EXPECT_EQ(run({"--charset-dir", charsets, "-f", "utf-8", "-t", "acme"}, "\xEE\x81\x9E").status,
              1)
        << "one behind the user-defined area";
}

} // namespace
