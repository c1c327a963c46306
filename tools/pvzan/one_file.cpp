#include "tools/pvzan/one_file.h"

#include "tools/pvzan/exit_status.h"
#include "tools/pvzan/message.h"
#include "tools/pvzan/output_file.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <sys/stat.h>

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
    case text_end::binary: return {exit_bad_text, file_kind::binary}; // who has asked for it tells
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

bool read_block(const input_file& file, std::vector<std::uint8_t>& block, std::size_t& filled) {
    filled = 0;
    ssize_t n = 1;
    while (n > 0 && filled < block.size()) {
        n = file.read(std::span(block).subspan(filled));
        filled += n > 0 ? static_cast<std::size_t>(n) : 0;
    }
    return n >= 0;
}

constexpr std::size_t block_bytes = 64 * 1024;

bool same_content(const std::string& one, const std::string& other) {
    const input_file a(one), b(other);
    std::vector<std::uint8_t> a_block(block_bytes), b_block(block_bytes);
    std::size_t a_filled = 1, b_filled = 1;
    while (a_filled > 0) {
        if (!a.is_open() || !b.is_open() || !read_block(a, a_block, a_filled) ||
            !read_block(b, b_block, b_filled) ||
            !std::ranges::equal(bytes_view(a_block).first(a_filled),
                                bytes_view(b_block).first(b_filled))) {
            return false;
        }
    }
    return true;
}

// The number of characters beyond ASCII in a file that is well-formed UTF-8; 0 for all others.
std::uint64_t utf8_characters(const std::string& path) {
    const charset_name utf8 = resolve_charset("utf-8");
    const input_file file(path);
    std::vector<std::uint8_t> block(block_bytes);
    std::uint64_t number = 0;
    for (std::size_t kept = 0, filled = 0;; kept += filled) {
        std::vector<std::uint8_t> more(block_bytes - kept);
        if (!file.is_open() || !read_block(file, more, filled)) {
            return 0;
        }
        std::copy_n(more.begin(), filled, block.begin() + static_cast<std::ptrdiff_t>(kept));
        const bytes_view text = bytes_view(block).first(kept + filled);
        const std::size_t whole = well_formed_length(text, utf8);
        number += static_cast<std::uint64_t>(std::ranges::count_if(
            text.first(whole), [](std::uint8_t byte) { return byte >= 0xC2; }));
        const std::size_t rest = text.size() - whole;
        if (filled == 0 || rest >= longest_code) {
            return rest == 0 ? number : 0;
        }
        std::copy_n(text.begin() + static_cast<std::ptrdiff_t>(whole), rest, block.begin());
        kept = rest;
        filled = 0;
    }
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
        return fail(file, "is binary; name its charset with --from to convert it", exit_bad_text,
                    sink);
    }
    return outcome_of(file, result, report, false, lost, sink);
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
std::string in_place_obstacle(const listed_file& file, const file_task& task,
                              const struct stat& status) {
    if (!S_ISREG(status.st_mode)) {
        return "is no regular file, so it cannot be converted in place";
    }
    if (status.st_nlink > 1 && task.backup_suffix.empty()) {
        return fmt::format("has {} names (hard links), and the others would keep the old text; "
                           "-i=SUFFIX converts it under this name",
                           status.st_nlink);
    }
    if (!task.backup_suffix.empty() && fs::exists(file.path + task.backup_suffix)) {
        return fmt::format("{} exists, and would be lost",
                           printable(file.path + task.backup_suffix));
    }
    return {};
}

bool has_changed(const std::string& path, const struct stat& before) {
    struct stat now {};
    return ::stat(path.c_str(), &now) != 0 || now.st_ino != before.st_ino ||
           now.st_size != before.st_size || now.st_mtim.tv_sec != before.st_mtim.tv_sec ||
           now.st_mtim.tv_nsec != before.st_mtim.tv_nsec;
}

} // namespace

file_outcome convert_own(const listed_file& file, const file_task& task,
                         const file_report::line_sink& sink) {
    const text_conversion& conversion = task.conversion;
    struct stat status {};
    const input_file input(file.path);
    if (!input.is_open() || ::stat(file.path.c_str(), &status) != 0) {
        return is_standard_input(file.path)
                   ? fail(file, "has no name to write to", exit_no_work, sink)
                   : cannot_open(file, sink);
    }
    std::string target = file.path;
    if (task.in_place) {
        const std::string obstacle = in_place_obstacle(file, task, status);
        if (!obstacle.empty()) {
            return fail(file, obstacle, exit_no_work, sink);
        }
        const bool utf8_expected = conversion.guess || conversion.from.form == unicode_form::utf8 ||
                                   conversion.from.unit_bytes() > 1 ||
                                   conversion.to.form != unicode_form::utf8;
        const std::uint64_t already = utf8_expected ? 0 : utf8_characters(file.path);
        if (already > 0) {
            return fail(file,
                        fmt::format("already valid UTF-8 with {} non-ASCII character{}; not "
                                    "converted a second time (name it with -o to insist)",
                                    grouped(already), already == 1 ? "" : "s"),
                        exit_bad_text, sink);
        }
    } else {
        target = fs::path(task.directory) / file.mirrored;
        std::error_code error;
        fs::create_directories(fs::path(target).parent_path(), error);
    }
    output_file output;
    if (!output.open(target)) {
        sink(complaint(output.error(), file.path));
        return {exit_no_work, file_kind::failed};
    }
    file_report report(file.path, conversion.to, conversion.options, false, sink);
    const text_result result = convert_text(
        input, conversion, [&](bytes_view bytes) { return output.write(bytes); }, report);
    const std::string lost = task.in_place ? std::string("it was left as it was")
                                           : fmt::format("{} was not written", printable(target));
    file_outcome outcome = outcome_of(file, result, report, false, lost, sink);
    if (outcome.kind == file_kind::unwritable) {
        sink(complaint(output.error(), file.path));
        return {exit_no_work, file_kind::failed};
    }
    if (outcome.kind != file_kind::converted) {
        return outcome;
    }
    if (!task.in_place) {
        if (!output.commit()) {
            sink(complaint(output.error(), file.path));
            return {exit_no_work, file_kind::failed};
        }
        return outcome;
    }
    if (result.facts.bytes_in == result.facts.bytes_out &&
        same_content(file.path, output.temporary_name())) {
        outcome.kind = file_kind::unchanged;
        return outcome;
    }
    if (has_changed(file.path, status)) {
        return fail(file, "was changed by someone else meanwhile; left as it is", exit_no_work,
                    sink);
    }
    const std::string backup =
        task.backup_suffix.empty() ? std::string() : file.path + task.backup_suffix;
    if (!output.replace(file.path, backup)) {
        sink(complaint(output.error(), file.path));
        return {exit_no_work, file_kind::failed};
    }
    return outcome;
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
            complain_about(input->second, "is an output, too; -i converts files in place");
            return false;
        }
    }
    return true;
}

} // namespace tool
