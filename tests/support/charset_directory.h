// Charset directories made by a test: definitions, sets, tables and their caches.
#pragma once

#include "cconv/convert/lifecycle.h"
#include "cconv/definition/document.h"
#include "cconv/directory/directory.h"
#include "cconv/tables/table.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test.h"

namespace test {

// An empty directory, settled as the charset directory, with an empty registry.
class charset_directory : public temp_dir {
public:
    charset_directory() {
        EXPECT_EQ(initProcess(), 1U); // the lock, too
        m_charsetpath[0] = '\0';      // whatever a test before this one settled
        EXPECT_EQ(ZAN_setCharsetPath(path().c_str()), 1U);
    }
    ~charset_directory() { termProcess(); }
    charset_directory(const charset_directory&) = delete;
    charset_directory& operator=(const charset_directory&) = delete;

    static void clear_registry() {
        termProcess();
        EXPECT_EQ(initProcess(), 1U);
    }
};

// ---- Definitions -------------------------------------------------------------------------------

// A coded set of codes of so many bytes; table names its file, empty for none. All in lower case:
// definitions name files so. With -1 bytes, its files are in the directory already.
struct set_definition {
    std::string name;
    int bytes;
    std::string table = {};
};

// Its files may lie in a folder: "further/own" is the charset own there.
struct charset_definition {
    std::string name;
    std::string encode_rule, decode_rule;
    std::vector<set_definition> sets;
};

// Writes NAME.xml, and SET.set for each set.
inline void write_definition(const temp_dir& directory, const charset_definition& charset) {
    const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-16\"?>\n";
    const auto own_name = [](const std::string& path) { return path.substr(path.rfind('/') + 1); };
    std::string entities, members;
    for (const set_definition& set : charset.sets) {
        const std::string file = set.name + ".set", name = own_name(set.name);
        entities += "<!ENTITY the-" + name + " SYSTEM \"" + file + "\">\n";
        members += "<baseset>&the-" + name + ";</baseset>\n";
        std::string body = "<subseta>\n<name>" + name + "</name>\n<lang domain=\"\"/>\n" +
                           "<code bytenum=\"" + std::to_string(set.bytes) + "\"/>\n";
        if (!set.table.empty()) {
            entities += "<!ENTITY table-" + name + " SYSTEM \"" + set.table + "\">\n";
            body += "<srtable>&table-" + name + ";</srtable>\n";
        }
        if (set.bytes >= 0) {
            directory.write_utf16(file, head + body + "</subseta>\n");
        }
    }
    std::string text = head + "<!DOCTYPE charset [\n" + entities + "]>\n<charset>\n<name>" +
                       own_name(charset.name) + "</name>\n<rule construle=\"" +
                       charset.encode_rule + "\" destrule=\"" + charset.decode_rule + "\"/>\n";
    directory.write_utf16(charset.name + ".xml", text + members + "</charset>\n");
}

// ---- Tables ------------------------------------------------------------------------------------

// Pairs of a code and a character, as a table's text and as its cache hold them.
using pairs = std::vector<std::pair<u32, u32>>;

inline std::string as_text(const pairs& all) {
    std::string text;
    for (const auto& [code, ucs] : all) {
        char line[32];
        std::snprintf(line, sizeof line, "%X\t%x\r\n", code, ucs);
        text += line;
    }
    return widen(text, 2, false);
}

inline std::string as_cache(const pairs& all) {
    std::string bytes(all.size() * 8, '\0');
    std::memcpy(bytes.data(), all.data(), bytes.size());
    return bytes;
}

struct table_release {
    void operator()(table_object* table) const { termTable(table); }
};
using owned_table = std::unique_ptr<table_object, table_release>;

inline owned_table make_table(u32 valueBytes, u32 toUnicode, const std::string& file = "") {
    owned_table table(initTable(valueBytes, toUnicode));
    copy_text(table->fileName, file.c_str());
    table->textEncoding = encoding_utf16;
    return table;
}

// What a table has for a key, found as the library's callers find it.
inline u32 value_of(table_object* table, u32 key) {
    void* item = table;
    object_array tables{1, &item};
    u32 value = 0;
    u16 bytes = 0;
    return dstDsTableArray(&tables, key, &value, &bytes) != 0 ? value : 0;
}

} // namespace test
