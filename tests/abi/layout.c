/* The public records as C programs see them. */
#include "pvzan.h"

#include "layout.h"

#include "public_layout.inc"

int layout_of_public_records_in_c(void);
int layout_of_public_records_in_c(void) {
    return 0;
}
