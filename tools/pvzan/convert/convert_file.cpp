#include "tools/pvzan/convert/convert_file.h"

#include "tools/pvzan/convert/convert_text.h"
#include "tools/pvzan/convert/file_queue.h"
#include "tools/pvzan/convert/one_file.h"
#include "tools/pvzan/detect/line_charsets.h"
#include "tools/pvzan/directory/charset_directory.h"
#include "tools/pvzan/files/file_list.h"
#include "tools/pvzan/files/output_file.h"
#include "tools/pvzan/report/exit_status.h"
#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
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
        return refuse("--from needs a name");
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
        return (!options.in_place && options.output.empty()) ||
               refuse("check writes nothing: leave out -o and -i");
    }
    if (options.in_place) {
        kind = output_kind::in_place;
        return options.output.empty() || refuse("-i and -o cannot both be");
    }
    kind = directory || (options.recursive && !options.output.empty()) ? output_kind::mirror
                                                                       : output_kind::stream;
    return true;
}

// Writing to a file that is still to be read would destroy it.
bool output_is_input(const convert_options& options, const file_list& list) {
    struct stat out {};
    const bool known = options.output.empty() ? ::fstat(STDOUT_FILENO, &out) == 0
                                              : ::stat(options.output.c_str(), &out) == 0;
    if (!known || !S_ISREG(out.st_mode)) {
        return false;
    }
    for (const listed_file& file : list.files) {
        struct stat in {};
        const int found = is_standard_input(file.path) ? ::fstat(STDIN_FILENO, &in)
                                                       : ::stat(file.path.c_str(), &in);
        if (found == 0 && in.st_dev == out.st_dev && in.st_ino == out.st_ino) {
            complain_about(file.path, "is also the output; -i converts a file in place");
            return true;
        }
    }
    return false;
}

// ---- Several files, one output -----------------------------------------------------------------

int convert_to_stream(const convert_options& options, text_conversion conversion,
                      const file_list& list, int worst) {
    if (output_is_input(options, list)) {
        return exit_no_work;
    }
    output_file output;
    if (!output.open(options.output)) {
        complain(output.error());
        return exit_no_work;
    }
    const auto write = [&](bytes_view bytes) {
        if (!bytes.empty()) {
            conversion.options.mark = PVZAN_MARK_STRIP; // one byte-order mark for all files
        }
        return output.write(bytes);
    };
    const std::string lost = options.output.empty()
                                 ? std::string("its output ends before the first one")
                                 : fmt::format("{} was not written", printable(options.output));
    for (const listed_file& file : list.files) {
        const file_outcome outcome = guarded(
            file, say_lines, [&] { return convert_one(file, conversion, write, lost, say_lines); });
        if (outcome.kind == file_kind::unwritable) {
            complain(output.error());
            return exit_no_work;
        }
        worst = std::max(worst, outcome.status);
    }
    // The output gets its name only when every file went into it whole.
    const bool whole = worst == exit_converted || options.output.empty();
    if (whole && (!output.flush() || !output.commit())) {
        complain(output.error());
        return exit_no_work;
    }
    return worst;
}

// ---- Every file for itself ---------------------------------------------------------------------

std::string totals(const queue_totals& count, output_kind kind) {
    std::string text = fmt::format("{} {}", grouped(count.converted),
                                   kind == output_kind::none ? "sound" : "converted");
    const auto add = [&](std::uint64_t number, std::string_view words) {
        if (number > 0) {
            text += fmt::format(", {} {}", grouped(number), words);
        }
    };
    add(count.unchanged, "unchanged");
    add(count.binary, "binary skipped");
    add(count.failed, kind == output_kind::in_place ? "failed (left as they were)" : "failed");
    return text;
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
    const auto work = [&](const listed_file& file, const file_report::line_sink& sink,
                          const std::function<void()>& converted) {
        return kind == output_kind::none ? check_one(file, conversion, sink)
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
        say(totals(count, kind));
    }
    return std::max(worst, count.worst);
}

// The folders that are written to are looked at once more: not all of them were opened up.
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
        complain_about(file,
                       "was left over when a run was killed; remove it if no text is missing");
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
    const bool cuttable = options.text.most_errors == std::numeric_limits<std::uint64_t>::max();
    if (cuttable && list.files.size() == 1) {
        conversion.jobs = std::clamp(options.jobs, 1U, static_cast<unsigned>(most_temporaries));
    }
    if (kind == output_kind::stream) {
        if (cuttable) {
            conversion.jobs = std::clamp(options.jobs, 1U, static_cast<unsigned>(most_temporaries));
        }
        return convert_to_stream(options, conversion, list, worst);
    }
    return convert_each(options, conversion, list, kind, worst);
}

} // namespace tool
