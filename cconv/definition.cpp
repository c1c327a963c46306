// Definition files to registry objects.
//
// The main document names the charset, its pair of rules and its sets; each set lies in a file of
// its own, an entity of the main document, and so does each table. Elements are looked for one
// after the other, each behind the start or the end of another; nesting is not checked.
#include "cconv/definition.h"

#include "cconv/names.h"
#include "platform/platform.h"

#include <algorithm>
#include <memory>
#include <optional>

namespace {

// ---- Owners ------------------------------------------------------------------------------------

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

struct owned_document : document {
    owned_document() : document{} {}
    ~owned_document() {
        ZAN_free(text);
        ZAN_free(tagPos);
    }
    owned_document(const owned_document&) = delete;
    owned_document& operator=(const owned_document&) = delete;
};

// ---- Searches ----------------------------------------------------------------------------------

struct element {
    i32 start, end; // of its content; attributes count as content
};

std::optional<element> find_element(document& in, const char* name, i32 from) {
    in.pos = from;
    element found{};
    if (xmlSeekObj2(&in, name, &found.start, &found.end) == 0) {
        return std::nullopt;
    }
    return found;
}

// The offset behind a key such as "start=".
std::optional<i32> find_key(document& in, const char* key, i32 from) {
    in.pos = from;
    i32 behind = 0;
    return xmlSeekObj1(&in, key, &behind) != 0 ? std::optional(behind) : std::nullopt;
}

// Whether characters [from, end) hold a double quote, and the offset behind it.
std::optional<i32> find_quote(const document& in, i32 from, i32 end) {
    for (i32 at = from; at < std::min(end, in.textBytes); at += i32{sizeof(u32)}) {
        if (in.text[static_cast<std::size_t>(at) / sizeof(u32)] == '"') {
            return at + i32{sizeof(u32)};
        }
    }
    return std::nullopt;
}

// Repeated searches for one key, each from where the one before began or further on. What lies
// ahead is remembered, and so is that nothing does: a document that is full of one key, or of
// another, takes linear time.
class key_finder {
public:
    key_finder(document& in, const char* key)
        : in_(in), key_(key), bytes_(static_cast<i32>(std::strlen(key) * sizeof(u32))) {}

    // The offset behind the key.
    std::optional<i32> find(i32 from) {
        if (!searched_ || (behind_ && *behind_ - bytes_ < from)) {
            behind_ = find_key(in_, key_, from);
            searched_ = true;
        }
        return behind_;
    }
    [[nodiscard]] i32 bytes() const { return bytes_; }

private:
    document& in_;
    const char* key_;
    i32 bytes_;
    bool searched_ = false;
    std::optional<i32> behind_;
};

// The same for elements, which are found as find_element finds them.
struct element_keys {
    const char *plain, *attributed, *closing;
};
constexpr element_keys range_keys{"<range>", "<range ", "</range>"};
constexpr element_keys extra_table_keys{"<dstable>", "<dstable ", "</dstable>"};
constexpr element_keys base_set_keys{"<baseset>", "<baseset ", "</baseset>"};
constexpr element_keys difference_set_keys{"<diffset>", "<diffset ", "</diffset>"};

class element_finder {
public:
    element_finder(document& in, const element_keys& keys)
        : plain_(in, keys.plain), attributed_(in, keys.attributed), closing_(in, keys.closing),
          empty_(in, "/>") {}

