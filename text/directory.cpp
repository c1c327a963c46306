// Finds the charset directory, once per process.
#include "text/directory.h"

#include "cconv/convert/lifecycle.h"
#include "cconv/directory/directory.h"
#include "cconv/directory/embedded.h"
#include "platform/platform.h"
#include "text/record.h"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

namespace text {

namespace {

bool is_directory(const char* path) {
    struct stat found = {};
    return ::stat(path, &found) == 0 && S_ISDIR(found.st_mode);
}

// The environment is ignored in a program that runs with another user's rights.
const char* trusted_variable(const char* name) {
#ifdef __GLIBC__
    return ::secure_getenv(name);
#else
    return ::getuid() == ::geteuid() && ::getgid() == ::getegid() ? std::getenv(name) : nullptr;
#endif
}

bool cut_last_part(char* path) {
    char* const slash = std::strrchr(path, '/');
    if (slash == nullptr) {
        return false;
    }
    *slash = '\0';
    return true;
}

// The directory of the loaded library, or of the program that contains it, with links resolved. A
// variable is used to find it, since the address of a function may be the program's own.
bool own_directory(char (&path)[PATH_MAX]) {
    Dl_info info = {};
    return ::dladdr(&m_charsetpath, &info) != 0 && info.dli_fname != nullptr &&
           ::realpath(info.dli_fname, path) != nullptr && cut_last_part(path);
}

// The first of the usual places that exists.
bool find_directory(char (&path)[PATH_MAX]) {
    char own[PATH_MAX];
    const char* const variable = trusted_variable("PVZAN_CHARSET_DIR");
    if (variable != nullptr && is_directory(variable)) {
        path[0] = '\0';
        return append_text(path, variable);
    }
    if (!embedded_files.empty()) {
        copy_text(path, embedded_directory);
        return true;
    }
    bool has_own = own_directory(own);
    for (const char* const below : {"/pvzan/base2", "/base2"}) {
        path[0] = '\0';
        if (has_own && append_text(path, own) && append_text(path, below) && is_directory(path)) {
            return true;
        }
        has_own = has_own && cut_last_part(own);
    }
    copy_text(path, PVZAN_INSTALLED_CHARSET_DIR);
    return is_directory(path);
}

bool is_chosen() {
    const table_lock lock;
    return m_charsetpath[0] != '\0';
}

} // namespace

void tell(pvzan_error* error, int32_t code, const char* format, ...) {
    if (!is_record(error)) {
        return;
    }
    pvzan_error told = {};
    told.code = code;
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(told.text, sizeof told.text, format, arguments);
    va_end(arguments);
    fill_record(*error, told);
}

bool settle_directory(pvzan_error* error) {
    char path[PATH_MAX];
    if (!definitions_settled() && !is_chosen()) {
        if (!find_directory(path)) {
            tell(error, PVZAN_ERROR_NO_DIRECTORY,
                 "found no charset directory, neither beside the library nor in %s; "
                 "set PVZAN_CHARSET_DIR to one",
                 PVZAN_INSTALLED_CHARSET_DIR);
            return false;
        }
        ZAN_setCharsetPath(path); // unless another thread was first
    }
    if (cconvLoadRule() == 0) {
        tell(error, PVZAN_ERROR_NO_DIRECTORY, "%s: no charset definitions in this directory",
             ZAN_getCharsetPath());
        return false;
    }
    return true;
}

} // namespace text

using namespace text;

extern "C" {

int32_t pvzan_set_directory(const char* path, pvzan_error* error) {
    if (path == nullptr || !is_directory(path)) {
        tell(error, PVZAN_ERROR_NO_DIRECTORY, "%s: no such directory", path != nullptr ? path : "");
        return 0;
    }
    if (ZAN_setCharsetPath(path) == 0 && std::strcmp(path, ZAN_getCharsetPath()) != 0) {
        tell(error, PVZAN_ERROR_TOO_LATE, "the charset directory has already been chosen: %s",
             ZAN_getCharsetPath());
        return 0;
    }
    return settle_directory(error) ? 1 : 0;
}

size_t pvzan_directory(char* path, size_t room) {
    if (!settle_directory(nullptr)) {
        return 0;
    }
    const char* const found = ZAN_getCharsetPath();
    const size_t length = std::strlen(found);
    if (path != nullptr && length < room) {
        std::memcpy(path, found, length + 1);
    }
    return length;
}

} // extern "C"
