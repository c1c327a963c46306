// Letters with marks behind them, か and U+3099, for charsets that have no such marks: the
// character が is canonically the same, and they have it.
#pragma once

#include "platform/base.h"

// The character that a letter and the mark behind it make; 0: none that a charset here has without
// having all of Unicode.
u32 compose(u32 letter, u32 mark);

bool takes_composing_mark(u32 letter);
