// Mapping tables: reading text files of hexadecimal pairs, storing them in blocks, binary caches,
// and looking up codes.
#pragma once

#include "cconv/registry/registry.h"

#include <atomic>
#include <cstdio>
#include <optional>

extern "C" {

// The size of a table_reader's buffer, and the offset from which it is refilled.
enum { TABLE_READ_BYTES = 16384, TABLE_REFILL_OFFSET = 8192 };

// Reads a text table file character by character.
struct table_reader {
    FILE* file;
    u32 encoding, bigEndian; // a text_encoding (document.h) and its byte order
    u8* readBuf;             // TABLE_READ_BYTES bytes
    u32 started;             // 0 until the first fill
    i32 readOffset, filled, remaining;
};

// Loads the table on first use, under the table lock. Returns whether it is loaded.
PVZAN_API u32 loadTableFile(table_object* table);
// Fills the table from its cache, or from its text, which is then cached.
PVZAN_API void loadTablFile(table_object* table);
// 1 stored, 0 out of memory.
PVZAN_API u32 putTable(table_object* table, u32 key, u32 value);

// Read the next number, character or bytes of a text table: 1, or 0 if there are no more.
PVZAN_API u32 hex32(table_reader* reader, u32* value);
PVZAN_API u32 read32(table_reader* reader, u32* character);
PVZAN_API u32 readFIO(table_reader* reader, void* out, i32 count);

// Finds the first nonzero value that a table of the array has for a Unicode character, and its
// width in bytes; loads the tables as needed. 1 found, 0 not.
PVZAN_API u32 dstDsTableArray(object_array* tables, u32 code, u32* result, u16* resultBytes);
PVZAN_API void putEndian(u8* buffer, u32 value);
}

// Whether a table is loaded. The flag changes only once, from 0 to 1, after the contents are
// complete. Another thread may set it; hence the acquire.
inline bool table_loaded(const table_object* table) {
    return std::atomic_ref<u32>(const_cast<u32&>(table->loaded)).load(std::memory_order_acquire) !=
           0;
}

// The size of a file that is open at its start; 0 if it is too large, negative if it cannot be
// found.
i32 file_size(FILE* file);

// The stored value of a key, which may be 0; nothing if no block contains the key.
std::optional<u32> find_value(const table_object* table, u32 key);

// The value of a key in a loaded table, 0 if there is none; if the table is not loaded, the key
// itself.
inline u32 map_code(const table_object* table, u32 key) {
    return table_loaded(table) ? find_value(table, key).value_or(0) : key;
}
