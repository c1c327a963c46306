// Memory services.
#include "platform/platform.h"

#include <cstdlib>

namespace {

// Sizes are signed. A negative one becomes larger than any memory, so that the allocator refuses
// it.
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

// A hook to release the state of an allocator at the end; the system's allocator has none.
void ZAN_memend(void) {}

} // extern "C"
