#include "charsets/builder/single.h"

#include <algorithm>
#include <array>
#include <utility>

namespace charsets {
namespace {

// The template of a document with every @name, @file and @language filled in.
source_file fill_in(std::string text, const table& from) {
    const std::array<std::pair<std::string_view, std::string>, 3> words{
        {{"@name", from.charset},
         {"@file", lower_case(from.charset)},
         {"@language", from.language}}};
    for (const auto& [word, value] : words) {
        for (std::size_t at; (at = text.find(word)) != std::string::npos;) {
            text.replace(at, word.size(), value);
        }
    }
    return {from.source.path, std::string(source_declaration) + text};
}

constexpr const char* definition_template = R"(
<!DOCTYPE charset [
<!ENTITY set-@file SYSTEM "@file.set">
<!ENTITY table-@file SYSTEM "@file.txt">
]>
<charset>
  <name>@name</name>
  <rule construle="constSAME" destrule="destSAME"/>
  <baseset>&set-@file;</baseset>
</charset>
)";

constexpr const char* set_template = R"(
<subseta>
  <name>@name</name>
  <lang domain="@language"/>
  <code bytenum="1"/>
  <defined>00-FF </defined>
  <srtable>&table-@file;</srtable>
</subseta>
)";

void add_whole(directory& whole, table added) {
    const std::string stem = lower_case(added.charset);
    coded_set set = read_coded_set(fill_in(set_template, added));
    charset made = read_charset(fill_in(definition_template, added));
    const bool is_new = whole.tables.emplace(stem + ".txt", added).second;
    if (!is_new || !whole.sets.emplace(stem + ".set", std::move(set)).second) {
        added.source.fail(0, "a set or a table of this name already exists");
    }
    add_further(whole, std::move(made));
}

} // namespace

void add_further(directory& whole, charset added) {
    const source_file source = added.document.source;
    const std::string file = lower_case(added.name) + ".xml";
    if (!whole.charsets.emplace(file, std::move(added)).second) {
        source.fail(0, "a charset of this name already exists");
    }
    whole.further.insert(file);
}

void add_single_byte(directory& whole, table read) {
    if (read.charset.empty()) {
        read.source.fail(0, "%charset is missing");
    }
    if (read.source.path.stem() != lower_case(read.charset)) {
        read.source.fail(0, "the file of " + read.charset + " must have that name, in lower case");
    }
    if (!read.exchanged.empty()) {
        table other = read;
        const auto [a, b] = read.exchanged_codes;
        const auto one = std::ranges::find(other.two_way, a, &pair::code);
        const auto two = std::ranges::find(other.two_way, b, &pair::code);
        if (one == other.two_way.end() || two == other.two_way.end()) {
            read.source.fail(0, "%exchange names a code that the table lacks");
        }
        std::swap(one->scalar, two->scalar);
        other.charset = read.exchanged;
        other.source.path.replace_filename(lower_case(read.exchanged) + ".tsv");
        add_whole(whole, std::move(other));
    }
    add_whole(whole, std::move(read));
}

} // namespace charsets
