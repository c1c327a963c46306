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
static struct {
    void (*my_init)(void);
    void (*my_fini)(void);
    uint32_t (*ZAN_setCharsetPath)(const char*);
    uint32_t (*cconvInitConvert)(pvzan_session*, const pvzan_target_options*, const char*);
    uint32_t (*cconvChgCharset)(pvzan_session*, const pvzan_source_options*, const char*);
    uint32_t (*cconvConvert)(pvzan_session*);
    uint32_t (*cconvTermConvert)(pvzan_session*);
} calls;

/* ISO C has no conversion between object and function pointers; POSIX says they are alike. */
#define FIND(name)                                                                                 \
    {                                                                                              \
        void* found = dlsym(library, #name);                                                       \
        if (!found) {                                                                              \
            fprintf(stderr, "no symbol " #name "\n");                                              \
            return 1;                                                                              \
        }                                                                                          \
        memcpy(&calls.name, &found, sizeof found);                                                 \
    }

static int convert(void* library, const char* charsets) {
    /* "A", two kanji, a half-width katakana, a byte that is no character, a line break */
    static const unsigned char text[] = {'A', 0x88, 0x9F, 0xEA, 0xA4, 0xB1, 0xA0, '\r', '\n'};
    static const unsigned char expected[] = {'A',  0xE4, 0xBA, 0x9C, 0xE7, 0x86,
                                             0x99, 0xEF, 0xBD, 0xB1, '\n'};
    static pvzan_session cleared, session_of_all_rounds;
    pvzan_session* session = &session_of_all_rounds;
    unsigned char result[64];
    unsigned char out[3];
    size_t length = 0;
    unsigned faults = 0;
    uint32_t status;
    pvzan_target_options target;
    pvzan_source_options source = {1, 0, 0};

    FIND(my_init)
    FIND(my_fini)
    FIND(ZAN_setCharsetPath)
    FIND(cconvInitConvert)
    FIND(cconvChgCharset)
    FIND(cconvConvert)
    FIND(cconvTermConvert)

    *session = cleared;
    memset(&target, 0, sizeof target);
    target.convertNewline = 1;
    target.newlineMode = PVZAN_NEWLINE_LF;
    calls.my_init();
    if (!calls.ZAN_setCharsetPath(charsets) ||
        calls.cconvInitConvert(session, &target, "UTF-8") != 0 ||
        calls.cconvChgCharset(session, &source, "Shift_JIS") != 0) {
        fprintf(stderr, "cannot open the conversion\n");
        return 1;
    }
    session->inBuf = text;
    session->inLen = (int32_t)sizeof text;
    session->outBuf = out;
    session->outLen = (int32_t)sizeof out;
    do {
        status = calls.cconvConvert(session);
        if (status == PVZAN_DONE) {
            status = calls.cconvTermConvert(session);
        }
        memcpy(result + length, out, (size_t)session->outPos);
        length += (size_t)session->outPos;
        session->outPos = 0;
        faults += status == PVZAN_INVALID_INPUT;
    } while (status != PVZAN_DONE && length < sizeof result - sizeof out && faults < 2);
    calls.my_fini();

    if (status != PVZAN_DONE || faults != 1 || length != sizeof expected ||
        memcmp(result, expected, length) != 0 || session->inCount != 6) {
        fprintf(stderr, "status %u, %u faults, %u bytes, %u characters\n", (unsigned)status, faults,
                (unsigned)length, (unsigned)session->inCount);
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
