// The tool: arguments, standard input and two files from the input, in a directory of their own.
// It must come back, with one of its three exit statuses.
#include "fuzz/support.h"

#include "pvzan.h"

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

int tool_main(int argc, char** argv);

namespace {

// Up to the next empty line; nothing that leads out of the directory.
std::vector<std::string> read_arguments(std::string_view& text) {
    constexpr std::size_t most_arguments = 16, most_length = 120;
    std::vector<std::string> arguments{"pvzan"};
    while (!text.empty()) {
        const std::size_t length = std::min(text.find('\n'), text.size());
        std::string line(text.substr(0, std::min(length, most_length)));
        text.remove_prefix(std::min(length + 1, text.size()));
        if (length == 0) {
            break;
        }
        std::erase(line, '\0');
        const bool leaves = line.find('/') != line.npos || line.find("..") != line.npos;
        if (!leaves && arguments.size() < most_arguments) {
            arguments.push_back(line);
        }
    }
    return arguments;
}

} // namespace

int LLVMFuzzerInitialize(int*, char***) {
    ::setenv("PVZAN_CHARSET_DIR", PVZAN_BASE2_DIR, 1);
    fuzz::scratch();
    my_init();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text = fuzz::as_text({data, size});
    std::vector<std::string> arguments = read_arguments(text);
    fuzz::scratch().clear();
    fuzz::scratch().write("a.txt", text);
    fuzz::scratch().write("b.txt", text.substr(text.size() / 2));
    const int file = ::open(fuzz::scratch().file("b.txt").c_str(), O_RDONLY);
    ::dup2(file, STDIN_FILENO);
    ::close(file);
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    static const int here = ::open(".", O_RDONLY | O_DIRECTORY);
    fuzz::expect(::chdir(fuzz::scratch().path().c_str()) == 0, "no scratch directory");
    const int status = tool_main(static_cast<int>(arguments.size()), argv.data());
    fuzz::expect(::fchdir(here) == 0, "no way back");
    fuzz::expect(status >= 0 && status <= 2, "an exit status that is none");
    return 0;
}
