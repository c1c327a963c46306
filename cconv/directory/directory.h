// The charset directory, and the lock of everything that is read from it.
#pragma once

#include "platform/base.h"

#include <pthread.h>

extern "C" {
// Guards the charset directory, the loading of definitions and of every table. Not recursive.
PVZAN_API extern pthread_mutex_t zan_tablemutex;
PVZAN_API extern char m_charsetpath[text_bytes];

// The charset directory with a final "/"; settles the default first. Null, and an empty buffer,
// when size is too small; null for a null buffer.
PVZAN_API char* getCharsetPath(char* buffer, u32 size);
}

// The folder of the charset directory whose definitions are only read when somebody asks for their
// charset by its name: further/NAME.xml, in lower case.
inline constexpr char further_folder[] = "further/";
// Where the definition of such a charset would be; false where no file can be called like that.
bool further_path(const char* name, char (&path)[text_bytes]);
// Whether it is the path of a file in that folder, from the charset directory on.
bool is_further_path(const char* path);

// Puts pthread_cancel off for a scope: reading files is where it acts, and a thread that ended
// there would leave the lock taken for ever.
class cancel_delay {
public:
    cancel_delay() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~cancel_delay() { pthread_setcancelstate(before_, nullptr); }
    cancel_delay(const cancel_delay&) = delete;
    cancel_delay& operator=(const cancel_delay&) = delete;

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

// Holds the table lock for a scope, where it could be taken.
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

// getCharsetPath for callers that hold the table lock.
char* charset_path_locked(char* buffer, u32 size);
