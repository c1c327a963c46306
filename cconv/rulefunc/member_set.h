// Finds a coded set among those of a charset.
#pragma once

#include "cconv/registry/registry.h"

// The first set with that number; null if the charset does not have it.
inline const basic_set* member_set(const charset_group* group, u32 setNo) {
    for (const basic_set* set : member_sets(group)) {
        if (set->setNo == setNo) {
            return set;
        }
    }
    return nullptr;
}
