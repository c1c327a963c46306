#include "tools/pvzan/convert/convert_file.h"

#include "tools/pvzan/convert/convert_text.h"
#include "tools/pvzan/convert/file_queue.h"
#include "tools/pvzan/convert/one_file.h"
#include "tools/pvzan/detect/line_charsets.h"
#include "tools/pvzan/directory/charset_directory.h"
#include "tools/pvzan/files/file_list.h"
#include "tools/pvzan/files/input_file.h"
#include "tools/pvzan/files/output_file.h"
#include "tools/pvzan/report/exit_status.h"
#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace tool {

namespace {

bool refuse(const std::string& message) {
    complain(message);
    return false;
}

// ---- Names -------------------------------------------------------------------------------------

bool choose_charsets(const convert_options& options, text_conversion& conversion) {
    std::vector<std::string> names = split_names(options.from);
    std::string to = options.to;
    if (options.web_labels) {
        std::ranges::transform(names, names.begin(), name_of_label);
        to = name_of_label(to);
    }
    if (names.empty()) {
        return refuse("--from needs a charset name");
    }
    conversion.guess = names.size() > 1 || names.front() == "auto";
    for (const std::string& name : names) {
        if (name != "auto" && !is_known(name)) {
            return false;
        }
    }
    if (conversion.guess) {
        conversion.choice = {names.size() > 1 ? names : std::vector<std::string>(),
                             options.language};
    }
    conversion.per_line = options.per_line;
    conversion.repair = options.repair;
    if (options.per_line) {
        const std::string obstacle = line_charsets(conversion.choice).obstacle();
        if (!obstacle.empty()) {
            return refuse(obstacle);
        }
    }
    if (!is_known(to)) {
        return false;
    }
    conversion.from = charset_of(conversion.guess ? "utf-8" : names.front());
    conversion.to = charset_of(to);
    conversion.options = options.text;
    auto error = new_record<pvzan_error>();
    text_feed probe(conversion.from, conversion.to, {}, options.text);
    return probe.open(&error) ||
           refuse(error.code == PVZAN_ERROR_OPTION
                      ? fmt::format("the substitute {} has no code in {}",
                                    character_text(options.text.substitute), conversion.to.shown)
                      : error.text);
}

// ---- Where the output goes ---------------------------------------------------------------------

enum class output_kind { stream, none, in_place, mirror };

bool choose_output(const convert_options& options, output_kind& kind) {
    struct stat status {};
    const bool directory =
        !options.output.empty() &&
        (options.output.back() == '/' ||
         (::stat(options.output.c_str(), &status) == 0 && S_ISDIR(status.st_mode)));
    if (options.check) {
        kind = output_kind::none;
        return true;
    }
    if (options.in_place) {
        kind = output_kind::in_place;
        return options.output.empty() || refuse("-i and -o cannot be combined");
    }
    kind = directory || (options.recursive && !options.output.empty()) ? output_kind::mirror
                                                                       : output_kind::stream;
    return true;
}

// Writing to a file that is still to be read would destroy it. Complains.
class input_guard {
public:
    explicit input_guard(const file_list& list) {
        for (const listed_file& file : list.files) {
            if (const auto id =
                    is_standard_input(file.path) ? id_of(STDIN_FILENO) : id_of(file.path)) {
                inputs_.emplace(*id, file.path);
            }
        }
    }
    [[nodiscard]] bool allows(const std::optional<file_id>& output) const {
        const auto input = output ? inputs_.find(*output) : inputs_.end();
        if (input != inputs_.end()) {
            complain_about(input->second,
                           "is both input and output; use -i to convert a file in place");
        }
        return input == inputs_.end();
    }

private:
    std::map<file_id, std::string> inputs_;
};

bool mirrors_safely(const file_list& list, const std::string& directory) {
    const input_guard guard(list);
    std::set<std::string> outputs;
    for (const listed_file& file : list.files) {
        if (file.mirrored.empty()) {
            return refuse(
                fmt::format("standard input has no file name to use in {}", printable(directory)));
        }
        const std::string output =
            (std::filesystem::path(directory) / file.mirrored).lexically_normal();
        if (!outputs.insert(output).second) {
            complain_about(output, "two input files would be written to this one");
            return false;
        }
        if (!guard.allows(id_of(output))) {
            return false;
        }
    }
    return true;
}

// ---- Several files, one output -----------------------------------------------------------------

int convert_to_stream(const convert_options& options, text_conversion conversion,
                      const file_list& list, int worst) {
    if (!input_guard(list).allows(options.output.empty() ? id_of(STDOUT_FILENO)
                                                         : id_of(options.output))) {
        return exit_no_work;
    }
    output_file output;
    const auto cannot_write = [&] {
        complain(output.error());
        return exit_no_work;
    };
    if (!output.open(options.output)) {
        return cannot_write();
    }
    const auto write = [&](bytes_view bytes) {
        if (!bytes.empty()) {
            conversion.options.mark = PVZAN_MARK_STRIP; // one byte-order mark for all files
        }
        return output.write(bytes);
    };
    const std::string lost = options.output.empty()
                                 ? std::string("the output stops before the first problem")
                                 : fmt::format("{} was not written", printable(options.output));
    for (const listed_file& file : list.files) {
        const file_outcome outcome = guarded(
            file, say_lines, [&] { return convert_one(file, conversion, write, lost, say_lines); });
        if (outcome.kind == file_kind::unwritable) {
            return cannot_write();
        }
        if (outcome.kind == file_kind::binary) {
            complain_about(
                file.path,
                fmt::format("looks binary ({}); use --from to convert it anyway", outcome.what));
        }
        worst = std::max(worst, outcome.status);
    }
    // The output gets its name only when every file went into it whole.
    const bool whole = worst == exit_converted || options.output.empty();
    return whole && (!output.flush() || !output.commit()) ? cannot_write() : worst;
}

// ---- Every file for itself ---------------------------------------------------------------------

std::string totals(const queue_totals& count, output_kind kind) {
    std::string text = fmt::format("{} {}", grouped(count.converted),
                                   kind == output_kind::none ? "passed" : "converted");
    if (count.unchanged > 0) {
        text += fmt::format(", {} unchanged", grouped(count.unchanged));
    }
    if (count.binary > 0) {
        text += fmt::format(", {} skipped", counted(count.binary, "binary file"));
    }
    if (count.failed > 0) {
        text += fmt::format(", {} failed{}", grouped(count.failed),
                            kind == output_kind::in_place ? " (left unchanged)" : "");
    }
    return text + "\n";
}

int convert_each(const convert_options& options, const text_conversion& conversion,
                 const file_list& list, output_kind kind, int worst) {
    file_task task = {conversion, kind == output_kind::in_place, options.backup_suffix, {}};
    if (kind == output_kind::mirror) {
        task.directory = options.output;
        if (!mirrors_safely(list, options.output)) {
            return exit_no_work;
        }
    }
    const auto work = [&](const listed_file& file, const line_sink& sink,
                          const std::function<void()>& converted) {
        return kind == output_kind::none ? convert_one(file, conversion, nullptr, {}, sink)
                                         : convert_own(file, task, sink, converted);
    };
    unsigned jobs = options.jobs;
    if (jobs == 0) {
        jobs = kind == output_kind::none ? 1 : std::max(std::thread::hardware_concurrency(), 1U);
    }
    const queue_totals count =
        run_queue(list.files, jobs, options.recursive, kind == output_kind::none, work);
    const message_style& style = current_style();
    if ((options.recursive || style.verbose) && !style.quiet && !style.json) {
        say_lines(totals(count, kind));
    }
    return std::max(worst, count.worst);
}

// The folders that are written to are looked at once more: not all of them were recursed into.
void tell_left_over(const convert_options& options, output_kind kind, file_list& list) {
    namespace fs = std::filesystem;
    std::set<std::string> folders;
    for (const listed_file& file : list.files) {
        if (kind == output_kind::in_place) {
            folders.insert(fs::path(file.path).parent_path());
        } else if (kind == output_kind::mirror) {
            folders.insert((options.output / fs::path(file.mirrored)).parent_path());
        }
    }
    if (kind == output_kind::stream && !options.output.empty()) {
        folders.insert(fs::path(options.output).parent_path());
    }
    for (const std::string& folder : folders) {
        look_for_left_over(folder, list.left_over);
    }
    for (const std::string& file : list.left_over) {
        complain_about(file, "was left behind by a run that was killed; delete it if no text is "
                             "missing");
    }
}

} // namespace

