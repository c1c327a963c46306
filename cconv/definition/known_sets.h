// The set files that the definitions of a directory named so far, so that a file shared by many
// charsets is read once. Under the table lock.
#pragma once

#include "cconv/definition/document.h"
#include "platform/platform.h"

// A set that was taken into the registry, or is there by its name.
struct known_set {
    char* file;              // as entities name it
    char* table;             // the entity of its table; null when it has none
    u32 encoding, bigEndian; // of the definition, by which the file was read where it says nothing
    basic_set* set;
    i32 characters;
};

class known_sets {
public:
    constexpr known_sets() = default;
    known_sets(const known_sets&) = delete;
    known_sets& operator=(const known_sets&) = delete;

    // To be called at the end; there is no destructor, which would run while others still convert.
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

    // A file for which there is no room is read again.
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
    static constexpr i32 most = 1024; // bounds the search, too

    [[nodiscard]] std::span<const known_set> all() const {
        return {sets_, static_cast<std::size_t>(count_)};
    }

    known_set* sets_ = nullptr;
    i32 count_ = 0, room_ = 0;
};
