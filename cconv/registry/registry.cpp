// Creating, finding and releasing the objects of the registry.
#include "cconv/registry/registry.h"

#include "cconv/registry/names.h"
#include "platform/platform.h"

#include <algorithm>
#include <limits>

namespace {

constexpr u32 default_block_entries = 4096;

template <typename T>
T* init_record() {
    static_assert(sizeof(T) <= std::numeric_limits<u16>::max());
    return static_cast<T*>(initStruct(sizeof(T)));
}

u32 block_entries() {
    return g_ProcessObject.blockEntries != 0 ? g_ProcessObject.blockEntries : default_block_entries;
}

// Allocates a new vector of count pointers. The caller's array is not changed, so that failure has
// no effect.
void** new_items(u16 count) {
    return static_cast<void**>(ZAN_malloc(static_cast<i32>(count * sizeof(void*))));
}

template <typename T>
T* find_by_number(const object_array* array, u32 T::*number, u32 wanted) {
    for (T* item : items_of<T>(array)) {
        if (item->*number == wanted) {
            return item;
        }
    }
    return nullptr;
}

} // namespace

extern "C" {

registry_root g_ProcessObject;

void* initStruct(u16 size) {
    return ZAN_calloc(1, size); // the system clears new memory itself
}

void termStruct(void* record) {
    ZAN_free(record);
}

// ---- Arrays

object_array* initArray(void) {
    return init_record<object_array>();
}

void termArray(object_array* array) {
    ZAN_free(array->items);
    ZAN_free(array);
}

u16 addArray(object_array* array, void* item) {
    if (array == nullptr || item == nullptr || array->count == std::numeric_limits<u16>::max()) {
        return 0;
    }
    const u16 count = static_cast<u16>(array->count + 1);
    void** items = new_items(count);
    if (items == nullptr) {
        return 0;
    }
    std::copy_n(array->items, array->count, items);
    items[count - 1] = item;
    ZAN_free(array->items);
    array->items = items;
    array->count = count;
    return count;
}

void delArray(object_array* array, u16 index) {
    if (array == nullptr || index >= array->count) {
        return;
    }
    const u16 count = static_cast<u16>(array->count - 1);
    void** items = nullptr;
    if (count > 0) {
        items = new_items(count);
        if (items == nullptr) {
            return;
        }
        std::copy_n(array->items, index, items);
        std::copy_n(array->items + index + 1, count - index, items + index);
    }
    ZAN_free(array->items);
    array->items = items;
    array->count = count;
}

void* getArray(object_array* array, u16 index) {
    return array != nullptr && index < array->count ? array->items[index] : nullptr;
}

// ---- Charset groups

charset_group* initGroup(char* name, char* constRule, char* destRule) {
    auto* group = init_record<charset_group>();
    if (group == nullptr) {
        return nullptr;
    }
    group->memberSets = initArray();
    group->dsTableArrays = initArray();
    if (group->memberSets == nullptr || group->dsTableArrays == nullptr) {
        termGroup(group);
        return nullptr;
    }
    copy_text(group->name, name);
    group->groupNo = group_number(name);
    copy_text(group->constRule, constRule);
    copy_text(group->destRule, destRule);
    return group;
}

void termGroup(charset_group* group) {
    if (group == nullptr) {
        return;
    }
    if (group->memberSets != nullptr) {
        termArray(group->memberSets); // the root owns the sets
    }
    if (group->dsTableArrays != nullptr) {
        for (object_array* tables : items_of<object_array>(group->dsTableArrays)) {
            termTableArray(tables);
        }
        termArray(group->dsTableArrays);
    }
    termStruct(group->codes);
    termStruct(group);
}

u16 addGroupArray(object_array* array, charset_group* group) {
    return addArray(array, group);
}

charset_group* findGroupArray(object_array* array, u32 groupNo) {
    return find_by_number(array, &charset_group::groupNo, groupNo);
}

u32 TheAddGroup(charset_group* group) {
    return addGroupArray(g_ProcessObject.groups, group);
}

// ---- Basic sets

basic_set* initBasic(char* name, u16 setType, u16 byteNum) {
    auto* set = init_record<basic_set>();
    if (set == nullptr) {
        return nullptr;
    }
    copy_text(set->name, name);
    set->setNo = group_number(name);
    set->setType = setType;
    set->byteNum = byteNum;
    set->defined = initLimitArray();
    set->decodeTable = initTable(sizeof(u32), 1);
    set->encodeTable = initTable(byteNum, 0);
    if (set->defined == nullptr || set->decodeTable == nullptr || set->encodeTable == nullptr) {
        termBasic(set);
        return nullptr;
    }
    return set;
}

void termBasic(basic_set* set) {
    if (set == nullptr) {
        return;
    }
    termLimitArray(set->defined);
    termTable(set->decodeTable);
    termTable(set->encodeTable);
    termStruct(set);
}

basic_set* findBasicArray(object_array* array, u32 setNo) {
    return find_by_number(array, &basic_set::setNo, setNo);
}

u32 addNameArray(object_array* memberSets, u32 setNo) {
    basic_set* set = findBasicArray(g_ProcessObject.basics, setNo);
    return set != nullptr && addArray(memberSets, set) != 0;
}

u32 TheAddBasic(basic_set* set) {
    return addArray(g_ProcessObject.basics, set);
}

// ---- Tables and blocks

table_object* initTable(u32 valueBytes, u32 toUnicode) {
    auto* table = init_record<table_object>();
    if (table == nullptr) {
        return nullptr;
    }
    table->toUnicode = toUnicode;
    table->valueBytes = valueBytes;
    table->loadTries = -1;
    table->blocks = initArray();
    if (table->blocks == nullptr) {
        termStruct(table);
        return nullptr;
    }
    return table;
}

void termTable(table_object* table) {
    if (table == nullptr) {
        return;
    }
    if (table->blocks != nullptr) {
        for (table_block* block : items_of<table_block>(table->blocks)) {
            termBlock(block);
        }
        termArray(table->blocks);
    }
    termStruct(table);
}

void termTableArray(object_array* array) {
    if (array == nullptr) {
        return;
    }
    for (table_object* table : items_of<table_object>(array)) {
        termTable(table);
    }
    termArray(array);
}

// The width of a value is a 16-bit number.
table_block* initBlock(u32 firstKey, u32 valueBytes) {
    auto* block = init_record<table_block>();
    if (block == nullptr) {
        return nullptr;
    }
    const u32 entries = block_entries();
    block->firstKey = firstKey;
    block->endKey = firstKey + entries;
    block->valueBytes = static_cast<u16>(valueBytes);
    block->data = static_cast<u8*>(
        ZAN_calloc(static_cast<i32>(entries), static_cast<i32>(block->valueBytes)));
    if (block->data == nullptr) {
        termStruct(block);
        return nullptr;
    }
    return block;
}

void termBlock(table_block* block) {
    if (block != nullptr) {
        ZAN_free(block->data);
        termStruct(block);
    }
}

// ---- Limits and names

limit* initLimit(u32 low, u32 high) {
    auto* range = init_record<limit>();
    if (range != nullptr) {
        *range = {low, high};
    }
    return range;
}

void termLimit(limit* range) {
    termStruct(range);
}

limit_array* initLimitArray(void) {
    auto* array = init_record<limit_array>();
    if (array != nullptr) {
        array->ranges = initArray(); // without it the array stays empty
    }
    return array;
}

void termLimitArray(limit_array* array) {
    if (array == nullptr) {
        return;
    }
    if (array->ranges != nullptr) {
        for (limit* range : items_of<limit>(array->ranges)) {
            termLimit(range);
        }
        termArray(array->ranges);
    }
    termStruct(array);
}

limit* findLimitArray(limit_array* array, u32 code) {
    if (array == nullptr || code < array->minCode || code > array->maxCode) {
        return nullptr;
    }
    for (limit* range : items_of<limit>(array->ranges)) {
        if (range->low <= code && code <= range->high) {
            return range;
        }
    }
    return nullptr;
}

name_object* initName(void) {
    return init_record<name_object>();
}
void termName(name_object* name) {
    termStruct(name);
}

} // extern "C"
