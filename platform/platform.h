// The library's way to files, memory, directories and paths: nothing else in it calls the system
// for these.
#pragma once

#include "platform/base.h"

#include <cstdarg>
#include <cstdio>
#include <glob.h>
#include <memory>
#include <string_view>

extern "C" {

// A path in four parts: "/" or nothing; everything up to the last "/"; the file name before its
// last "."; the rest. A file name without a "." behind its first byte is all extension.
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

// Listing of the files that match a glob pattern, in the order of their names. No match is an empty
// listing; only lack of memory makes opening fail (0).
PVZAN_API i32 errorfn(const char* path, i32 error);
PVZAN_API u32 ZAN_ASC_opendir(const char* pattern, listing_state* state);
PVZAN_API u32 ZAN_ASC_readdir(listing_state* state, listing_entry* entry);
PVZAN_API void ZAN_ASC_closedir(listing_state* state);
PVZAN_API u32 openDir(const char* pattern, directory_listing* listing);
PVZAN_API u32 readDir(directory_listing* listing);
PVZAN_API void closeDir(directory_listing* listing);

// Position of the last c in text, or null; also null when c ends text and occurs before, too.
PVZAN_API char* _right(char* text, char c);
// Parts longer than their fields are cut; what is left of each field is zero.
PVZAN_API void splitPath(const char* path, split_path* parts);
// out holds text_bytes bytes; a longer path is cut.
PVZAN_API void mergePath(char* out, const split_path* parts);
PVZAN_API i32 ZAN_nextPathDelimiter(const char* text);
PVZAN_API i32 ZAN_nextDrivePathDelimiter(const char* text);
PVZAN_API i32 ZAN_getPathBreak(const char* text);
}

// The names in a directory that match a pattern, in the order of their bytes whatever the locale
// is. The directory is taken literally. Not by way of glob, which may release memory twice when
// there is too little. Short of memory, it holds what there was room for.
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

// Gives a file another name in one step; a file of that name is replaced.
bool rename_file(const char* from, const char* to);

// Whether reading stopped before the end that the file had, or by an error.
bool ran_short(FILE* stream);
// Brings what was written to the disk, so that no crash of the system leaves less under its name.
bool flush_to_disk(FILE* stream);

// A name beside path that no other process uses, be it in a container with the same process
// numbers. False when it would be too long.
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

// Opens a regular file, or a link to one, for reading. Anything else, a pipe or a device, could
// wait or run for ever, and is refused. errno tells why it is null: ENOENT only where nothing is.
owned_file open_regular(const char* path);
// Reads such a file at once. False when there is none, or nothing in it; one that cannot be read
// whole counts as no bytes.
bool read_regular(const char* path, owned_memory<u8>& data, std::size_t& size);
// Makes a file that was not there: its owner may write it, and those read it who may list and enter
// its directory.
owned_file create_file(const char* path);
