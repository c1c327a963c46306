// Counts the changes that let a look-up have another result: a table is loaded or written to, or a
// coded set is added that a rule may look for.
#pragma once

#include "platform/base.h"

#include <atomic>

inline std::atomic<u64> look_up_changes;

// Odd while something changes. Those who see anything of a change see this change, too.
inline u64 look_up_state() {
    return look_up_changes.load(std::memory_order_acquire);
}

// Exists while something changes, under the table lock.
class look_up_change {
public:
    look_up_change() { look_up_changes.fetch_add(1, std::memory_order_release); }
    ~look_up_change() { look_up_changes.fetch_add(1, std::memory_order_release); }
    look_up_change(const look_up_change&) = delete;
    look_up_change& operator=(const look_up_change&) = delete;
};
