// Runs the tool as a process, with its standard streams in the test's hands.
#pragma once

#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/types.h>
#include <vector>

namespace test {

using arguments = std::vector<std::string>;

struct settings {
    std::string directory = "/";   // to run in
    arguments environment = {};    // added to the test's own, which loses PVZAN_CHARSET_DIR
    int output = -1;               // a descriptor, in place of a pipe
    bool without_output = false;   // standard output is closed
    rlim_t memory = RLIM_INFINITY; // bytes of data that the tool may hold
};

class process {
public:
    process(const arguments& args, const settings& set);
    ~process();
    process(const process&) = delete;
    process& operator=(const process&) = delete;

    [[nodiscard]] pid_t id() const { return id_; }
    [[nodiscard]] int input() const { return input_; }
    [[nodiscard]] int output() const { return output_; }

    // Writes the input, closes it, and reads the rest of both outputs as they come.
    void talk(std::string_view input, std::string& output, std::string& messages);
    // Its wait status.
    [[nodiscard]] int wait() const;

    // Appends what there is; false at the end.
    static bool read(int descriptor, std::string& text);

private:
    void close_input();

    pid_t id_ = 0;
    int input_ = -1, output_ = -1, messages_ = -1;
};

struct tool_outcome {
    int status = -1; // of the exit; -1: ended by a signal
    std::string output, messages;
};

tool_outcome run(const arguments& args, std::string_view input = {}, const settings& set = {});

} // namespace test
