#include "tools/pvzan/output_file.h"

#include "tools/pvzan/message.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
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

// ---- The temporary goes when a signal ends the tool

constexpr std::array ending_signals = {SIGHUP, SIGINT, SIGTERM};
std::array<char, 4096> signal_removes{}; // the path; written with the signals blocked

void remove_and_end(int signal) {
    ::unlink(signal_removes.data());
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

// Holds the ending signals back: no temporary may exist that its handler does not know.
class signals_held {
public:
    signals_held() {
        sigset_t blocked;
        ::sigemptyset(&blocked);
        for (const int signal : ending_signals) {
            ::sigaddset(&blocked, signal);
        }
        ::pthread_sigmask(SIG_BLOCK, &blocked, &before_);
    }
    ~signals_held() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    signals_held(const signals_held&) = delete;
    signals_held& operator=(const signals_held&) = delete;

private:
    sigset_t before_{};
};

// Empty: nothing is to be removed any more. Called while signals are held.
void remove_on_signal(const std::string& path) {
    const std::size_t length = path.size() < signal_removes.size() ? path.size() : 0;
    std::memcpy(signal_removes.data(), path.data(), length);
    signal_removes[length] = '\0';
    for (const int signal : ending_signals) {
        struct sigaction current {};
        if (::sigaction(signal, nullptr, &current) == 0 && current.sa_handler != SIG_IGN) {
            current = {};
            current.sa_handler = length > 0 ? remove_and_end : SIG_DFL;
            ::sigaction(signal, &current, nullptr);
        }
    }
}

// The file itself, where the path is a link to it: the link is to stay.
std::string behind_links(const std::string& path) {
    std::error_code error;
    const std::filesystem::path target = std::filesystem::canonical(path, error);
    return error ? path : target.string();
}

} // namespace

output_file::~output_file() {
    if (descriptor_ >= 0 && !path_.empty()) {
        ::close(descriptor_);
    }
    if (!temporary_.empty()) {
        const signals_held held;
        ::unlink(temporary_.c_str());
        remove_on_signal({});
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
    const signals_held held;
    std::string pattern = replaced_ + ".XXXXXX";
    descriptor_ = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (descriptor_ < 0) {
        return fail("cannot create");
    }
    temporary_ = pattern;
    remove_on_signal(temporary_);
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
    const signals_held held;
    if (std::rename(temporary_.c_str(), replaced_.c_str()) != 0) {
        return fail("cannot create");
    }
    temporary_.clear();
    remove_on_signal({});
    return true;
}

} // namespace tool
