// pvzan: the arguments, and what they ask for.
#include "tools/pvzan/convert_file.h"
#include "tools/pvzan/detect_file.h"
#include "tools/pvzan/exit_status.h"

#include "pvzan.h"

#include <CLI/CLI.hpp>

#include <exception>
#include <fmt/core.h>

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

int run(int argc, char** argv) {
    CLI::App app("Convert text between Japanese, Chinese, Korean and Unicode encodings", "pvzan");
    app.set_version_flag("--version", "pvzan " PVZAN_VERSION);
    app.require_subcommand(1);
    tool::convert_options convert;
    tool::detect_options detect;
    add_convert(app, convert);
    add_detect(app, detect);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? tool::exit_converted : tool::exit_no_work;
    }
    return app.got_subcommand("detect") ? tool::detect_files(detect) : tool::convert_files(convert);
}

} // namespace

int main(int argc, char** argv) {
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
