// Time and memory of whole processes, in turns:
//
//     pvzan_bench_processes ROUNDS COMMAND...     each COMMAND one argument, split at spaces
//
// Prints a Markdown row for each: wall time and processor time in ms, the least and the median; the
// fewest page faults; largest peak of memory in MB. What they write is thrown away.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <limits>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

struct command {
    std::string text;
    std::vector<std::string> words = {};
    std::vector<double> wall = {}, cpu = {};
    long peak = 0, faults = std::numeric_limits<long>::max();
};

double milliseconds(const timeval& t) {
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_usec) / 1e3;
}

double now() {
    timespec t{};
    ::clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) / 1e6;
}

bool run(command& c) {
    std::vector<char*> arguments;
    for (std::string& word : c.words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const double begin = now();
    const int error =
        ::posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    rusage usage{};
    if (error != 0 || ::wait4(child, &status, 0, &usage) != child || status != 0) {
        return false;
    }
    c.wall.push_back(now() - begin);
    c.cpu.push_back(milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime));
    c.peak = std::max(c.peak, usage.ru_maxrss);
    c.faults = std::min(c.faults, usage.ru_minflt + usage.ru_majflt);
    return true;
}

std::string least_and_median(std::vector<double>& values) {
    std::sort(values.begin(), values.end());
    char text[64];
    std::snprintf(text, sizeof text, "%.2f (%.2f)", values.front(), values[values.size() / 2]);
    return text;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<command> commands;
    for (int i = 2; i < argc; ++i) {
        command c{argv[i]};
        for (std::size_t at = 0; at < c.text.size();) {
            const std::size_t end = std::min(c.text.find(' ', at), c.text.size());
            c.words.push_back(c.text.substr(at, end - at));
            at = end + 1;
        }
        commands.push_back(c);
    }
    const int rounds = argc > 2 ? std::atoi(argv[1]) : 0;
    for (int round = 0; round < rounds; ++round) {
        for (command& c : commands) {
            if (!run(c)) {
                std::fprintf(stderr, "failed: %s\n", c.text.c_str());
                return 1;
            }
        }
    }
    std::printf("| command | wall, ms: least (median) | CPU, ms: least (median) | page faults | "
                "peak, MB |\n|---|---:|---:|---:|---:|\n");
    for (command& c : commands) {
        const std::size_t slash = c.words[0].rfind('/');
        std::string shown = slash == std::string::npos ? c.words[0] : c.words[0].substr(slash + 1);
        for (std::size_t i = 1; i + 1 < c.words.size(); ++i) {
            shown += " " + c.words[i];
        }
        std::printf("| `%s` | %s | %s | %ld | %.1f |\n", shown.c_str(),
                    least_and_median(c.wall).c_str(), least_and_median(c.cpu).c_str(), c.faults,
                    static_cast<double>(c.peak) / 1024);
    }
    return rounds > 0 ? 0 : 2;
}
