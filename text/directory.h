// Where the charset directory lies.
#pragma once

#include "pvzan_text.h"

namespace text {

// Settles it, unless that was done, and reads the definitions. False where there are none; error,
// unless null, says so then.
bool settle_directory(pvzan_error* error);

// Fills in an error record that the caller gave; null is fine.
void tell(pvzan_error* error, int32_t code, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

} // namespace text
