// Memory services.
#include "platform/platform.h"

#include <cstdlib>

namespace {

// Sizes are signed; a negative one widens to more than any memory and so is refused by the
// allocator.
std::size_t widen(i32 size) {
    return static_cast<std::size_t>(static_cast<i64>(size));
}

} // namespace

extern "C" {

void* ZAN_malloc(i32 size) {
    return std::malloc(widen(size));
}
void ZAN_free(void* memory) {
    std::free(memory);
}
void* ZAN_realloc(void* memory, i32 size) {
    return std::realloc(memory, widen(size));
}
void* ZAN_calloc(i32 count, i32 size) {
    return std::calloc(widen(count), widen(size));
}

// The hook for giving allocator state back at the end; the system's allocator has none.
void ZAN_memend(void) {}

} // extern "C"
