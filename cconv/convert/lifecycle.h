// Start and end of the library, and the one-time loading of definitions.
#pragma once

#include "cconv/registry/registry.h"

#include <span>

extern "C" {
PVZAN_API void startProcess(void);
PVZAN_API void endProcess(void);
// Takes a reference on the registry, made with the first one: 1 ready, 0 failed.
PVZAN_API u32 initProcess(void);
// Gives one back; the last one destroys the registry.
PVZAN_API void termProcess(void);
}

// The charset of that name; null when there is none. A further one is read now, unless that was
// done; one that cannot be read is looked for again the next time.
charset_group* find_charset(const char* name);

// The names of the further charsets that there are files of, in order; read on the first call and
// kept for the process, as the other definitions are. Those added later can be asked for.
std::span<char* const> further_names();

// Whether the charset directory has been read. Before that, and while memory or descriptors do not
// suffice for it, there are no charsets.
bool definitions_settled();
