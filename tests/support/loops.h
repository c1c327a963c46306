/* What the loops that the headers show are compiled and called with. */
#pragma once

#include "pvzan.h"
#include "pvzan_text.h"

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif
int convert_file(FILE* source, FILE* target, const char* from, const char* to);
int convert_session(const char* from, const char* to);
size_t need_input(unsigned char* in, size_t size);
void take_output(const unsigned char* out, int32_t size);
#ifdef __cplusplus
}
#endif

#ifdef LOOP_OF_pvzan
#define convert_stream convert_session
#else
#define convert_stream convert_file
#endif
