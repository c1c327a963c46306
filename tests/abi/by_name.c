/* A program that knows the library by its file name and its symbols only, and has no use for it in
 * between: by_name LIBRARY CHARSETS. Names of ours are names of its own, too. */
#include "pvzan.h"
#include "pvzan_text.h"

#include <dlfcn.h>
#include <malloc.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

/* ISO C has no conversion between object and function pointers; POSIX says they are alike. */
#define FIND(call)                                                                                 \
    __typeof__(call)* its_##call;                                                                  \
    void* found_##call = dlsym(library, #call);                                                    \
    memcpy(&its_##call, &found_##call, sizeof found_##call)

static int convert(void* library, const char* charsets) {
    FIND(my_init);
    FIND(my_fini);
    FIND(ZAN_setCharsetPath);
    FIND(pvzan_open);
    FIND(pvzan_convert);
    FIND(pvzan_close);
    static const uint8_t text[] = {'A', 0x88, 0x9F}, expected[] = {'A', 0xE4, 0xBA, 0x9C};
    uint8_t out[8];
    its_my_init();
    its_ZAN_setCharsetPath(charsets);
    pvzan_converter* c = its_pvzan_open("shift_jis", "utf-8", NULL, NULL);
    const size_t size = its_pvzan_convert(c, text, sizeof text, out, sizeof out, NULL);
    its_pvzan_close(c);
    its_my_fini();
    return size == sizeof expected && memcmp(out, expected, size) == 0;
}

/* In use, by the allocator's own account. */
static size_t memory_used(void) {
    struct mallinfo2 all = mallinfo2();
    return all.uordblks + all.hblkhd;
}

int main(int count, char** arguments) {
    size_t before = 0;
    int round, status;
    for (round = 0; round < 10; ++round) {
        void* library = count == 3 ? dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL) : NULL;
        if (!library || !convert(library, arguments[2])) {
            fprintf(stderr, "cannot load the library, or it does not convert\n");
            return 1;
        }
        if (dlclose(library) != 0 || dlopen(arguments[1], RTLD_NOW | RTLD_NOLOAD)) {
            fprintf(stderr, "the library stays\n");
            return 1;
        }
        /* Nothing of it is left to be called. */
        if (fork() == 0) {
            _exit(0);
        }
        if (wait(&status) < 0 || status != 0) {
            fprintf(stderr, "cannot fork without the library: %d\n", status);
            return 1;
        }
        if (round == 1) {
            before = memory_used();
        }
    }
    /* Free blocks that the allocator keeps at hand count as used. */
    if (memory_used() > before + 100000) {
        fprintf(stderr, "%lu bytes are left of 8 rounds\n",
                (unsigned long)(memory_used() - before));
        return 1;
    }
    return 0;
}
