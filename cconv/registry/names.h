// Charset names to group numbers.
#pragma once

#include "platform/base.h"

extern "C" {

struct group_row {
    const char* name;
    u32 number;
};

PVZAN_API extern const group_row groupList[31];

// The group number of a name, from groupList, or else a hash from 4000 on. Converts the name to
// lower case in place.
PVZAN_API u32 TheCreateNo(char* name);
// Nonzero if the texts are equal.
PVZAN_API u32 byteCmp(const char* a, const char* b);
}

// Like TheCreateNo, but does not change the name.
u32 group_number(const char* name);
// Whether two names are equal, without regard to case.
bool same_name(const char* a, const char* b);