    std::optional<element> find(i32 from) {
        auto start = plain_.find(from);
        const auto attributed = attributed_.find(from);
        if (!start || (attributed && *attributed < *start)) {
            start = attributed;
        }
        if (!start) {
            return std::nullopt;
        }
        for (key_finder* ending : {&closing_, &empty_}) {
            if (const auto behind = ending->find(*start)) {
                return element{*start, *behind - ending->bytes()};
            }
        }
        return std::nullopt;
    }

private:
    key_finder plain_, attributed_, closing_, empty_;
};

i64 characters_in(const document& in) {
    return in.textBytes / i64{sizeof(u32)};
}

// Each reference looks for its entity in the whole main document, and each set reads a file. What a
// definition may cost so is limited, far beyond what any charset needs: it stays linear in its
// size.
class work_budget {
public:
    explicit work_budget(const document& main)
        : lookup_(characters_in(main)), left_((i64{1} << 28) + 64 * lookup_) {}
    bool look_up() { return spend(lookup_); }
    bool read(const document& in) { return spend(characters_in(in)); }

private:
    bool spend(i64 characters) {
        left_ -= characters;
        return left_ >= 0;
    }
    i64 lookup_, left_;
};

// Skips every "range" element from there; their contents are not used.
i32 skip_ranges(document& in, i32 from) {
    element_finder ranges(in, range_keys);
    while (const auto range = ranges.find(from)) {
        from = range->end;
    }
    return from;
}

// ---- Base and difference sets ------------------------------------------------------------------

struct set_grammar {
    const char* set; // elements of the set's own file
    const char* code;
    u16 setType;
};
constexpr set_grammar base_grammar{"subseta", "code", PVZAN_SET_BASE};
constexpr set_grammar difference_grammar{"subsetb", "codeb", PVZAN_SET_DIFFERENCE};

// Reads what stands behind the code element: the defined ranges and the table's name.
bool read_set_contents(document& main, document& in, const set_grammar& grammar,
                       const element& code, basic_set& set) {
    const bool is_base = grammar.setType == PVZAN_SET_BASE;
    i32 behind = is_base ? skip_ranges(in, code.start) : code.end;
    if (const auto defined = find_element(in, "defined", is_base ? behind : code.start)) {
        if (loadHex(in.text, defined->start, defined->end, set.defined) == 0) {
            return false;
        }
        behind = defined->end;
    }
    const auto table = find_element(in, "srtable", behind);
    return !table ||
           xmlGetTable(&main, &in, table->start, table->end, set.decodeTable, set.encodeTable) != 0;
}

owned_set read_set(document& main, work_budget& budget, const element& reference,
                   const set_grammar& grammar) {
    owned_document in;
    if (!budget.look_up() || readDAT(&main, reference.start, reference.end, &in) == 0 ||
        !budget.read(in)) {
        return nullptr;
    }
    const auto body = find_element(in, grammar.set, 0);
    const auto name = body ? find_element(in, "name", body->start) : std::nullopt;
    const auto lang = name ? find_element(in, "lang", name->end) : std::nullopt;
    const auto code = lang ? find_element(in, grammar.code, lang->end) : std::nullopt;
    if (!code) {
        return nullptr;
    }
    char text[text_bytes];
    u16 byteNum = 0;
    xmlGetBytenum(&in, code->start, code->end, &byteNum);
    xmlGetName(&in, name->start, name->end, text);
    owned_set set(initBasic(text, grammar.setType, byteNum));
    if (set == nullptr) {
        return nullptr;
    }
    xmlGetLang(&in, lang->start, lang->end, set->lang);
    if (grammar.setType == PVZAN_SET_DIFFERENCE) {
        xmlGetBasedon(&in, code->start, code->end, set->basedOn);
    }
    return read_set_contents(main, in, grammar, *code, *set) ? std::move(set) : nullptr;
}

// ---- Extra encode tables -----------------------------------------------------------------------

// What the sets of a document are read with, one after the other.
struct set_reader {
    element_finder tables;
    key_finder width;
    work_budget budget;
    explicit set_reader(document& main)
        : tables(main, extra_table_keys), width(main, "bytenum="), budget(main) {}
};

// The value width of an extra table: hexadecimal, 2 where none is given; nothing when its quotes
// are not closed.
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

// The "dstable" elements inside a set element. A table whose file cannot be resolved is left out;
// null is lack of
// memory, or far too many of them.
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

// Registers the set, or gives way to the one of that number, and makes it a member of the group.
bool register_set(charset_group& group, owned_set set) {
    const u32 setNo = set->setNo;
    if (findBasicArray(g_ProcessObject.basics, setNo) == nullptr) {
        if (TheAddBasic(set.get()) == 0) {
            return false;
        }
        set.release();
    }
    return addNameArray(group.memberSets, setNo) != 0;
}

bool add_set(document& main, set_reader& reader, const element& reference,
             const set_grammar& grammar, charset_group& group) {
    owned_set set = read_set(main, reader.budget, reference, grammar);
    if (set == nullptr) {
        return false;
    }
    owned_tables tables = read_extra_tables(main, reader, reference);
    if (tables == nullptr || addArray(group.dsTableArrays, tables.get()) == 0) {
        return false;
    }
    tables.release();
    return register_set(group, std::move(set));
}

// Takes base and difference sets in the order of the document; end receives where the last one
// ended.
bool add_sets(document& main, charset_group& group, i32& end) {
    end = 0;
    element_finder bases(main, base_set_keys), differences(main, difference_set_keys);
    set_reader reader(main);
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

// A quoted hexadecimal value behind a key, as in start="F040".
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

// The one set of user-defined characters, which has no tables and so no array of extra ones.
bool add_user_defined_set(document& main, const element& reference, charset_group& group) {
    owned_document in;
    if (readDAT(&main, reference.start, reference.end, &in) == 0) {
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
    owned_set set(initBasic(text, PVZAN_SET_USER_DEFINED, byteNum));
    if (set == nullptr) {
        return false;
    }
    set->eudcStart = *start;
    set->eudcNumber = *number;
    return register_set(group, std::move(set));
}

bool is_registered(u32 groupNo) {
    return findGroupArray(g_ProcessObject.groups, groupNo) != nullptr;
}

struct rule_names {
    char constRule[text_bytes] = "";
    char destRule[text_bytes] = "";
};

// The pair of rules, where the charset has the element. False when one of the two is missing.
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

} // namespace

extern "C" {

u32 xmlReadXML(const char* fileName) {
    owned_document main;
    if (xmlReadFile(fileName, encoding_utf16, 0, &main) == 0) {
        return 0;
    }
    const auto charset = find_element(main, "charset", 0);
    const auto name = charset ? find_element(main, "name", charset->start) : std::nullopt;
    if (!name) {
        return 0;
    }
    char text[text_bytes];
    xmlGetName(&main, name->start, name->end, text);
    fold_text(text);
    // The first definition of a charset wins; later ones are not looked at further.
    if (is_registered(group_number(text))) {
        return 1;
    }
    rule_names rules;
    if (!read_rules(main, *name, rules)) {
        return 0;
    }
    owned_group group(initGroup(text, rules.constRule, rules.destRule));
    i32 sets_end = 0;
    if (group == nullptr || !add_sets(main, *group, sets_end)) {
        return 0;
    }
    const auto user_defined = find_element(main, "eudcset", sets_end);
    if (user_defined && !add_user_defined_set(main, *user_defined, *group)) {
        return 0;
    }
    if (TheAddGroup(group.get()) == 0) {
        return 0;
    }
    group.release();
    return 1;
}

u32 readDAT(document* document, i32 start, i32 end, struct document* subDocument) {
    const owned_memory<char> link(xmlGetLink(document, start, end));
    const owned_memory<char> file(link != nullptr ? xmlFindEntry(document, link.get()) : nullptr);
    if (file == nullptr) {
        return 0;
    }
    return xmlReadFile(file.get(), document->encoding, document->bigEndian, subDocument);
}

u32 loadHex(const u32* text, i32 start, i32 end, limit_array* limits) {
    const u32* extent = text + start / i32{sizeof(u32)};
    const i32 count = (end - start) / i32{sizeof(u32)};
    u32 largest_end = 0;
    i32 index = 0;
    u32 low = 0;
    while (xmlGetHex(extent, index, count, &index, &low) != 0) {
        u32 high = low;
        if (extent[index] == '-') {
            if (xmlGetHex(extent, index, count, &index, &high) == 0) {
                break; // nothing is stored for a range without an end
            }
            largest_end = std::max(largest_end, high); // single codes deliberately do not count
        }
        limit* range = initLimit(low, high);
        if (range != nullptr && addArray(limits->ranges, range) == 0) {
            termLimit(range);
            return 0;
        }
        ++index;
    }
    limits->minCode = 0;
    limits->maxCode = largest_end;
    return 1;
}

} // extern "C"
