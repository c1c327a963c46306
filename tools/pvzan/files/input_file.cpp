#include "tools/pvzan/files/input_file.h"

#include <cerrno>
#include <fcntl.h>
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

} // namespace tool
