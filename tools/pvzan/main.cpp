// pvzan: the arguments, and what they ask for.
#include "tools/pvzan/charset_directory.h"
#include "tools/pvzan/convert_file.h"
#include "tools/pvzan/detect_file.h"
#include "tools/pvzan/exit_status.h"
#include "tools/pvzan/list_charsets.h"
#include "tools/pvzan/message.h"

#include "pvzan.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <exception>
#include <fcntl.h>
#include <fmt/core.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

void add_convert(CLI::App& app, tool::convert_options& options) {
    CLI::App* verb = app.add_subcommand("convert", "Convert files, or standard input");
    verb->add_option("-f,--from", options.from, "Charset of the input")
        ->required()
        ->type_name("NAME");
    verb->add_option("-t,--to", options.to, "Charset of the output")
        ->capture_default_str()
        ->type_name("NAME");
    verb->add_option("-o,--output", options.output, "Output file; else standard output")
        ->type_name("PATH");
    verb->add_option("--charset-dir", options.charset_dir, "Where the charset definitions lie")
        ->type_name("DIR");
    verb->add_option("files", options.files, "Files; none, or -, is standard input")
        ->type_name("FILE");
}

void add_detect(CLI::App& app, tool::detect_options& options) {
    CLI::App* verb = app.add_subcommand("detect", "Tell what encoding files are in");
    verb->add_option("--charset-dir", options.charset_dir, "Where the charset definitions lie")
        ->type_name("DIR");
    verb->add_option("files", options.files, "Files; none, or -, is standard input")
        ->type_name("FILE");
}

void add_list(CLI::App& app, tool::list_options& options) {
    CLI::App* verb = app.add_subcommand(
        "list", "List the charsets: name, number, decoder, encoder, coded sets by preference");
    verb->add_option("--charset-dir", options.charset_dir, "Where the charset definitions lie")
        ->type_name("DIR");
    verb->add_option("--check", options.check,
                     "Read a charset directory as the library does; tell what is wrong with it")
        ->type_name("DIR");
}

std::string version() {
    const tool::charset_directory directory = tool::settle_charset_directory({});
    return fmt::format(
        "pvzan " PVZAN_VERSION "\ncharset directory: {}",
        directory.path.empty()
            ? "none"
            : fmt::format("{} ({})", tool::printable(directory.path), directory.reason));
}

// Without a verb the arguments are those of convert. A file that bears a verb's name is written
// "./convert".
std::vector<std::string> with_verb(int argc, char** argv) {
    std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    constexpr std::array known = {"convert", "detect", "list", "-h", "--help", "--version"};
    if (!arguments.empty() && std::ranges::find(known, arguments.front()) == known.end()) {
        arguments.insert(arguments.begin(), "convert");
    }
    return arguments;
}

int run(int argc, char** argv) {
    CLI::App app("Convert text between Japanese, Chinese, Korean and Unicode encodings", "pvzan");
    app.set_version_flag("--version", version);
    app.require_subcommand(1);
    tool::convert_options convert;
    tool::detect_options detect;
    add_convert(app, convert);
    tool::list_options list;
    add_detect(app, detect);
    add_list(app, list);
    try {
        std::vector<std::string> arguments = with_verb(argc, argv);
        std::ranges::reverse(arguments); // as CLI11 takes them
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? tool::exit_converted : tool::exit_no_work;
    }
    if (app.got_subcommand("list")) {
        return tool::list_charsets(list);
    }
    return app.got_subcommand("detect") ? tool::detect_files(detect) : tool::convert_files(convert);
}

// A file opened under the number of a closed standard stream would be taken for that stream.
void keep_standard_streams() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(descriptor, F_GETFD) < 0) {
            // The wrong way round, so that its use fails.
            ::open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    keep_standard_streams();
    my_init();
    int status = tool::exit_no_work;
    try {
        status = run(argc, argv);
    } catch (const std::exception& error) {
        fmt::print(stderr, "pvzan: {}\n", error.what());
    }
    my_fini();
    return status;
}
