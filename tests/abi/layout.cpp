// The records of the binary interface on 64-bit platforms, with size, and place and size of every
// field, and the values of the public constants (but the numbers of charsets and sets, which
// functions_test.cpp knows by their names). Programs in the field rely on every number. The
// registry's records have no size here: fields may follow the last one.
#include "cconv/definition/document.h"
#include "cconv/engine/engine.h"
#include "cconv/registry/names.h"
#include "cconv/registry/registry.h"
#include "cconv/tables/table.h"
#include "platform/platform.h"

#include <cstddef>

#pragma GCC diagnostic ignored "-Wold-style-cast"

namespace {

struct place {
    std::size_t offset, size;
    bool operator==(const place&) const = default;
};

template <std::size_t Count>
constexpr bool same(const place (&a)[Count], const place (&b)[Count]) {
    return std::equal(a, a + Count, b);
}

// PLACES(record, a, b...): {offset and size of a}, {of b}...
#define PLACES(record, field, ...)                                                                 \
    {offsetof(record, field), sizeof(record::field)},                                              \
        __VA_OPT__(PLACES_AGAIN EMPTY(record, __VA_ARGS__))
#define PLACES_AGAIN() PLACES
#define EMPTY ()
#define SCAN(...) SCAN4(SCAN4(SCAN4(SCAN4(__VA_ARGS__))))
#define SCAN4(...) SCAN2(SCAN2(SCAN2(SCAN2(__VA_ARGS__))))
#define SCAN2(...) SCAN1(SCAN1(SCAN1(SCAN1(__VA_ARGS__))))
#define SCAN1(...) __VA_ARGS__
#define FIELDS(...) __VA_ARGS__
#define LAYOUT(record, fields, ...)                                                                \
    static_assert(same({SCAN(PLACES(record, fields))}, {__VA_ARGS__}), "layout of " #record)

// clang-format off
static_assert(sizeof(pvzan_target_options) == 4124);
LAYOUT(pvzan_target_options, FIELDS(dstBigEndian, dstWriteBom, useSubstitute, substChar1,
       substChar2, langTag, convertNewline, newlineMode, charRefMode),
       {0, 4}, {4, 4}, {8, 4}, {12, 2}, {14, 2}, {16, 4096}, {4112, 4}, {4116, 4}, {4120, 4});
static_assert(sizeof(pvzan_source_options) == 12);
LAYOUT(pvzan_source_options, FIELDS(srcBigEndian, srcCheckBom, skipInvalid),
       {0, 4}, {4, 4}, {8, 4});
static_assert(sizeof(pvzan_substitute) == 16);
LAYOUT(pvzan_substitute, FIELDS(setNo, setType, code, bytes), {0, 4}, {4, 2}, {8, 4}, {12, 2});
static_assert(sizeof(pvzan_session) == 16608);
LAYOUT(pvzan_session, FIELDS(inBuf, inPos, inLen, inCount, outBuf, outPos, outLen, outCount,
       status, srcGroupNo, srcGroup, srcRule, charSetNo, charSetType, srcShiftSet, dstGroupNo,
       dstGroup, dstRule, outSetNo, outSetType, dstShiftSet, dstShiftPlane, srcCode, setCode,
       ucsCode, outCode, outBytes, outDone, prevSrcCode, outCode2, baseLang, outLang, curLang,
       source, target, subst1, subst2),
       {0, 8}, {8, 4}, {12, 4}, {16, 4}, {24, 8}, {32, 4}, {36, 4}, {40, 4}, {44, 4}, {48, 4},
       {56, 8}, {64, 8}, {72, 4}, {76, 2}, {80, 4}, {84, 4}, {88, 8}, {96, 8}, {104, 4}, {108, 2},
       {112, 4}, {116, 4}, {120, 4}, {124, 4}, {128, 4}, {132, 4}, {136, 2}, {138, 2}, {140, 4},
       {144, 4}, {148, 4096}, {4244, 4096}, {8340, 4096}, {12436, 12}, {12448, 4124}, {16572, 16},
       {16588, 16});
static_assert(sizeof(object_array) == 16);
LAYOUT(object_array, FIELDS(count, items), {0, 2}, {8, 8});
LAYOUT(registry_root, FIELDS(refCount, blockEntries, groups, basics),
       {0, 4}, {4, 2}, {8, 8}, {16, 8});
LAYOUT(limit, FIELDS(low, high), {0, 4}, {4, 4});
LAYOUT(limit_array, FIELDS(ranges, minCode, maxCode), {0, 8}, {8, 4}, {12, 4});
LAYOUT(name_object, FIELDS(name), {0, 4096});
LAYOUT(table_block, FIELDS(firstKey, endKey, valueBytes, data), {0, 4}, {4, 4}, {8, 4}, {16, 8});
LAYOUT(table_object, FIELDS(toUnicode, valueBytes, minKey, maxKey, blocks, fileName, textEncoding,
       textBigEndian, loadTries, loaded, keysSeen),
       {0, 4}, {4, 4}, {8, 4}, {12, 4}, {16, 8}, {24, 4096}, {4120, 4}, {4124, 4}, {4128, 4},
       {4132, 4}, {4136, 4});
LAYOUT(basic_set, FIELDS(name, setNo, setType, byteNum, lang, defined, decodeTable, encodeTable,
       basedOn, eudcStart, eudcNumber),
       {0, 4096}, {4096, 4}, {4100, 2}, {4102, 2}, {4104, 4096}, {8200, 8}, {8208, 8}, {8216, 8},
       {8224, 4096}, {12320, 2}, {12322, 2});
LAYOUT(charset_group, FIELDS(name, groupNo, constRule, destRule, memberSets, dsTableArrays),
       {0, 4096}, {4096, 4}, {4100, 4096}, {8196, 4096}, {12296, 8}, {12304, 8});
static_assert(sizeof(rule_row) == 4104);
LAYOUT(rule_row, FIELDS(name, function), {0, 4096}, {4096, 8});
static_assert(sizeof(group_row) == 16);
LAYOUT(group_row, FIELDS(name, number), {0, 8}, {8, 4});
static_assert(sizeof(document) == 40);
LAYOUT(document, FIELDS(text, textBytes, pos, encoding, bigEndian, tagPos, tagCount),
       {0, 8}, {8, 4}, {12, 4}, {16, 4}, {20, 4}, {24, 8}, {32, 4});
static_assert(sizeof(table_reader) == 40);
LAYOUT(table_reader, FIELDS(file, encoding, bigEndian, readBuf, started, readOffset, filled,
       remaining),
       {0, 8}, {8, 4}, {12, 4}, {16, 8}, {24, 4}, {28, 4}, {32, 4}, {36, 4});
static_assert(sizeof(combining_row) == 12);
LAYOUT(combining_row, FIELDS(code, base, mark), {0, 4}, {4, 4}, {8, 4});
static_assert(sizeof(split_path) == 16384);
LAYOUT(split_path, FIELDS(root, directory, baseName, extension),
       {0, 4096}, {4096, 4096}, {8192, 4096}, {12288, 4096});
static_assert(sizeof(listing_state) == 80);
LAYOUT(listing_state, FIELDS(matches, next), {0, 72}, {72, 4});
static_assert(sizeof(listing_entry) == 4096);
LAYOUT(listing_entry, FIELDS(path), {0, 4096});
static_assert(sizeof(directory_listing) == 20560);
LAYOUT(directory_listing, FIELDS(parts, state, entry), {0, 16384}, {16384, 80}, {16464, 4096});
// clang-format on

static_assert(PVZAN_DONE == 0 && PVZAN_UNKNOWN_CHARSET == 1 && PVZAN_DECODED == 11 &&
              PVZAN_INPUT_INCOMPLETE == 12 && PVZAN_INVALID_INPUT == 13 && PVZAN_WRITTEN == 21 &&
              PVZAN_OUTPUT_FULL == 22 && PVZAN_UNREPRESENTABLE == 23 && PVZAN_TERMINATE == 31 &&
              PVZAN_NEWLINE_CR == 2 && PVZAN_NEWLINE_LF == 3 && PVZAN_NEWLINE_LINE_SEPARATOR == 4 &&
              PVZAN_NEWLINE_PARAGRAPH_SEPARATOR == 5 && PVZAN_CHARREF_OFF == 0 &&
              PVZAN_CHARREF_HEX == 1 && PVZAN_SET_BASE == 1 && PVZAN_SET_DIFFERENCE == 2 &&
              PVZAN_SET_USER_DEFINED == 3 && PVZAN_TEXT_BYTES == 4096);

} // namespace
