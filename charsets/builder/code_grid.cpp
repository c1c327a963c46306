#include "charsets/builder/code_grid.h"

#include <sstream>

namespace charsets {
namespace {

constexpr std::size_t most_columns = 4;

bool parse_range(std::string_view text, u32& low, u32& high) {
    const std::size_t hyphen = text.find('-');
    if (!parse_number(text.substr(0, hyphen), 16, low)) {
        return false;
    }
    high = low;
    if (hyphen != std::string_view::npos && !parse_number(text.substr(hyphen + 1), 16, high)) {
        return false;
    }
    return low <= high && high <= 0xFF;
}

} // namespace

std::optional<code_grid> code_grid::parse(std::string_view pattern) {
    code_grid grid;
    std::istringstream words{std::string(pattern)};
    for (std::string word; words >> word;) {
        column bytes;
        std::istringstream ranges(word);
        for (std::string range; std::getline(ranges, range, ',');) {
            u32 low = 0;
            u32 high = 0;
            if (!parse_range(range, low, high)) {
                return std::nullopt;
            }
            for (u32 byte = low; byte <= high; ++byte) {
                bytes.set(byte);
            }
        }
        if (bytes.none()) {
            return std::nullopt;
        }
        grid.columns_.push_back(bytes);
    }
    if (grid.empty() || grid.columns_.size() > most_columns) {
        return std::nullopt;
    }
    return grid;
}

bool code_grid::contains(u32 code) const {
    for (std::size_t place = columns_.size(); place-- > 0; code >>= 8) {
        if (!columns_[place].test(code & 0xFF)) {
            return false;
        }
    }
    return code == 0;
}

std::uint64_t code_grid::number_of(u32 code) const {
    std::uint64_t number = 0, weight = 1;
    for (std::size_t place = columns_.size(), shift = 0; place-- > 0; shift += 8) {
        const column before = columns_[place] & ~(~column() << (code >> shift & 0xFF));
        number += before.count() * weight;
        weight *= columns_[place].count();
    }
    return number;
}

u32 code_grid::following(u32 code) const {
    for (std::size_t place = columns_.size(), shift = 0; place-- > 0; shift += 8) {
        u32 byte = code >> shift & 0xFF;
        bool carry = false;
        do {
            byte = (byte + 1) & 0xFF;
            carry = carry || byte == 0;
        } while (!columns_[place].test(byte));
        code = (code & ~(0xFFU << shift)) | byte << shift;
        if (!carry) {
            break;
        }
    }
    return code;
}

} // namespace charsets
