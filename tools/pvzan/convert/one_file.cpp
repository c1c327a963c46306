#include "tools/pvzan/convert/one_file.h"

#include "tools/pvzan/detect/misreading.h"
#include "tools/pvzan/files/output_file.h"
#include "tools/pvzan/report/exit_status.h"
#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

namespace {

namespace fs = std::filesystem;

file_outcome fail(const listed_file& file, std::string_view message, int status,
                  const line_sink& sink) {
    sink(complaint_about(file.path, message));
    return {status, file_kind::failed};
}

file_outcome cannot_open(const listed_file& file, const line_sink& sink) {
    return fail(file, fmt::format("cannot open: {}", system_error_text(errno)), exit_no_work, sink);
}

// no output: a check. facts: what was found, if the text was read to its end.
file_outcome convert_open(const listed_file& file, const input_file& input,
                          const text_conversion& conversion, const byte_sink& output,
                          std::string_view lost, const line_sink& sink, text_facts* facts) {
    const bool checking = output == nullptr;
    file_report report(file.path, conversion.to, conversion.options, checking, sink);
    text_result result = convert_text(input, conversion,
                                      checking ? [](bytes_view) { return true; } : output, report);
    switch (result.end) {
    case text_end::unwritable: return {exit_no_work, file_kind::unwritable};
    case text_end::unreadable: return fail(file, result.error, exit_no_work, sink);
    case text_end::unknown: return fail(file, result.error, exit_bad_text, sink);
    case text_end::binary: return {exit_bad_text, file_kind::binary, 0, result.error};
    case text_end::whole: break;
    }
    if (const auto misreading = checking ? find_misreading(input.descriptor()) : std::nullopt) {
        report.note(fmt::format("looks like {}; see pvzan repair", misreading->words));
    }
    report.finish(result.facts, result.failed, lost);
    if (facts != nullptr) {
        *facts = result.facts;
    }
    const bool bad = result.failed || (checking && report.problems() > 0);
    return {bad ? exit_bad_text : exit_converted, bad ? file_kind::failed : file_kind::converted,
            report.problems()};
}

// The number of characters beyond ASCII in a file that is well-formed UTF-8; 0 for all others.
std::uint64_t utf8_characters(int descriptor) {
    const pvzan_name utf8 = charset_of("utf-8");
    const converter reader = open_converter(utf8, utf8);
    std::vector<std::uint8_t> block;
    std::uint64_t number = 0, place = 0;
    do {
        if (!read_block(descriptor, place, block) ||
            !passes(*reader, block, block.empty() ? PVZAN_LAST : PVZAN_PART)) {
            return 0;
        }
        number += static_cast<std::uint64_t>(
            std::ranges::count_if(block, [](std::uint8_t byte) { return byte >= 0xC2; }));
        place += block.size();
    } while (!block.empty());
    return number;
}

} // namespace

file_outcome convert_one(const listed_file& file, const text_conversion& conversion,
                         const byte_sink& output, std::string_view lost, const line_sink& sink) {
    const input_file input(file.path);
    return input.is_open() ? convert_open(file, input, conversion, output, lost, sink, nullptr)
                           : cannot_open(file, sink);
}

file_outcome outcome_of_exception(const listed_file& file, const line_sink& sink) noexcept {
    try {
        try {
            throw;
        } catch (const std::bad_alloc&) {
            return fail(file, "not enough memory", exit_no_work, sink);
        } catch (const std::exception& error) {
            return fail(file, error.what(), exit_no_work, sink);
        }
    } catch (...) { // no memory even for the message
        return {exit_no_work, file_kind::failed};
    }
}

// ---- An output of its own ----------------------------------------------------------------------

namespace {

// Why a file cannot be converted in place; empty when it can.
std::string in_place_obstacle(const std::string& backup, const struct stat& status) {
    if (!S_ISREG(status.st_mode)) {
        return "is not a regular file and cannot be converted in place";
    }
    if (status.st_nlink > 1 && backup.empty()) {
        return fmt::format("has {} hard links, and the others would keep the old text; use "
                           "-i=SUFFIX to convert only this one",
                           status.st_nlink);
    }
    struct stat kept {};
    if (!backup.empty() && ::lstat(backup.c_str(), &kept) == 0 &&
        (kept.st_dev != status.st_dev || kept.st_ino != status.st_ino)) {
        return fmt::format("{} exists and would be overwritten", printable(backup));
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
                          const line_sink& sink) {
    sink(complaint(output.error(), file.path));
    return {exit_no_work, file_kind::failed};
}

file_outcome write_text(const listed_file& file, const input_file& input,
                        const text_conversion& conversion, output_file& output,
                        std::string_view lost, const line_sink& sink, text_facts* facts) {
    const file_outcome outcome = convert_open(
        file, input, conversion, [&](bytes_view bytes) { return output.write(bytes); }, lost, sink,
        facts);
    return outcome.kind == file_kind::unwritable ? cannot_write(file, output, sink) : outcome;
}

file_outcome convert_in_place(const listed_file& file, const file_task& task,
                              const input_file& input, const line_sink& sink,
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
                    fmt::format("is already valid UTF-8 with {}; not converted again (use -o to "
                                "convert it anyway)",
                                counted(already, "non-ASCII character")),
                    exit_bad_text, sink);
    }
    output_file output;
    if (!output.open_in_place(file.path, input.descriptor())) {
        return cannot_write(file, output, sink);
    }
    text_facts facts;
    file_outcome outcome =
        write_text(file, input, conversion, output, "the file is unchanged", sink, &facts);
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
        return fail(file, "was changed by another program meanwhile; not converted", exit_no_work,
                    sink);
    }
    return output.commit(backup) ? outcome : cannot_write(file, output, sink);
}

} // namespace

file_outcome convert_own(const listed_file& file, const file_task& task, const line_sink& sink,
                         const std::function<void()>& converted) {
    if (is_standard_input(file.path)) {
        return fail(file, "has no file name to write to", exit_no_work, sink);
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
                   fmt::format("{} was not written", printable(target)), sink, nullptr);
    if (outcome.kind != file_kind::converted) {
        return outcome;
    }
    converted();
    return output.flush() && output.commit() ? outcome : cannot_write(file, output, sink);
}

} // namespace tool
