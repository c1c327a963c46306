/* A program of somebody else's, with functions that happen to be named like some inside the
 * library: consumer CHARSET-DIRECTORY */
#include <pvzan.h>
#include <pvzan_text.h>
#include <stdlib.h>
#include <string.h>

#define MINE(name)                                                                                 \
    void name(void);                                                                               \
    void name(void) {                                                                              \
        abort();                                                                                   \
    }
MINE(addArray)
MINE(convDstConvert)
MINE(convSrcConvert)
MINE(destUTF_8)
MINE(hex32)
MINE(initArray)
MINE(loadTableFile)
MINE(openDir)
MINE(putCode)
MINE(readFIO)
MINE(splitPath)
MINE(xmlReadFile)

int main(int count, char** arguments) {
    static const unsigned char text[] = {0x88, 0x9F, 0x82, 0xA0};
    static const unsigned char expected[] = {0xE4, 0xBA, 0x9C, 0xE3, 0x81, 0x82};
    unsigned char out[16];
    pvzan_source_options source = {1, 0, 0};
    pvzan_session* s = calloc(1, sizeof *s);
    pvzan_converter* c;
    int right;

    my_init();
    if (!s || count != 2 || !ZAN_setCharsetPath(arguments[1]) ||
        cconvInitConvert(s, NULL, "utf-8") != PVZAN_DONE ||
        cconvChgCharset(s, &source, "shift_jis") != PVZAN_DONE) {
        return 2;
    }
    s->inBuf = text;
    s->inLen = (int32_t)sizeof text;
    s->outBuf = out;
    s->outLen = (int32_t)sizeof out;
    right = cconvConvert(s) == PVZAN_DONE && s->outPos == (int32_t)sizeof expected &&
            memcmp(out, expected, sizeof expected) == 0;
    c = pvzan_open("sjis", "utf-8", NULL, NULL);
    memset(out, 0, sizeof out);
    right = right && c != NULL &&
            pvzan_convert(c, text, sizeof text, out, sizeof out, NULL) == sizeof expected &&
            memcmp(out, expected, sizeof expected) == 0;
    pvzan_close(c);
    my_fini();
    free(s);
    return right ? 0 : 1;
}
