// Definition documents: reads a file into Unicode characters, and finds elements, attributes and
// entities in it by searching the text. This is not an XML parser.
#pragma once

#include "cconv/registry/registry.h"
#include "platform/unicode.h"

#include <optional>

// Encodings of a definition document and of the tables that it names. Only 1, 3 and 4 can be read.
enum text_encoding : u32 {
    encoding_none = 0,
    encoding_utf16 = 1,
    encoding_utf8 = 2,
    encoding_ucs4 = 3,
    encoding_ucs2 = 4,
    encoding_shift_jis = 5
};

extern "C" {

// All positions in this interface are byte offsets into text, four for each character; extents are
// half-open. tagPos contains character indexes.
struct document {
    u32* text;
    i32 textBytes, pos;
    u32 encoding, bigEndian;
    i32* tagPos; // of every "<", and of the "/" of every "/>"
    i32 tagCount;
};

// The caller releases text and tagPos. 1 done, 0 failed (the document is empty).
PVZAN_API u32 xmlReadFile(const char* fileName, u32 defaultEncoding, u32 defaultBigEndian,
                          document* document);
// The offset after the first key at or after pos: 1, or 0 if there is none, or if the key is longer
// than 511 characters.
PVZAN_API u32 xmlSeekObj1(document* document, const char* key, i32* end);
// The extent of an element's content, searched from pos, which does not change.
PVZAN_API u32 xmlSeekObj2(document* document, const char* elementName, i32* start, i32* end);

// The text of an extent, truncated to the text_bytes bytes of out.
PVZAN_API void xmlGetName(document* document, i32 start, i32 end, char* out);
PVZAN_API void xmlGetLang(document* document, i32 start, i32 end, char* out);
PVZAN_API void xmlGetRule(document* document, i32 start, char* out);
PVZAN_API void xmlGetBytenum(document* document, i32 start, i32 end, u16* out);
PVZAN_API u32 xmlGetBasedon(document* document, i32 start, i32 end, char* out);

PVZAN_API u32 xmlGetHex(const u32* text, i32 from, i32 count, i32* next, u32* value);
// New strings, which the caller releases with ZAN_free; null if there is none.
PVZAN_API char* xmlGetLink(document* document, i32 start, i32 end);
PVZAN_API char* xmlFindEntry(document* document, const char* name);
// Sets the file of the given tables (either may be null): 1 found, 0 not.
PVZAN_API u32 xmlGetTable(document* document, struct document* linkDocument, i32 start, i32 end,
                          table_object* first, table_object* second);

// Convert between bytes and characters; if out is null, they allocate count + 1 items.
PVZAN_API u32* ASCIItoUCS4(const char* bytes, i32 count, u32* out);
PVZAN_API char* UCS4toASCII(const u32* characters, i32 count, char* out);
// Reads a hexadecimal number, despite its name.
PVZAN_API u32 xatoi(const char* string);
}

// Like xmlSeekObj1 and xmlSeekObj2, from an offset. In documents made by xmlReadFile the tags are
// known. "<" occurs only in tags, so the text is not searched if none of them fits.
std::optional<i32> seek_key(const document* document, const char* key, i32 from, bool tags_known);
bool seek_element(const document* document, const char* name, i32 from, bool tags_known, i32* start,
                  i32* end);

// Reads hexadecimal numbers in documents and table texts.
constexpr bool is_hex_digit(u32 c) {
    return (c >= '0' && c <= '9') || ((c & ~0x20U) >= 'A' && (c & ~0x20U) <= 'F');
}

constexpr u32 hex_value(u32 c) {
    return c <= '9' ? c - '0' : (c & ~0x20U) - 'A' + 10;
}

// Combines surrogates in definition documents and table texts, modulo 2^32: the second unit counts
// as the high one if it is a high surrogate. Unlike UTF-16, deliberately: released directories rely
// on it.
constexpr u32 join_surrogates(u32 first, u32 second) {
    constexpr u32 bias = 0x35FDC00;
    return is_high_surrogate(second) ? first * 1024 + second - bias : second * 1024 + first - bias;
}
