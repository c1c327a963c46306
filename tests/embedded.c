/* embedded DIRECTORY CHARSET...: writes every scalar in every charset, and what it reads back as.
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
    int size = 0;
    if (count < 2 || (strcmp(arguments[1], "-") != 0 && !ZAN_setCharsetPath(arguments[1])))
        return 2;
    for (unsigned c = 0x20; c < 0x30000; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF)
            continue;
        if (c >= 0x10000)
            utf8[size++] = (unsigned char)(0xF0 | c >> 18);
        if (c >= 0x800)
            utf8[size++] = (unsigned char)((c >= 0x10000 ? 0x80 : 0xE0) | (c >> 12 & 0x3F));
        if (c >= 0x80)
            utf8[size++] = (unsigned char)((c >= 0x800 ? 0x80 : 0xC0) | (c >> 6 & 0x3F));
        utf8[size++] = (unsigned char)(c >= 0x80 ? 0x80 | (c & 0x3F) : c);
    }
    for (int i = 2; i < count; ++i) {
        const int written = convert("utf-8", arguments[i], utf8, size, there);
        if (written < 0 || convert(arguments[i], "utf-8", there, written, back) < 0) {
            fprintf(stderr, "%s cannot be converted\n", arguments[i]);
            return 1;
        }
    }
    return 0;
}
