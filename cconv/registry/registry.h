// The registry: all charsets that the definition files describe. It is filled once, by
// definition.h; after that only the contents of tables change, under the table lock.
//
// The root owns groups and basic sets; groups refer to the sets. If memory runs out, every init
// operation releases what it has made and returns null.
#pragma once

#include "platform/base.h"

struct iso2022;

extern "C" {

struct object_array {
    u16 count;
    void** items; // exactly count of them, or null
};

struct registry_root {
    u32 refCount;
    u16 blockEntries; // keys in a table block; 0 means 4096
    object_array *groups, *basics;
};

struct limit {
    u32 low, high;
};

struct limit_array {
    object_array* ranges;
    u32 minCode, maxCode; // maxCode is the maximum of ranges, not of single codes
};

struct name_object {
    char name[text_bytes];
};

// A run of consecutive keys. data contains endKey - firstKey values of valueBytes bytes each, most
// significant byte first; 0 means "no mapping".
struct table_block {
    u32 firstKey, endKey, valueBytes;
    u8* data;
};

struct table_object {
    u32 toUnicode, valueBytes, minKey, maxKey;
    object_array* blocks;
    char fileName[text_bytes]; // empty: the set has no table
    u32 textEncoding, textBigEndian;
    i32 loadTries; // starts at -1
    u32 loaded;    // read without the lock: use table_loaded
    u32 keysSeen;
};

struct basic_set {
    char name[text_bytes];
    u32 setNo;
    u16 setType, byteNum;
    char lang[text_bytes];
    limit_array* defined;
    table_object *decodeTable, *encodeTable;
    char basedOn[text_bytes];
    u16 eudcStart, eudcNumber;
};

struct pvzan_charset_group {
    char name[text_bytes];
    u32 groupNo;
    char constRule[text_bytes], destRule[text_bytes];
    object_array* memberSets;    // of basic_set; not owned
    object_array* dsTableArrays; // of object_array of table_object; owned
    iso2022* codes;              // owned; null if the charset has no designations or shifts
};

PVZAN_API extern registry_root g_ProcessObject;

PVZAN_API void* initStruct(u16 size);
PVZAN_API void termStruct(void* record);

// addArray returns the new count, or 0 on failure. Arrays own their vector, but not the items.
PVZAN_API object_array* initArray(void);
PVZAN_API void termArray(object_array* array);
PVZAN_API u16 addArray(object_array* array, void* item);
PVZAN_API void delArray(object_array* array, u16 index);
PVZAN_API void* getArray(object_array* array, u16 index);

PVZAN_API charset_group* initGroup(char* name, char* constRule, char* destRule);
PVZAN_API void termGroup(charset_group* group);
PVZAN_API u16 addGroupArray(object_array* array, charset_group* group);
PVZAN_API charset_group* findGroupArray(object_array* array, u32 groupNo);

PVZAN_API basic_set* initBasic(char* name, u16 setType, u16 byteNum);
PVZAN_API void termBasic(basic_set* set);
PVZAN_API basic_set* findBasicArray(object_array* array, u32 setNo);
// Appends the registered set of that number to memberSets. 1 if done, otherwise 0.
PVZAN_API u32 addNameArray(object_array* memberSets, u32 setNo);

// Append to the lists of the root; nonzero on success.
PVZAN_API u32 TheAddGroup(charset_group* group);
PVZAN_API u32 TheAddBasic(basic_set* set);

PVZAN_API table_object* initTable(u32 valueBytes, u32 toUnicode);
PVZAN_API void termTable(table_object* table);
PVZAN_API void termTableArray(object_array* array);
PVZAN_API table_block* initBlock(u32 firstKey, u32 valueBytes);
PVZAN_API void termBlock(table_block* block);

PVZAN_API limit* initLimit(u32 low, u32 high);
PVZAN_API void termLimit(limit* range);
PVZAN_API limit_array* initLimitArray(void);
PVZAN_API void termLimitArray(limit_array* array);
PVZAN_API limit* findLimitArray(limit_array* array, u32 code);

PVZAN_API name_object* initName(void);
PVZAN_API void termName(name_object* name);
}

// The items of an array as a range of pointers; a null array is empty.
template <typename T>
class items_of {
public:
    explicit items_of(const object_array* array)
        : first_(array != nullptr ? array->items : nullptr),
          last_(array != nullptr ? array->items + array->count : nullptr) {}

    class iterator {
    public:
        explicit iterator(void** at) : at_(at) {}
        T* operator*() const { return static_cast<T*>(*at_); }
        iterator& operator++() {
            ++at_;
            return *this;
        }
        bool operator!=(const iterator& other) const { return at_ != other.at_; }

    private:
        void** at_;
    };

    [[nodiscard]] iterator begin() const { return iterator(first_); }
    [[nodiscard]] iterator end() const { return iterator(last_); }
    [[nodiscard]] bool empty() const { return first_ == last_; }

private:
    void** first_;
    void** last_;
};

inline items_of<basic_set> member_sets(const charset_group* group) {
    return items_of<basic_set>(group != nullptr ? group->memberSets : nullptr);
}
