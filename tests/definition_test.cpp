// Definition files to registry objects, good files and bad.
#include "cconv/definition/definition.h"
#include "tests/support/charset_directory.h"
#include "tests/support/child.h"
#include "tests/support/document.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

using test::charset_directory;

// ---- The files: a charset of a base set, a difference set and a user-defined area

using files = std::map<std::string, std::string>;

files good_files() {
    return {{"main.xml", R"(<?xml version="1.0" encoding="UTF-16"?>
<!DOCTYPE charset [
<!ENTITY base SYSTEM "Base.set">
<!ENTITY diff SYSTEM "diff.set">
<!ENTITY user SYSTEM "user.set">
<!ENTITY table SYSTEM "base.txt">
<!ENTITY difftable SYSTEM "sub/diff.txt">
<!ENTITY bar SYSTEM "bar.txt">
]>
<charset>
<!-- a comment -->
<name>Shift_JIS</name>
<rule construle="constShift_JIS" destrule="destShift_JIS"/>
<baseset>&base;<dstable bytenum="3">&bar;</dstable></baseset>
<diffset>&diff;</diffset>
<eudcset>&user;</eudcset>
</charset>
)"},
            {"base.set", R"(<subseta>
<name>JIS_X0208-1990</name>
<lang domain="ja"/>
<code bytenum="2"><range>21-7E</range><range>21-7E</range></code>
<defined>2121-227E 2330 </defined>
<srtable>&table;</srtable>
</subseta>
)"},
            {"diff.set", R"(<subsetb>
<name>NEC_extset</name>
<lang domain="ja"/>
<codeb bytenum="2" basedon="JIS_X0208-1990"/>
<defined>2D21-2D7C
</defined>
<srtable>&difftable;</srtable>
</subsetb>
)"},
            {"user.set", R"(<name>windows31j-usr</name>
<codec bytenum="2"><range>F0-F9</range></codec>
<defrange start="F040" number="758"/>
)"}};
}

std::string with(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(at, text.npos) << from;
    return at != text.npos ? text.replace(at, from.size(), to) : text;
}

void write(const charset_directory& dir, const files& all) {
    for (const auto& [name, text] : all) {
        dir.write_utf16(name, text);
    }
}

// ---- The registry as text

template <typename... T>
std::string line(const T&... parts) {
    std::ostringstream out;
    out << std::hex << std::uppercase;
    ((out << parts), ...);
    return out.str();
}

std::string show(const table_object* t) {
    return line(t->fileName, '/', t->valueBytes, '/', t->textEncoding, t->textBigEndian);
}

std::string show(const basic_set* s) {
    std::string text =
        line(s->name, " type ", s->setType, " bytes ", s->byteNum, " lang ", s->lang, " on ",
             s->basedOn, " user ", s->eudcStart, '+', s->eudcNumber, " defined");
    for (const limit* range : items_of<limit>(s->defined->ranges)) {
        text += line(' ', range->low, '-', range->high);
    }
    return text + line(" max ", s->defined->maxCode, " tables ", show(s->decodeTable), ' ',
                       show(s->encodeTable), '\n');
}

std::string show_groups() {
    std::string text;
    for (const charset_group* g : items_of<charset_group>(g_ProcessObject.groups)) {
        text += line("group ", g->name, ' ', g->constRule, ' ', g->destRule, " sets");
        for (const basic_set* s : items_of<basic_set>(g->memberSets)) {
            text += line(' ', s->name);
        }
        for (const object_array* tables : items_of<object_array>(g->dsTableArrays)) {
            text += " [";
            for (const table_object* t : items_of<table_object>(tables)) {
                text += show(t);
            }
            text += ']';
        }
        text += '\n';
    }
    return text;
}

std::string show_sets() {
    std::string text;
    for (const basic_set* s : items_of<basic_set>(g_ProcessObject.basics)) {
        text += show(s);
    }
    return text;
}

constexpr char good_group[] = "group shift_jis constShift_JIS destShift_JIS sets JIS_X0208-1990 "
                              "NEC_extset windows31j-usr [bar.txt/3/10] []\n";
constexpr char good_base[] = "JIS_X0208-1990 type 1 bytes 2 lang ja on  user 0+0 defined 2121-227E "
                             "2330-2330 max 227E tables "
                             "base.txt/4/10 base.txt/2/10\n";
constexpr char good_diff[] = "NEC_extset type 2 bytes 2 lang ja on JIS_X0208-1990 user 0+0 defined "
                             "2D21-2D7C max 2D7C tables "
                             "sub/diff.txt/4/10 sub/diff.txt/2/10\n";
constexpr char good_user[] = "windows31j-usr type 3 bytes 2 lang  on  user F040+758 defined max 0 "
                             "tables /4/00 /2/00\n";

TEST(Definition, BecomesAGroupAndItsSets) {
    const charset_directory dir;
    write(dir, good_files());
    ASSERT_EQ(xmlReadXML("main.xml"), 1U);
    EXPECT_EQ(show_groups(), good_group);
    EXPECT_EQ(show_sets(), std::string(good_base) + good_diff + good_user);
    EXPECT_EQ(findGroupArray(g_ProcessObject.groups, PVZAN_SHIFT_JIS)->groupNo,
              u32{PVZAN_SHIFT_JIS});
    EXPECT_NE(findBasicArray(g_ProcessObject.basics, PVZAN_SET_WINDOWS_31J_USER), nullptr);
}

TEST(Definition, OtherFilesAreReadAsTheMainOneIs) {
    struct {
        const char *name, *mark;
        std::size_t unit;
        bool big_endian;
        const char* shown;
    } const cases[] = {{"UTF-16", "\xFE\xFF", 2, true, "11"},
                       {"ISO-10646-UCS-2", "\xFF\xFE", 2, false, "40"},
                       {"any", "\xFExx\xFF", 4, true, "31"}};
    const charset_directory dir;
    for (const auto& c : cases) {
        charset_directory::clear_registry();
        for (auto [name, text] : good_files()) {
            const bool is_main = name == "main.xml";
            const std::string marked = is_main ? with(text, "UTF-16", c.name) : text;
            dir.write(name, (is_main || c.unit == 4 ? c.mark : "") +
                                test::widen(marked, c.unit, c.big_endian));
        }
        ASSERT_EQ(xmlReadXML("main.xml"), 1U) << c.name;
        const std::string tables = std::string(" tables base.txt/4/") + c.shown + " base.txt/2/";
        EXPECT_NE(show_sets().find(tables + c.shown), std::string::npos) << show_sets();
    }
}

// ---- One change to the good files each, and what comes of it

struct change {
    const char *file, *from, *to;
    std::string shown; // a part of the result; empty: refused
};

void expect_changes(std::initializer_list<change> changes) {
    const charset_directory dir;
    for (const change& c : changes) {
        files all = good_files();
        all[c.file] = with(all[c.file], c.from, c.to);
        write(dir, all);
        charset_directory::clear_registry();
        EXPECT_EQ(xmlReadXML("main.xml"), c.shown.empty() ? 0U : 1U) << c.file << ": " << c.to;
        const std::string shown = show_groups() + show_sets();
        if (c.shown.empty()) {
            EXPECT_EQ(show_groups(), "") << c.file << ": " << c.from << " -> " << c.to;
        } else {
            EXPECT_NE(shown.find(c.shown), shown.npos)
                << c.file << ": " << c.from << " -> " << c.to << " gave\n"
                << shown << "not " << c.shown;
        }
    }
}

TEST(Definition, MainDocument) {
    expect_changes({
        {"main.xml", "<charset>", "", ""},
        {"main.xml", "<name>Shift_JIS</name>", "", ""},
        {"main.xml", "<rule construle=\"constShift_JIS\" destrule=\"destShift_JIS\"/>", "",
         "group shift_jis   sets JIS"},
        {"main.xml", "construle=", "", ""},
        {"main.xml", " destrule=\"destShift_JIS\"", "", ""},
        {"main.xml", "destShift_JIS\"", "destUTF-8\" x=\"y\"", " destUTF-8 sets"},
        {"main.xml", "constShift_JIS", "", "group shift_jis  destShift_JIS sets"},
        // A set of its own file that cannot be had fails the whole charset.
        {"main.xml", "Base.set", "missing.set", ""},
        {"main.xml", "base.txt", "BASE.TXT", "BASE.TXT/4/10"}, // folded only when it is opened
        // In the order of the document, whatever their kinds.
        {"main.xml", "<diffset>&diff;</diffset>",
         "<diffset>&diff;</diffset><baseset>&base;</baseset>",
         "sets JIS_X0208-1990 NEC_extset JIS_X0208-1990 windows31j-usr [bar.txt/3/10] [] []"},
        {"main.xml", "<baseset>", "<diffset>&diff;</diffset><baseset>",
         "sets NEC_extset JIS_X0208-1990 NEC_extset windows31j-usr [] [bar.txt/3/10] []"},
        {"main.xml", "<eudcset>&user;</eudcset>", "",
         "JIS_X0208-1990 NEC_extset [bar.txt/3/10] []\n"},
    });
}

TEST(Definition, SetFiles) {
    expect_changes({
        {"base.set", "<subseta>", "<subsetb>", ""},
        {"base.set", "<name>JIS_X0208-1990</name>", "", ""},
        {"base.set", "<lang domain=\"ja\"/>", "<lang/>", ""}, // neither form of an opening tag
        {"base.set", "domain=\"ja\"", "", " lang  on"},
        {"base.set", "<code ", "<kode ", ""},
        {"base.set", "bytenum=\"2\"", "bytenum=\"10\"", "base.txt/4/10 base.txt/A/10"}, // decimal
        {"base.set", "bytenum=\"2\"", "bytenum=\"65537\"", " bytes 1 "},
        {"base.set", "<defined>2121-227E 2330 </defined>", "", " defined max 0 tables base.txt"},
        {"base.set", "<srtable>&table;</srtable>", "", "max 227E tables /4/00 /2/00"},
        // A range that is not closed ends at the next "/>", and there is none.
        {"base.set", "</range></code>", "</code>", good_base},
        {"diff.set", "<subsetb>", "<subseta>", ""},
        {"diff.set", "<codeb ", "<code ", ""},
        {"diff.set", " basedon=\"JIS_X0208-1990\"", "",
         "NEC_extset type 2 bytes 2 lang ja on  user"},
        {"user.set", "<name>windows31j-usr</name>", "", ""},
        {"user.set", "<codec ", "<code ", ""},
        {"user.set", "<defrange start=\"F040\" number=\"758\"/>", "", " user 0+0 "},
        {"user.set", "\"758\"/>", "758/>", ""},
        {"user.set", "number=\"758\"", "number=\"12345\"", " user F040+2345 "}, // 16 bits
        {"user.set", "F040", " \tG", " user 0+758 "},
    });
}

TEST(Definition, ExtraTables) {
    const char* const table = "<dstable bytenum=\"3\">&bar;</dstable>";
    expect_changes({
        {"main.xml", "bytenum=\"3\"", "bytenum=\" \t10\"", "[bar.txt/10/10] []"}, // hexadecimal
        {"main.xml", table, "<dstable>&bar;</dstable>", "[bar.txt/2/10] []"},
        {"main.xml", "bytenum=\"3\"", "bytenum=\"\"", "[bar.txt/0/10] []"},
        {"main.xml", "bytenum=\"3\"", "bytenum=\"3", "[] []"}, // one that is never closed
        {"main.xml", table, "<dstable bytenum=\"1\">&bar;</dstable><dstable>&table;</dstable>",
         "[bar.txt/1/10base.txt/2/10] []"},
        {"main.xml", "&diff;", "&diff;<dstable>&bar;</dstable>", "[bar.txt/3/10] [bar.txt/2/10]"},
        {"main.xml", "<baseset>", "<dstable>&bar;</dstable><baseset>", "[bar.txt/3/10] []"},
        {"main.xml", "</charset>", "<dstable>&bar;</dstable></charset>", "[bar.txt/3/10] []"},
    });
}

TEST(Definition, DefinedCodes) {
    const std::string text = "2121-227E 2330 ";
    const std::pair<const char*, const char*> cases[] = {
        {"20-7E 8E ", "20-7E 8E-8E max 7E"}, // a single code does not raise it
        {"20-7E", "max 0"},                  // it ends in one
        {"30- 39 ", "30-39 max 39"},
        {"30 -39 ", "30-30 39-39 max 0"},
        {"30--39-40 ", "30-39 40-40 max 39"},
        {"7E-20 1-2 ", "7E-20 1-2 max 20"},
        {"0-FFFFFFFF ", "0-FFFFFFFF max FFFFFFFF"},
    };
    for (const auto& [codes, shown] : cases) {
        expect_changes({{"base.set", text.c_str(), codes, std::string(" defined ") + shown}});
    }
}

// Of definitions and of sets with one number.
TEST(Definition, TheFirstOfANumberWins) {
    const charset_directory dir;
    files all = good_files();
    // The same charset once more, with nothing that could be read behind its name.
    dir.write_utf16("again.xml",
                    "<charset><name>SHIFT_jis</name><baseset>&none;</baseset></charset>");
    all["other.xml"] =
        with(with(all["main.xml"], "Shift_JIS<", "Euc-JP<"), "Base.set", "base2.set");
    all["base2.set"] = with(all["base.set"], "2121-227E", "2121-7E7E");
    write(dir, all);
    for (const char* file : {"main.xml", "again.xml", "other.xml"}) {
        EXPECT_EQ(xmlReadXML(file), 1U);
    }
    EXPECT_EQ(show_groups(), good_group + with(good_group, "shift_jis", "euc-jp"));
    EXPECT_EQ(show_sets(), std::string(good_base) + good_diff + good_user);
    const auto first_set_of = [](u16 index) {
        const void* group = getArray(g_ProcessObject.groups, index);
        return getArray(static_cast<const charset_group*>(group)->memberSets, 0);
    };
    EXPECT_EQ(first_set_of(0), first_set_of(1));
}

TEST(Definition, LongTextsAreCut) {
    const std::string text(5000, 'x'), kept = text.substr(0, text_bytes - 1);
    expect_changes({
        {"main.xml", "Shift_JIS", text.c_str(), "group " + kept + " const"},
        {"base.set", "JIS_X0208-1990", text.c_str(), "sets " + kept + " NEC"},
        {"diff.set", "JIS_X0208-1990", text.c_str(), "on " + kept + " user"},
        {"user.set", "F040", text.c_str(), " user 0+758"},
    });
}

// ---- A directory as a whole

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

// Whatever definitions share, they give the same registry as when each reads all its files itself.
TEST(Definition, ADirectoryIsItsDefinitionsOneAfterTheOther) {
    const std::pair<const char*, const char*> changes[] = {
        {"difftable SYSTEM", "missing SYSTEM"},
        {"base.txt", "other.txt"},
        {"Base.set", "base2.set"},
        {"Base.set", "base.set"},
        {"Base.set", "diff.set"},
        {"diff.set", "missing.set"},
        {"<diffset>&diff;</diffset>", "<diffset>&diff;</diffset><baseset>&base;</baseset>"},
        {"<eudcset>&user;</eudcset>", "<eudcset>&base;</eudcset>"},
        {"<eudcset>&user;</eudcset>", ""},
        {"UTF-16", "ISO-10646-UCS-2"}};
    std::mt19937 random(1);
    for (int round = 0; round < 20; ++round) {
        const charset_directory dir;
        files all = good_files();
        const std::string main = all["main.xml"];
        all.erase("main.xml");
        all["base2.set"] = with(all["base.set"], "2121-227E", "2121-7E7E");
        write(dir, all);
        for (const char name : std::string("abcdefghijklmnop")) {
            std::string text = with(main, "Shift_JIS<", std::string("set-") + name + "<");
            for (auto left = random() % 4; left > 0; --left) {
                const auto& [from, to] = changes[random() % std::size(changes)];
                const std::size_t at = text.find(from);
                text = at != text.npos ? text.replace(at, std::strlen(from), to) : text;
            }
            // Set files tell no encoding: they are read as the definition is, or not at all.
            const std::pair<const char*, std::size_t> forms[] = {
                {"\xFE\xFF", 2}, {"\xFFxx\xFE", 4}, {"\xFF\xFE", 2}};
            const std::size_t form = std::min<std::size_t>(random() % 16, 2);
            const auto& [mark, unit] = forms[form];
            dir.write(std::string(1, name) + ".xml", mark + test::widen(text, unit, form == 0));
            xmlReadXML((std::string(1, name) + ".xml").c_str());
        }
        const std::string expected = show_groups() + show_sets();
        charset_directory::clear_registry();
        test::in_child([&] {
            cconvLoadRule();
            EXPECT_EQ(show_groups() + show_sets(), expected);
        });
    }
}

TEST(Definition, AFileIsReadOnceForAllThatShareIt) {
    const charset_directory dir;
    for (const auto& entry : std::filesystem::directory_iterator(PVZAN_BASE2_DIR)) {
        std::filesystem::copy(entry.path(), dir.path());
    }
    const auto counts = opened(dir.path(), [] { EXPECT_EQ(cconvLoadRule(), 1U); });
    EXPECT_EQ(counts.count("jis_x0208-1990.set"), 1U);
    for (const auto& [name, count] : counts) {
        EXPECT_EQ(count, 1) << name;
    }
}

} // namespace
