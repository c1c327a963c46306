// Cache files: any bytes make a table, which maps what a plain map of the same pairs says.
#include "fuzz/charset_files.h"

int LLVMFuzzerInitialize(int*, char***) {
    my_init();
    fuzz::use_empty_charset_directory();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t most_bytes = 4096; // each pair may take a block of its own
    fuzz::input in({data, std::min(size, most_bytes)});
    const u32 choices = in.byte();
    table_object* table = initTable(choices >> 1 & 7, choices & 1);
    copy_text(table->fileName, (choices & 16) != 0 ? "TABLE.TXT" : "table.txt");
    const std::string path = fuzz::scratch_directory() + "/table.cmp";
    fuzz::write_file(path, in.rest());
    fuzz::expect(loadTableFile(table) == table_loaded(table), "a result that is not the flag");
    loadTableFile(table); // counts as loaded now, with whatever success
    fuzz::expect_pairs_of(path, *table);
    u32 value = 0;
    u16 width = 0;
    object_array tables{1, new void* [1] { table }};
    for (std::size_t at = 0; at + 4 <= size && at < 64; ++at) {
        u32 key;
        std::memcpy(&key, data + at, sizeof key);
        const u32 expected = table_loaded(table) ? map_code(table, key) : 0;
        const u32 found = dstDsTableArray(&tables, key, &value, &width);
        fuzz::expect(found == (expected != 0) && (found == 0 || value == expected),
                     "the search over tables finds another value");
    }
    delete[] tables.items;
    termTable(table);
    return 0;
}
