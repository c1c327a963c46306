#include "cconv/registry/further.h"

#include "cconv/registry/changes.h"
#include "cconv/registry/names.h"
#include "platform/platform.h"

#include <atomic>

namespace {

template <typename T>
struct entry {
    T* item;
    entry* next;
};

// A list that can be read without a lock; the newest entry is first.
template <typename T>
class shared_list {
public:
    bool add(T* item) {
        auto* added = static_cast<entry<T>*>(ZAN_malloc(i32{sizeof(entry<T>)}));
        if (added == nullptr) {
            return false;
        }
        *added = {item, first_.load(std::memory_order_relaxed)};
        first_.store(added, std::memory_order_release);
        return true;
    }

    // The first wanted item in the root's array, or else in this list; or null.
    template <typename Wanted>
    T* find(const object_array* array, Wanted wanted) const {
        for (T* item : items_of<T>(array)) {
            if (wanted(item)) {
                return item;
            }
        }
        const entry<T>* at = first_.load(std::memory_order_acquire);
        while (at != nullptr && !wanted(at->item)) {
            at = at->next;
        }
        return at != nullptr ? at->item : nullptr;
    }

    template <typename Release>
    void clear(Release release) {
        entry<T>* next = first_.exchange(nullptr, std::memory_order_acquire);
        while (entry<T>* const at = next) {
            next = at->next;
            release(at->item);
            ZAN_free(at);
        }
    }

private:
    std::atomic<entry<T>*> first_;
};

shared_list<charset_group> groups;
shared_list<basic_set> sets;

charset_group* group_of_number(u32 groupNo) {
    return groups.find(g_ProcessObject.groups,
                       [=](const charset_group* group) { return group->groupNo == groupNo; });
}

} // namespace

// Most names are asked for as they are registered, and differ from others in their first letters.
charset_group* registered_group(const char* name) {
    charset_group* const same =
        groups.find(g_ProcessObject.groups, [=](const charset_group* group) {
            return group->name[0] == *name && std::strcmp(group->name, name) == 0;
        });
    return same != nullptr ? same
                           : groups.find(g_ProcessObject.groups, [=](const charset_group* group) {
                                 return same_name(group->name, name);
                             });
}

basic_set* registered_set(const char* name) {
    return sets.find(g_ProcessObject.basics,
                     [=](const basic_set* set) { return same_name(set->name, name); });
}

basic_set* registered_set(u32 setNo) {
    return sets.find(g_ProcessObject.basics,
                     [=](const basic_set* set) { return set->setNo == setNo; });
}

bool is_registered(const charset_group* group) {
    return groups.find(g_ProcessObject.groups,
                       [=](const charset_group* other) { return other == group; }) != nullptr;
}

bool add_further(charset_group* group) {
    while (group_of_number(group->groupNo) != nullptr) {
        ++group->groupNo;
    }
    return groups.add(group);
}

bool add_further(basic_set* set) {
    while (registered_set(set->setNo) != nullptr) {
        ++set->setNo;
    }
    const look_up_change change;
    return sets.add(set);
}

void release_further() {
    groups.clear(termGroup);
    sets.clear(termBasic);
}
