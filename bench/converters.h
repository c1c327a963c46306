// The contenders of the benchmark, behind one interface: streaming through blocks, one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace bench {

using bytes_view = std::span<const std::uint8_t>;

inline constexpr std::size_t block_bytes = 64 * 1024;

class converter {
public:
    virtual ~converter() = default;
    // Converts the whole text block by block; returns the number of bytes written, 0 on any fault.
    virtual std::size_t run(bytes_view text) = 0;
    // Where the last block was written.
    [[nodiscard]] const std::vector<std::uint8_t>& block() const { return out_; }

protected:
    std::vector<std::uint8_t> out_ = std::vector<std::uint8_t>(4 * block_bytes);
};

struct pair_name {
    const char *from, *to; // as this library has them
    const char *iconv_from, *iconv_to;
    const char *icu_from, *icu_to; // null: the pair is left out there
};

std::unique_ptr<converter> make_pvzan(const pair_name& pair, bool normalise_newlines);
std::unique_ptr<converter> make_iconv(const pair_name& pair);
std::unique_ptr<converter> make_icu(const pair_name& pair);
std::unique_ptr<converter> make_memcpy();

} // namespace bench
