// The registry's root, its reference count, and the loading of definitions, which happens once.
#include "cconv/convert/lifecycle.h"

#include "cconv/definition/definition.h"
#include "cconv/definition/known_sets.h"
#include "cconv/directory/directory.h"
#include "cconv/directory/embedded.h"
#include "cconv/fast/fast.h"
#include "cconv/registry/further.h"
#include "cconv/tables/table.h"
#include "platform/platform.h"

#include <atomic>
#include <new>
#include <string_view>

namespace {

constexpr char definition_pattern[] = "*.xml";
constexpr const char* definition_suffix = definition_pattern + 1;

std::atomic<u32> s_loaded;    // 1 after the charset directory has been read, successfully or not
std::atomic<i32> s_loadCount; // definitions read successfully

// Both belong to the registry, are released with it, and are used under the table lock: the set
// files that definitions have named so far, and the names of further charsets.
constinit known_sets known;
std::atomic<file_names*> further; // null: not read yet

// Protects the reference count, so that several threads may start their first conversions without
// my_init. It is held only in this file, and never while tables are used.
pthread_mutex_t start_lock = PTHREAD_MUTEX_INITIALIZER;

// Calls use with the name of each definition in the charset directory, or in a folder of it.
template <typename Use>
void for_each_definition(const char* folder, Use use) {
    char directory[text_bytes];
    if (charset_path_locked(directory, sizeof directory) == nullptr ||
        !append_text(directory, folder)) {
        return;
    }
    if (is_embedded(directory)) {
        const std::string_view before(folder);
        for (const embedded_file& file : embedded_files) {
            const std::string_view name(file.name);
            if (name.starts_with(before) && name.ends_with(definition_suffix) &&
                name.find('/', before.size()) == name.npos) {
                use(file.name + before.size());
            }
        }
        return;
    }
    const file_names definitions(directory, definition_pattern);
    for (const char* name : definitions.all()) {
        use(name);
    }
}

i32 read_definitions() {
    i32 count = 0;
    for_each_definition("",
                        [&](const char* name) { count += read_definition(name, known) ? 1 : 0; });
    return count;
}

// Null if memory runs out.
file_names* read_further_names() {
    void* const room = ZAN_malloc(i32{sizeof(file_names)});
    if (room == nullptr) {
        return nullptr;
    }
    auto* names = new (room) file_names();
    for_each_definition(further_folder, [&](const char* file) {
        char name[text_bytes], path[text_bytes];
        copy_text(name, file);
        name[std::strlen(name) - std::strlen(definition_suffix)] = '\0';
        // Ignores files that no name can select, such as those with capital letters.
        if (further_path(name, path) &&
            std::strcmp(path + std::strlen(further_folder), file) == 0) {
            names->add(name);
        }
    });
    names->sort(); // the order is different without the endings
    return names;
}

void release_further_names() {
    if (file_names* names = further.exchange(nullptr, std::memory_order_acquire)) {
        names->~file_names();
        ZAN_free(names);
    }
}

// Groups are released before the basic sets that they refer to.
void release_registry() {
    fast::release();
    if (g_ProcessObject.groups != nullptr) {
        for (charset_group* group : items_of<charset_group>(g_ProcessObject.groups)) {
            termGroup(group);
        }
        termArray(g_ProcessObject.groups);
    }
    if (g_ProcessObject.basics != nullptr) {
        for (basic_set* set : items_of<basic_set>(g_ProcessObject.basics)) {
            termBasic(set);
        }
        termArray(g_ProcessObject.basics);
    }
    g_ProcessObject.groups = nullptr;
    g_ProcessObject.basics = nullptr;
    release_further();
    known.clear();
    release_further_names();
}

charset_group* read_further(const char* name) {
    char path[text_bytes];
    if (!further_path(name, path)) {
        return nullptr;
    }
    const table_lock lock;
    charset_group* group = registered_group(name); // another thread may have read it meanwhile
    if (group == nullptr) {
        group = read_further_definition(path, name, known);
    }
    return group;
}

u32 any_loaded() {
    return s_loadCount.load(std::memory_order_relaxed) > 0;
}

// ---- Fork and unloading ------------------------------------------------------------------------

bool s_heldOverFork; // the table lock; protected by the start lock
bool s_ended;        // whether the last change was to give back a reference; protected likewise

// A fork waits for other threads to finish loading, since the child has no thread to release their
// locks.
void before_fork() {
    pthread_mutex_lock(&start_lock);
    s_heldOverFork = pthread_mutex_lock(&zan_tablemutex) == 0;
    fast::before_fork();
}

void after_fork(bool in_child) {
    fast::after_fork(in_child);
    if (s_heldOverFork) {
        pthread_mutex_unlock(&zan_tablemutex);
    }
    pthread_mutex_unlock(&start_lock);
}

void after_fork_in_parent() {
    after_fork(false);
}
void after_fork_in_child() {
    after_fork(true);
}

// Done once per process, or each time the library is loaded; the start lock is held.
void hold_locks_over_fork() {
    static bool s_done;
    if (!s_done) {
        s_done = pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child) == 0;
    }
}

