// The charset directory, and the lock for everything that is read from it.
#pragma once

#include "platform/base.h"
#include "platform/lock.h"

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

// Holds the table lock during a scope.
struct table_lock : held_lock {
    table_lock() : held_lock(zan_tablemutex) {}
};

// Like getCharsetPath, for callers that hold the table lock.
char* charset_path_locked(char* buffer, u32 size);
