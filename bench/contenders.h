// The contenders of the benchmark behind one interface: a stream, converted block by block on one
// thread.
#pragma once

#include <array>
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
    // Bytes of output that each step from now on may write, where a contender is asked to.
    void set_room(std::size_t room) { room_ = room; }
    [[nodiscard]] bytes_view output() const { return out_; }

protected:
    // One place for all of them, for which place it is makes a difference.
    alignas(64) static inline std::array<std::uint8_t, 6 * block_bytes> out_;
    std::size_t room_ = out_.size();
};

// A charset by the names that the contenders have for it; null where one lacks it. Ours with "le"
// behind it is its little-endian form.
struct charset {
    const char *pvzan, *iconv, *icu, *encoding_rs, *python;
};

struct charset_pair {
    const charset &from, &to;
};

// Each returns null for a pair that it lacks.
std::unique_ptr<contender> make_pvzan(const charset_pair& pair, bool normalise_newlines);
// An older build of the shared library, which is read from a file; it uses the same charsets.
std::unique_ptr<contender> make_older(const char* file, const charset_pair& pair,
                                      bool normalise_newlines);
std::unique_ptr<contender> make_iconv(const charset_pair& pair);
std::unique_ptr<contender> make_icu(const charset_pair& pair);
std::unique_ptr<contender> make_encoding_rs(const charset_pair& pair);
std::unique_ptr<contender> make_python(const charset_pair& pair);
std::unique_ptr<contender> make_memcpy();

} // namespace bench
