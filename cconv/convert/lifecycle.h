// Start and end of the library, and the one-time loading of definitions.
#pragma once

#include "platform/base.h"

extern "C" {
PVZAN_API void startProcess(void);
PVZAN_API void endProcess(void);
// Takes a reference on the registry, made with the first one: 1 ready, 0 failed.
PVZAN_API u32 initProcess(void);
// Gives one back; the last one destroys the registry.
PVZAN_API void termProcess(void);
}

// Whether the charset directory has been read. Before that, and while memory or descriptors do not
// suffice for it, there are no charsets.
bool definitions_settled();
