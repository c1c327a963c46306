// The pairs of the process: finds, creates and holds a pair, and frees unused ones.
#include "cconv/fast/pair.h"
#include "cconv/fast/fast.h"
#include "platform/platform.h"

namespace fast {

namespace {

// A place of the table, which is never freed, unlike the pair it points to. tag is the hash of the
// pair's key, so that only the right pair is examined; 0 if nobody needs to look at it.
struct place {
    std::atomic<u64> tag;
    std::atomic<pair*> held;
    std::atomic<u32> users; // number of calls that hold it
    std::atomic<u32> used;  // time of the clock when it was last held
};

constexpr std::size_t place_count = 256, places_tried = 8;
place places[place_count];

// Counts the pairs that were created.
std::atomic<u32> clock;
std::atomic<u64> claimed_bytes;

// Held while a pair is created or freed.
pthread_mutex_t table_of_pairs = PTHREAD_MUTEX_INITIALIZER;

// ---- Keys --------------------------------------------------------------------------------------

// The other options that matter: byte orders, and how line breaks are written.
u64 options_of(const session* s) {
    const u64 orders = (s->source.srcBigEndian != 0 ? 2U : 0U) + (s->target.dstBigEndian != 0);
    return s->target.convertNewline != 0 ? u64{s->target.newlineMode} << 3 | 4U | orders : orders;
}

[[gnu::always_inline]] inline u64 hash_of(const pair_key& key) {
    constexpr u64 golden = 0x9E3779B97F4A7C15;
    const auto source = reinterpret_cast<std::uintptr_t>(key.source);
    const auto target = reinterpret_cast<std::uintptr_t>(key.target);
    const u64 others = key.options << 2 | static_cast<u64>(key.strict);
    return ((source ^ std::rotl(u64{target}, 32) ^ others) * golden) | 1; // 0: no pair
}

place& place_at(u64 hash, std::size_t i) {
    return places[((hash >> 32) + i) % place_count];
}

// ---- Holding -----------------------------------------------------------------------------------

[[gnu::always_inline]] inline void enter(place& at) {
    at.users.fetch_add(1, std::memory_order_seq_cst);
}

[[gnu::always_inline]] inline void leave(place& at) {
    at.users.fetch_sub(1, std::memory_order_release);
}

bool is_held(const place& at) {
    return at.users.load(std::memory_order_seq_cst) != 0;
}

[[gnu::always_inline]] inline pair* find(u64 hash, const pair_key& key) {
    for (std::size_t i = 0; i < places_tried; ++i) {
        place& at = place_at(hash, i);
        if (at.tag.load(std::memory_order_relaxed) != hash) {
            continue;
        }
        enter(at);
        pair* p = at.held.load(std::memory_order_seq_cst);
        if (p != nullptr && p->key == key) {
            if (is_current(*p)) {
                at.used.store(clock.load(std::memory_order_relaxed), std::memory_order_relaxed);
                return p;
            }
            at.tag.store(0, std::memory_order_relaxed);
        }
        leave(at);
    }
    return nullptr;
}

// ---- Freeing -----------------------------------------------------------------------------------

void destroy(pair* p) {
    u64 bytes = sizeof(pair);
    for (answer* some : p->answers) {
        bytes += some != nullptr ? answers_bytes : 0;
        ZAN_free(some);
    }
    pthread_mutex_destroy(&p->lock);
    ZAN_free(p);
    return_bytes(bytes);
}

// Frees the pair of a place; false if somebody holds it. Call it under the guard.
bool free_place(place& at) {
    pair* p = at.held.exchange(nullptr, std::memory_order_seq_cst);
    if (p != nullptr && is_held(at)) {
        at.held.store(p, std::memory_order_seq_cst);
        return false;
    }
    if (p != nullptr) {
        destroy(p);
    }
    at.tag.store(0, std::memory_order_relaxed);
    return true;
}

// Of count places from one on, the one that is not needed, or else that was unused for longest.
// Null if all are held.
place* choose_place(u64 first, std::size_t count, bool may_be_empty) {
    place* chosen = nullptr;
    u32 greatest = 0;
    const u32 now = clock.load(std::memory_order_relaxed);
    for (std::size_t i = 0; i < count; ++i) {
        place& at = places[(first + i) % place_count];
        const bool is_empty = at.held.load(std::memory_order_relaxed) == nullptr;
        if (is_empty ? !may_be_empty : is_held(at)) {
            continue;
        }
        const bool is_needed = at.tag.load(std::memory_order_relaxed) != 0;
        const u32 age = is_needed ? now - at.used.load(std::memory_order_relaxed) : ~0U;
        if (chosen == nullptr || age > greatest) {
            chosen = &at;
            greatest = age;
        }
    }
    return chosen;
}

// ---- Making ------------------------------------------------------------------------------------

// Call it under the guard.
bool claim(u64 bytes) {
    while (claimed_bytes.fetch_add(bytes, std::memory_order_relaxed) + bytes > budget_bytes) {
        return_bytes(bytes);
        place* at = choose_place(0, place_count, false);
        if (at == nullptr || !free_place(*at)) {
            return false;
        }
    }
    return true;
}

pair* make(const session* s, const pair_key& key, u64 tables, const plan& planned) {
    if (!claim(sizeof(pair))) {
        return nullptr;
    }
    auto* p = static_cast<pair*>(ZAN_calloc(1, static_cast<i32>(sizeof(pair))));
    if (p == nullptr || pthread_mutex_init(&p->lock, nullptr) != 0) {
        ZAN_free(p);
        return_bytes(sizeof(pair));
        return nullptr;
    }
    // All zeros are a valid state of the rest.
    p->key = key;
    p->tables = tables;
    p->plan = planned;
    p->kernel = &chosen_kernels();
    std::memcpy(&p->neutral, s, sizeof(session));
    p->neutral.target.useSubstitute = 0;
    p->neutral.target.dstWriteBom = 0;
    p->neutral.source.srcCheckBom = 0;
    p->neutral.source.skipInvalid = 0;
    p->neutral.baseLang[0] = '\0';
    // Between Unicode charsets nobody asks: values are converted by their form.
    for (u8 c = 0; planned.by_form && c < 0x80; ++c) {
        if (!planned.normalises || (c != '\r' && c != '\n')) {
            p->plain_ascii.add(c);
        }
    }
    return p;
}

// Creates the pair unless another thread just did, and holds it.
[[gnu::noinline]] pair* make_and_hold(const session* s, const pair_key& key, u64 hash) {
    const u64 tables = look_up_state(); // before the plan uses them
    plan planned{};
    if (tables % 2 != 0 || !make_plan(s, planned)) {
        return nullptr;
    }
    const held_lock guard(table_of_pairs);
    if (pair* found = find(hash, key)) {
        return found;
    }
    place* at = choose_place(hash >> 32, places_tried, true);
    pair* p = at != nullptr && free_place(*at) ? make(s, key, tables, planned) : nullptr;
    if (p != nullptr) {
        p->place = static_cast<u32>(at - places);
        at->used.store(clock.fetch_add(1, std::memory_order_relaxed), std::memory_order_relaxed);
        enter(*at);
        at->held.store(p, std::memory_order_seq_cst);
        at->tag.store(hash, std::memory_order_release);
    }
    return p;
}

} // namespace

bool claim_bytes(u64 bytes) {
    const held_lock guard(table_of_pairs);
    return claim(bytes);
}

void return_bytes(u64 bytes) {
    claimed_bytes.fetch_sub(bytes, std::memory_order_relaxed);
}

u64 bytes_claimed() {
    return claimed_bytes.load(std::memory_order_relaxed);
}

pair* hold_pair(const session* s, strictness strict) {
    const pair_key key{s->srcGroup, s->dstGroup, s->srcRule, s->dstRule, options_of(s), strict};
    const u64 hash = hash_of(key);
    pair* p = find(hash, key);
    if (p == nullptr) {
        p = make_and_hold(s, key, hash);
    }
    if (p != nullptr && !only_characters_due(s, p->plan)) {
        release_pair(p);
        p = nullptr;
    }
    return p;
}

void release_pair(pair* p) {
    leave(places[p->place]);
}

void before_fork() {
    pthread_mutex_lock(&table_of_pairs);
}

void after_fork(bool in_child) {
    for (place& at : in_child ? std::span(places) : std::span<place>()) {
        at.users.store(0, std::memory_order_relaxed); // nobody else is left
        pair* p = at.held.load(std::memory_order_relaxed);
        if (p != nullptr && pthread_mutex_trylock(&p->lock) == 0) {
            pthread_mutex_unlock(&p->lock);
        } else if (p != nullptr) {
            pthread_mutex_init(&p->lock, nullptr);
            at.tag.store(0, std::memory_order_relaxed);
        }
    }
    pthread_mutex_unlock(&table_of_pairs);
}

void release() {
    const held_lock guard(table_of_pairs);
    for (place& at : places) {
        free_place(at);
    }
}

} // namespace fast
