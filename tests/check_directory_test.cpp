// "pvzan list --check" over sound and broken directories, and the example of a charset of one's
// own.
#include "tests/support/temp_dir.h"
#include "tests/tool_test_process.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>

namespace {

namespace fs = std::filesystem;
using test::run;
using test::temp_dir;

// A directory with one sound charset of one set and table.
struct sources {
    std::map<std::string, std::string> files = {
        {"private.xml", "<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n"
                        "<!DOCTYPE charset [<!ENTITY set-one SYSTEM \"one.set\"> "
                        "<!ENTITY table-one SYSTEM \"one.txt\"> ]>\r\n<charset><name>private</name>"
                        "<rule construle=\"constSAME\" destrule=\"destSAME\"/>"
                        "<baseset>&set-one;</baseset></charset>\r\n"},
        {"one.set", "<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n"
                    "<subseta><name>One</name><lang domain=\"en\"/><code bytenum=\"1\"/>"
                    "<srtable>&table-one;</srtable></subseta>\r\n"},
        {"one.txt", "41 61\r\n42 62\r\n43 63\r\n"}};

    void replace(const std::string& file, std::string_view part, std::string_view by) {
        const std::size_t at = files[file].find(part);
        ASSERT_NE(at, std::string::npos) << part;
        files[file].replace(at, part.size(), by);
    }
    void write(const temp_dir& dir) const {
        for (const auto& [name, text] : files) {
            dir.write_utf16(name, text);
        }
    }
};

TEST(CheckDirectory, TakesTheShippedOne) {
    const auto outcome = run({"list", "--check", PVZAN_BASE2_DIR});
    EXPECT_EQ(outcome.status, 0) << outcome.output << outcome.messages;
    EXPECT_NE(outcome.output.find("shift_jis.xml: taken as shift_jis (1001)"), std::string::npos);
}

void expect_complaint(const temp_dir& dir, const std::string& expected) {
    const auto outcome = run({"list", "--check", dir.path()});
    EXPECT_NE(outcome.output.find(expected), std::string::npos)
        << "expected: " << expected << "\ngot: " << outcome.output << outcome.messages;
    EXPECT_EQ(outcome.status, 1) << expected;
}

TEST(CheckDirectory, SaysWhatIsWrongAndWhere) {
    const struct {
        const char *file, *part, *by, *expected;
    } rows[] = {
        {"private.xml", "<name>private</name>", "",
         "private.xml: not taken: the element name is missing"},
        {"private.xml", "<charset>", "", "private.xml: not taken: the element charset is missing"},
        {"private.xml", " destrule=\"destSAME\"", "",
         "private.xml: not taken: its rule element lacks construle= or destrule="},
        {"private.xml", "<!ENTITY set-one SYSTEM \"one.set\"> ", "",
         "private.xml: not taken: the entity set-one is not declared in it"},
        {"private.xml", "<!ENTITY table-one SYSTEM \"one.txt\"> ", "",
         "private.xml: not taken: the entity table-one is not declared in it"},
        {"private.xml", "constSAME", "constNone", "private.xml: private has no encode rule"},
        {"one.set", "<lang domain=\"en\"/>", "", "one.set: the element lang is missing"},
        {"one.set", "<subseta>", "", "one.set: the element subseta is missing"},
        {"one.txt", "41 61\r\n42 62\r\n43 63\r\n", "", "one.txt: the table is empty"},
        {"one.txt", "63\r\n", "63\n", "one.txt: the table is cut"},
    };
    for (const auto& row : rows) {
        const temp_dir dir;
        sources s;
        s.replace(row.file, row.part, row.by);
        s.write(dir);
        expect_complaint(dir, row.expected);
    }
}

TEST(CheckDirectory, MissesFilesAndComparesCaches) {
    const temp_dir dir;
    sources().write(dir);
    dir.write("one.cmp", "AAAABBBB");
    expect_complaint(dir, "one.cmp: the cache differs from its table");
    fs::copy(dir.file("private.xml"), dir.file("second.xml"));
    expect_complaint(dir, "second.xml: not taken: private is already defined by private.xml");
    fs::remove(dir.file("one.txt"));
    expect_complaint(dir, "one.txt: there is no such table");
    fs::remove(dir.file("one.set"));
    expect_complaint(dir, "one.set: there is no such file");
    dir.write("private.xml", "<charset>utf-8</charset>");
    expect_complaint(dir, "private.xml: not taken: it is not in UTF-16, UCS-2 or UCS-4");
}

// Numbers are sums of letters times positions: 97 + 2 * 98 = 99 + 2 * 97.
TEST(CheckDirectory, TellsNumbersThatCollide) {
    const temp_dir dir;
    for (const char* name : {"ab", "ca"}) {
        sources s;
        s.replace("private.xml", "private", name);
        s.write(dir);
        fs::rename(dir.file("private.xml"), dir.file(std::string(name) + ".xml"));
    }
    expect_complaint(dir, "ca.xml: the name ca has the number 4293 of ab");
}

// Whatever a cut definition looks like, the check ends, and says "taken" only of what the library
// then lists.
TEST(CheckDirectory, AgreesWithTheLibraryOnCutDefinitions) {
    for (std::size_t length = 0; length < sources().files["private.xml"].size(); length += 7) {
        const temp_dir dir;
        sources s;
        s.files["private.xml"].resize(length);
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
