// cconvConvert without its fast path.
#pragma once

#include "pvzan.h"

extern "C" uint32_t rules_alone_convert(pvzan_session* s);
