// Combining marks that the library joins with the base letter before them.
#pragma once

#include "tools/pvzan/charset_name.h"

#include <cstdint>
#include <span>

namespace tool {

// The offset of the first such mark behind the start of text, or the length of text. Text is cut
// there for targets without the joined characters, which would get the mark's raw value.
std::size_t find_mark(std::span<const std::uint8_t> text, const charset_name& charset);

// Bytes of the character at the start of text together with such a mark behind it; 0 when there is
// no mark.
std::size_t joined_length(std::span<const std::uint8_t> text, const charset_name& charset);

} // namespace tool
