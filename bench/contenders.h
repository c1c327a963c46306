// The contenders of the benchmark behind one interface: a stream, converted block by block on one
// thread.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

using bytes_view = std::span<const std::uint8_t>;

inline constexpr std::size_t block_bytes = 64 * 1024;

struct progress {
    std::size_t read = 0;    // the rest is to be given again, with more behind it
    std::size_t written = 0; // to output()
    bool failed = false;
};

class contender {
public:
    virtual ~contender() = default;
    // Back to the start of a stream.
    virtual void restart() {}
    // Converts at most block_bytes.
    virtual progress step(bytes_view block) = 0;
    // Closes the stream.
    virtual progress finish() { return {}; }
    [[nodiscard]] const std::vector<std::uint8_t>& output() const { return out_; }

protected:
    std::vector<std::uint8_t> out_ = std::vector<std::uint8_t>(6 * block_bytes);
};

// A charset by the names that the contenders have for it; null where one lacks it. Ours with "le"
// behind it is its little-endian form.
struct charset {
    const char *pvzan, *iconv, *icu, *encoding_rs;
};

struct charset_pair {
    const charset &from, &to;
};

// Each returns null for a pair that it lacks.
std::unique_ptr<contender> make_pvzan(const charset_pair& pair, bool normalise_newlines);
std::unique_ptr<contender> make_iconv(const charset_pair& pair);
std::unique_ptr<contender> make_icu(const charset_pair& pair);
std::unique_ptr<contender> make_encoding_rs(const charset_pair& pair);
std::unique_ptr<contender> make_memcpy();

} // namespace bench
