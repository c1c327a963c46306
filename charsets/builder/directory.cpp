#include "charsets/builder/directory.h"

#include "charsets/builder/overlay.h"
#include "charsets/builder/single.h"

#include "cconv/definition/iso2022_read.h"

#include <algorithm>
#include <set>
#include <unordered_map>
#include <unordered_set>

namespace charsets {
namespace {

constexpr u32 user_scalar_first = 0xE000;

// A member set of a charset with all that its entities stand for.
struct linked_member {
    const member* source;
    const coded_set* set;
    std::string table_file; // empty: no table
};

class checker {
public:
    explicit checker(const directory& checked) : directory_(checked) {}

    void check() {
        check_numbers(directory_.charsets, "charsets");
        for (const auto& [file, set] : directory_.sets) {
            check_user_defined(set);
        }
        for (const auto& [file, whole] : directory_.charsets) {
            is_further_ = directory_.further.contains(file);
            check_charset(whole);
        }
        check_numbers(directory_.sets, "coded sets");
    }

    void check_use() const {
        for (const auto& [file, set] : directory_.sets) {
            if (!is_used(file)) {
                set.document.source.fail(0, "no charset uses this set");
            }
        }
        for (const auto& [file, table] : directory_.tables) {
            if (!is_used(file)) {
                table.source.fail(0, "nothing uses this table");
            }
        }
    }

    [[nodiscard]] bool is_used(const std::string& file) const {
        return used_.contains(file) || used_further_.contains(file);
    }
    // What only further charsets use.
    [[nodiscard]] std::set<std::string> further() const {
        std::set<std::string> files;
        std::ranges::set_difference(used_further_, used_, std::inserter(files, files.end()));
        return files;
    }

private:
    // The library knows charsets and sets by number; unlisted names have a hashed one. Further ones
    // get another where theirs is taken.
    template <class Named>
    void check_numbers(const std::map<std::string, Named>& all, const std::string& what) const {
        std::map<u32, std::string> names;
        for (const auto& [file, found] : all) {
            if (directory_.further.contains(file) || further().contains(file)) {
                continue;
            }
            const auto [before, added] = names.emplace(found.number, found.name);
            if (!added) {
                found.document.source.fail(0, "the " + what + " " + before->second + " and " +
                                                  found.name + " share the number " +
                                                  std::to_string(found.number));
            }
        }
    }

    static void check_user_defined(const coded_set& set) {
        if (set.kind != set_kind::user_defined) {
            return;
        }
        constexpr u32 private_codes = 0xF900 - user_scalar_first;
        if (set.user_count > private_codes || set.user_first + set.user_count > 0x10000) {
            set.document.source.fail(0, "the user-defined area is larger than private use");
        }
    }

    void use(const std::string& file) { (is_further_ ? used_further_ : used_).insert(file); }

    const entity& resolve(const charset& whole, std::size_t line, const std::string& name) {
        const entity* found = whole.document.find_entity(name);
        if (found == nullptr) {
            whole.document.source.fail(line, "entity " + name + " is not declared");
        }
        referred_.insert(name);
        return *found;
    }

    const table& find_table(const charset& whole, const entity& declared) {
        const auto found = directory_.tables.find(declared.file);
        if (found == directory_.tables.end()) {
            whole.document.source.fail(declared.line, "there is no table " + declared.file);
        }
        use(declared.file);
        return found->second;
    }

    linked_member link(const charset& whole, const member& found) {
        const source_file& source = whole.document.source;
        const entity& declared = resolve(whole, found.line, found.entity);
        const auto place = directory_.sets.find(declared.file);
        if (place == directory_.sets.end()) {
            source.fail(declared.line, "there is no set " + declared.file);
        }
        const coded_set& set = place->second;
        if (set.kind != found.kind) {
            source.fail(found.line, set.name + " is a set of another kind");
        }
        use(declared.file);
        linked_member linked{&found, &set, ""};
        if (set.table_entity.empty()) {
            return linked;
        }
        const entity* table_entity = whole.document.find_entity(set.table_entity);
        if (table_entity == nullptr) {
            source.fail(found.line, "entity " + set.table_entity + ", which " + set.name +
                                        " refers to, is not declared");
        }
        referred_.insert(set.table_entity);
        check_table(find_table(whole, *table_entity), set);
        linked.table_file = table_entity->file;
        // The first definition that is read decides for all charsets.
        const auto [before, added] = table_of_set_.emplace(set.name, linked.table_file);
        if (before->second != linked.table_file) {
            source.fail(table_entity->line,
                        set.name + " has the table " + before->second + " in another charset");
        }
        return linked;
    }

