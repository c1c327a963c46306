#include "tests/tool_test_process.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

namespace {

struct close_file {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using stream = std::unique_ptr<std::FILE, close_file>;

[[noreturn]] void execute(const arguments& args, const settings& set,
                          const std::array<stream, 3>& streams) {
    for (int number = 0; number < 3; ++number) {
        ::dup2(::fileno(streams[static_cast<std::size_t>(number)].get()), number);
    }
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

std::string content(std::FILE* file) {
    std::string text(static_cast<std::size_t>(::lseek(::fileno(file), 0, SEEK_END)), '\0');
    EXPECT_EQ(::pread(::fileno(file), text.data(), text.size(), 0),
              static_cast<ssize_t>(text.size()));
    return text;
}

} // namespace

tool_outcome run(const arguments& args, std::string_view input, const settings& set) {
    const std::array<stream, 3> streams = {stream(std::tmpfile()), stream(std::tmpfile()),
                                           stream(std::tmpfile())};
    std::fwrite(input.data(), 1, input.size(), streams[0].get());
    std::rewind(streams[0].get());
    const pid_t child = ::fork();
    if (child == 0) {
        execute(args, set, streams);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, content(streams[1].get()),
            content(streams[2].get())};
}

} // namespace test
