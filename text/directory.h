// Finds the charset directory.
#pragma once

#include "pvzan_text.h"

namespace text {

// Chooses the directory unless that was done, and reads the definitions. False, with an error
// unless that is null, if there are none.
bool settle_directory(pvzan_error* error);

// Fills in the caller's error record, which may be null.
void tell(pvzan_error* error, int32_t code, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

} // namespace text
