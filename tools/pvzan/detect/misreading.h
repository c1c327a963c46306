// Text that was read with a wrong charset and saved as UTF-8.
#pragma once

#include "tools/pvzan/detect/line_breaks.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace tool {

std::optional<pvzan_misreading> find_misreading(bytes_view text);

// The same, by the beginning of a file; nothing for pipes and the like.
std::optional<pvzan_misreading> find_misreading(int descriptor);

// As far as there is an exact way back, line by line.
std::vector<std::uint8_t> undo_misreading(const pvzan_misreading& misreading, bytes_view text);

} // namespace tool
