// Runs the tool as a process.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace test {

using arguments = std::vector<std::string>;

struct settings {
    std::string directory = "/"; // to run in
    arguments environment = {};  // added to the test's own, which loses PVZAN_CHARSET_DIR
};

struct tool_outcome {
    int status = -1; // of the exit; -1: ended by a signal
    std::string output, messages;
};

tool_outcome run(const arguments& args, std::string_view input = "", const settings& set = {});

} // namespace test