    void check_table(const table& checked, const coded_set& set) {
        if (!checked_.insert(&checked).second) {
            return;
        }
        if (checked.extra) {
            checked.source.fail(0, set.name + " uses an extra table as its own");
        }
        if (checked.linear != set.linear) {
            checked.source.fail(0, set.linear.empty()
                                       ? set.name + " lacks linear=\"" + checked.linear + "\""
                                       : "must have %linear and %bytes " + set.linear);
        }
        const bool fits = set.bytes >= 4 || checked.largest_code() >> (8 * set.bytes) == 0;
        if (!fits) {
            set.document.source.fail(set.table_line, "codes are longer than bytenum says");
        }
        for (const auto* pairs :
             {&checked.decode_only, &checked.read_only, &checked.two_way, &checked.run_ends}) {
            for (const pair& found : *pairs) {
                const bool is_gap = !checked.linear.empty() && found.scalar == 0;
                if (!is_gap && !set.defines(found.code)) {
                    checked.source.fail(found.line,
                                        hex(found.code) + " is outside what the set defines");
                }
            }
        }
    }

    // Extra tables are asked in order for what the set's own table lacks.
    void check_extras(const charset& whole, const linked_member& linked) {
        const source_file& source = whole.document.source;
        std::unordered_map<u32, std::string> known;
        if (!linked.table_file.empty()) {
            for (const pair& found : directory_.tables.at(linked.table_file).two_way) {
                known.emplace(found.scalar, linked.table_file);
            }
        }
        for (const extra_table& extra : linked.source->extras) {
            if (linked.table_file.empty()) {
                source.fail(extra.line, "a set without a table never uses an extra one");
            }
            const entity& declared = resolve(whole, extra.line, extra.entity);
            const table& values = find_table(whole, declared);
            if (!values.extra) {
                source.fail(extra.line, declared.file + " lacks %extra");
            }
            const bool too_long =
                extra.bytes < 4 && values.largest_code() >> (8 * extra.bytes) != 0;
            if (too_long) {
                source.fail(extra.line, declared.file + " has codes longer than bytenum");
            }
            if (linked.set->bytes == 1 && extra.bytes != 1) {
                source.fail(extra.line, "on a one-byte set bytenum must be 1");
            }
            for (const pair& found : values.two_way) {
                const auto [before, added] = known.emplace(found.scalar, declared.file);
                if (!added) {
                    source.fail(extra.line, hex(found.scalar) + " of " + declared.file +
                                                " is never used: " + before->second + " has it");
                }
            }
        }
    }

    // User-defined characters come before all tables in both directions.
    void check_user_area(const charset& whole, const std::vector<linked_member>& members) {
        const coded_set& user = *members.back().set;
        if (user.kind != set_kind::user_defined) {
            return;
        }
        for (const linked_member& linked : members) {
            if (linked.table_file.empty()) {
                continue;
            }
            for (const pair& found : directory_.tables.at(linked.table_file).two_way) {
                const bool same_scalar = found.scalar >= user_scalar_first &&
                                         found.scalar < user_scalar_first + user.user_count;
                const bool same_code = linked.set->bytes == user.bytes &&
                                       found.code >= user.user_first &&
                                       found.code < user.user_first + user.user_count;
                if (same_scalar || same_code) {
                    whole.document.source.fail(members.back().source->line,
                                               "the user-defined area overlaps " +
                                                   linked.table_file + " at " + hex(found.code));
                }
            }
        }
    }

