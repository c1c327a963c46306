#include "charsets/builder/overlay.h"

#include <algorithm>

namespace charsets {
namespace {

void change_table(table& whole, const table& changes) {
    for (const pair& change : changes.two_way) {
        const auto found = std::ranges::find(whole.two_way, change.code, &pair::code);
        if (found == whole.two_way.end()) {
            changes.source.fail(change.line, "the table has no two-way code " + hex(change.code));
        }
        if (found->scalar == change.scalar) {
            changes.source.fail(change.line, "the table already has this pair");
        }
        found->scalar = change.scalar;
    }
    check_directions(whole);
}

void omit_definitions(directory& changed, const source_file& list) {
    std::size_t line = 1;
    for (std::string_view rest = list.text; !rest.empty(); ++line) {
        const std::string name(rest.substr(0, rest.find('\n')));
        rest.remove_prefix(name.size() + 1);
        if (!name.empty() && name.front() != '#' && changed.charsets.erase(name) == 0) {
            list.fail(line, "there is no definition " + name);
        }
    }
}

} // namespace

void apply_overlay(directory& changed, const std::filesystem::path& overlay) {
    for (const auto& path : list_sources(overlay / "tables", {".tsv"})) {
        table read = read_table(path);
        const auto place = changed.tables.find(path.stem().string() + ".txt");
        if (place == changed.tables.end()) {
            read.source.fail(0, "there is no such table to change");
        }
        if (read.changes) {
            change_table(place->second, read);
        } else {
            place->second = std::move(read);
        }
    }
    omit_definitions(changed, read_source(overlay / "omit"));
}

} // namespace charsets
