// Table files and their names: a text or a cache of any bytes makes a table, which maps what a
// plain map of its pairs says, as often as it is loaded; any name can be sought and made temporary.
#include "cconv/definition/document.h"
#include "fuzz/charset_files.h"
#include "platform/platform.h"

#include <algorithm>
#include <filesystem>

namespace {

using owned_table = std::unique_ptr<table_object, decltype(&termTable)>;

owned_table make_table(const table_object& as, const char* name) {
    owned_table table(initTable(as.valueBytes, as.toUnicode), termTable);
    copy_text(table->fileName, name);
    table->textEncoding = as.textEncoding;
    table->textBigEndian = as.textBigEndian;
    return table;
}

// The search over tables finds what the table itself maps.
void search(table_object* table, fuzz::bytes keys) {
    void* item = table;
    object_array tables{1, &item};
    for (std::size_t at = 0; at + 4 <= keys.size() && at < 64; ++at) {
        u32 key, value = 0;
        u16 width = 0;
        std::memcpy(&key, keys.data() + at, sizeof key);
        const u32 expected = table_loaded(table) ? map_code(table, key) : 0;
        const u32 found = dstDsTableArray(&tables, key, &value, &width);
        fuzz::expect(found == (expected != 0) && (found == 0 || value == expected),
                     "the search over tables finds another value");
    }
}

// A name that stays in the scratch directory, and the one for its making.
void find_name(std::string name) {
    std::erase_if(name, [](char c) { return c == '/' || c == '\0'; });
    const auto out = std::make_unique<char[][text_bytes]>(1);
    std::memset(out.get(), '?', text_bytes);
    fuzz::expect(!temporary_name(out[0], name.c_str()) ||
                     ::strnlen(out[0], text_bytes) < text_bytes,
                 "a temporary name without an end");
    const auto listing = std::make_unique<directory_listing>();
    if (openDir(fuzz::scratch().file(name.substr(0, 40)).c_str(), listing.get()) != 0) {
        while (readDir(listing.get()) != 0) {
            fuzz::expect(listing->parts.extension[0] != '\0', "an entry without a name");
        }
        closeDir(listing.get());
    }
}

} // namespace

int LLVMFuzzerInitialize(int*, char***) {
    my_init();
    fuzz::use_empty_charset_directory();
    for (const char* name : {"a.xml", "b.xml", "[c", ".d"}) {
        fuzz::scratch().write(name, {});
    }
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t most_text = 40000; // more than the reader's buffer
    constexpr std::size_t most_cache = 4096; // each pair may take a block of its own
    fuzz::input in({data, std::min(size, most_text)});
    const u32 choices = in.byte(), kind = in.byte(), padding = 64 * in.byte();
    const bool is_cache = (kind & 4) != 0, is_raw = (kind & 1) != 0;
    table_object as{};
    as.toUnicode = choices & 1;
    as.valueBytes = choices >> 1 & 7;
    as.textEncoding = choices >> 4 & 7;
    as.textBigEndian = choices >> 7;
    const char* const name = (kind & 8) != 0 ? "TABLE.TXT" : "table.txt";
    std::filesystem::remove(fuzz::scratch().file("table.cmp"));
    const std::string_view given = fuzz::as_text(is_cache ? in.take(most_cache) : fuzz::bytes{});
    if (is_cache) {
        fuzz::scratch().write("table.cmp", given);
    } else {
        // Padding brings the text across the borders of the reader's buffer.
        const auto coded = [&](std::string_view ascii) {
            const std::size_t width = as.textEncoding == encoding_ucs4 ? 4 : 2;
            return test::widen(ascii, width, as.textBigEndian != 0);
        };
        const std::string_view given_text = fuzz::as_text(in.rest());
        std::string text = is_raw ? std::string(given_text) : coded(given_text);
        text.insert((kind & 2) != 0 ? text.size() / 8 * 4 : 0, coded(std::string(padding, ' ')));
        fuzz::scratch().write("table.txt", text);
        find_name(text);
    }
    const owned_table first = make_table(as, name), second = make_table(as, name);
    for (table_object* table : {first.get(), second.get()}) {
        fuzz::expect(loadTableFile(table) == table_loaded(table), "a result that is not the flag");
        loadTableFile(table); // counts as loaded now, with whatever success
        const std::string cache = fuzz::scratch().read("table.cmp");
        fuzz::expect(!is_cache || cache == given, "a cache that was there is another");
        fuzz::expect_pairs_of(cache, *table);
        search(table, {data, size});
    }
    fuzz::expect(first->loaded == second->loaded && first->minKey == second->minKey &&
                     first->maxKey == second->maxKey &&
                     first->blocks->count == second->blocks->count,
                 "the cache tells another table");
    return 0;
}
