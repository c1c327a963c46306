#include "tools/pvzan/detect/misreading.h"

#include "tools/pvzan/directory/charset.h"

#include <algorithm>
#include <unistd.h>

namespace tool {

std::optional<pvzan_misreading> find_misreading(bytes_view text) {
    auto found = new_record<pvzan_misreading>();
    return pvzan_find_misreading(text.data(), text.size(), &found) != 0 ? std::optional(found)
                                                                        : std::nullopt;
}

std::optional<pvzan_misreading> find_misreading(int descriptor) {
    constexpr std::size_t looked_at = std::size_t{64} * 1024;
    std::vector<std::uint8_t> begin(looked_at);
    const ssize_t n = ::pread(descriptor, begin.data(), begin.size(), 0);
    begin.resize(static_cast<std::size_t>(std::max(n, ssize_t{0})));
    if (begin.size() == looked_at) { // up to the end of a line
        begin.erase(std::find(begin.rbegin(), begin.rend(), '\n').base(), begin.end());
    }
    return find_misreading(begin);
}

std::vector<std::uint8_t> undo_misreading(const pvzan_misreading& misreading, bytes_view text) {
    std::vector<std::uint8_t> undone(text.size() + text.size() / 2);
    for (;;) {
        const std::size_t size = pvzan_undo_misreading(&misreading, text.data(), text.size(),
                                                       undone.data(), undone.size(), nullptr);
        if (size == 0 && !text.empty()) {
            throw std::bad_alloc();
        }
        const bool fits = size <= undone.size();
        undone.resize(size);
        if (fits) {
            return undone;
        }
    }
}

} // namespace tool