// Releases everything when the library is unloaded or the process ends, if the host has ended its
// use. A host that did not call my_fini may still have threads in the library.
[[gnu::destructor]] void release_at_unloading() {
    if (s_ended && g_ProcessObject.refCount == 1) {
        termProcess();
    }
}

} // namespace

extern "C" {

void my_init(void) {
    startProcess();
}
void my_fini(void) {
    endProcess();
}
void startProcess(void) {
    initProcess();
}
void endProcess(void) {
    termProcess();
}

u32 initProcess(void) {
    const held_lock guard(start_lock);
    s_ended = false;
    hold_locks_over_fork();
    if (g_ProcessObject.refCount != 0) {
        ++g_ProcessObject.refCount;
        return 1;
    }
    // It works without the lock, deliberately: the next call tries to create it again.
    if (pthread_mutex_init(&zan_tablemutex, nullptr) != 0) {
        return 1;
    }
    g_ProcessObject.blockEntries = 0;
    g_ProcessObject.groups = initArray();
    g_ProcessObject.basics = initArray();
    if (g_ProcessObject.groups == nullptr || g_ProcessObject.basics == nullptr) {
        release_registry();
        return 0;
    }
    g_ProcessObject.refCount = 1;
    return 1;
}

void termProcess(void) {
    const held_lock guard(start_lock);
    s_ended = true;
    if (g_ProcessObject.refCount-- == 1) {
        pthread_mutex_destroy(&zan_tablemutex);
        release_registry();
    }
}

u32 cconvLoadRule(void) {
    if (s_loaded.load(std::memory_order_acquire) != 0) {
        return any_loaded();
    }
    // This reference is kept as long as the library is loaded, deliberately: sessions have pointers
    // into the registry.
    if (initProcess() == 0) {
        return 0;
    }
    const table_lock lock;
    if (s_loaded.load(std::memory_order_acquire) == 0) {
        s_loadCount.store(read_definitions(), std::memory_order_relaxed);
        // Done only once, deliberately, even if something failed: sessions rely on a registry that
        // does not change.
        s_loaded.store(1, std::memory_order_release);
    }
    return any_loaded();
}

} // extern "C"

charset_group* find_charset(const char* name) {
    if (name == nullptr || !definitions_settled() || g_ProcessObject.groups == nullptr) {
        return nullptr;
    }
    charset_group* group = registered_group(name);
    return group != nullptr ? group : read_further(name);
}

std::span<char* const> further_names() {
    if (definitions_settled() && further.load(std::memory_order_acquire) == nullptr) {
        const table_lock lock;
        if (further.load(std::memory_order_acquire) == nullptr) {
            further.store(read_further_names(), std::memory_order_release);
        }
    }
    const file_names* names = further.load(std::memory_order_acquire);
    return names != nullptr ? names->all() : std::span<char* const>();
}

bool definitions_settled() {
    return s_loaded.load(std::memory_order_acquire) != 0;
}
