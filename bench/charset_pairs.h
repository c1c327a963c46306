// The pairs of charsets that are measured, with the texts for each.
#pragma once

#include "bench/contenders.h"

namespace bench {

// What a pair is asked for, as a multiple of the best peer.
enum class kind {
    legacy, // at one end at least
    unicode // at both
};

struct measured_pair {
    charset_pair charsets;
    kind what;
    const char* texts; // separated by spaces

    [[nodiscard]] std::string name() const {
        return std::string(charsets.from.pvzan) + ":" + charsets.to.pvzan;
    }
};

std::span<const measured_pair> measured_pairs();

// How many bytes of the output the charset leaves free behind each character.
inline std::size_t spare_of(const charset& target) {
    return std::string_view(target.pvzan).starts_with("euc-j") ? 1 : 0;
}

inline constexpr charset utf_8{"utf-8", "UTF-8", "UTF-8", "utf-8", "utf-8"};
inline constexpr charset utf_16le{"utf-16le", "UTF-16LE", "UTF-16LE", "utf-16le", "utf-16-le"};
inline constexpr charset shift_jis{"shift_jis", "SHIFT_JIS", "ibm-943_P15A-2003", "shift_jis",
                                   "shift_jis"};
inline constexpr charset euc_jp{"euc-jp", "EUC-JP", "EUC-JP", "euc-jp", "euc_jp"};
inline constexpr charset gb18030{"gb18030", "GB18030", "gb18030", "gb18030", "gb18030"};

} // namespace bench
