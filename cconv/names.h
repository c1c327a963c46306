// Charset names to group numbers, rule names to codec functions.
#pragma once

#include "cconv/base.h"

extern "C" {

struct group_row {
    const char* name;
    u32 number;
};

using rule_function = u32 (*)(session*);

// One codec function under the name by which definitions ask for it.
struct pvzan_rule_row {
    char name[text_bytes];
    rule_function function;
};

PVZAN_API extern const group_row groupList[31];
PVZAN_API extern rule_row ruleList[30];

// Group number of a name, whose letters are folded to lower case in place: from groupList, else a
// hash from 4000 on.
PVZAN_API u32 TheCreateNo(char* name);
// The row of that very name; null when there is none, or name is null or empty.
PVZAN_API rule_row* TheRule(const char* name);
// Nonzero when the texts are equal.
PVZAN_API u32 byteCmp(const char* a, const char* b);
}

// TheCreateNo for a name that must not change.
u32 group_number(const char* name);
