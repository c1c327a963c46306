// Charsets by their names, and where they are described. Part of pvzan.hpp.
#ifndef PVZAN_CHARSET_HPP
#define PVZAN_CHARSET_HPP

#include "../pvzan_text.h"

#include <climits>
#include <string>
#include <string_view>

namespace pvzan {

// A charset by one of its names. "utf-16", "ucs-2" and "ucs-4" leave the byte order to a byte-order
// mark: one is written, most significant byte first, and read, or is missing and means the same
// order. With "be" or "le" behind them they name the order.
using charset = std::string;

// Settles the charset directory; to be called before everything else, or not at all. Without it the
// first use takes the one that pvzan_set_directory describes, or PVZAN_DEFAULT_CHARSET_DIR as the
// program was compiled. Never one in the current directory, where anybody's definitions may lie.
// False when path holds no definitions, or another directory was settled before.
inline bool use_charsets(const std::string& path) {
    return pvzan_set_directory(path.c_str(), nullptr) != 0;
}

// The charset directory in use; empty: there is none.
inline std::string charset_directory() {
    char path[PATH_MAX];
#ifdef PVZAN_DEFAULT_CHARSET_DIR
    if (pvzan_directory(nullptr, 0) == 0) {
        pvzan_set_directory(PVZAN_DEFAULT_CHARSET_DIR, nullptr);
    }
#endif
    return std::string(path, pvzan_directory(path, sizeof path));
}

} // namespace pvzan
#endif
