/* A program that knows the library by its file name and its symbols only, and has no use for it in
 * between: by_name LIBRARY CHARSETS */
#include "pvzan.h"

#include <dlfcn.h>
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

/* The library's calls, as found in it. */
#define CALLS(each)                                                                                \
    each(void, my_init, (void)) each(void, my_fini, (void))                                        \
        each(uint32_t, ZAN_setCharsetPath, (const char*))                                          \
            each(uint32_t, cconvInitConvert,                                                       \
                 (pvzan_session*, const pvzan_target_options*, const char*))                       \
                each(uint32_t, cconvChgCharset,                                                    \
                     (pvzan_session*, const pvzan_source_options*, const char*))                   \
                    each(uint32_t, cconvConvert, (pvzan_session*))                                 \
                        each(uint32_t, cconvTermConvert, (pvzan_session*))

/* ISO C has no conversion between object and function pointers; POSIX says they are alike. */
#define DECLARE(result, name, arguments) result(*name) arguments;
#define FIND(result, name, arguments)                                                              \
    found = dlsym(library, #name);                                                                 \
    missing += found == NULL;                                                                      \
    memcpy(&calls.name, &found, sizeof found);

static struct { CALLS(DECLARE) } calls;

static int convert(void* library, const char* charsets) {
    /* "A", two kanji, a half-width katakana, a byte that is no character, a line break */
    static const unsigned char text[] = {'A', 0x88, 0x9F, 0xEA, 0xA4, 0xB1, 0xA0, '\r', '\n'};
    static const char expected[] = "A\xE4\xBA\x9C\xE7\x86\x99\xEF\xBD\xB1\n";
    static pvzan_session cleared, session;
    unsigned char result[64];
    static pvzan_target_options target;
    pvzan_source_options source = {1, 0, 0};
    uint32_t opened, status[3];
    int missing = 0;
    void* found;

    CALLS(FIND)
    if (missing > 0) {
        fprintf(stderr, "%d symbols are missing\n", missing);
        return 1;
    }
    session = cleared;
    target.convertNewline = 1;
    target.newlineMode = PVZAN_NEWLINE_LF;
    calls.my_init();
    opened = calls.ZAN_setCharsetPath(charsets) &&
             calls.cconvInitConvert(&session, &target, "UTF-8") == PVZAN_DONE &&
             calls.cconvChgCharset(&session, &source, "Shift_JIS") == PVZAN_DONE;
    session.inBuf = text;
    session.inLen = (int32_t)sizeof text;
    session.outBuf = result;
    session.outLen = (int32_t)sizeof result;
    status[0] = calls.cconvConvert(&session);
    status[1] = calls.cconvConvert(&session);
    status[2] = calls.cconvTermConvert(&session);
    calls.my_fini();
    if (!opened || status[0] != PVZAN_INVALID_INPUT || status[1] != PVZAN_DONE ||
        status[2] != PVZAN_DONE || session.outPos != (int32_t)sizeof expected - 1 ||
        memcmp(result, expected, sizeof expected - 1) != 0 || session.inCount != 6) {
        fprintf(stderr, "opened %u, status %u %u %u, %d bytes, %u characters\n", (unsigned)opened,
                (unsigned)status[0], (unsigned)status[1], (unsigned)status[2], (int)session.outPos,
                (unsigned)session.inCount);
        return 1;
    }
    return 0;
}

/* In use, by the allocator's own account. */
static size_t memory_used(void) {
    struct mallinfo2 all = mallinfo2();
    return all.uordblks + all.hblkhd;
}

int main(int count, char** arguments) {
    size_t before = 0;
    int round, status;
    pid_t child;

    for (round = 0; round < 10; ++round) {
        void* library = count == 3 ? dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL) : 0;
        if (!library) {
            fprintf(stderr, "cannot load the library: %s\n", count == 3 ? dlerror() : "arguments");
            return 1;
        }
        if (convert(library, arguments[2]) != 0) {
            return 1;
        }
        if (dlclose(library) != 0 || dlopen(arguments[1], RTLD_NOW | RTLD_NOLOAD)) {
            fprintf(stderr, "the library stays\n");
            return 1;
        }
        /* Nothing of it is left to be called. */
        child = fork();
        if (child == 0) {
            _exit(0);
        }
        if (waitpid(child, &status, 0) != child || status != 0) {
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
