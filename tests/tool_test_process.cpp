#include "tests/tool_test_process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

namespace {

constexpr std::size_t pipe_bytes = 4096; // written at once without waiting

[[noreturn]] void execute(const arguments& args, const settings& set) {
    const rlimit data = {set.memory, set.memory};
    ::setrlimit(RLIMIT_DATA, &data);
    ::unsetenv("PVZAN_CHARSET_DIR");
    for (const std::string& variable : set.environment) {
        ::putenv(const_cast<char*>(variable.c_str()));
    }
    std::string tool = PVZAN_TOOL;
    std::vector<char*> list = {tool.data()};
    for (const std::string& argument : args) {
        list.push_back(const_cast<char*>(argument.c_str()));
    }
    list.push_back(nullptr);
    if (::chdir(set.directory.c_str()) == 0) {
        ::execv(list[0], list.data());
    }
    ::_exit(127);
}

} // namespace

process::process(const arguments& args, const settings& set) {
    std::array<int, 2> in{}, out{}, messages{};
    EXPECT_EQ(::pipe(in.data()), 0);
    EXPECT_EQ(::pipe(out.data()), 0);
    EXPECT_EQ(::pipe(messages.data()), 0);
    id_ = ::fork();
    if (id_ == 0) {
        ::dup2(in[0], STDIN_FILENO);
        ::dup2(set.output >= 0 ? set.output : out[1], STDOUT_FILENO);
        ::dup2(messages[1], STDERR_FILENO);
        for (const int descriptor : {in[0], in[1], out[0], out[1], messages[0], messages[1]}) {
            ::close(descriptor);
        }
        if (set.without_output) {
            ::close(STDOUT_FILENO);
        }
        execute(args, set);
    }
    ::close(in[0]);
    ::close(out[1]);
    ::close(messages[1]);
    input_ = in[1];
    output_ = out[0];
    messages_ = messages[0];
}

process::~process() {
    close_input();
    ::close(output_);
    ::close(messages_);
}

void process::close_input() {
    if (input_ >= 0) {
        ::close(input_);
    }
    input_ = -1;
}

void process::talk(std::string_view input, std::string& output, std::string& messages) {
    if (input.empty()) {
        close_input();
    }
    bool output_open = true, messages_open = true;
    while (output_open || messages_open || input_ >= 0) {
        std::array<pollfd, 3> ready = {{{input_, POLLOUT, 0},
                                        {output_open ? output_ : -1, POLLIN, 0},
                                        {messages_open ? messages_ : -1, POLLIN, 0}}};
        ASSERT_GE(::poll(ready.data(), ready.size(), -1), 0);
        if (ready[0].revents != 0) {
            const ssize_t n = ::write(input_, input.data(), std::min(input.size(), pipe_bytes));
            input.remove_prefix(n > 0 ? static_cast<std::size_t>(n) : input.size());
            if (input.empty()) {
                close_input();
            }
        }
        output_open = output_open && (ready[1].revents == 0 || read(output_, output));
        messages_open = messages_open && (ready[2].revents == 0 || read(messages_, messages));
    }
}

int process::wait() const {
    int status = 0;
    EXPECT_EQ(::waitpid(id_, &status, 0), id_);
    return status;
}

bool process::read(int descriptor, std::string& text) {
    std::array<char, 65536> buffer{};
    const ssize_t n = ::read(descriptor, buffer.data(), buffer.size());
    text.append(buffer.data(), n > 0 ? static_cast<std::size_t>(n) : 0);
    return n > 0;
}

tool_outcome run(const arguments& args, std::string_view input, const settings& set) {
    ::signal(SIGPIPE, SIG_IGN); // a tool that refuses its arguments reads nothing
    process tool(args, set);
    tool_outcome outcome;
    tool.talk(input, outcome.output, outcome.messages);
    const int status = tool.wait();
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

} // namespace test