    // What the library would say of the element, and whether every set of it has characters there.
    void check_iso2022(const charset& whole, const std::vector<linked_member>& members) {
        const source_file& source = whole.document.source;
        if (whole.goes_by_iso2022 != (whole.iso2022_line != 0)) {
            source.fail(whole.iso2022_line,
                        "the rule ISO-2022 and the element iso2022 need each other");
        }
        if (!whole.goes_by_iso2022) {
            return;
        }
        std::vector<const char*> names;
        names.reserve(members.size());
        for (const linked_member& linked : members) {
            names.push_back(linked.set->name.c_str());
        }
        const std::vector<u32> text(source.text.begin(), source.text.end());
        iso2022 codes;
        complaint wrong;
        if (!read_iso2022(text, 0, names, codes, wrong)) {
            source.fail(whole.iso2022_line, wrong.text);
        }
        std::vector<bool> used(members.size());
        for (const graphic_set& set : codes.sets()) {
            for (const u8 place : set.member_places()) {
                const std::string& file = members[place].table_file;
                used[place] = true;
                const auto is_held = [&](const pair& p) {
                    return p.code >= set.add && set.may_hold(p.code - set.add);
                };
                if (!file.empty() &&
                    std::ranges::none_of(directory_.tables.at(file).two_way, is_held)) {
                    source.fail(whole.iso2022_line, std::string("the set ") + set.name +
                                                        " contains no code of " + names[place]);
                }
            }
        }
        if (const auto idle = std::ranges::find(used, false); idle != used.end()) {
            source.fail(whole.iso2022_line,
                        std::string("none of its sets has the member ") +
                            names[static_cast<std::size_t>(idle - used.begin())]);
        }
    }

    void check_charset(const charset& whole) {
        referred_.clear();
        std::vector<linked_member> members;
        std::set<const coded_set*> seen;
        for (const member& found : whole.members) {
            members.push_back(link(whole, found));
            if (!seen.insert(members.back().set).second) {
                whole.document.source.fail(found.line,
                                           members.back().set->name + " is listed twice");
            }
            check_extras(whole, members.back());
        }
        if (members.empty()) {
            whole.document.source.fail(0, "the charset has no sets");
        }
        check_user_area(whole, members);
        check_iso2022(whole, members);
        for (const entity& declared : whole.document.entities) {
            if (!referred_.contains(declared.name)) {
                whole.document.source.fail(declared.line,
                                           "nothing refers to entity " + declared.name);
            }
        }
    }

    const directory& directory_;
    bool is_further_ = false;                   // the charset at hand
    std::set<std::string> used_, used_further_; // files, by charsets of either kind
    std::set<std::string> referred_;            // entities of the charset at hand
    std::map<std::string, std::string> table_of_set_;
    std::unordered_set<const table*> checked_;
};

} // namespace

directory read_directory(const std::filesystem::path& source,
                         const std::filesystem::path& overlay) {
    directory result;
    for (const auto& path : list_sources(source / "tables", {".tsv"})) {
        const auto& read =
            result.tables.emplace(path.stem().string() + ".txt", read_table(path)).first->second;
        if (read.changes) {
            read.source.fail(0, "only an overlay has %changes");
        }
    }
    for (const auto& path : list_sources(source / "sets", {".set"})) {
        result.sets.emplace(path.filename().string(), read_coded_set(read_source(path)));
    }
    for (const auto& path : list_sources(source / "definitions", {".xml"})) {
        result.charsets.emplace(path.filename().string(), read_charset(read_source(path)));
    }
    if (std::filesystem::exists(source / "further")) {
        for (const auto& path : list_sources(source / "further", {".xml", ".tsv"})) {
            if (path.extension() == ".tsv") {
                add_single_byte(result, read_table(path));
            } else {
                add_further(result, read_charset(read_source(path)));
            }
        }
    }
    if (!overlay.empty()) {
        apply_overlay(result, overlay);
    }
    checker check(result);
    check.check();
    if (overlay.empty()) {
        check.check_use();
    } else {
        const auto is_unused = [&](const auto& entry) { return !check.is_used(entry.first); };
        std::erase_if(result.sets, is_unused);
        std::erase_if(result.tables, is_unused);
    }
    result.further.merge(check.further());
    return result;
}

} // namespace charsets
