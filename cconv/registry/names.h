// Charset names to group numbers.
#pragma once

#include "platform/base.h"

extern "C" {

struct group_row {
    const char* name;
    u32 number;
};

PVZAN_API extern const group_row groupList[31];

// Group number of a name, whose letters are folded to lower case in place: from groupList, else a
// hash from 4000 on.
PVZAN_API u32 TheCreateNo(char* name);
// Nonzero when the texts are equal.
PVZAN_API u32 byteCmp(const char* a, const char* b);
}

// TheCreateNo for a name that must not change.
u32 group_number(const char* name);
// Whether two names are one: case does not count.
bool same_name(const char* a, const char* b);
