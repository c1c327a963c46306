// Turns definition files into registry objects.
//
// The main document names the charset, its two rules and its sets. Each set is in a file of its
// own, which is an entity of the main document, and so is each table. Each element is searched for
// after the start or the end of the previous one; nesting is not checked.
#include "cconv/definition/definition.h"

#include "cconv/definition/document_search.h"
#include "cconv/definition/iso2022_read.h"
#include "cconv/definition/known_sets.h"
#include "cconv/definition/set_read.h"
#include "cconv/registry/further.h"
#include "cconv/registry/linear.h"
#include "cconv/registry/names.h"

namespace {

constexpr element_keys extra_table_keys{"<dstable>", "<dstable ", "</dstable>"};
constexpr element_keys base_set_keys{"<baseset>", "<baseset ", "</baseset>"};
constexpr element_keys difference_set_keys{"<diffset>", "<diffset ", "</diffset>"};

// The file of the entity in an extent; or null.
owned_memory<char> entity_file(document& main, i32 start, i32 end) {
    const owned_memory<char> link(xmlGetLink(&main, start, end));
    return owned_memory<char>(link != nullptr ? xmlFindEntry(&main, link.get()) : nullptr);
}

// Where a definition is stored: in the root, or among the further ones.
struct shelf {
    known_sets& known;
    bool is_further;
};

// ---- Extra encode tables -----------------------------------------------------------------------

// The state while the sets of a document are read, one after the other.
struct set_reader {
    element_finder tables;
    key_finder width;
    work_budget budget;
    const shelf& place;
    set_reader(document& main, const shelf& where)
        : tables(main, extra_table_keys), width(main, "bytenum="), budget(main), place(where) {}
};

// The value width of an extra table: hexadecimal, 2 by default; nothing if its quotes are not
// closed.
std::optional<u32> extra_table_width(document& main, set_reader& reader, const element& table) {
    constexpr u32 default_width = 2;
    const auto key = reader.width.find(table.start);
    if (!key || *key > table.end) {
        return default_width;
    }
    const auto open = find_quote(main, *key, table.end);
    if (!open) {
        return default_width;
    }
    const auto close = find_quote(main, *open, table.end);
    if (!close) {
        return std::nullopt;
    }
    char value[text_bytes];
    xmlGetName(&main, *open, *close - i32{sizeof(u32)}, value);
    return xatoi(value);
}

// Reads the "dstable" elements inside a set element. A table whose file is not found is skipped.
// Null if memory runs out, or if there are far too many of them.
owned_tables read_extra_tables(document& main, set_reader& reader, const element& set) {
    owned_tables tables(initArray());
    if (tables == nullptr) {
        return nullptr;
    }
    i32 from = set.start;
    for (;;) {
        const auto found = reader.tables.find(from);
        if (!found || found->end >= set.end) {
            return tables;
        }
        from = found->end;
        if (!reader.budget.look_up()) {
            return nullptr;
        }
        const auto width = extra_table_width(main, reader, *found);
        if (!width) {
            continue;
        }
        owned_table table(initTable(*width, 0));
        if (table == nullptr) {
            return nullptr;
        }
        if (xmlGetTable(&main, nullptr, found->start, found->end, nullptr, table.get()) == 0) {
            continue;
        }
        if (addArray(tables.get(), table.get()) == 0) {
            return nullptr;
        }
        table.release();
    }
}

// ---- Registration ------------------------------------------------------------------------------

// Registers the set unless it is already there (in the root by number, otherwise by name), and adds
// it to the members of the group. If the names are the same, its file is remembered.
bool take_set(const shelf& place, charset_group& group, const document& main,
              owned_memory<char> file, read_set read) {
    basic_set* set = place.is_further ? registered_set(read.set->name)
                                      : findBasicArray(g_ProcessObject.basics, read.set->setNo);
    if (set == nullptr) {
        set = read.set.get();
        if (!(place.is_further ? add_further(set) : TheAddBasic(set) != 0)) {
            return false;
        }
        read.set.release();
    } else if (!same_name(set->name, read.set->name) || set->setType != read.set->setType) {
        file = nullptr;
    }
    if (file != nullptr) {
        place.known.add(std::move(file), std::move(read.table),
                        {.file = nullptr,
                         .table = nullptr,
                         .encoding = main.encoding,
                         .bigEndian = main.bigEndian,
                         .set = set,
                         .characters = read.characters});
    }
    return addArray(group.memberSets, set) != 0;
}

// What a known set still requires of the definition that names it: room in the budget, and its
// table among the entities.
bool may_take(document& main, work_budget& budget, const known_set& known) {
    const auto finds_table = [&] {
        return owned_memory<char>(xmlFindEntry(&main, known.table)) != nullptr;
    };
    return budget.spend(known.characters) && (known.table == nullptr || finds_table());
}

bool add_set(document& main, set_reader& reader, const element& reference,
             const set_grammar& grammar, charset_group& group) {
    if (!reader.budget.look_up()) {
        return false;
    }
    owned_memory<char> file = entity_file(main, reference.start, reference.end);
    if (file == nullptr) {
        return false;
    }
    const known_set* known = reader.place.known.find(main, file.get(), grammar.setType);
    read_set read;
    if (known != nullptr ? !may_take(main, reader.budget, *known)
                         : !read_set_file(main, reader.budget, file.get(), grammar, read)) {
        return false;
    }
    owned_tables tables = read_extra_tables(main, reader, reference);
    if (tables == nullptr || addArray(group.dsTableArrays, tables.get()) == 0) {
        return false;
    }
    tables.release();
    return known != nullptr ? addArray(group.memberSets, known->set) != 0
                            : take_set(reader.place, group, main, std::move(file), std::move(read));
}

// Reads base and difference sets in the order of the document; end receives the end of the last
// one.
bool add_sets(document& main, const shelf& place, charset_group& group, i32& end) {
    end = 0;
    element_finder bases(main, base_set_keys), differences(main, difference_set_keys);
    set_reader reader(main, place);
    for (;;) {
        const auto base = bases.find(end);
        const auto difference = differences.find(end);
        if (!base && !difference) {
            return true;
        }
        const bool base_first = base && (!difference || base->start < difference->start);
        const element& reference = base_first ? *base : *difference;
        if (!add_set(main, reader, reference, base_first ? base_grammar : difference_grammar,
                     group)) {
            return false;
        }
        end = reference.end;
    }
}

// A quoted hexadecimal value after a key, for example start="F040".
std::optional<u16> quoted_hex(document& in, const char* key, i32 from) {
    const auto behind = find_key(in, key, from);
    const auto open = behind ? find_quote(in, *behind, in.textBytes) : std::nullopt;
    const auto close = open ? find_quote(in, *open, in.textBytes) : std::nullopt;
    if (!close) {
        return std::nullopt;
    }
    char value[text_bytes];
    xmlGetName(&in, *open, *close - i32{sizeof(u32)}, value);
    return static_cast<u16>(xatoi(value));
}

// The set of user-defined characters, of which there is at most one. It has no tables, and so no
// array of extra tables.
bool add_user_defined_set(document& main, const shelf& place, const element& reference,
                          charset_group& group) {
    owned_memory<char> file = entity_file(main, reference.start, reference.end);
    if (file == nullptr) {
        return false;
    }
    if (const auto* known = place.known.find(main, file.get(), PVZAN_SET_USER_DEFINED)) {
        return addArray(group.memberSets, known->set) != 0;
    }
    owned_document in;
    if (xmlReadFile(file.get(), main.encoding, main.bigEndian, &in) == 0) {
        return false;
    }
    const auto name = find_element(in, "name", 0);
    const auto code = name ? find_element(in, "codec", name->end) : std::nullopt;
    if (!code) {
        return false;
    }
    std::optional<u16> start = u16{0}, number = u16{0};
    if (const auto range = find_element(in, "defrange", skip_ranges(in, code->start))) {
        start = quoted_hex(in, "start=", range->start);
        number = quoted_hex(in, "number=", range->start);
    }
    if (!start || !number) {
        return false;
    }
    char text[text_bytes];
    u16 byteNum = 0;
    xmlGetName(&in, name->start, name->end, text);
    xmlGetBytenum(&in, code->start, code->end, &byteNum);
    read_set read;
    read.set.reset(initBasic(text, PVZAN_SET_USER_DEFINED, byteNum));
    if (read.set == nullptr) {
        return false;
    }
    read.set->eudcStart = *start;
    read.set->eudcNumber = *number;
    return take_set(place, group, main, std::move(file), std::move(read));
}

struct rule_names {
    char constRule[text_bytes] = "";
    char destRule[text_bytes] = "";
};

// The two rules, if the charset has the element. False if one of them is missing.
bool read_rules(document& main, const element& name, rule_names& rules) {
    const auto rule = find_element(main, "rule", name.start);
    if (!rule) {
        return true;
    }
    const auto encoder = find_key(main, "construle=", rule->start);
    const auto decoder = encoder ? find_key(main, "destrule=", *encoder) : std::nullopt;
    if (!decoder) {
        return false;
    }
    xmlGetRule(&main, *encoder, rules.constRule);
    xmlGetRule(&main, *decoder, rules.destRule);
    return true;
}

// The element of the rules that use it.
bool read_codes(const document& main, i32 from, charset_group& group) {
    constexpr std::size_t most_members = 64;
    const char* names[most_members];
    std::size_t count = 0;
    for (const basic_set* set : member_sets(&group)) {
        if (count < most_members) {
            names[count++] = set->name;
        }
    }
    group.codes = static_cast<iso2022*>(initStruct(sizeof(iso2022)));
    complaint wrong;
    return group.codes != nullptr &&
           read_iso2022({main.text, static_cast<std::size_t>(characters_in(main))},
                        static_cast<std::size_t>(from) / sizeof(u32), {names, count}, *group.codes,
                        wrong);
}

// Creates a group from a definition, without its sets.
struct definition {
    owned_document main;
    char name[text_bytes];
    element named;
};

bool read_name(const char* fileName, definition& out) {
    if (xmlReadFile(fileName, encoding_utf16, 0, &out.main) == 0) {
        return false;
    }
    const auto charset = find_element(out.main, "charset", 0);
    const auto name = charset ? find_element(out.main, "name", charset->start) : std::nullopt;
    if (!name) {
        return false;
    }
    out.named = *name;
    xmlGetName(&out.main, name->start, name->end, out.name);
    fold_text(out.name);
    return true;
}

// Null if it is inconsistent, or if memory runs out.
owned_group read_group(definition& in, const shelf& place) {
    rule_names rules;
    if (!read_rules(in.main, in.named, rules)) {
        return nullptr;
    }
    owned_group group(initGroup(in.name, rules.constRule, rules.destRule));
    i32 sets_end = 0;
    if (group == nullptr || !add_sets(in.main, place, *group, sets_end)) {
        return nullptr;
    }
    const bool has_codes = goes_by_iso2022(rules.constRule) || goes_by_iso2022(rules.destRule);
    if (has_codes && !read_codes(in.main, sets_end, *group)) {
        return nullptr;
    }
    const auto user_defined = find_element(in.main, "eudcset", sets_end);
    if (user_defined && !add_user_defined_set(in.main, place, *user_defined, *group)) {
        return nullptr;
    }
    return group;
}

} // namespace

