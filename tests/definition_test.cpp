// Definition files to registry objects, good files and bad.
#include "cconv/definition/definition.h"
#include "tests/support/charset_directory.h"
#include "tests/support/child.h"
#include "tests/support/digest.h"
#include "tests/support/document.h"
#include "tests/support/rows.h"

namespace {

using test::charset_directory;

// ---- The files: a charset of a base set, a difference set and a user-defined area

using files = std::map<std::string, std::string>;

// tests/data/definition, whose files stand in UTF-16 in a charset directory.
files good_files() {
    files all;
    for (const auto& entry :
         std::filesystem::directory_iterator(PVZAN_SOURCE_DIR "/tests/data/definition")) {
        std::ifstream file(entry.path());
        all[entry.path().filename().string()] = {std::istreambuf_iterator<char>(file), {}};
    }
    return all;
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

TEST(Definition, OtherFilesAreReadAsTheMainOneIs) {
    constexpr struct {
        const char *name, *mark;
        std::size_t unit;
        bool big_endian;
    } forms[] = {{"UTF-16", "\xFF\xFE", 2, false},
                 {"UTF-16", "\xFE\xFF", 2, true},
                 {"ISO-10646-UCS-2", "\xFF\xFE", 2, false},
                 {"any", "\xFExx\xFF", 4, true}};
    const charset_directory dir;
    test::digest all("definitions in each form");
    for (const auto& form : forms) {
        charset_directory::clear_registry();
        for (auto [name, text] : good_files()) {
            const bool is_main = name == "main.xml";
            const std::string marked = is_main ? with(text, "UTF-16", form.name) : text;
            dir.write(name, (is_main || form.unit == 4 ? form.mark : "") +
                                test::widen(marked, form.unit, form.big_endian));
        }
        ASSERT_EQ(xmlReadXML("main.xml"), 1U) << form.name;
        all.add(show_groups() + show_sets());
    }
}

// ---- One change to the good files each, and what comes of it

struct change {
    std::string file, from, to;
    std::string shown; // a part of the result; empty: refused
};

void expect_change(const charset_directory& dir, const change& c) {
    SCOPED_TRACE(c.file + ": " + c.from + " -> " + c.to);
    files all = good_files();
    all[c.file] = with(all[c.file], c.from, c.to);
    write(dir, all);
    charset_directory::clear_registry();
    EXPECT_EQ(xmlReadXML("main.xml"), c.shown.empty() ? 0U : 1U);
    const std::string shown = show_groups() + show_sets();
    if (c.shown.empty()) {
        EXPECT_EQ(show_groups(), "");
    }
    EXPECT_NE(shown.find(c.shown), shown.npos) << shown << "not " << c.shown;
}

TEST(Definition, Changed) {
    const charset_directory dir;
    test::digest all("definitions changed");
    for (const test::row_cells& row : test::rows_of("definition_changes.tsv", 4)) {
        expect_change(dir, {row[0], row[1], row[2], row[3]});
        all.add(show_groups() + show_sets());
    }
    const std::string text(5000, 'x'), kept = text.substr(0, text_bytes - 1);
    expect_change(dir, {"main.xml", "Shift_JIS", text, "group " + kept + " const"});
    expect_change(dir, {"base.set", "JIS_X0208-1990", text, "sets " + kept + " NEC"});
    expect_change(dir, {"diff.set", "JIS_X0208-1990", text, "on " + kept + " user"});
    expect_change(dir, {"user.set", "F040", text, " user 0+758"});
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
    std::string group, sets;
    for (const char* file : {"main.xml", "again.xml", "other.xml"}) {
        EXPECT_EQ(xmlReadXML(file), 1U);
        group = group.empty() ? show_groups() : group;
        sets = sets.empty() ? show_sets() : sets;
    }
    EXPECT_EQ(show_groups(), group + with(group, "shift_jis", "euc-jp"));
    EXPECT_EQ(show_sets(), sets);
    EXPECT_EQ(findGroupArray(g_ProcessObject.groups, PVZAN_SHIFT_JIS)->memberSets->items[0],
              findGroupArray(g_ProcessObject.groups, PVZAN_EUC_JP)->memberSets->items[0]);
}

// ---- A directory as a whole

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

} // namespace
