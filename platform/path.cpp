// Splitting and joining paths, and listing directories.
#include "platform/platform.h"

#include <algorithm>
#include <dirent.h>
#include <fnmatch.h>
#include <string_view>

namespace {

// The index of the last c, or npos. If the text ends with c, the result is npos even if c occurs
// before, deliberately: a path that ends in a delimiter has no file name.
std::size_t last_of(std::string_view text, char c) {
    const std::size_t last = text.rfind(c);
    const bool ends_text = last != text.npos && last + 1 == text.size();
    return ends_text && text.find(c) != last ? text.npos : last;
}

void store_part(char (&out)[text_bytes], std::string_view text) {
    const std::size_t length = text.size() < text_bytes ? text.size() : text_bytes - 1;
    std::memcpy(out, text.data(), length);
    out[length] = '\0';
}

} // namespace

extern "C" {

char* _right(char* text, char c) {
    if (c == '\0') {
        return nullptr;
    }
    const std::size_t last = last_of(text, c);
    return last != std::string_view::npos ? text + last : nullptr;
}

void splitPath(const char* path, split_path* parts) {
    *parts = {};
    std::string_view rest = path;
    if (rest.starts_with('/')) {
        store_part(parts->root, "/");
        rest.remove_prefix(1);
    }
    const std::size_t slash = last_of(rest, '/');
    if (slash != rest.npos) {
        store_part(parts->directory, {rest.data(), slash + 1});
        rest.remove_prefix(slash + 1);
    }
    const std::size_t dot = last_of(rest, '.');
    if (dot != rest.npos && dot != 0) {
        store_part(parts->baseName, {rest.data(), dot});
        rest.remove_prefix(dot);
    }
    // A name without a usable "." is stored here completely, deliberately: callers only join the
    // two parts again.
    store_part(parts->extension, rest);
}

void mergePath(char* out, const split_path* parts) {
    std::size_t length = 0;
    for (const char* part : {parts->root, parts->directory, parts->baseName, parts->extension}) {
        const std::size_t n = ::strnlen(part, text_bytes - 1 - length);
        std::memcpy(out + length, part, n);
        length += n;
    }
    out[length] = '\0';
}

i32 ZAN_nextPathDelimiter(const char* text) {
    if (text[0] == '\0' || text[0] == '/') {
        return 0;
    }
    i32 index = 1;
    while (text[index] != '\0' && text[index] != '/') {
        ++index;
    }
    return index;
}

// This system has no drive letters.
i32 ZAN_nextDrivePathDelimiter(const char* text) {
    return ZAN_nextPathDelimiter(text);
}

i32 ZAN_getPathBreak(const char* text) {
    const i32 length = static_cast<i32>(std::strlen(text));
    i32 last = 0;
    for (i32 index = 0;;) {
        index += ZAN_nextPathDelimiter(text + index);
        if (index >= length) {
            return last;
        }
        last = index++;
    }
}

// Lets glob continue after errors.
i32 errorfn(const char*, i32) {
    return 0;
}

// If nothing matches, or the directory cannot be read, the list is empty; glob's result can be
// released in both cases.
u32 ZAN_ASC_opendir(const char* pattern, listing_state* state) {
    *state = {};
    return ::glob(pattern, 0, errorfn, &state->matches) != GLOB_NOSPACE;
}

u32 ZAN_ASC_readdir(listing_state* state, listing_entry* entry) {
    if (state->next >= state->matches.gl_pathc) {
        return 0;
    }
    copy_text(entry->path, state->matches.gl_pathv[state->next++]);
    return 1;
}

void ZAN_ASC_closedir(listing_state* state) {
    ::globfree(&state->matches);
}

u32 openDir(const char* pattern, directory_listing* listing) {
    splitPath(pattern, &listing->parts);
    return ZAN_ASC_opendir(pattern, &listing->state);
}

u32 readDir(directory_listing* listing) {
    if (ZAN_ASC_readdir(&listing->state, &listing->entry) == 0) {
        return 0;
    }
    split_path entry;
    splitPath(listing->entry.path, &entry);
    copy_text(listing->parts.baseName, entry.baseName);
    copy_text(listing->parts.extension, entry.extension);
    return 1;
}

void closeDir(directory_listing* listing) {
    ZAN_ASC_closedir(&listing->state);
}

} // extern "C"

file_names::file_names(const char* directory, const char* pattern) {
    DIR* open = ::opendir(directory);
    if (open == nullptr) {
        return;
    }
    for (const dirent* entry = ::readdir(open); entry != nullptr; entry = ::readdir(open)) {
        if (::fnmatch(pattern, entry->d_name, FNM_PERIOD) == 0 && !add(entry->d_name)) {
            break;
        }
    }
    ::closedir(open);
    sort();
}

void file_names::sort() {
    std::sort(names_, names_ + count_,
              [](const char* a, const char* b) { return std::strcmp(a, b) < 0; });
}

file_names::~file_names() {
    for (char* name : all()) {
        ZAN_free(name);
    }
    ZAN_free(names_);
}

bool file_names::add(std::string_view name) {
    if (count_ == room_) {
        const std::size_t room = room_ != 0 ? 2 * room_ : 16;
        auto** names =
            static_cast<char**>(ZAN_realloc(names_, static_cast<i32>(room * sizeof(char*))));
        if (names == nullptr) {
            return false;
        }
        names_ = names;
        room_ = room;
    }
    auto* copy = static_cast<char*>(ZAN_malloc(static_cast<i32>(name.size() + 1)));
    if (copy == nullptr) {
        return false;
    }
    std::memcpy(copy, name.data(), name.size());
    copy[name.size()] = '\0';
    names_[count_++] = copy;
    return true;
}