int convert_files(const convert_options& options) {
    text_conversion conversion;
    output_kind kind{};
    if (!choose_charsets(options, conversion) || !choose_output(options, kind)) {
        return exit_no_work;
    }
    std::vector<std::string> names = options.files;
    if (names.empty()) {
        names.emplace_back(options.recursive ? "." : "-");
    }
    file_list list = list_files(names, options.recursive);
    for (const std::string& error : list.errors) {
        say_lines(error);
    }
    if (!current_style().quiet) {
        tell_left_over(options, kind, list);
    }
    const int worst = list.errors.empty() ? exit_converted : exit_no_work;
    const message_style& style = current_style();
    conversion.options.read_back = conversion.options.read_back || options.check;
    conversion.options.excerpts =
        wants_excerpts(options.check ? STDOUT_FILENO : STDERR_FILENO) &&
        (options.check || options.text.on_error == PVZAN_TELL || style.verbose);
    conversion.options.count = style.verbose || style.json || options.check;
    const bool streams = kind == output_kind::stream;
    if (options.text.most_errors == std::numeric_limits<std::uint64_t>::max() &&
        (streams || list.files.size() == 1)) {
        conversion.jobs = std::clamp(options.jobs, 1U, static_cast<unsigned>(most_temporaries));
    }
    return streams ? convert_to_stream(options, conversion, list, worst)
                   : convert_each(options, conversion, list, kind, worst);
}

} // namespace tool
