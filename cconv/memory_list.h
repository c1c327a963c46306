// What the fast paths keep for pairs of charsets: found and added by any thread without a lock.
#pragma once

#include "cconv/engine.h"
#include "platform/platform.h"

#include <atomic>

// Memories have a key and a next; they lie in zeroed memory of the platform layer.
template <typename Memory, std::size_t Buckets, u32 Most>
class memory_list {
public:
    template <typename Key>
    Memory* find(u64 hash, const Key& key) const {
        Memory* m = buckets_[hash % Buckets].load(std::memory_order_acquire);
        while (m != nullptr && m->key != key) {
            m = m->next;
        }
        return m;
    }

    // Whether there may be one more.
    bool claim() {
        if (count_.fetch_add(1, std::memory_order_relaxed) < Most) {
            return true;
        }
        count_.store(Most, std::memory_order_relaxed);
        return false;
    }

    // Two threads may make the same one, and the later is found first.
    void publish(u64 hash, Memory* memory) {
        std::atomic<Memory*>& bucket = buckets_[hash % Buckets];
        memory->next = bucket.load(std::memory_order_relaxed);
        while (!bucket.compare_exchange_weak(memory->next, memory, std::memory_order_release,
                                             std::memory_order_relaxed)) {
        }
    }

    // No session may be running.
    void release() {
        for (std::atomic<Memory*>& bucket : buckets_) {
            Memory* memory = bucket.exchange(nullptr, std::memory_order_acquire);
            while (memory != nullptr) {
                Memory* next = memory->next;
                ZAN_free(memory);
                memory = next;
            }
        }
        count_.store(0, std::memory_order_relaxed);
    }

private:
    std::atomic<Memory*> buckets_[Buckets];
    std::atomic<u32> count_;
};

// Where a session stood before the rules' work on a character.
struct character_note {
    bool taken = false;
    i32 in_pos = 0, out_pos = 0;
    u32 in_count = 0, out_count = 0;

    void take(const session* s, bool wanted) {
        taken = wanted && s->status == PVZAN_WRITTEN;
        if (!taken) {
            return;
        }
        in_pos = s->inPos;
        out_pos = s->outPos;
        in_count = s->inCount;
        out_count = s->outCount;
    }
};
