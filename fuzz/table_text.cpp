// Table texts: read to the end whatever they hold, and a table that is loaded again, from the cache
// that the first loading left, maps the same.
#include "fuzz/charset_files.h"

#include "cconv/definition/document.h"

#include <filesystem>

namespace {

struct owned_table {
    explicit owned_table(const table_object& as) : table(initTable(as.valueBytes, as.toUnicode)) {
        copy_text(table->fileName, "table.txt");
        table->textEncoding = as.textEncoding;
        table->textBigEndian = as.textBigEndian;
    }
    ~owned_table() { termTable(table); }
    owned_table(const owned_table&) = delete;
    owned_table& operator=(const owned_table&) = delete;
    table_object* table;
};

// As many bytes a character as the encoding has.
std::string encode(fuzz::bytes text, u32 encoding, bool big_endian) {
    const std::size_t width = encoding == encoding_ucs4 ? 4 : 2;
    std::string out;
    for (const u8 c : text) {
        std::string unit(width, '\0');
        (big_endian ? unit.back() : unit.front()) = static_cast<char>(c);
        out += unit;
    }
    return out;
}

} // namespace

int LLVMFuzzerInitialize(int*, char***) {
    my_init();
    fuzz::use_empty_charset_directory();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t most_bytes = 40000; // more than the reader's buffer
    fuzz::input in({data, std::min(size, most_bytes)});
    const u32 choices = in.byte();
    table_object as{};
    as.toUnicode = choices & 1;
    as.valueBytes = choices >> 1 & 7;
    as.textEncoding = choices >> 4 & 7;
    as.textBigEndian = choices >> 7;
    // Padding brings the text across the borders of the reader's buffer.
    const u32 kind = in.byte(), padding = 64 * in.byte();
    std::string text = encode(in.rest(), as.textEncoding, as.textBigEndian != 0);
    if ((kind & 1) != 0) {
        text = fuzz::as_text(in.rest());
    }
    const std::string spaces =
        encode(std::vector<u8>(padding, ' '), as.textEncoding, as.textBigEndian != 0);
    text.insert((kind & 2) != 0 ? text.size() / 8 * 4 : 0, spaces);
    const std::string path = fuzz::scratch_directory() + "/table.";
    std::filesystem::remove(path + "cmp");
    fuzz::write_file(path + "txt", {reinterpret_cast<const u8*>(text.data()), text.size()});

    const owned_table first(as), second(as);
    loadTablFile(first.table);
    fuzz::expect_pairs_of(path + "cmp", *first.table);
    loadTablFile(second.table);
    fuzz::expect_pairs_of(path + "cmp", *second.table);
    fuzz::expect(first.table->loaded == second.table->loaded &&
                     first.table->minKey == second.table->minKey &&
                     first.table->maxKey == second.table->maxKey &&
                     first.table->blocks->count == second.table->blocks->count,
                 "the cache tells another table");
    return 0;
}