bool read_definition(const char* fileName, known_sets& known) {
    definition in;
    if (!read_name(fileName, in)) {
        return false;
    }
    // The first definition of a charset is used; later ones are ignored.
    if (findGroupArray(g_ProcessObject.groups, group_number(in.name)) != nullptr) {
        return true;
    }
    owned_group group = read_group(in, {known, false});
    if (group == nullptr || TheAddGroup(group.get()) == 0) {
        return false;
    }
    group.release();
    return true;
}

charset_group* read_further_definition(const char* fileName, const char* name, known_sets& known) {
    definition in;
    if (!read_name(fileName, in) || !same_name(in.name, name)) {
        return nullptr;
    }
    owned_group group = read_group(in, {known, true});
    return group != nullptr && add_further(group.get()) ? group.release() : nullptr;
}

extern "C" {

u32 xmlReadXML(const char* fileName) {
    known_sets known;
    const bool read = read_definition(fileName, known);
    known.clear();
    return read ? 1 : 0;
}

u32 readDAT(document* document, i32 start, i32 end, struct document* subDocument) {
    const owned_memory<char> file = entity_file(*document, start, end);
    return file != nullptr
               ? xmlReadFile(file.get(), document->encoding, document->bigEndian, subDocument)
               : 0;
}

} // extern "C"
