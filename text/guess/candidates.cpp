#include "text/guess/candidates.h"

#include <algorithm>
#include <cstdlib>

namespace text {

namespace {

structure structure_of(std::string_view word) {
    return word == "several"   ? structure::several_bytes
           : word == "single"  ? structure::single_byte
           : word == "escapes" ? structure::escapes
           : word == "units"   ? structure::units
           : word == "signs"   ? structure::signs
                               : structure::ebcdic;
}

u32 take_hex(std::string_view& text) {
    u32 value = 0;
    while (!text.empty() && ((text[0] >= '0' && text[0] <= '9') || text[0] >= 'A')) {
        value = value << 4 | static_cast<u32>(text[0] <= '9' ? text[0] - '0' : text[0] - 'A' + 10);
        text.remove_prefix(1);
    }
    return value;
}

// Whether a byte lies in one of the ranges, as "81-9F,E0-FC".
bool is_in_ranges(std::string_view ranges, u32 byte) {
    while (!ranges.empty()) {
        std::string_view range = take(ranges, ',');
        const u32 low = take_hex(range);
        const bool single = range.empty();
        if (!single) {
            range.remove_prefix(1);
        }
        if (byte >= low && byte <= (single ? low : take_hex(range))) {
            return true;
        }
    }
    return false;
}

// The length of the code that the bytes begin with; 0: they are none.
std::size_t length_of_code(std::string_view shapes, std::span<const u8> bytes) {
    while (!shapes.empty()) {
        std::size_t length = 0;
        bool fits = true;
        for (std::string_view shape = take(shapes, ' '); fits && !shape.empty(); ++length) {
            if (length == bytes.size()) {
                return length; // cut
            }
            fits = is_in_ranges(take(shape, '/'), bytes[length]);
        }
        if (fits) {
            return length;
        }
    }
    return 0;
}

} // namespace

bool take_row(std::string_view& list, charset_row& row) {
    std::string_view line = take_line(list);
    row.name = take(line, '\t');
    row.codes = structure_of(take(line, '\t'));
    row.family = take(line, '\t');
    row.rare = 0;
    for (const char digit : take(line, '\t')) {
        row.rare = static_cast<u8>(row.rare * 10 + (digit - '0'));
    }
    row.languages = take(line, '\t');
    row.bytes = line;
    return !row.name.empty();
}

void read_high(const charset_row& row, char16_t (&high)[128]) {
    std::string_view characters = row.bytes;
    u32 listed = 0;
    while (const u32 scalar = take_character(characters)) {
        high[listed++ % 128] = static_cast<char16_t>(scalar);
    }
    const u32 controls = 128 - std::min(listed, 128U); // where they are not listed
    std::rotate(high, high + listed % 128, high + 128);
    for (u32 i = 0; i < controls; ++i) {
        high[i] = static_cast<char16_t>(0x80 + i);
    }
}

bool may_be_codes(const charset_row& row, std::span<const u8> bytes) {
    u32 codes = 0, faults = 0;
    const bool known = row.codes == structure::several_bytes && !row.bytes.empty();
    while (known && !bytes.empty()) {
        std::size_t length = 1;
        if (bytes[0] >= 0x80) {
            length = length_of_code(row.bytes, bytes);
            ++(length == 0 ? faults : codes);
        }
        bytes = bytes.subspan(std::max<std::size_t>(length, 1));
    }
    return !is_too_faulty(faults, codes);
}

void read_language(const char* name, char (&language)[8]) {
    const std::size_t word = std::strcspn(name, "_-.@");
    language[0] = '\0';
    if (word < 2 || word > 3) {
        return; // "C", "POSIX"
    }
    std::memcpy(language, name, word);
    language[word] = '\0';
    fold_text(language);
    if (std::strcmp(language, "zh") == 0) {
        const char* region = name + word;
        const bool traditional = std::strncmp(region + (*region != '\0'), "TW", 2) == 0 ||
                                 std::strncmp(region + (*region != '\0'), "HK", 2) == 0 ||
                                 std::strncmp(region + (*region != '\0'), "Hant", 4) == 0;
        copy_text(language, traditional ? "zh_TW" : "zh_CN");
    }
}

void user_language(char (&language)[8]) {
    language[0] = '\0';
    for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && *value != '\0') {
            read_language(value, language);
            return;
        }
    }
}

} // namespace text
