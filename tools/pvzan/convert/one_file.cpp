#include "tools/pvzan/convert/one_file.h"

#include "tools/pvzan/files/output_file.h"
#include "tools/pvzan/report/exit_status.h"
#include "tools/pvzan/report/message.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <new>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

namespace {

namespace fs = std::filesystem;

file_outcome fail(const listed_file& file, std::string_view message, int status,
                  const file_report::line_sink& sink) {
    sink(complaint_about(file.path, message));
    return {status, file_kind::failed};
}

file_outcome cannot_open(const listed_file& file, const file_report::line_sink& sink) {
    return fail(file, fmt::format("cannot open: {}", system_error_text(errno)), exit_no_work, sink);
}

// What the end of a text means for its file, once the report has the rest.
file_outcome outcome_of(const listed_file& file, const text_result& result, file_report& report,
                        bool checking, std::string_view lost, const file_report::line_sink& sink) {
    switch (result.end) {
    case text_end::unwritable: return {exit_no_work, file_kind::unwritable};
    case text_end::unreadable: return fail(file, result.error, exit_no_work, sink);
    case text_end::unknown: return fail(file, result.error, exit_bad_text, sink);
    case text_end::binary: // who has asked for it tells
        return {exit_bad_text, file_kind::binary, 0, result.error};
    case text_end::whole: break;
    }
    report.finish(result.facts, result.failed, lost);
    const bool bad = result.failed || (checking && report.problems() > 0);
    return {bad ? exit_bad_text : exit_converted, bad ? file_kind::failed : file_kind::converted,
            report.problems()};
}

// ---- Files as they lie -------------------------------------------------------------------------

using file_id = std::pair<dev_t, ino_t>;

std::optional<file_id> id_of(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return file_id{status.st_dev, status.st_ino};
}

constexpr std::size_t block_bytes = std::size_t{64} * 1024;

// From a place in an open file, as much as there is; less than a block at the end. False on
// failure.
bool read_block(int descriptor, std::uint64_t place, std::vector<std::uint8_t>& block) {
    std::size_t filled = 0;
    block.resize(block_bytes);
    ssize_t n = 1;
    while (filled < block.size() && (n > 0 || (n < 0 && errno == EINTR))) {
        n = ::pread(descriptor, block.data() + filled, block.size() - filled,
                    static_cast<off_t>(place + filled));
        filled += n > 0 ? static_cast<std::size_t>(n) : 0;
    }
    block.resize(filled);
    return n >= 0;
}

bool same_content(int one, int other) {
    std::vector<std::uint8_t> a, b;
    std::uint64_t place = 0;
    do {
        if (!read_block(one, place, a) || !read_block(other, place, b) || a != b) {
            return false;
        }
        place += a.size();
    } while (!a.empty());
    return true;
}

// The number of characters beyond ASCII in a file that is well-formed UTF-8; 0 for all others.
std::uint64_t utf8_characters(int descriptor) {
    const pvzan_name utf8 = charset_of("utf-8");
    const converter reads = open_converter(utf8, utf8);
    std::vector<std::uint8_t> block;
    std::uint64_t number = 0, place = 0;
    do {
        if (!read_block(descriptor, place, block) ||
            !passes(*reads, block, block.empty() ? PVZAN_LAST : PVZAN_PART)) {
            return 0;
        }
        number += static_cast<std::uint64_t>(
            std::ranges::count_if(block, [](std::uint8_t byte) { return byte >= 0xC2; }));
        place += block.size();
    } while (!block.empty());
    return number;
}

} // namespace

// ---- Shared output, and none -------------------------------------------------------------------

file_outcome convert_one(const listed_file& file, const text_conversion& conversion,
                         const std::function<bool(bytes_view)>& output, std::string_view lost,
                         const file_report::line_sink& sink) {
    const input_file input(file.path);
    if (!input.is_open()) {
        return cannot_open(file, sink);
    }
    file_report report(file.path, conversion.to, conversion.options, false, sink);
    const text_result result = convert_text(input, conversion, output, report);
    if (result.end == text_end::binary) {
        return fail(
            file,
            fmt::format("is binary ({}); name its charset with --from to convert it", result.error),
            exit_bad_text, sink);
    }
    return outcome_of(file, result, report, false, lost, sink);
}

file_outcome outcome_of_exception(const listed_file& file,
                                  const file_report::line_sink& sink) noexcept {
    try {
        try {
            throw;
        } catch (const std::bad_alloc&) {
            return fail(file, "there is not enough memory", exit_no_work, sink);
        } catch (const std::exception& error) {
            return fail(file, error.what(), exit_no_work, sink);
        }
    } catch (...) { // no memory even for the message
        return {exit_no_work, file_kind::failed};
    }
}

file_outcome check_one(const listed_file& file, const text_conversion& conversion,
                       const file_report::line_sink& sink) {
    const input_file input(file.path);
    if (!input.is_open()) {
        return cannot_open(file, sink);
    }
    file_report report(file.path, conversion.to, conversion.options, true, sink);
    const text_result result = convert_text(
        input, conversion, [](bytes_view) { return true; }, report);
    return outcome_of(file, result, report, true, {}, sink);
}

// ---- An output of its own ----------------------------------------------------------------------

