#include "charsets/builder/definition.h"

#include "cconv/definition/definition.h"
#include "cconv/registry/iso2022.h"
#include "cconv/registry/linear.h"
#include "cconv/registry/names.h"
#include "cconv/rulefunc/rules.h"

#include <algorithm>
#include <initializer_list>

namespace charsets {
namespace {

constexpr u32 most_code_bytes = 4;

// The library's number of a name; it folds its argument.
u32 number_of(std::string name) {
    return TheCreateNo(name.data());
}

// Walks the children of an element, which have a fixed order.
class child_reader {
public:
    child_reader(const source_file& source, const std::vector<element>& children, std::size_t line)
        : source_(source), children_(children), line_(line) {}

    const element* accept(std::string_view name) {
        if (next_ == children_.size() || children_[next_].name != name) {
            return nullptr;
        }
        return &children_[next_++];
    }
    const element& expect(std::string_view name) {
        if (const element* found = accept(name)) {
            return *found;
        }
        if (next_ < children_.size()) {
            line_ = children_[next_].line;
        }
        source_.fail(line_, "expected <" + std::string(name) + "> here");
    }
    void expect_end() const {
        if (next_ < children_.size()) {
            source_.fail(children_[next_].line,
                         "<" + children_[next_].name + "> is unknown or out of place");
        }
    }

private:
    const source_file& source_;
    const std::vector<element>& children_;
    std::size_t line_;
    std::size_t next_ = 0;
};

bool is_blank(const std::string& text) {
    return text.find_first_not_of(" \t\n") == std::string::npos;
}

// All that an element may hold besides its children.
void check_content(const source_file& source, const element& checked,
                   std::initializer_list<std::string_view> attributes, bool text,
                   std::size_t references) {
    for (const attribute& found : checked.attributes) {
        if (std::ranges::find(attributes, found.name) == attributes.end()) {
            source.fail(checked.line, "unknown attribute " + found.name);
        }
    }
    for (const std::string_view name : attributes) {
        if (std::ranges::count(checked.attributes, name, &attribute::name) != 1) {
            source.fail(checked.line,
                        "<" + checked.name + "> needs one attribute " + std::string(name));
        }
    }
    if (!text && !is_blank(checked.text)) {
        source.fail(checked.line, "<" + checked.name + "> must not contain text");
    }
    if (checked.references.size() != references) {
        source.fail(checked.line, "<" + checked.name + "> refers to " +
                                      std::to_string(checked.references.size()) +
                                      " entities instead of " + std::to_string(references));
    }
}

// Its elements do not have children of their own.
void check_leaf(const source_file& source, const element& checked,
                std::initializer_list<std::string_view> attributes, bool text = false,
                std::size_t references = 0) {
    check_content(source, checked, attributes, text, references);
    child_reader(source, checked.children, checked.line).expect_end();
}

std::string read_name(const source_file& source, const element& name) {
    check_leaf(source, name, {}, true);
    const bool fit = std::ranges::all_of(name.text, [](char c) { return c > ' ' && c <= '~'; });
    if (!fit || name.text.empty()) {
        source.fail(name.line, "a name must be ASCII, without blanks in or around it");
    }
    if (lower_case(name.text) != source.path.stem().string()) {
        source.fail(name.line, "the file of " + name.text + " must have that name, in lower case");
    }
    return name.text;
}

u32 read_number(const source_file& source, const element& holder, std::string_view name, int base,
                u32 smallest, u32 largest) {
    u32 value = 0;
    if (!parse_number(holder.find_attribute(name)->value, base, value) || value < smallest ||
        value > largest) {
        source.fail(holder.line, std::string(name) + " must be a number from " + hex(smallest, 1) +
                                     " to " + hex(largest, 1) +
                                     (base == 16 ? ", hexadecimal" : ""));
    }
    return value;
}

// Codes and ranges of codes, each followed by a blank.
std::vector<code_range> read_defined(const source_file& source, const element& defined) {
    check_leaf(source, defined, {}, true);
    std::vector<code_range> ranges;
    const std::string& text = defined.text;
    if (text.find_first_not_of("0123456789ABCDEF- \n") != std::string::npos) {
        source.fail(defined.line,
                    "<defined> may contain only upper-case codes, hyphens and blanks");
    }
    for (std::size_t start = 0;
         (start = text.find_first_not_of(" \n", start)) != std::string::npos;) {
        const std::size_t end = text.find_first_of(" \n", start);
        if (end == std::string::npos) {
            source.fail(defined.line, "the last code of <defined> needs a blank after it");
        }
        const std::string word = text.substr(start, end - start);
        const std::size_t hyphen = std::min(word.find('-'), word.size());
        code_range range{};
        const bool read =
            parse_number(word.substr(0, hyphen), 16, range.first) &&
            parse_number(word.substr(hyphen == word.size() ? 0 : hyphen + 1), 16, range.last);
        if (!read || range.last < range.first) {
            source.fail(defined.line, word + " is neither a code nor a range");
        }
        ranges.push_back(range);
        start = end;
    }
    return ranges;
}

void read_user_defined(coded_set& set, child_reader& elements) {
    const source_file& source = set.document.source;
    const element& code = elements.expect("codec");
    check_leaf(source, code, {"bytenum"});
    set.bytes = read_number(source, code, "bytenum", 10, 1, most_code_bytes);
    const element& area = elements.expect("defrange");
    check_leaf(source, area, {"start", "number"});
    set.user_first = read_number(source, area, "start", 16, 1, 0xFFFF);
    set.user_count = read_number(source, area, "number", 16, 1, 0xFFFF);
    elements.expect_end();
}

void read_set_element(coded_set& set, const element& whole) {
    const source_file& source = set.document.source;
    check_content(source, whole, {}, false, 0);
    child_reader children(source, whole.children, whole.line);
    set.name = read_name(source, children.expect("name"));
    check_leaf(source, children.expect("lang"), {"domain"});
    if (set.kind == set_kind::base) {
        const element& code = children.expect("code");
        if (const attribute* linear = code.find_attribute("linear")) {
            check_leaf(source, code, {"bytenum", "linear"});
            set.linear = linear->value;
        } else {
            check_leaf(source, code, {"bytenum"});
        }
        set.bytes = read_number(source, code, "bytenum", 10, 1, most_code_bytes);
        code_bytes counted{};
        if (!set.linear.empty() && !counted.read(set.linear.c_str(), set.bytes)) {
            source.fail(code.line, "linear needs a range, such as 81-FE, for each byte of a code");
        }
    } else {
        const element& code = children.expect("codeb");
        check_leaf(source, code, {"bytenum", "basedon"});
        set.bytes = read_number(source, code, "bytenum", 10, 1, most_code_bytes);
    }
    if (const element* defined = children.accept("defined")) {
        set.defined = read_defined(source, *defined);
    }
    if (const element* table = children.accept("srtable")) {
        check_leaf(source, *table, {}, false, 1);
        set.table_entity = table->references.front();
        set.table_line = table->line;
    }
    children.expect_end();
}

void read_rule(const source_file& source, const element& rule) {
    check_leaf(source, rule, {"construle", "destrule"});
    if (rule.attributes.front().name != "construle") {
        source.fail(rule.line, "construle must come before destrule");
    }
    for (const attribute& found : rule.attributes) {
        const std::string_view kind = found.name == "construle" ? "const" : "dest";
        if (!found.value.starts_with(kind) || TheRule(found.value.c_str()) == nullptr) {
            source.fail(rule.line, "no such rule: " + found.value);
        }
    }
}

member read_member(const source_file& source, const element& holder, set_kind kind) {
    check_content(source, holder, {}, false, 1);
    member result{holder.line, kind, holder.references.front(), {}};
    child_reader children(source, holder.children, holder.line);
    if (kind != set_kind::user_defined) {
        while (const element* extra = children.accept("dstable")) {
            check_leaf(source, *extra, {"bytenum"}, false, 1);
            result.extras.push_back(
                {extra->line, extra->references.front(),
                 read_number(source, *extra, "bytenum", 16, 1, most_code_bytes)});
        }
    }
    children.expect_end();
    return result;
}

} // namespace

bool coded_set::defines(u32 code) const {
    return std::ranges::any_of(defined, [code](const code_range& range) {
        return range.first <= code && code <= range.last;
    });
}

coded_set read_coded_set(source_file document) {
    coded_set set;
    set.document = read_markup(std::move(document));
    const source_file& source = set.document.source;
    child_reader elements(source, set.document.elements, 1);
    if (const element* base = elements.accept("subseta")) {
        set.kind = set_kind::base;
        read_set_element(set, *base);
    } else if (const element* difference = elements.accept("subsetb")) {
        set.kind = set_kind::difference;
        read_set_element(set, *difference);
    } else {
        set.kind = set_kind::user_defined;
        set.name = read_name(source, elements.expect("name"));
        read_user_defined(set, elements);
    }
    elements.expect_end();
    if (!set.document.entities.empty()) {
        source.fail(set.document.entities.front().line,
                    "entities are looked up in the charset's definition, not here");
    }
    set.number = number_of(set.name);
    return set;
}

charset read_charset(source_file document) {
    charset result;
    result.document = read_markup(std::move(document));
    const source_file& source = result.document.source;
    child_reader elements(source, result.document.elements, 1);
    const element& whole = elements.expect("charset");
    elements.expect_end();
    check_content(source, whole, {}, false, 0);
    child_reader children(source, whole.children, whole.line);
    result.name = read_name(source, children.expect("name"));
    result.number = number_of(result.name);
    const element& rule = children.expect("rule");
    read_rule(source, rule);
    for (const attribute& named : rule.attributes) {
        result.goes_by_iso2022 = result.goes_by_iso2022 || goes_by_iso2022(named.value.c_str());
    }
    for (;;) {
        if (const element* base = children.accept("baseset")) {
            result.members.push_back(read_member(source, *base, set_kind::base));
        } else if (const element* difference = children.accept("diffset")) {
            result.members.push_back(read_member(source, *difference, set_kind::difference));
        } else {
            break;
        }
    }
    if (const element* codes = children.accept("iso2022")) {
        result.iso2022_line = codes->line; // the library's own reader judges it
    }
    if (const element* user = children.accept("eudcset")) {
        result.members.push_back(read_member(source, *user, set_kind::user_defined));
    }
    children.expect_end();
    return result;
}

} // namespace charsets
