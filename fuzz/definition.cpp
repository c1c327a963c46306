// The definition reader: the input is a whole charset directory, tables and caches of them too.
// What it describes must be read, converted with and released, whatever it says; a table maps what
// a plain map of its pairs does.
#include "cconv/definition/definition.h"

#include "cconv/convert/lifecycle.h"
#include "cconv/registry/linear.h"
#include "cconv/tables/table.h"
#include "fuzz/both_paths.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <vector>

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

// Writes the files of an input into the emptied scratch directory, and returns their names, sorted.
// A file begins with a line "@@u NAME" (to be widened, behind a byte-order mark) or "@@b NAME" (as
// it is).
std::vector<std::string> write_files(fuzz::bytes data) {
    constexpr std::string_view mark = "@@";
    constexpr std::size_t most_files = 32;
    fuzz::scratch().clear();
    std::vector<std::string> names;
    std::string_view text = fuzz::as_text(data);
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
        fuzz::scratch().write(name, wide ? "\xFF\xFE" + test::widen(content, 2, false) : content);
        names.push_back(name);
    }
    std::ranges::sort(names);
    return names;
}

// Expects of a loaded table what a plain map of its cache's pairs says.
void expect_pairs(const table_object& table) {
    constexpr std::size_t most_pairs = 4096; // each may take a block, of which there is a limit
    std::string cache(table.fileName, std::string_view(table.fileName).rfind('.') + 1);
    std::ranges::transform(cache, cache.begin(), fold_ascii);
    const bool is_here = cache.size() > 1 && cache.find('/') == cache.npos;
    const std::string pairs = is_here ? fuzz::scratch().read(cache + "cmp") : "";
    if (!table_loaded(&table) || is_linear(&table) || table.valueBytes > 4 ||
        pairs.size() > most_pairs * 8) {
        return;
    }
    const u32 mask = static_cast<u32>((u64{1} << 8 * table.valueBytes) - 1);
    std::map<u32, u32> expected;
    for (std::size_t at = 0; at + 8 <= pairs.size(); at += 8) {
        u32 pair[2];
        std::memcpy(pair, pairs.data() + at, sizeof pair);
        const std::size_t key = table.toUnicode == 1 ? 0 : 1;
        expected[pair[key]] = pair[1 - key] & mask;
    }
    for (const auto& [key, value] : expected) {
        fuzz::expect(find_value(&table, key) == value, "a table forgets, or makes up, a pair");
        const auto next = expected.find(key + 1);
        fuzz::expect(find_value(&table, key + 1).value_or(0) ==
                         (next != expected.end() ? next->second : 0),
                     "a table has a pair that it was not given");
    }
}

// Converts the text between two charsets; both may lack anything.
void convert(const char* from, const char* to, fuzz::bytes text, const target_options& target) {
    const source_options source{
        .srcBigEndian = 1, .srcCheckBom = 0, .skipInvalid = static_cast<u32>(text.size() % 2)};
    const auto s = std::make_unique<session>();
    if (cconvInitConvert(s.get(), &target, to) == PVZAN_DONE &&
        cconvChgCharset(s.get(), &source, from) == PVZAN_DONE) {
        fuzz::both_paths(from, to, source, target).convert(text, 8 * text.size() + 64);
    }
}

} // namespace

// The scratch directory, still empty, is settled as the charset directory, and its reading as done.
int LLVMFuzzerInitialize(int*, char***) {
    my_init();
    fuzz::expect(ZAN_setCharsetPath(fuzz::scratch().path().c_str()) == 1, "no directory");
    fuzz::expect(cconvLoadRule() == 0, "the directory is not empty");
    termProcess(); // the reference that loading took
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t most_bytes = 1 << 16;
    if (size > most_bytes) {
        return 0;
    }
    const std::vector<std::string> names = write_files({data, size});
    u32 read = 0;
    for (const std::string& name : names) {
        if (name.ends_with(".xml")) {
            read += xmlReadXML(fuzz::scratch().file(name).c_str());
        }
    }
    target_options target{};
    target.dstBigEndian = 1;
    target.useSubstitute = static_cast<u32>(size % 2);
    target.substChar1 = target.substChar2 = 0x3042;
    const fuzz::bytes text(data, std::min<std::size_t>(size, 200));
    const items_of<charset_group> groups(g_ProcessObject.groups);
    fuzz::expect(read == 0 || !groups.empty(), "read, but not registered");
    for (const charset_group* from : groups) {
        // An array of extra tables for each set but the user-defined one.
        const int without_tables = from->memberSets->count - from->dsTableArrays->count;
        fuzz::expect(without_tables == 0 || without_tables == 1, "extra tables of no set");
        for (const charset_group* to : groups) {
            convert(from->name, to->name, text, target);
        }
    }
    for (const basic_set* set : items_of<basic_set>(g_ProcessObject.basics)) {
        for (table_object* table : {set->decodeTable, set->encodeTable}) {
            loadTableFile(table); // from its text or its cache, where no conversion did
            expect_pairs(*table);
        }
    }
    termProcess();
    fuzz::expect(initProcess() == 1, "no registry");
    return 0;
}
