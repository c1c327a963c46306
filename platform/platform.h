// Files, memory, directories and paths: only this room of the library calls the system for them.
#pragma once

#include "platform/base.h"

#include <cstdarg>
#include <cstdio>
#include <glob.h>
#include <memory>
#include <string_view>

extern "C" {

// A path in four parts: "/" or nothing; everything up to the last "/"; the file name before its
// last "."; the rest. If there is no "." after its first byte, the whole file name is the
// extension.
struct split_path {
    char root[text_bytes], directory[text_bytes], baseName[text_bytes], extension[text_bytes];
};

struct listing_state {
    glob_t matches;
    u32 next; // index of the match to return next
};

struct listing_entry {
    char path[text_bytes];
};

struct directory_listing {
    split_path parts; // of the pattern; readDir puts each entry's file name into it
    listing_state state;
    listing_entry entry;
};

PVZAN_API FILE* ZAN_FileOpen(const char* path, const char* mode);
PVZAN_API i32 ZAN_FileClose(FILE* stream);
PVZAN_API i32 ZAN_FileRead(void* buffer, i32 size, i32 count, FILE* stream);
PVZAN_API i32 ZAN_FileWrite(const void* buffer, i32 size, i32 count, FILE* stream);
PVZAN_API i32 ZAN_FileSeek(FILE* stream, std::int64_t offset, i32 whence);
PVZAN_API std::int64_t ZAN_FileTell(FILE* stream);
PVZAN_API i32 removeFile(const char* path);

PVZAN_API void* ZAN_malloc(i32 size);
PVZAN_API void ZAN_free(void* memory);
PVZAN_API void* ZAN_realloc(void* memory, i32 size);
PVZAN_API void* ZAN_calloc(i32 count, i32 size);
PVZAN_API void ZAN_memend(void);

PVZAN_API i32 ZAN_VfPrintf(FILE* stream, const char* format, va_list* arguments);

// Lists the files that match a glob pattern, ordered by name. If nothing matches, the list is
// empty; opening fails (0) only if memory runs out.
PVZAN_API i32 errorfn(const char* path, i32 error);
PVZAN_API u32 ZAN_ASC_opendir(const char* pattern, listing_state* state);
PVZAN_API u32 ZAN_ASC_readdir(listing_state* state, listing_entry* entry);
PVZAN_API void ZAN_ASC_closedir(listing_state* state);
PVZAN_API u32 openDir(const char* pattern, directory_listing* listing);
PVZAN_API u32 readDir(directory_listing* listing);
PVZAN_API void closeDir(directory_listing* listing);

// The position of the last c in text, or null; also null if text ends with c and c occurs before.
PVZAN_API char* _right(char* text, char c);
// Parts longer than their fields are truncated; the rest of each field is zero.
PVZAN_API void splitPath(const char* path, split_path* parts);
// out has text_bytes bytes; a longer path is truncated.
PVZAN_API void mergePath(char* out, const split_path* parts);
PVZAN_API i32 ZAN_nextPathDelimiter(const char* text);
PVZAN_API i32 ZAN_nextDrivePathDelimiter(const char* text);
PVZAN_API i32 ZAN_getPathBreak(const char* text);
}

// The names in a directory that match a pattern, in the order of their bytes, whatever the locale.
// The directory's name is not a pattern. This does not use glob, which may release memory twice
// when there is too little. If memory runs out, the list is shorter.
class file_names {
public:
    file_names() = default;
    file_names(const char* directory, const char* pattern);
    ~file_names();
    file_names(const file_names&) = delete;
    file_names& operator=(const file_names&) = delete;
    [[nodiscard]] std::span<char* const> all() const { return {names_, count_}; }

    bool add(std::string_view name);
    void sort();

private:
    char** names_ = nullptr;
    std::size_t count_ = 0, room_ = 0;
};

// Renames a file in one step; an existing file of that name is replaced.
bool rename_file(const char* from, const char* to);

// Whether reading stopped before the end of the file, or because of an error.
bool ran_short(FILE* stream);
// Flushes what was written to the disk, so that a crash of the system cannot lose part of it.
bool flush_to_disk(FILE* stream);

// A name next to path that no other process uses, not even one with the same process number in
// another container. False if it would be too long.
bool temporary_name(char (&out)[text_bytes], const char* path);

// RAII over the above, for the library's own use.
struct memory_release {
    void operator()(void* memory) const { ZAN_free(memory); }
};
template <typename T>
using owned_memory = std::unique_ptr<T, memory_release>;

struct file_close {
    void operator()(FILE* stream) const { ZAN_FileClose(stream); }
};
using owned_file = std::unique_ptr<FILE, file_close>;

// Opens a regular file, or a link to one, for reading. Anything else is refused, since reading a
// pipe or a device could wait or run forever. If the result is null, errno says why: ENOENT only if
// there is nothing of that name.
owned_file open_regular(const char* path);
// Reads the whole of such a file. False if it does not exist or is empty; if it cannot be read
// completely, it counts as empty.
bool read_regular(const char* path, owned_memory<u8>& data, std::size_t& size);
// Creates a file that must not exist yet. Its owner may write it; those who may list and enter its
// directory may read it.
owned_file create_file(const char* path);
