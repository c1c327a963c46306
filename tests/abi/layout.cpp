// All records of the binary interface, as the library itself sees them.
#include "tests/abi/layout.h"
#include "cconv/document.h"
#include "cconv/engine.h"
#include "cconv/lifecycle.h"
#include "cconv/names.h"
#include "cconv/registry.h"
#include "cconv/table.h"
#include "platform/platform.h"

#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wzero-as-null-pointer-constant"
#include "tests/abi/internal_layout.inc"
#include "tests/abi/public_layout.inc"
