#include "tools/pvzan/output_file.h"

#include "tools/pvzan/message.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

namespace {

// Permissions of the file that a new one replaces, else those of any new file.
mode_t wanted_mode(const struct stat* replaced) {
    if (replaced != nullptr) {
        return replaced->st_mode & 07777;
    }
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

} // namespace

output_file::~output_file() {
    if (descriptor_ >= 0 && !path_.empty()) {
        ::close(descriptor_);
    }
    if (!temporary_.empty()) {
        ::unlink(temporary_.c_str());
    }
}

bool output_file::fail(const std::string& what) {
    error_ = fmt::format("{}: {}: {}", path_.empty() ? "standard output" : printable(path_), what,
                         system_error_text(errno));
    return false;
}

bool output_file::open(const std::string& path) {
    path_ = path;
    if (path.empty()) {
        descriptor_ = STDOUT_FILENO;
        return true;
    }
    struct stat status {};
    const bool exists = ::stat(path.c_str(), &status) == 0;
    // A device or a pipe is written in place: there is nothing to replace.
    if (exists && !S_ISREG(status.st_mode)) {
        descriptor_ = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
        return descriptor_ >= 0 || fail("cannot open");
    }
    std::string pattern = path + ".XXXXXX";
    descriptor_ = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (descriptor_ < 0) {
        return fail("cannot create");
    }
    temporary_ = pattern;
    return ::fchmod(descriptor_, wanted_mode(exists ? &status : nullptr)) == 0 ||
           fail("cannot set permissions");
}

bool output_file::write(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t n = ::write(descriptor_, bytes.data(), bytes.size());
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            return fail("cannot write");
        }
        bytes = bytes.subspan(static_cast<std::size_t>(n));
    }
    return true;
}

bool output_file::commit() {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    if (::close(descriptor) != 0) {
        return fail("cannot write");
    }
    if (temporary_.empty()) {
        return true;
    }
    if (std::rename(temporary_.c_str(), path_.c_str()) != 0) {
        return fail("cannot create");
    }
    temporary_.clear();
    return true;
}

} // namespace tool
