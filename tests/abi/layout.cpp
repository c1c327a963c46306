// All records of the binary interface, as the library itself sees them.
#include "tests/abi/layout.h"
#include "cconv/definition/document.h"
#include "cconv/engine/engine.h"
#include "cconv/registry/names.h"
#include "cconv/registry/registry.h"
#include "cconv/tables/table.h"
#include "platform/platform.h"

#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wzero-as-null-pointer-constant"
#include "tests/abi/internal_layout.inc"
#include "tests/abi/public_layout.inc"
