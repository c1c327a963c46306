/* The public header needs no other, and may be included twice. */
#include "pvzan.h"

int header_alone(pvzan_session* session);
int header_alone(pvzan_session* session) {
    return session != 0 && session->status == PVZAN_DONE;
}
