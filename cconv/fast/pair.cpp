// The pairs of the process: finding one, making it, holding it, and freeing what is unused.
#include "cconv/fast/pair.h"
#include "cconv/fast/fast.h"
#include "cconv/table.h"
#include "platform/platform.h"

namespace fast {

namespace {

// A place of the table, which is never freed, unlike what it points to. tag is the hash of the
// pair's key, so that no pair is looked at in vain.
struct place {
    std::atomic<u64> tag;
    std::atomic<pair*> held;
    std::atomic<u32> holders;
    std::atomic<u32> used; // by the clock, when it was last held
};

constexpr std::size_t place_count = 256, places_tried = 8;
place places[place_count];

// Counts the pairs that were made.
std::atomic<u32> clock;
std::atomic<u64> claimed_bytes;

// Held while a pair is made or freed.
pthread_mutex_t table_of_pairs = PTHREAD_MUTEX_INITIALIZER;

class pairs_guard {
public:
    pairs_guard() { pthread_mutex_lock(&table_of_pairs); }
    ~pairs_guard() { pthread_mutex_unlock(&table_of_pairs); }
    pairs_guard(const pairs_guard&) = delete;
    pairs_guard& operator=(const pairs_guard&) = delete;
};

// Line breaks: 0 where they are characters like others, else what they are written as.
u32 newline_option(const session* s) {
    const u32 mode = s->target.newlineMode;
    const bool named = mode >= PVZAN_NEWLINE_CR && mode <= PVZAN_NEWLINE_PARAGRAPH_SEPARATOR;
    return s->target.convertNewline == 0 ? 0 : named ? mode : u32{PVZAN_NEWLINE_CRLF};
}

pair_key key_of(const session* s, strictness strict) {
    const object_array *groups = g_ProcessObject.groups, *sets = g_ProcessObject.basics;
    return {
        .source = s->srcGroup,
        .target = s->dstGroup,
        .decoder = s->srcRule,
        .encoder = s->dstRule,
        .source_number = s->srcGroupNo,
        .target_number = s->dstGroupNo,
        .options = (s->source.srcBigEndian != 0 ? big_source : 0) |
                   (s->target.dstBigEndian != 0 ? big_target : 0) |
                   newline_option(s) << newline_shift | static_cast<u32>(strict) << strict_shift,
        .table_changes = table_changes(),
        .groups = groups != nullptr ? groups->items : nullptr,
        .sets = sets != nullptr ? sets->items : nullptr,
        .group_count = groups != nullptr ? groups->count : u32{0},
        .set_count = sets != nullptr ? sets->count : u32{0},
    };
}

u64 hash_of(const pair_key& key) {
    constexpr u64 golden = 0x9E3779B97F4A7C15;
    const u64 source = reinterpret_cast<std::uintptr_t>(key.source);
    const u64 target = reinterpret_cast<std::uintptr_t>(key.target);
    const u64 hash = ((source ^ key.options) * golden ^ target) * golden;
    return hash != 0 ? hash : 1;
}

place& place_at(u64 hash, std::size_t i) {
    return places[((hash >> 32) + i) % place_count];
}

// The pair in that place, held; null when it is another one.
pair* hold(place& at, u64 hash, const pair_key& key) {
    if (at.tag.load(std::memory_order_relaxed) != hash) {
        return nullptr;
    }
    at.holders.fetch_add(1, std::memory_order_seq_cst);
    pair* p = at.held.load(std::memory_order_seq_cst);
    if (p != nullptr && p->key == key && is_current(*p)) {
        at.used.store(clock.load(std::memory_order_relaxed), std::memory_order_relaxed);
        return p;
    }
    at.holders.fetch_sub(1, std::memory_order_release);
    return nullptr;
}

pair* find(const pair_key& key) {
    const u64 hash = hash_of(key);
    for (std::size_t i = 0; i < places_tried; ++i) {
        if (pair* p = hold(place_at(hash, i), hash, key)) {
            return p;
        }
    }
    return nullptr;
}

// ---- Freeing -----------------------------------------------------------------------------------

void destroy(pair* p) {
    const u64 bytes = p->claimed;
    for (answer* some : p->answers) {
        ZAN_free(some);
    }
    pthread_mutex_destroy(&p->lock);
    ZAN_free(p);
    return_bytes(bytes);
}

// Frees the pair of a place unless somebody holds it. Under the guard.
bool free_place(place& at) {
    pair* p = at.held.load(std::memory_order_relaxed);
    if (p == nullptr) {
        return false;
    }
    at.held.store(nullptr, std::memory_order_seq_cst);
    if (at.holders.load(std::memory_order_seq_cst) != 0) {
        at.held.store(p, std::memory_order_seq_cst);
        return false;
    }
    destroy(p);
    return true;
}

bool is_stale(const place& at) {
    const pair* p = at.held.load(std::memory_order_relaxed);
    return p != nullptr && p->stale.load(std::memory_order_relaxed);
}

// Frees what is stale among count places from one on, else what was unused for longest.
bool free_one(u64 first, std::size_t count) {
    bool any = false;
    place* oldest = nullptr;
    const u32 now = clock.load(std::memory_order_relaxed);
    const auto age = [=](const place& at) { return now - at.used.load(std::memory_order_relaxed); };
    for (std::size_t i = 0; i < count; ++i) {
        place& at = places[(first + i) % place_count];
        if (is_stale(at)) {
            any = free_place(at) || any;
        } else if (at.held.load(std::memory_order_relaxed) != nullptr &&
                   at.holders.load(std::memory_order_relaxed) == 0 &&
                   (oldest == nullptr || age(at) > age(*oldest))) {
            oldest = &at;
        }
    }
    return any || (oldest != nullptr && free_place(*oldest));
}

// ---- Making ------------------------------------------------------------------------------------

// Only charsets of the registry stay what they are.
bool is_registered(const charset_group* group) {
    return group != nullptr && g_ProcessObject.groups != nullptr &&
           findGroupArray(g_ProcessObject.groups, group->groupNo) == group;
}

void prepare_neutral(pair& p, const session* s) {
    std::memcpy(&p.neutral, s, sizeof(session));
    p.neutral.target.useSubstitute = 0;
    p.neutral.target.dstWriteBom = 0;
    p.neutral.source.srcCheckBom = 0;
    p.neutral.source.skipInvalid = 0;
    p.neutral.baseLang[0] = '\0';
}

// Under the guard.
bool claim(u64 bytes) {
    while (claimed_bytes.fetch_add(bytes, std::memory_order_relaxed) + bytes > budget_bytes) {
        return_bytes(bytes);
        if (!free_one(0, place_count)) {
            return false;
        }
    }
    return true;
}

// Between charsets of Unicode it is known from the start what runs of ASCII become.
void prepare_ascii(pair& p) {
    switch (p.plan.blocks) {
    case block_form::none:
    case block_form::entries: return;
    case block_form::utf8: p.ascii_target = {1, true}; break;
    case block_form::units_big: p.ascii_target = {2, true}; break;
    case block_form::units_little: p.ascii_target = {2, false}; break;
    case block_form::quads_big: p.ascii_target = {4, true}; break;
    case block_form::quads_little: p.ascii_target = {4, false}; break;
    }
    const u32 source = p.plan.source_unit.bytes, target = p.ascii_target.bytes;
    if (source > 1 && target > 1) {
        return;
    }
    p.ascii = source > 1 ? ascii_form::narrow : target > 1 ? ascii_form::widen : ascii_form::same;
    for (u8 c = 0; c < 0x80; ++c) {
        if (!p.plan.normalises || (c != '\r' && c != '\n')) {
            p.plain_ascii.add(c);
        }
    }
}

pair* make(const session* s, const pair_key& key, const plan& planned) {
    if (!claim(sizeof(pair))) {
        return nullptr;
    }
    auto* p = static_cast<pair*>(ZAN_calloc(1, static_cast<i32>(sizeof(pair))));
    if (p == nullptr || pthread_mutex_init(&p->lock, nullptr) != 0) {
        ZAN_free(p);
        return_bytes(sizeof(pair));
        return nullptr;
    }
    // All zero is a valid state of the rest.
    p->key = key;
    p->plan = planned;
    p->kernel = &chosen_kernels();
    p->strict = static_cast<strictness>(key.options >> strict_shift);
    p->claimed = sizeof(pair);
    p->generation.store(table_generation(), std::memory_order_relaxed);
    p->own_tables = count_own_tables(key, planned);
    prepare_neutral(*p, s);
    prepare_ascii(*p);
    return p;
}

// Makes the pair unless another thread just did, and holds it.
pair* make_and_hold(const session* s, const pair_key& key, const plan& planned) {
    const u64 hash = hash_of(key);
    const pairs_guard guard;
    if (pair* p = find(key)) {
        return p;
    }
    for (std::size_t i = 0; i < places_tried; ++i) {
        if (is_stale(place_at(hash, i))) {
            free_place(place_at(hash, i));
        }
    }
    place* at = nullptr;
    for (int attempt = 0; attempt < 2 && at == nullptr; ++attempt) {
        for (std::size_t i = 0; i < places_tried && at == nullptr; ++i) {
            place& tried = place_at(hash, i);
            at = tried.held.load(std::memory_order_relaxed) == nullptr ? &tried : nullptr;
        }
        if (at == nullptr && !free_one((hash >> 32) % place_count, places_tried)) {
            return nullptr;
        }
    }
    pair* p = at != nullptr ? make(s, key, planned) : nullptr;
    if (p == nullptr) {
        return nullptr;
    }
    p->place = static_cast<u32>(at - places);
    at->used.store(clock.fetch_add(1, std::memory_order_relaxed), std::memory_order_relaxed);
    at->holders.fetch_add(1, std::memory_order_seq_cst);
    at->held.store(p, std::memory_order_seq_cst);
    at->tag.store(hash, std::memory_order_release);
    return p;
}

} // namespace

bool is_current(pair& p) {
    const u32 generation = table_generation();
    if (p.generation.load(std::memory_order_acquire) == generation) {
        return !p.stale.load(std::memory_order_relaxed);
    }
    if (count_own_tables(p.key, p.plan) != p.own_tables) {
        p.stale.store(true, std::memory_order_relaxed);
        return false;
    }
    p.generation.store(generation, std::memory_order_release);
    return true;
}

bool claim_bytes(u64 bytes) {
    const pairs_guard guard;
    return claim(bytes);
}

void return_bytes(u64 bytes) {
    claimed_bytes.fetch_sub(bytes, std::memory_order_relaxed);
}

u64 bytes_claimed() {
    return claimed_bytes.load(std::memory_order_relaxed);
}

void free_unheld() {
    const pairs_guard guard;
    for (place& at : places) {
        free_place(at);
    }
}

pair* hold_pair(const session* s, strictness strict, bool& for_now) {
    for_now = false;
    const pair_key key = key_of(s, strict);
    pair* p = find(key);
    if (p == nullptr) {
        plan planned{};
        planned.source = traits_of_decoder(s->srcRule->function);
        planned.target = traits_of_encoder(s->dstRule->function);
        if (planned.source == nullptr || planned.target == nullptr) {
            return nullptr;
        }
        const due what = what_is_due(s, *planned.source, *planned.target);
        if (what != due::characters || !is_registered(s->srcGroup) || !is_registered(s->dstGroup) ||
            !make_plan(s, planned)) {
            for_now = what == due::mark;
            return nullptr;
        }
        return make_and_hold(s, key, planned);
    }
    const due what = what_is_due(s, *p->plan.source, *p->plan.target);
    if (what != due::characters) {
        for_now = what == due::mark;
        release_pair(p);
        return nullptr;
    }
    return p;
}

void release_pair(pair* p) {
    places[p->place].holders.fetch_sub(1, std::memory_order_release);
}

void before_fork() {
    pthread_mutex_lock(&table_of_pairs);
}

void after_fork(bool in_child) {
    for (place& at : places) {
        pair* p = in_child ? at.held.load(std::memory_order_relaxed) : nullptr;
        if (p != nullptr && pthread_mutex_trylock(&p->lock) == 0) {
            pthread_mutex_unlock(&p->lock);
        } else if (p != nullptr) {
            pthread_mutex_init(&p->lock, nullptr);
            p->stale.store(true, std::memory_order_relaxed);
        }
    }
    pthread_mutex_unlock(&table_of_pairs);
}

void release() {
    const pairs_guard guard;
    for (place& at : places) {
        if (pair* p = at.held.exchange(nullptr, std::memory_order_acquire)) {
            destroy(p);
        }
        at.tag.store(0, std::memory_order_relaxed);
    }
}

} // namespace fast
