/* The public headers need no other, and may be included twice. */
#include "pvzan_text.h"

#include "pvzan.h"

int header_alone(pvzan_session* session, pvzan_fault* fault);
int header_alone(pvzan_session* session, pvzan_fault* fault) {
    return session != 0 && session->status == PVZAN_DONE && fault->kind == PVZAN_FAULT_CUT;
}
