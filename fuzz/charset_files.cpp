#include "fuzz/charset_files.h"

#include "cconv/convert/lifecycle.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace fuzz {

namespace {

// Only names of files right inside the directory.
std::string file_name(std::string_view line) {
    constexpr std::size_t most = 64;
    std::string name;
    for (const char c : line.substr(0, most)) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_' ||
            (c == '.' && !name.empty())) {
            name += fold_ascii(c);
        }
    }
    return name;
}

} // namespace

void use_empty_charset_directory() {
    expect(ZAN_setCharsetPath(scratch().path().c_str()) == 1, "the directory is settled");
    expect(cconvLoadRule() == 0, "the directory is not empty");
    termProcess(); // the reference that loading took
}

void clear_registry() {
    termProcess();
    expect(initProcess() == 1, "no registry");
}

std::vector<std::string> write_files(bytes data) {
    constexpr std::string_view mark = "@@";
    constexpr std::size_t most_files = 32;
    scratch().clear();
    std::vector<std::string> names;
    std::string_view text = as_text(data);
    for (std::size_t at = text.find(mark); at != text.npos && names.size() < most_files;) {
        text.remove_prefix(at + mark.size());
        at = text.find(mark);
        const std::string_view record = text.substr(0, at);
        const std::size_t line = std::min(record.find('\n'), record.size());
        const bool wide = record.starts_with('u');
        const std::string name = file_name(record.substr(std::min<std::size_t>(line, 1), line));
        if (name.empty()) {
            continue;
        }
        const std::string_view content = record.substr(std::min(line + 1, record.size()));
        scratch().write(name, wide ? "\xFF\xFE" + test::widen(content, 2, false) : content);
        names.push_back(name);
    }
    std::ranges::sort(names);
    return names;
}

void expect_pairs_of(const std::string& contents, const table_object& table) {
    const u32 width = std::min<u32>(static_cast<u16>(table.valueBytes), 4);
    const u32 mask = static_cast<u32>((std::uint64_t{1} << 8 * width) - 1);
    std::map<u32, u32> pairs;
    for (std::size_t at = 0; at + 8 <= contents.size(); at += 8) {
        u32 pair[2];
        std::memcpy(pair, contents.data() + at, sizeof pair);
        const std::size_t key = table.toUnicode == 1 ? 0 : 1;
        pairs[pair[key]] = pair[1 - key] & mask;
    }
    for (const auto& [key, value] : pairs) {
        expect(find_value(&table, key) == value, "a table forgets, or makes up, a pair");
        const auto next = pairs.find(key + 1);
        expect(find_value(&table, key + 1).value_or(0) == (next != pairs.end() ? next->second : 0),
               "a table has a pair that it was not given");
    }
}

} // namespace fuzz
