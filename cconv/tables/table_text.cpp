// Reads text table files: buffered bytes, characters, hexadecimal numbers.
#include "cconv/definition/document.h"
#include "cconv/tables/table.h"
#include "platform/platform.h"

#include <algorithm>

namespace {

constexpr i32 unit_bytes(u32 encoding) {
    return encoding == encoding_ucs4 ? 4 : 2;
}

// Reads more of the file after the bytes kept in the buffer.
bool fill(table_reader* reader, i32 kept, i32 wanted) {
    const i32 count = std::min(reader->remaining, wanted);
    if (ZAN_FileRead(reader->readBuf + kept, 1, count, reader->file) != count) {
        return false;
    }
    reader->remaining -= count;
    reader->filled = kept + count;
    reader->readOffset = 0;
    return true;
}

bool read_unit(table_reader* reader, i32 bytes, u32& unit) {
    u8 raw[4];
    if (readFIO(reader, raw, bytes) == 0) {
        return false;
    }
    unit = load_code(std::span(raw).first(static_cast<std::size_t>(bytes)), reader->bigEndian != 0);
    return true;
}

bool skip_markup(table_reader* reader) {
    u32 c = 0;
    do {
        if (read32(reader, &c) == 0) {
            return false;
        }
    } while (c != '>');
    return true;
}

} // namespace

extern "C" {

u32 readFIO(table_reader* reader, void* out, i32 count) {
    if (reader->started == 0) {
        if (reader->remaining < 1 || !fill(reader, 0, TABLE_READ_BYTES)) {
            return 0;
        }
        reader->started = 1;
    } else if (reader->readOffset > TABLE_REFILL_OFFSET) {
        const i32 kept = reader->filled - reader->readOffset;
        std::memmove(reader->readBuf, reader->readBuf + reader->readOffset,
                     static_cast<std::size_t>(kept));
        if (!fill(reader, kept, reader->readOffset)) {
            return 0;
        }
    }
    // The last bytes of a file are never used, deliberately: a table ends in two spare characters.
    if (count < 0 || count >= reader->filled - reader->readOffset) {
        return 0;
    }
    std::memcpy(out, reader->readBuf + reader->readOffset, static_cast<std::size_t>(count));
    reader->readOffset += count;
    return 1;
}

u32 read32(table_reader* reader, u32* character) {
    switch (reader->encoding) {
    case encoding_ucs4: return read_unit(reader, 4, *character);
    case encoding_ucs2: return read_unit(reader, 2, *character);
    case encoding_utf16: break;
    default: return 0;
    }
    if (!read_unit(reader, 2, *character)) {
        return 0;
    }
    if (is_surrogate(*character)) {
        u32 second = 0;
        if (!read_unit(reader, 2, second)) {
            return 0;
        }
        *character = join_surrogates(*character, second);
    }
    return 1;
}

u32 hex32(table_reader* reader, u32* value) {
    u32 c = 0;
    do {
        if (read32(reader, &c) == 0 || (c == '<' && !skip_markup(reader))) {
            return 0;
        }
    } while (!is_hex_digit(c));
    u32 number = 0;
    do {
        number = number << 4 | hex_value(c);
        if (read32(reader, &c) == 0) {
            return 0; // a number at the very end may be truncated
        }
    } while (is_hex_digit(c));
    reader->readOffset -= unit_bytes(reader->encoding);
    *value = number;
    return 1;
}

} // extern "C"
