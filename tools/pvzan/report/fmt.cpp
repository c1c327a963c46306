// The formatting library, compiled once: its header-only form, of which the other files see only
// the declarations.
#define FMT_HEADER_ONLY
#include <fmt/core.h>

namespace tool {
// Taking their addresses is what makes the compiler emit them.
[[gnu::used]] std::string (*const format_text)(fmt::string_view, fmt::format_args) = fmt::vformat;
[[gnu::used]] void (*const print_text)(fmt::string_view, fmt::format_args) = fmt::vprint;
} // namespace tool
