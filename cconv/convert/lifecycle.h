// Start and end of the library, and loading of definitions.
#pragma once

#include "cconv/registry/registry.h"

#include <span>

extern "C" {
PVZAN_API void startProcess(void);
PVZAN_API void endProcess(void);
// Takes a reference to the registry, which is created with the first one: 1 ready, 0 failed.
PVZAN_API u32 initProcess(void);
// Gives back a reference; the last one destroys the registry.
PVZAN_API void termProcess(void);
}

// The charset of that name, or null. A further one is read now, unless it has been read before; one
// that cannot be read is tried again the next time.
charset_group* find_charset(const char* name);

// The names of all further charsets that have a file, in order. They are read on the first call and
// kept for the process. Charsets added later can still be opened by name.
std::span<char* const> further_names();

// Whether the charset directory has been read. Before that, and while there is not enough memory or
// file descriptors for it, there are no charsets.
bool definitions_settled();
