#include "tests/support/child.h"

#include <csignal>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

namespace {

std::string read_all(int descriptor) {
    std::string text;
    char buffer[4096];
    for (ssize_t n = 0; (n = ::read(descriptor, buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(n));
    }
    return text;
}

// Runs body with its standard error in a pipe; the child leaves with 1 when expectations failed in
// it.
int run_child(const std::function<void()>& body, std::string& messages) {
    std::fflush(nullptr);
    int ends[2] = {-1, -1};
    if (::pipe(ends) != 0) {
        std::abort();
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(ends[1], STDERR_FILENO);
        ::dup2(ends[1], STDOUT_FILENO);
        ::close(ends[0]);
        ::close(ends[1]);
        const bool failed_before = ::testing::Test::HasFailure();
        body();
        std::fflush(nullptr);
        // What coverage counts is written by exit().
        (std::getenv("PVZAN_COVERAGE") != nullptr ? std::exit : std::_Exit)(
            !failed_before && ::testing::Test::HasFailure() ? 1 : 0);
    }
    ::close(ends[1]);
    messages = read_all(ends[0]);
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return status;
}

} // namespace

void in_child(const std::function<void()>& body) {
    std::string messages;
    const int status = run_child(body, messages);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << "in a child process (wait status " << status << "):\n"
        << messages;
}

bool dies_by_assertion(const std::function<void()>& body, const char* text) {
    std::string messages;
    const int status = run_child(body, messages);
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT &&
           messages.find(text) != std::string::npos;
}

void obey_permissions() {
    __user_cap_header_struct whose{_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[2]{};
    EXPECT_EQ(::syscall(SYS_capset, &whose, none), 0);
}

} // namespace test
