/* Turns the rows of a layout list into compile-time checks, in C and in C++. */
#include <stddef.h>

#ifdef __cplusplus
#define LAYOUT_CHECK(condition, text) static_assert(condition, text)
#else
#define LAYOUT_CHECK(condition, text) _Static_assert(condition, text)
#endif

#define LAYOUT_SIZE(record, bytes) LAYOUT_CHECK(sizeof(record) == (bytes), "size of " #record);
#define LAYOUT_FIELD(record, field, offset, bytes)                                                 \
    LAYOUT_CHECK(offsetof(record, field) == (offset), "offset of " #record "." #field);            \
    LAYOUT_CHECK(sizeof(((record*)0)->field) == (bytes), "size of " #record "." #field);
#define LAYOUT_VALUE(name, value) LAYOUT_CHECK((name) == (value), "value of " #name);
