// Memory services.
#include "platform/platform.h"

#include <cerrno>
#include <cstdlib>

namespace {

// Sizes are signed; a negative one widens to more than any memory and so is refused by the
// allocator.
std::size_t widen(i32 size) {
    return static_cast<std::size_t>(static_cast<i64>(size));
}

// Nothing asked for, and more than there can be, is no lack of memory.
void* counted(void* memory, i32 size) {
    if (memory == nullptr && size > 0) {
        note_resource_failure(ENOMEM);
    }
    return memory;
}

} // namespace

extern "C" {

void* ZAN_malloc(i32 size) {
    return counted(std::malloc(widen(size)), size);
}
void ZAN_free(void* memory) {
    std::free(memory);
}
void* ZAN_realloc(void* memory, i32 size) {
    return counted(std::realloc(memory, widen(size)), size);
}
void* ZAN_calloc(i32 count, i32 size) {
    return counted(std::calloc(widen(count), widen(size)), count > 0 ? size : 0);
}

// The hook for giving allocator state back at the end; the system's allocator has none.
void ZAN_memend(void) {}

} // extern "C"
