// Coded sets and charsets as their documents define them.
#pragma once

#include "charsets/builder/markup.h"

namespace charsets {

enum class set_kind { base, difference, user_defined };

struct code_range {
    u32 first, last;
};

struct coded_set {
    markup document;
    set_kind kind;
    std::string name;
    u32 number = 0;
    u32 bytes = 0;
    std::string linear; // the bytes of codes that are counted; empty: they are not
    std::vector<code_range> defined;
    std::string table_entity; // empty: no table, a code is its own scalar
    std::size_t table_line = 0;
    u32 user_first = 0, user_count = 0; // user_defined only

    bool defines(u32 code) const;
};

struct extra_table {
    std::size_t line;
    std::string entity;
    u32 bytes;
};

struct member {
    std::size_t line;
    set_kind kind;
    std::string entity;
    std::vector<extra_table> extras;
};

struct charset {
    markup document;
    std::string name;
    u32 number = 0;
    std::vector<member> members;
    bool goes_by_iso2022 = false; // the rule
    std::size_t iso2022_line = 0; // of the element; 0: there is none
};

coded_set read_coded_set(source_file document);
charset read_charset(source_file document);

} // namespace charsets
