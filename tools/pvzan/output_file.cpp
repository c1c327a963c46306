#include "tools/pvzan/output_file.h"

#include "tools/pvzan/message.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace tool {

namespace {

// Permissions of a new file. The mask can only be read by setting it, so once and for all threads.
mode_t new_file_mode() {
    static const mode_t mode = [] {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        return static_cast<mode_t>(0666 & ~mask);
    }();
    return mode;
}

// The file itself, where the path is a link to it: the link is to stay.
std::string behind_links(const std::string& path) {
    std::error_code error;
    const std::filesystem::path target = std::filesystem::canonical(path, error);
    return error ? path : target.string();
}

} // namespace

output_file::~output_file() {
    if (descriptor_ >= 0 && !path_.empty() && !temporary_.exists()) {
        ::close(descriptor_);
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
    replaced_ = exists ? behind_links(path) : path;
    if (!temporary_.create(replaced_)) {
        return fail("cannot create");
    }
    descriptor_ = temporary_.descriptor();
    const mode_t mode = exists ? status.st_mode & 07777 : new_file_mode();
    return ::fchmod(descriptor_, mode) == 0 || fail("cannot set permissions");
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
    if (temporary_.exists()) {
        return (temporary_.close() || fail("cannot write")) &&
               (temporary_.rename_to(replaced_) || fail("cannot create"));
    }
    return ::close(descriptor) == 0 || fail("cannot write");
}

// Extended attributes, of which access control lists are some: those of the old file, and not those
// that its folder gives to new ones. The labels of security modules are the system's to set. The
// mode comes between, since it has a part in an access control list, and taking one away changes
// it.
bool output_file::keep_attributes(mode_t mode) {
    constexpr std::size_t most = std::size_t{64} * 1024; // the system's limit
    std::vector<char> names(most), value(most);
    const auto each_name = [&](ssize_t length, const auto& use) {
        for (const char* name = names.data(); name < names.data() + length;
             name += std::strlen(name) + 1) {
            if (!std::string_view(name).starts_with("security.") && !use(name)) {
                return fail(fmt::format("cannot keep its attribute {}", printable(name)));
            }
        }
        return true;
    };
    each_name(::flistxattr(descriptor_, names.data(), most),
              [&](const char* name) { return ::fremovexattr(descriptor_, name) == 0; });
    if (::fchmod(descriptor_, mode) != 0) {
        return fail("cannot set permissions");
    }
    const ssize_t length = ::listxattr(replaced_.c_str(), names.data(), most);
    if (length < 0 && errno != ENOTSUP) {
        return fail("cannot keep its attributes");
    }
    return each_name(length, [&](const char* name) {
        const ssize_t size = ::getxattr(replaced_.c_str(), name, value.data(), most);
        return size >= 0 &&
               ::fsetxattr(descriptor_, name, value.data(), static_cast<std::size_t>(size), 0) == 0;
    });
}

// Setting the owner clears the bits that run a file as its owner, so the mode comes behind it.
bool output_file::keep_owner() {
    struct stat old {
    }, now{};
    if (::stat(replaced_.c_str(), &old) != 0 || ::fstat(descriptor_, &now) != 0) {
        return fail("cannot keep its owner");
    }
    const bool same = old.st_uid == now.st_uid && old.st_gid == now.st_gid;
    if (!same && ::fchown(descriptor_, old.st_uid, old.st_gid) != 0) {
        return fail("cannot keep its owner");
    }
    return keep_attributes(old.st_mode & 07777);
}

bool output_file::replace(const std::string& path, const std::string& backup) {
    if (!keep_owner()) {
        return false;
    }
    if (::fsync(descriptor_) != 0) {
        return fail("cannot write");
    }
    if (!backup.empty()) {
        path_ = backup;
        // A second name first, so that the file is there under its own at all times.
        if (::link(replaced_.c_str(), backup.c_str()) != 0) {
            return fail("cannot keep the old file");
        }
        path_ = path;
    }
    return commit();
}

} // namespace tool
