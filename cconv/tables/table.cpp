// Loads mapping tables from their binary caches or from text, and looks up codes in them.
#include "cconv/tables/table.h"

#include "cconv/directory/directory.h"
#include "cconv/directory/embedded.h"
#include "cconv/registry/changes.h"
#include "cconv/registry/linear.h"
#include "platform/platform.h"

#include <algorithm>
#include <cerrno>
#include <limits>

namespace {

// ---- Blocks ------------------------------------------------------------------------------------

// Uses no sums, since a block may end at 2^32. Most blocks fail the first comparison.
bool holds(const table_block* block, u32 key) {
    return key - block->firstKey < block->endKey - block->firstKey && key >= block->firstKey;
}

std::span<u8> slot(const table_block* block, u32 key) {
    const std::size_t width = block->valueBytes;
    return {block->data + (key - block->firstKey) * width, width};
}

// Finds the first block in order that contains a key; blocks may overlap. Since neighbouring keys
// are usually in the same block, it remembers the range around the last key in which no earlier
// block begins or ends.
class block_finder {
public:
    explicit block_finder(const object_array* blocks) : blocks_(blocks) {}

    table_block* find(u32 key) {
        if (found_ != nullptr && key >= low_ && key <= high_ && holds(found_, key)) {
            return found_;
        }
        low_ = 0;
        high_ = std::numeric_limits<u32>::max();
        for (table_block* block : items_of<table_block>(blocks_)) {
            if (holds(block, key)) {
                return found_ = block;
            }
            if (block->firstKey > key) {
                high_ = std::min(high_, block->firstKey - 1);
            } else {
                low_ = std::max(low_, block->endKey);
            }
        }
        return found_ = nullptr;
    }

private:
    const object_array* blocks_;
    table_block* found_ = nullptr;
    u32 low_ = 0, high_ = 0;
};

// A table with this number of blocks is full. It is more than the codes of any charset need, and
// limits the memory and search time of a hostile table.
bool has_all_blocks(const table_object* table) {
    constexpr u32 most_values = 1 << 25, block_values = 4096;
    const u32 words = std::max<u32>(static_cast<u16>(table->valueBytes) / sizeof(u32), 1);
    return table->blocks->count >= std::max<u32>(most_values / block_values / words, 1);
}

table_block* add_block(table_object* table, u32 key) {
    if (has_all_blocks(table)) {
        return nullptr;
    }
    table_block* block = initBlock(key, table->valueBytes);
    if (block != nullptr && addArray(table->blocks, block) == 0) {
        termBlock(block);
        return nullptr;
    }
    return block;
}

void widen_bounds(table_object* table, u32 key) {
    if (table->keysSeen == 0) {
        table->keysSeen = 1;
        table->minKey = key;
        table->maxKey = key;
    } else if (key < table->minKey) {
        table->minKey = key;
    } else if (key > table->maxKey) {
        table->maxKey = key;
    }
}

bool put_value(table_object* table, block_finder& finder, u32 key, u32 value) {
    table_block* block = finder.find(key);
    if (block == nullptr) {
        block = add_block(table, key);
        if (block == nullptr) {
            return false;
        }
    }
    const std::span<u8> bytes = slot(block, key);
    for (std::size_t i = bytes.size(); i-- > 0; value >>= 8) {
        bytes[i] = static_cast<u8>(value);
    }
    widen_bounds(table, key);
    return true;
}

// ---- Files -------------------------------------------------------------------------------------

// A code and its Unicode value, as in a cache file.
struct pair {
    u32 code;
    u32 ucs;
};
static_assert(sizeof(pair) == 8);

// Stores the pairs of a file, in order.
class pair_store {
public:
    explicit pair_store(table_object* table)
        : table_(table), finder_(table->blocks), is_linear_(is_linear(table)) {}

