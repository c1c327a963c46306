// pvzan: what the arguments ask for.
#include "tools/pvzan/cli/arguments.h"
#include "tools/pvzan/directory/charset_directory.h"
#include "tools/pvzan/files/output_file.h"
#include "tools/pvzan/report/exit_status.h"

#include "pvzan.h"

#include <exception>
#include <fcntl.h>
#include <malloc.h>
#include <new>
#include <unistd.h>

namespace {

int run(int argc, char** argv) {
    int status = tool::exit_converted;
    const std::optional<tool::command> command = tool::read_arguments(argc, argv, status);
    if (!command) {
        return status;
    }
    tool::set_message_style(command->style);
    const bool checks_directory = !command->list.check.empty();
    if (!checks_directory && !tool::open_charset_directory(command->charset_dir)) {
        return tool::exit_no_work;
    }
    switch (command->what) {
    case tool::verb::convert:
    case tool::verb::check:
    case tool::verb::repair: return tool::convert_files(command->convert);
    case tool::verb::detect: return tool::detect_files(command->detect);
    case tool::verb::list: break;
    }
    return tool::list_charsets(command->list);
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

// What one file needed is there for the next, without the system's clearing it once more.
void keep_memory() {
#ifdef M_TRIM_THRESHOLD
    constexpr int kept = 8 << 20;
    ::mallopt(M_TRIM_THRESHOLD, kept);
    ::mallopt(M_MMAP_THRESHOLD, kept);
#endif
}

} // namespace

int main(int argc, char** argv) {
    keep_standard_streams();
    keep_memory();
    tool::prepare_output();
    my_init();
    int status = tool::exit_no_work;
    try {
        status = run(argc, argv);
    } catch (const std::bad_alloc&) {
        tool::complain("not enough memory");
    } catch (const std::exception& error) {
        tool::complain(error.what());
    }
    my_fini();
    return status;
}