namespace {

// Why a file cannot be converted in place; empty when it can.
std::string in_place_obstacle(const std::string& backup, const struct stat& status) {
    if (!S_ISREG(status.st_mode)) {
        return "is no regular file, so it cannot be converted in place";
    }
    if (status.st_nlink > 1 && backup.empty()) {
        return fmt::format("has {} names (hard links), and the others would keep the old text; "
                           "-i=SUFFIX converts it under this name",
                           status.st_nlink);
    }
    struct stat kept {};
    if (!backup.empty() && ::lstat(backup.c_str(), &kept) == 0 &&
        (kept.st_dev != status.st_dev || kept.st_ino != status.st_ino)) {
        return fmt::format("{} exists, and would be lost", printable(backup));
    }
    return {};
}

bool same_time(const struct timespec& one, const struct timespec& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

// Whether anything was done to the file since.
bool has_changed(const input_file& file, const struct stat& before) {
    struct stat now {};
    return ::fstat(file.descriptor(), &now) != 0 || now.st_size != before.st_size ||
           !same_time(now.st_mtim, before.st_mtim) || !same_time(now.st_ctim, before.st_ctim);
}

file_outcome cannot_write(const listed_file& file, const output_file& output,
                          const file_report::line_sink& sink) {
    sink(complaint(output.error(), file.path));
    return {exit_no_work, file_kind::failed};
}

struct written_text {
    file_outcome outcome;
    text_facts facts;
};

written_text write_text(const listed_file& file, const input_file& input,
                        const text_conversion& conversion, output_file& output,
                        std::string_view lost, const file_report::line_sink& sink) {
    file_report report(file.path, conversion.to, conversion.options, false, sink);
    const text_result result = convert_text(
        input, conversion, [&](bytes_view bytes) { return output.write(bytes); }, report);
    const file_outcome outcome = outcome_of(file, result, report, false, lost, sink);
    return {outcome.kind == file_kind::unwritable ? cannot_write(file, output, sink) : outcome,
            result.facts};
}

file_outcome convert_in_place(const listed_file& file, const file_task& task,
                              const input_file& input, const file_report::line_sink& sink,
                              const std::function<void()>& converted) {
    const text_conversion& conversion = task.conversion;
    const std::string backup =
        task.backup_suffix.empty() ? std::string() : file.path + task.backup_suffix;
    struct stat before {};
    if (::fstat(input.descriptor(), &before) != 0) {
        return cannot_open(file, sink);
    }
    const std::string obstacle = in_place_obstacle(backup, before);
    if (!obstacle.empty()) {
        return fail(file, obstacle, exit_no_work, sink);
    }
    const bool utf8_expected = conversion.guess || conversion.from.kind == PVZAN_KIND_UTF_8 ||
                               conversion.from.unit > 1 || conversion.to.kind != PVZAN_KIND_UTF_8;
    const std::uint64_t already = utf8_expected ? 0 : utf8_characters(input.descriptor());
    if (already > 0) {
        return fail(file,
                    fmt::format("already valid UTF-8 with {} non-ASCII character{}; not "
                                "converted a second time (name it with -o to insist)",
                                grouped(already), already == 1 ? "" : "s"),
                    exit_bad_text, sink);
    }
    output_file output;
    if (!output.open_in_place(file.path, input.descriptor())) {
        return cannot_write(file, output, sink);
    }
    auto [outcome, facts] =
        write_text(file, input, conversion, output, "it was left as it was", sink);
    if (outcome.kind != file_kind::converted) {
        return outcome;
    }
    if (facts.bytes_in == facts.bytes_out &&
        same_content(input.descriptor(), output.descriptor())) {
        outcome.kind = file_kind::unchanged;
        return outcome;
    }
    converted();
    if (!output.flush()) {
        return cannot_write(file, output, sink);
    }
    if (has_changed(input, before) || !output.has_its_name()) {
        return fail(file, "was changed by someone else meanwhile; left as it is", exit_no_work,
                    sink);
    }
    return output.commit(backup) ? outcome : cannot_write(file, output, sink);
}

} // namespace

file_outcome convert_own(const listed_file& file, const file_task& task,
                         const file_report::line_sink& sink,
                         const std::function<void()>& converted) {
    if (is_standard_input(file.path)) {
        return fail(file, "has no name to write to", exit_no_work, sink);
    }
    const input_file input(file.path);
    if (!input.is_open()) {
        return cannot_open(file, sink);
    }
    if (task.in_place) {
        return convert_in_place(file, task, input, sink, converted);
    }
    const std::string target = fs::path(task.directory) / file.mirrored;
    std::error_code ignored; // what is missing is told when the file is opened
    fs::create_directories(fs::path(target).parent_path(), ignored);
    output_file output;
    if (!output.open(target)) {
        return cannot_write(file, output, sink);
    }
    const file_outcome outcome =
        write_text(file, input, task.conversion, output,
                   fmt::format("{} was not written", printable(target)), sink)
            .outcome;
    if (outcome.kind != file_kind::converted) {
        return outcome;
    }
    converted();
    return output.flush() && output.commit() ? outcome : cannot_write(file, output, sink);
}

bool mirrors_safely(const file_list& list, const std::string& directory) {
    std::map<file_id, std::string> inputs;
    for (const listed_file& file : list.files) {
        if (const auto id = id_of(file.path)) {
            inputs.emplace(*id, file.path);
        }
    }
    std::set<std::string> outputs;
    for (const listed_file& file : list.files) {
        if (file.mirrored.empty()) {
            complain(fmt::format("standard input has no name in {}", printable(directory)));
            return false;
        }
        const std::string output = (fs::path(directory) / file.mirrored).lexically_normal();
        if (!outputs.insert(output).second) {
            complain_about(output, "two files would be written there");
            return false;
        }
        const auto id = id_of(output);
        if (const auto input = id ? inputs.find(*id) : inputs.end(); input != inputs.end()) {
            complain_about(input->second, "is also an output; -i converts files in place");
            return false;
        }
    }
    return true;
}

} // namespace tool
