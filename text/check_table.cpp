#include "text/check_table.h"

#include "cconv/definition/set_read.h"
#include "cconv/rulefunc/strict.h"
#include "cconv/tables/table.h"

#include <cstdarg>

namespace text {

namespace {

__attribute__((format(printf, 2, 3))) bool say(char (&words)[128], const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(words, sizeof words, format, arguments);
    va_end(arguments);
    return false;
}

// Whether all words are hexadecimal numbers, as next gives their characters, and 0 at the end.
// Text between "<" and ">" does not count.
template <typename Next>
bool are_numbers(Next next, const char* separators, char (&words)[128]) {
    constexpr std::size_t most_digits = 8;
    bool is_odd = false, in_markup = false;
    char word[16] = "";
    std::size_t size = 0;
    for (u32 c = next(); c != 0 || size > 0; c = next()) {
        in_markup = c == '<' || (in_markup && c != '>');
        const bool parts = c < 0x80 && std::strchr(separators, static_cast<char>(c)) != nullptr;
        if (in_markup || c == '>' || parts) {
            if (is_odd) {
                return say(words, "\"%s\" is not a hexadecimal number of at most eight digits",
                           word);
            }
            size = 0;
            continue;
        }
        is_odd = is_odd || !is_hex_digit(c) || size == most_digits;
        if (size < sizeof word - 1) {
            word[size++] = c > ' ' && c < 0x7F ? static_cast<char>(c) : '?';
            word[size] = '\0';
        }
    }
    return true;
}

// Whether a table may have this pair, which is added to its runs.
bool may_have(u32 code, u32 value, u16 code_size, table_object* runs, char (&words)[128]) {
    if (runs != nullptr && !add_linear(runs, code, value)) {
        return say(words, "%X is not a code that linear= allows, or is out of order", code);
    }
    if (code_size < sizeof code && code >> 8 * code_size != 0) {
        return say(words, "the code %X has more than %u bytes", code, u32{code_size});
    }
    return is_scalar(taken_apart(value).letter) ||
           say(words, "%X is not a character of Unicode, nor a letter and a mark", value);
}

} // namespace

bool check_table(const table_to_check& table, char (&words)[128]) {
    words[0] = '\0';
    const owned_memory<u8> buffer(static_cast<u8*>(ZAN_malloc(TABLE_READ_BYTES)));
    const owned_table runs(table.counted != nullptr ? initTable(sizeof(u32), 0) : nullptr);
    if (buffer == nullptr || (table.counted != nullptr &&
                              (runs == nullptr || !make_linear(runs.get(), *table.counted)))) {
        return true;
    }
    const auto from_begin = [&] {
        table_reader reader = {};
        reader.file = table.file;
        reader.encoding = table.encoding;
        reader.bigEndian = table.big_endian;
        reader.readBuf = buffer.get();
        reader.remaining = file_size(table.file);
        return reader;
    };
    table_reader reader = from_begin();
    const auto next = [&reader] {
        constexpr u32 mark = 0xFEFF;
        u32 c = 0;
        return read32(&reader, &c) == 0 ? 0 : c == mark ? u32{' '} : c;
    };
    if (!are_numbers(next, " \t\r\n", words)) {
        return false;
    }
    reader = from_begin();
    u32 number = 0, code = 0;
    std::size_t bytes = 0;
    bool same = true, is_code = false;
    while (hex32(&reader, &number) != 0) {
        is_code = !is_code;
        if (!is_code && !may_have(code, number, table.code_size, runs.get(), words)) {
            return false;
        }
        code = number;
        same = same && bytes + sizeof number <= table.cache.size() &&
               std::memcmp(table.cache.data() + bytes, &number, sizeof number) == 0;
        bytes += sizeof number;
    }
    const auto faulty = runs != nullptr ? faulty_run(runs.get()) : std::nullopt;
    const std::size_t left = bytes % (2 * sizeof number);
    if (bytes == left) {
        return say(words, "the table is empty or not in the encoding of its definition");
    }
    if (left != 0) {
        return say(words, "the table is truncated, or its last line does not end with CR LF");
    }
    if (faulty) {
        return say(words, "the run from %X on has a character of another run, or leaves Unicode",
                   *faulty);
    }
    return same && table.cache.size() / 8 == bytes / 8;
}

bool check_codes(const document& in, i32 start, i32 end, char (&words)[128]) {
    std::span<const u32> text(in.text + start / i32{sizeof(u32)}, in.text + end / i32{sizeof(u32)});
    const u32 last = text.empty() ? 0 : text.back();
    const auto next = [&text] {
        const u32 c = text.empty() ? 0 : text.front();
        text = text.subspan(text.empty() ? 0 : 1);
        return c;
    };
    return are_numbers(next, " \t\r\n-", words) &&
           (!is_hex_digit(last) || say(words, "the last code of <defined> needs a blank after it"));
}

} // namespace text
