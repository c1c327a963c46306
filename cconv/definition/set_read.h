// The files of coded sets.
#pragma once

#include "cconv/definition/definition.h"
#include "cconv/definition/document_search.h"

struct release {
    void operator()(charset_group* group) const { termGroup(group); }
    void operator()(basic_set* set) const { termBasic(set); }
    void operator()(table_object* table) const { termTable(table); }
    void operator()(object_array* tables) const { termTableArray(tables); }
};
using owned_group = std::unique_ptr<charset_group, release>;
using owned_set = std::unique_ptr<basic_set, release>;
using owned_table = std::unique_ptr<table_object, release>;
using owned_tables = std::unique_ptr<object_array, release>;

inline i64 characters_in(const document& in) {
    return in.textBytes / i64{sizeof(u32)};
}

// Each reference searches the whole main document for its entity, and each set reads a file. Their
// number is limited, far beyond what any charset needs, so that the time stays linear in the size
// of the definition.
class work_budget {
public:
    explicit work_budget(const document& main)
        : lookup_(characters_in(main)), left_((i64{1} << 28) + 64 * lookup_) {}
    bool look_up() { return spend(lookup_); }
    bool spend(i64 characters) {
        left_ -= characters;
        return left_ >= 0;
    }

private:
    i64 lookup_, left_;
};

struct set_grammar {
    const char* set; // elements of the set file
    const char* code;
    u16 setType;
};
inline constexpr set_grammar base_grammar{"subseta", "code", PVZAN_SET_BASE};
inline constexpr set_grammar difference_grammar{"subsetb", "codeb", PVZAN_SET_DIFFERENCE};

// The contents of a set file.
struct read_set {
    owned_set set;
    owned_memory<char> table; // the entity of its table
    i32 characters = 0;       // of the file
};

bool read_set_file(document& main, work_budget& budget, const char* file,
                   const set_grammar& grammar, read_set& out);

// Skips all "range" elements from there on; their contents are not used.
i32 skip_ranges(document& in, i32 from);
