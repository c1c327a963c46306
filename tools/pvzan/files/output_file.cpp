#include "tools/pvzan/files/output_file.h"

#include "tools/pvzan/files/file_belongings.h"
#include "tools/pvzan/files/input_file.h"
#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace tool {

namespace {

namespace fs = std::filesystem;

mode_t new_file_mode = 0600;

// The file itself, where the path is a link to it: the link is to stay, even one to nothing.
fs::path behind_links(fs::path path) {
    constexpr int most = 40; // as the system allows
    for (int i = 0; i < most; ++i) {
        std::error_code error;
        const fs::path target = fs::read_symlink(path, error);
        if (error) {
            break;
        }
        path = path.parent_path() / target;
    }
    return path;
}

bool is_same_file(int descriptor, const std::string& path) {
    struct stat one {
    }, other{};
    return ::fstat(descriptor, &one) == 0 && ::lstat(path.c_str(), &other) == 0 &&
           one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

} // namespace

void prepare_output() {
    const mode_t mask = ::umask(0); // it can only be read by setting it
    ::umask(mask);
    new_file_mode = 0666 & ~mask;
    std::signal(SIGXFSZ, SIG_IGN);
}

output_file::~output_file() {
    if (descriptor_ >= 0 && !path_.empty() && !temporary_.exists()) {
        ::close(descriptor_);
    }
    if (original_ >= 0 && !in_place_) {
        ::close(original_);
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
    const int there = ::open(path.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
    if (there < 0 && errno != ENOENT) {
        return fail("cannot open");
    }
    struct stat status {};
    if (there >= 0 && ::fstat(there, &status) == 0 && !S_ISREG(status.st_mode)) {
        descriptor_ = there; // a device or a pipe, of which nothing can be replaced
        return true;
    }
    original_ = there;
    target_ = behind_links(path);
    if (!temporary_.create(fs::path(target_).parent_path())) {
        const int error = errno;
        std::error_code unknown;
        writes_over_ = there >= 0 && temporary_.create(fs::temp_directory_path(unknown));
        errno = error;
    }
    descriptor_ = temporary_.descriptor();
    return temporary_.exists() || fail("cannot create");
}

bool output_file::open_in_place(const std::string& path, int original) {
    path_ = path;
    in_place_ = true;
    original_ = original;
    target_ = behind_links(path);
    const bool created = temporary_.create(fs::path(target_).parent_path());
    descriptor_ = temporary_.descriptor();
    return created || fail("cannot create");
}

bool output_file::write_to(int descriptor, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t n = ::write(descriptor, bytes.data(), bytes.size());
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

bool output_file::write(std::span<const std::uint8_t> bytes) {
    return write_to(descriptor_, bytes);
}

bool output_file::flush() {
    if (!temporary_.exists() || writes_over_) {
        return true;
    }
    if (original_ < 0) {
        return ::fchmod(descriptor_, new_file_mode) == 0 || fail("cannot set permissions");
    }
    struct stat status {};
    const bool replaceable =
        in_place_ || (has_its_name() && ::fstat(original_, &status) == 0 && status.st_nlink == 1);
    std::string what;
    if (!replaceable || !copy_belongings(original_, descriptor_, what)) {
        writes_over_ = !in_place_;
        return writes_over_ || fail(what);
    }
    return ::fsync(descriptor_) == 0 || fail("cannot write");
}

bool output_file::has_its_name() const {
    return is_same_file(original_, target_);
}

// As a shell's ">" does, but when the whole text is there, and has room.
bool output_file::write_over() {
    const ending_held held;
    struct stat status {};
    const int text = temporary_.descriptor();
    if (::fstat(text, &status) != 0 ||
        (::fallocate(original_, FALLOC_FL_KEEP_SIZE, 0, status.st_size) != 0 &&
         (errno == ENOSPC || errno == EDQUOT || errno == EFBIG))) {
        return fail("cannot write");
    }
    std::vector<std::uint8_t> block;
    std::uint64_t place = 0;
    do {
        if (!read_block(text, place, block)) {
            return fail("cannot read the converted text again");
        }
        if (!write_to(original_, block)) {
            return false;
        }
        place += block.size();
    } while (!block.empty());
    return ::ftruncate(original_, status.st_size) == 0 || fail("cannot write");
}

bool output_file::commit(const std::string& backup) {
    const int descriptor = std::exchange(descriptor_, -1);
    if (!temporary_.exists()) {
        return ::close(descriptor) == 0 || fail("cannot write");
    }
    if (writes_over_) {
        return write_over();
    }
    // Nothing has waited for the disk; some file systems tell only now that there is no room.
    if (original_ < 0 && !temporary_.close()) {
        return fail("cannot write");
    }
    // A second name first, so that the file is there under its own at all times. It may have that
    // one already, from a run that was ended in between.
    const bool linked = !backup.empty() && ::link(target_.c_str(), backup.c_str()) == 0;
    if (!backup.empty() && !linked && (errno != EEXIST || !is_same_file(original_, backup))) {
        return fail(fmt::format("cannot keep the old file as {}", printable(backup)));
    }
    if (temporary_.rename_to(target_)) {
        return true;
    }
    if (original_ >= 0 && !in_place_) {
        return write_over(); // mounted by itself, for instance
    }
    const int error = errno;
    if (linked) {
        ::unlink(backup.c_str());
    }
    errno = error;
    return fail("cannot create");
}

} // namespace tool
