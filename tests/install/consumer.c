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
MINE(convDstConvert)
MINE(destUTF_8)
MINE(initArray)
MINE(loadTableFile)
MINE(openDir)
MINE(putCode)
MINE(xmlReadFile)

int main(int count, char** arguments) {
    static const unsigned char text[] = {0x88, 0x9F, 0x82, 0xA0};
    static const unsigned char expected[] = {0xE4, 0xBA, 0x9C, 0xE3, 0x81, 0x82};
    unsigned char out[16];
    pvzan_converter* c = NULL;
    int right;

    if (count == 2 && ZAN_setCharsetPath(arguments[1])) {
        c = pvzan_open("sjis", "utf-8", NULL, NULL);
    }
    right = c != NULL &&
            pvzan_convert(c, text, sizeof text, out, sizeof out, NULL) == sizeof expected &&
            memcmp(out, expected, sizeof expected) == 0;
    pvzan_close(c);
    return right ? 0 : 1;
}
