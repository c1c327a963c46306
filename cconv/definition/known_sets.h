// The set files that the definitions of a directory have named so far, so that a file shared by
// several charsets is read once. Use it under the table lock.
#pragma once

#include "cconv/definition/document.h"
#include "platform/platform.h"

// A set that is in the registry.
struct known_set {
    char* file;              // as named in entities
    char* table;             // the entity of its table, or null
    u32 encoding, bigEndian; // of the definition; used for files that do not declare their own
    basic_set* set;
    i32 characters;
};

class known_sets {
public:
    constexpr known_sets() = default;
    known_sets(const known_sets&) = delete;
    known_sets& operator=(const known_sets&) = delete;

    // Call this at the end. There is no destructor, since it would run while other threads still
    // convert.
    void clear() {
        for (const known_set& set : all()) {
            ZAN_free(set.file);
            ZAN_free(set.table);
        }
        ZAN_free(sets_);
        sets_ = nullptr;
        count_ = room_ = 0;
    }

    const known_set* find(const document& main, const char* file, u16 setType) const {
        for (const known_set& set : all()) {
            if (set.set->setType == setType && set.encoding == main.encoding &&
                set.bigEndian == main.bigEndian && std::strcmp(set.file, file) == 0) {
                return &set;
            }
        }
        return nullptr;
    }

    // A file for which there is no room will be read again.
    void add(owned_memory<char> file, owned_memory<char> table, known_set set) {
        if (count_ == room_) {
            const i32 room = room_ + 32;
            void* sets = room <= most ? ZAN_realloc(sets_, room * i32{sizeof(known_set)}) : nullptr;
            if (sets == nullptr) {
                return;
            }
            sets_ = static_cast<known_set*>(sets);
            room_ = room;
        }
        set.file = file.release();
        set.table = table.release();
        sets_[count_++] = set;
    }

private:
    static constexpr i32 most = 1024; // also limits the time of a search

    [[nodiscard]] std::span<const known_set> all() const {
        return {sets_, static_cast<std::size_t>(count_)};
    }

    known_set* sets_ = nullptr;
    i32 count_ = 0, room_ = 0;
};
