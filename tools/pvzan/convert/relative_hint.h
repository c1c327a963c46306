// Hints at the charset that a text is in, where that is a relative of the one it is read in.
#pragma once

#include "tools/pvzan/directory/charset.h"

namespace tool {

// For a problem whose fault names a relative.
std::string relative_hint(const pvzan_fault& fault);

// For text that is read without a problem, and has control codes of the upper half, as hardly any
// text: what they are, and what a relative reads in place of them. Empty: there is nothing to say.
std::string control_hint(bytes_view text, const pvzan_name& from);

} // namespace tool
