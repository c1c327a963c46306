/* Converts a stream with the C interface alone: plain_c FROM TO <input >output
 * The charset directory is PVZAN_CHARSET_DIR, or PVZAN_DEFAULT_CHARSET_DIR of the build.
 */
#include <pvzan.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static unsigned char in[65536], out[65536];

static void flush_output(pvzan_session* s) {
    fwrite(out, 1, (size_t)s->outPos, stdout);
    s->outPos = 0;
}

int main(int argc, char** argv) {
    const char* directory = getenv("PVZAN_CHARSET_DIR");
    pvzan_target_options target = {.dstBigEndian = 1};
    pvzan_source_options source = {.srcBigEndian = 1, .srcCheckBom = 0};
    pvzan_session* s = calloc(1, sizeof *s);
    size_t kept = 0, got;
    int faults = 0;

    my_init();
    ZAN_setCharsetPath(directory ? directory : PVZAN_DEFAULT_CHARSET_DIR);
    if (!s || argc != 3 || cconvInitConvert(s, &target, argv[2]) != PVZAN_DONE ||
        cconvChgCharset(s, &source, argv[1]) != PVZAN_DONE)
        return 2;
    s->inBuf = in, s->outBuf = out, s->outLen = sizeof out;
    while ((got = fread(in + kept, 1, sizeof in - kept, stdin)) > 0) {
        s->inPos = 0, s->inLen = (int32_t)(kept + got);
        for (;;) {
            const int32_t before = s->inPos;
            const uint32_t status = cconvConvert(s);
            if (status == PVZAN_DONE || status == PVZAN_INPUT_INCOMPLETE)
                break;
            if (status == PVZAN_OUTPUT_FULL) {
                flush_output(s);
                continue;
            }
            faults++; /* invalid or missing in the target: dropped */
            if (status == PVZAN_INVALID_INPUT && s->inPos == before)
                s->inPos++;
        }
        kept = (size_t)(s->inLen - s->inPos);
        memmove(in, in + s->inPos, kept); /* the beginning of a cut character */
    }
    while (cconvTermConvert(s) == PVZAN_OUTPUT_FULL)
        flush_output(s);
    flush_output(s);
    free(s);
    return faults > 0 || kept > 0;
}
