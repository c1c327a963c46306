#include "tools/pvzan/files/file_belongings.h"

#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace tool {

namespace {

bool fail(std::string& what, std::string words) {
    what = std::move(words);
    return false;
}

// Of access control lists, too, which are attributes: those of the other file, and not those that
// its folder gives to new ones. The labels of security modules are the system's to set. The mode
// comes between, since it has a part in an access control list, and taking one away changes it.
bool copy_attributes(int from, int to, mode_t mode, std::string& what) {
    constexpr std::size_t most = std::size_t{64} * 1024; // the system's limit
    std::vector<char> names(most), value(most);
    const auto each_name = [&](ssize_t length, const auto& use) {
        for (const char* name = names.data(); name < names.data() + length;
             name += std::strlen(name) + 1) {
            if (!std::string_view(name).starts_with("security.") && !use(name)) {
                return fail(what, fmt::format("cannot preserve its attribute {}", printable(name)));
            }
        }
        return true;
    };
    each_name(::flistxattr(to, names.data(), most),
              [&](const char* name) { return ::fremovexattr(to, name) == 0; });
    if (::fchmod(to, mode) != 0) {
        return fail(what, "cannot set permissions");
    }
    const ssize_t length = ::flistxattr(from, names.data(), most);
    if (length < 0 && errno != ENOTSUP) {
        return fail(what, "cannot preserve its attributes");
    }
    return each_name(length, [&](const char* name) {
        const ssize_t size = ::fgetxattr(from, name, value.data(), most);
        return size >= 0 &&
               ::fsetxattr(to, name, value.data(), static_cast<std::size_t>(size), 0) == 0;
    });
}

} // namespace

// The mode comes behind the owner, and only when that is the right one: a file that runs as its
// owner must never be another's, not even for a moment.
bool copy_belongings(int from, int to, std::string& what) {
    struct stat old {
    }, now{};
    const auto is_same = [&] {
        return ::fstat(from, &old) == 0 && ::fstat(to, &now) == 0 && old.st_uid == now.st_uid &&
               old.st_gid == now.st_gid;
    };
    if (!is_same()) {
        const bool changed = ::fchown(to, old.st_uid, old.st_gid) == 0;
        if (!changed || !is_same()) {
            errno = changed ? EPERM : errno;
            return fail(what, "cannot preserve its owner");
        }
    }
    return copy_attributes(from, to, old.st_mode & 07777, what);
}

} // namespace tool
