#include "tools/pvzan/temporary_file.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>

namespace tool {

namespace {

constexpr std::array ending_signals = {SIGHUP, SIGINT, SIGTERM, SIGPIPE};
constexpr std::size_t path_bytes = 4096;

struct slot {
    std::atomic<bool> used = false;
    std::array<char, path_bytes> path{};
};
std::array<slot, most_temporaries> slots;
// Held while a file comes into being: the handler waits, so that no file is without its slot. The
// handler runs in the main thread, which holds it only with the signals blocked.
std::atomic_flag creating = ATOMIC_FLAG_INIT;

void remove_all_and_end(int signal) {
    while (creating.test_and_set(std::memory_order_acquire)) {
    }
    for (slot& s : slots) {
        if (s.used.load(std::memory_order_acquire)) {
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

class signals_held {
public:
    signals_held() {
        const sigset_t blocked = ending_set();
        ::pthread_sigmask(SIG_BLOCK, &blocked, &before_);
    }
    ~signals_held() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    signals_held(const signals_held&) = delete;
    signals_held& operator=(const signals_held&) = delete;

private:
    sigset_t before_{};
};

void install_handler() {
    for (const int signal : ending_signals) {
        struct sigaction current {};
        if (::sigaction(signal, nullptr, &current) == 0 && current.sa_handler != SIG_IGN) {
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

temporary_file::~temporary_file() {
    close();
    if (!name_.empty()) {
        ::unlink(name_.c_str());
        forget();
    }
}

bool temporary_file::create(const std::string& path) {
    static std::once_flag once;
    std::call_once(once, install_handler);
    std::string pattern = path + ".XXXXXX";
    if (pattern.size() >= path_bytes) {
        errno = ENAMETOOLONG;
        return false;
    }
    const signals_held held;
    while (creating.test_and_set(std::memory_order_acquire)) {
    }
    slot_ = 0;
    while (slot_ < slots.size() && slots[slot_].used) {
        ++slot_;
    }
    const bool room = slot_ < slots.size();
    descriptor_ = room ? ::mkostemp(pattern.data(), O_CLOEXEC) : -1;
    const int error = room ? errno : EMFILE;
    if (descriptor_ >= 0) {
        std::memcpy(slots[slot_].path.data(), pattern.c_str(), pattern.size() + 1);
        slots[slot_].used.store(true, std::memory_order_release);
        name_ = pattern;
    }
    creating.clear(std::memory_order_release);
    errno = error;
    return descriptor_ >= 0;
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
    slots[slot_].used.store(false, std::memory_order_release);
    name_.clear();
}

} // namespace tool