    bool put(const pair& p) {
        return is_linear_               ? add_linear(table_, p.code, p.ucs)
               : table_->toUnicode == 1 ? put_value(table_, finder_, p.code, p.ucs)
                                        : put_value(table_, finder_, p.ucs, p.code);
    }

private:
    table_object* table_;
    block_finder finder_;
    bool is_linear_;
};

struct table_paths {
    char text[text_bytes];
    char cache[text_bytes];
};

// The text table is where its definition says, including a directory, with its file name in lower
// case; the cache is next to it. Tables with the same base name share a cache, deliberately, and so
// do those without a "." in their names, whose base names are empty. A name that ends in "/" is not
// a file; its cache would be in the root directory. Call this under the table lock.
bool make_paths(const table_object* table, table_paths& paths) {
    char path[text_bytes];
    if (charset_path_locked(path, text_bytes) == nullptr || !append_text(path, table->fileName)) {
        return false;
    }
    if (path[std::strlen(path) - 1] == '/') {
        return false;
    }
    split_path parts;
    splitPath(path, &parts);
    fold_text(parts.baseName);
    fold_text(parts.extension);
    mergePath(paths.text, &parts);
    copy_text(parts.extension, ".cmp");
    mergePath(paths.cache, &parts);
    return true;
}

// ---- Caches ------------------------------------------------------------------------------------

// Fills the table from its cache. False if there is none. Its contents are trusted, even if it is
// empty.
bool load_cache(table_object* table, const char* path) {
    const owned_file file = open_regular(path);
    if (file == nullptr) {
        return false;
    }
    const i32 size = file_size(file.get());
    if (size < 0) {
        return false;
    }
    const owned_memory<u8> bytes(size > 0 ? static_cast<u8*>(ZAN_malloc(size)) : nullptr);
    if (bytes == nullptr || ZAN_FileRead(bytes.get(), 1, size, file.get()) != size) {
        return true;
    }
    pair_store store(table);
    const std::size_t count = static_cast<std::size_t>(size) / sizeof(pair);
    for (std::size_t i = 0; i < count; ++i) {
        pair p;
        std::memcpy(&p, bytes.get() + i * sizeof p, sizeof p);
        if (!store.put(p)) {
            break;
        }
    }
    return true;
}

// A cache while it is being written, under a name that no other process uses, so that others only
// ever see a complete one. publish() turns it into the cache; without that it is removed.
class cache_writer {
public:
    explicit cache_writer(const char* path) : path_(path) {
        if (temporary_name(temporary_, path)) {
            file_ = create_file(temporary_);
        }
    }
    ~cache_writer() { discard(); }
    cache_writer(const cache_writer&) = delete;
    cache_writer& operator=(const cache_writer&) = delete;

    void add(const pair& p) {
        if (file_ != nullptr && ZAN_FileWrite(&p, 1, sizeof p, file_.get()) != sizeof p) {
            discard();
        }
    }

    void discard() {
        if (file_ != nullptr) {
            file_.reset();
            removeFile(temporary_);
        }
    }

