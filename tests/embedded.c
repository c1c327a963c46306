/* embedded DIRECTORY CHARSET...: writes a UTF-8 text in every charset, and what it reads back as.
 * "-" is the directory that the program has inside. */
#include "pvzan.h"

#include <stdio.h>
#include <string.h>

enum { ROOM = 1 << 22 };
static unsigned char utf8[ROOM], there[ROOM], back[ROOM];

static int convert(const char* from, const char* to, unsigned char* in, int size,
                   unsigned char* out) {
    static pvzan_session s;
    const pvzan_target_options target = {.useSubstitute = 1};
    const pvzan_source_options source = {.skipInvalid = 1};
    if (cconvInitConvert(&s, &target, to) != PVZAN_DONE ||
        cconvChgCharset(&s, &source, from) != PVZAN_DONE)
        return -1;
    s.inBuf = in;
    s.inLen = size;
    s.outBuf = out;
    s.outLen = ROOM;
    if (cconvConvert(&s) != PVZAN_DONE || cconvTermConvert(&s) != PVZAN_DONE)
        return -1;
    return (int)fwrite(out, 1, (size_t)s.outPos, stdout);
}

int main(int count, char** arguments) {
    int size;
    if (count < 2 || (strcmp(arguments[1], "-") != 0 && !ZAN_setCharsetPath(arguments[1])))
        return 2;
    size = (int)fread(utf8, 1, ROOM, stdin);
    for (int i = 2; i < count; ++i) {
        const int written = convert("utf-8", arguments[i], utf8, size, there);
        if (written < 0 || convert(arguments[i], "utf-8", there, written, back) < 0) {
            fprintf(stderr, "%s cannot be converted\n", arguments[i]);
            return 1;
        }
    }
    return 0;
}
