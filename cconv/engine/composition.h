// Letters with marks after them, such as か and U+3099, for charsets that lack such marks but have
// the canonically equivalent character が.
#pragma once

#include "platform/base.h"

// The character that a letter and the mark after it make; 0 if no charset here has it but those
// with all of Unicode.
u32 compose(u32 letter, u32 mark);

bool takes_composing_mark(u32 letter);
