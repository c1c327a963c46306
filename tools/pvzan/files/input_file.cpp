#include "tools/pvzan/files/input_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

bool is_standard_input(const std::string& name) {
    return name == "-";
}

input_file::input_file(const std::string& name)
    : descriptor_(is_standard_input(name) ? STDIN_FILENO
                                          : ::open(name.c_str(), O_RDONLY | O_CLOEXEC)) {}

input_file::~input_file() {
    if (descriptor_ > STDIN_FILENO) {
        ::close(descriptor_);
    }
}

ssize_t input_file::read(std::span<std::uint8_t> into) const {
    for (;;) {
        const ssize_t n = ::read(descriptor_, into.data(), into.size());
        if (n >= 0 || errno != EINTR) {
            return n;
        }
    }
}

namespace {

std::optional<file_id> id_in(const struct stat& status, int result) {
    return result == 0 && S_ISREG(status.st_mode)
               ? std::optional(file_id{status.st_dev, status.st_ino})
               : std::nullopt;
}

} // namespace

std::optional<file_id> id_of(const std::string& path) {
    struct stat status {};
    const int result = ::stat(path.c_str(), &status);
    return id_in(status, result);
}

std::optional<file_id> id_of(int descriptor) {
    struct stat status {};
    const int result = ::fstat(descriptor, &status);
    return id_in(status, result);
}

bool read_block(int descriptor, std::uint64_t place, std::vector<std::uint8_t>& block) {
    constexpr std::size_t block_bytes = std::size_t{64} * 1024;
    std::size_t filled = 0;
    block.resize(block_bytes);
    ssize_t n = 1;
    while (filled < block.size() && (n > 0 || (n < 0 && errno == EINTR))) {
        n = ::pread(descriptor, block.data() + filled, block.size() - filled,
                    static_cast<off_t>(place + filled));
        filled += n > 0 ? static_cast<std::size_t>(n) : 0;
    }
    block.resize(filled);
    return n >= 0;
}

bool same_content(int one, int other) {
    std::vector<std::uint8_t> a, b;
    std::uint64_t place = 0;
    do {
        if (!read_block(one, place, a) || !read_block(other, place, b) || a != b) {
            return false;
        }
        place += a.size();
    } while (!a.empty());
    return true;
}

} // namespace tool