    void publish() {
        if (file_ == nullptr) {
            return;
        }
        const bool flushed = flush_to_disk(file_.get());
        const bool closed = ZAN_FileClose(file_.release()) == 0;
        if (!flushed || !closed || !rename_file(temporary_, path_)) {
            removeFile(temporary_);
        }
    }

private:
    const char* path_;
    char temporary_[text_bytes];
    owned_file file_;
};

// Fills the table from its text, and writes the cache. If the text does not exist, an empty cache
// is written, deliberately, so that other processes need not look for it again. If it exists but
// cannot be opened, read to its end or kept in memory, no cache is written: the next process may be
// luckier.
void load_text(table_object* table, const table_paths& paths) {
    const owned_file file = open_regular(paths.text);
    if (file == nullptr && errno != ENOENT) {
        return;
    }
    cache_writer cache(paths.cache);
    if (file == nullptr) {
        cache.publish();
        return;
    }
    u8 buffer[TABLE_READ_BYTES];
    table_reader reader{};
    reader.file = file.get();
    reader.encoding = table->textEncoding;
    reader.bigEndian = table->textBigEndian;
    reader.readBuf = buffer;
    reader.remaining = file_size(file.get());
    pair_store store(table);
    pair p{};
    while (hex32(&reader, &p.code) != 0 && hex32(&reader, &p.ucs) != 0) {
        if (!store.put(p)) {
            return; // memory ran out, so the cache would be incomplete
        }
        cache.add(p);
    }
    if (reader.remaining >= 0 && !ran_short(file.get())) {
        cache.publish();
    }
}

void load_embedded(table_object* table, const char* path) {
    const embedded_file* file = find_embedded(path);
    packed_pairs pairs(file != nullptr ? file->bytes : std::span<const u8>{});
    pair_store store(table);
    for (pair p{}; pairs.next(p.code, p.ucs) && store.put(p);) {
    }
}

void fill_table(table_object* table) {
    table_paths paths;
    if (!make_paths(table, paths)) {
        return;
    }
    if (is_embedded(paths.cache)) {
        load_embedded(table, paths.cache);
    } else if (!load_cache(table, paths.cache)) {
        load_text(table, paths);
    }
    if (is_linear(table)) {
        finish_linear(table);
    }
}

// A table with at most one key is usable only if the key can be a code.
bool is_usable(const table_object* table) {
    constexpr u32 beyond_codes = 0x10000000;
    return table->maxKey != table->minKey || (table->minKey > 0 && table->minKey < beyond_codes);
}

// Call this under the table lock.
void mark_loaded(table_object* table, u32 loaded) {
    const look_up_change change;
    std::atomic_ref<u32>(table->loaded).store(loaded, std::memory_order_release);
}

} // namespace

i32 file_size(FILE* file) {
    if (ZAN_FileSeek(file, 0, SEEK_END) != 0) {
        return -1;
    }
    const i64 size = ZAN_FileTell(file);
    if (ZAN_FileSeek(file, 0, SEEK_SET) != 0) {
        return -1;
    }
    return size <= std::numeric_limits<i32>::max() ? static_cast<i32>(size) : 0;
}

extern "C" {

// A file is read only once per process, deliberately: if a table could not be loaded for any
// reason, it counts as loaded from the second attempt on, with what was stored until then.
u32 loadTableFile(table_object* table) {
    if (table_loaded(table)) {
        return 1;
    }
    if (table->fileName[0] == '\0') {
        return 0;
    }
    const table_lock lock;
    if (!table_loaded(table)) {
        if (++table->loadTries == 0) {
            loadTablFile(table);
        } else {
            mark_loaded(table, 1);
        }
    }
    return table_loaded(table);
}

void loadTablFile(table_object* table) {
    fill_table(table);
    mark_loaded(table, is_usable(table));
}

u32 putTable(table_object* table, u32 key, u32 value) {
    const look_up_change change;
    block_finder finder(table->blocks);
    // A table with counted codes is never written to after reading.
    return !is_linear(table) && put_value(table, finder, key, value);
}

u32 dstDsTableArray(object_array* tables, u32 code, u32* result, u16* resultBytes) {
    for (table_object* table : items_of<table_object>(tables)) {
        if (loadTableFile(table) == 0) {
            continue;
        }
        const u32 value = find_value(table, code).value_or(0);
        if (value != 0) {
            *result = value;
            *resultBytes = static_cast<u16>(table->valueBytes);
            return 1;
        }
    }
    return 0;
}

void putEndian(u8* buffer, u32 value) {
    for (std::size_t i = sizeof value; i-- > 0; value >>= 8) {
        buffer[i] = static_cast<u8>(value);
    }
}

} // extern "C"

std::optional<u32> find_value(const table_object* table, u32 key) {
    if (key < table->minKey || key > table->maxKey) {
        return std::nullopt;
    }
    for (const table_block* block : items_of<table_block>(table->blocks)) {
        if (holds(block, key)) {
            return block->valueBytes == linear_block ? find_linear(table, key)
                                                     : load_big_endian(slot(block, key));
        }
    }
    return std::nullopt;
}
