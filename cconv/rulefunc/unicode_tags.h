// Language tags in Unicode text (RFC 2482): U+E0001, then the tag's letters as U+E0020-E007E.
// U+E007F cancels.
#pragma once

#include "cconv/rulefunc/rules.h"

inline constexpr u32 language_tag = 0xE0001;
inline constexpr u32 cancel_tag = 0xE007F;
inline constexpr u32 first_tag_character = 0xE0020;
inline constexpr u32 tag_character_base = 0xE0000;
