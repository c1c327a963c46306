// The formatting library, compiled once; in its header-only form every file of the tool would compile it again.
#include <fmt/format-inl.h>
