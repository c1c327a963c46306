// The charset directory, and the lock for everything that is read from it.
#pragma once

#include "platform/base.h"

#include <pthread.h>

extern "C" {
// Guards the charset directory, the loading of definitions and of every table. Not recursive.
PVZAN_API extern pthread_mutex_t zan_tablemutex;
PVZAN_API extern char m_charsetpath[text_bytes];

// The charset directory with a "/" at the end; chooses the default if none was set. Null, with an
// empty buffer, if size is too small; null for a null buffer.
PVZAN_API char* getCharsetPath(char* buffer, u32 size);
}

// The folder of the charset directory whose definitions are read only when their charset is opened:
// further/NAME.xml, in lower case.
inline constexpr char further_folder[] = "further/";
// The path of the definition of such a charset; false if no file can have this name.
bool further_path(const char* name, char (&path)[text_bytes]);
// Whether this is the path of a file in that folder, relative to the charset directory.
bool is_further_path(const char* path);

// Delays pthread_cancel during a scope: it would act while files are read, and the lock would never
// be released.
class cancel_delay {
public:
    cancel_delay() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~cancel_delay() { pthread_setcancelstate(before_, nullptr); }
    cancel_delay(const cancel_delay&) = delete;
    cancel_delay& operator=(const cancel_delay&) = delete;

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

// Holds the table lock during a scope, if it could be taken.
class table_lock {
public:
    table_lock() : held_(pthread_mutex_lock(&zan_tablemutex) == 0) {}
    ~table_lock() {
        if (held_) {
            pthread_mutex_unlock(&zan_tablemutex);
        }
    }
    table_lock(const table_lock&) = delete;
    table_lock& operator=(const table_lock&) = delete;

private:
    cancel_delay uninterrupted_; // before the lock is taken
    bool held_;
};

// Like getCharsetPath, for callers that hold the table lock.
char* charset_path_locked(char* buffer, u32 size);
