// Charset directories made by a test.
#pragma once

#include "tests/support/temp_dir.h"

namespace test {

// A coded set of codes of so many bytes; table names its file, empty for none. All in lower case:
// definitions name files so.
struct set_definition {
    std::string name;
    int bytes;
    std::string table = {};
};

struct charset_definition {
    std::string name;
    std::string encode_rule, decode_rule;
    std::vector<set_definition> sets;
};

// Writes NAME.xml, and SET.set for each set.
inline void write_definition(const temp_dir& directory, const charset_definition& charset) {
    const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-16\"?>\n";
    std::string entities, members;
    for (const set_definition& set : charset.sets) {
        const std::string file = set.name + ".set";
        entities += "<!ENTITY the-" + set.name + " SYSTEM \"" + file + "\">\n";
        members += "<baseset>&the-" + set.name + ";</baseset>\n";
        std::string body = "<subseta>\n<name>" + set.name + "</name>\n<lang domain=\"\"/>\n" +
                           "<code bytenum=\"" + std::to_string(set.bytes) + "\"/>\n";
        if (!set.table.empty()) {
            entities += "<!ENTITY table-" + set.name + " SYSTEM \"" + set.table + "\">\n";
            body += "<srtable>&table-" + set.name + ";</srtable>\n";
        }
        directory.write_utf16(file, head + body + "</subseta>\n");
    }
    std::string text = head + "<!DOCTYPE charset [\n" + entities + "]>\n<charset>\n<name>" +
                       charset.name + "</name>\n<rule construle=\"" + charset.encode_rule +
                       "\" destrule=\"" + charset.decode_rule + "\"/>\n";
    directory.write_utf16(charset.name + ".xml", text + members + "</charset>\n");
}

} // namespace test
