#include "tools/pvzan/files/temporary_file.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace tool {

namespace {

constexpr std::string_view name_begin = ".pvzan-", random_part = "XXXXXX";
constexpr std::array ending_signals = {SIGHUP,  SIGINT,  SIGQUIT, SIGTERM,   SIGPIPE, SIGALRM,
                                       SIGUSR1, SIGUSR2, SIGXCPU, SIGVTALRM, SIGPROF};
constexpr std::size_t path_bytes = 4096;

struct slot {
    std::atomic<bool> used = false;
    std::array<char, path_bytes> path{};
};
std::array<slot, most_temporaries> slots;
// The handler, which runs in the main thread, waits until nobody holds it up, and nobody begins to
// any more: so no file is without its slot.
std::atomic<int> holders = 0;
std::atomic<bool> ending = false;

void remove_all_and_end(int signal) {
    ending = true;
    while (holders > 0) {
        ::poll(nullptr, 0, 1);
    }
    for (slot& s : slots) {
        if (s.used) {
            ::unlink(s.path.data());
        }
    }
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

sigset_t ending_set() {
    sigset_t set;
    ::sigemptyset(&set);
    for (const int signal : ending_signals) {
        ::sigaddset(&set, signal);
    }
    return set;
}

void install_handler() {
    for (const int signal : ending_signals) {
        struct sigaction current {};
        if (::sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
            current = {};
            current.sa_handler = remove_all_and_end;
            current.sa_mask = ending_set();
            ::sigaction(signal, &current, nullptr);
        }
    }
}

} // namespace

void hold_ending_signals() {
    const sigset_t blocked = ending_set();
    ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
}

ending_held::ending_held() {
    const sigset_t blocked = ending_set();
    ::pthread_sigmask(SIG_BLOCK, &blocked, &before_);
    ++holders;
    while (ending) {
        --holders;
        ::pause(); // it is the end, and this thread is not the main one
        ++holders;
    }
}

ending_held::~ending_held() {
    --holders;
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

bool is_temporary_name(std::string_view name) {
    return name.starts_with(name_begin) && name.size() == name_begin.size() + random_part.size();
}

// Its writer holds a lock on it. One that is just coming into being, or is about to get its name,
// is without it for a moment, so a second look decides.
bool is_left_over(const std::string& path) {
    constexpr auto moment = std::chrono::milliseconds(20);
    const int descriptor =
        ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    const auto is_free = [&] {
        struct stat opened {
        }, named{};
        return ::flock(descriptor, LOCK_SH | LOCK_NB) == 0 && ::flock(descriptor, LOCK_UN) == 0 &&
               ::fstat(descriptor, &opened) == 0 && S_ISREG(opened.st_mode) &&
               ::lstat(path.c_str(), &named) == 0 && named.st_ino == opened.st_ino;
    };
    bool left = descriptor >= 0 && is_free();
    if (left) {
        std::this_thread::sleep_for(moment);
        left = is_free();
    }
    if (descriptor >= 0) {
        ::close(descriptor);
    }
    return left;
}

temporary_file::~temporary_file() {
    close();
    if (!name_.empty()) {
        ::unlink(name_.c_str());
        forget();
    }
}

bool temporary_file::create(const std::string& folder) {
    static std::once_flag once;
    std::call_once(once, install_handler);
    const std::string name = std::string(name_begin) + std::string(random_part);
    std::string pattern = std::filesystem::path(folder) / name;
    if (pattern.size() >= path_bytes) {
        errno = ENAMETOOLONG;
        return false;
    }
    const ending_held held;
    slot_ = 0;
    while (slot_ < slots.size() && slots[slot_].used.exchange(true)) {
        ++slot_;
    }
    if (slot_ == slots.size()) {
        errno = EMFILE;
        return false;
    }
    descriptor_ = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (descriptor_ < 0) {
        slots[slot_].used = false;
        return false;
    }
    std::memcpy(slots[slot_].path.data(), pattern.c_str(), pattern.size() + 1);
    ::flock(descriptor_, LOCK_EX | LOCK_NB); // some file systems have no locks
    name_ = std::move(pattern);
    return true;
}

bool temporary_file::close() {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    return descriptor < 0 || ::close(descriptor) == 0;
}

bool temporary_file::rename_to(const std::string& path) {
    if (std::rename(name_.c_str(), path.c_str()) != 0) {
        return false;
    }
    forget();
    return true;
}

void temporary_file::forget() {
    slots[slot_].used = false;
    name_.clear();
}

} // namespace tool
