// The path of the charset directory.
#include "cconv/directory/directory.h"

#include "cconv/directory/embedded.h"

namespace {

const char* default_directory() {
    return embedded_files.empty() ? "./base2/" : embedded_directory;
}

u32 store_directory(const char* path) {
    if (m_charsetpath[0] != '\0') {
        return 0; // it can be set only once
    }
    copy_text(m_charsetpath, path);
    return 1;
}

// size is the size of the buffer; 0 or 1 mean that it is known to be large enough, deliberately.
char* copy_directory(char* buffer, u32 size) {
    const u32 length = static_cast<u32>(std::strlen(m_charsetpath));
    if (length >= size - 2) {
        if (buffer != nullptr) {
            buffer[0] = '\0';
        }
        return nullptr;
    }
    if (buffer == nullptr) {
        return nullptr;
    }
    std::memcpy(buffer, m_charsetpath, length + 1);
    if (length > 0 && buffer[length - 1] != '/') {
        buffer[length] = '/';
        buffer[length + 1] = '\0';
    }
    return buffer;
}

} // namespace

extern "C" {

pthread_mutex_t zan_tablemutex;
char m_charsetpath[text_bytes];

u32 ZAN_setCharsetPath(const char* path) {
    if (path == nullptr || *path == '\0') {
        return 0;
    }
    const table_lock lock;
    return store_directory(path);
}

char* ZAN_getCharsetPath(void) {
    return m_charsetpath;
}

char* getCharsetPath(char* buffer, u32 size) {
    if (m_charsetpath[0] == '\0') {
        ZAN_setCharsetPath(default_directory());
    }
    return copy_directory(buffer, size);
}

} // extern "C"

bool further_path(const char* name, char (&path)[text_bytes]) {
    constexpr std::size_t longest = 63; // what pvzan_name has room for
    const std::size_t length = ::strnlen(name, longest + 1);
    if (length == 0 || length > longest || name[0] == '.' || std::strchr(name, '/') != nullptr) {
        return false;
    }
    copy_text(path, further_folder);
    append_text(path, name);
    fold_text(path);
    return append_text(path, ".xml");
}

bool is_further_path(const char* path) {
    constexpr std::size_t folder = sizeof further_folder - 1;
    return std::strncmp(path, further_folder, folder) == 0 &&
           std::strchr(path + folder, '/') == nullptr;
}

char* charset_path_locked(char* buffer, u32 size) {
    if (m_charsetpath[0] == '\0') {
        store_directory(default_directory());
    }
    return copy_directory(buffer, size);
}
