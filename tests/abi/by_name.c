/* A program that knows the library by its file name and its symbols only: by_name LIBRARY CHARSETS
 */
#include "pvzan.h"

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

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

int main(int count, char** arguments) {
    /* "A", two kanji, a half-width katakana, a byte that is no character, a line break */
    static const unsigned char text[] = {'A', 0x88, 0x9F, 0xEA, 0xA4, 0xB1, 0xA0, '\r', '\n'};
    static const unsigned char expected[] = {'A',  0xE4, 0xBA, 0x9C, 0xE7, 0x86,
                                             0x99, 0xEF, 0xBD, 0xB1, '\n'};
    unsigned char result[64];
    unsigned char out[3];
    size_t length = 0;
    unsigned faults = 0;
    uint32_t status;
    pvzan_target_options target;
    pvzan_source_options source = {1, 0, 0};
    pvzan_session* session = calloc(1, sizeof *session);
    void* library = count == 3 ? dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL) : 0;

    if (!library || !session) {
        fprintf(stderr, "cannot load the library: %s\n", count == 3 ? dlerror() : "arguments");
        return 1;
    }
    FIND(my_init)
    FIND(my_fini)
    FIND(ZAN_setCharsetPath)
    FIND(cconvInitConvert)
    FIND(cconvChgCharset)
    FIND(cconvConvert)
    FIND(cconvTermConvert)

    memset(&target, 0, sizeof target);
    target.convertNewline = 1;
    target.newlineMode = PVZAN_NEWLINE_LF;
    calls.my_init();
    if (!calls.ZAN_setCharsetPath(arguments[2]) ||
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
    free(session);
    /* No dlclose: to a leak checker, the definitions the library keeps for good would be lost. */
    return 0;
}
