#include "tools/pvzan/detect/detect_file.h"

#include "tools/pvzan/detect/misreading.h"
#include "tools/pvzan/directory/charset_directory.h"
#include "tools/pvzan/files/input_file.h"
#include "tools/pvzan/report/exit_status.h"
#include "tools/pvzan/report/json.h"
#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include <algorithm>
#include <cerrno>
#include <limits>

namespace tool {

namespace {

struct detected {
    source_guess guess;
    const char* breaks = ""; // of the beginning
    std::optional<pvzan_misreading> misreading;
};

// As a conversion guesses; false on failure, with errno set.
bool look_at(const std::string& name, const guess_choice& choice, detected& found) {
    const input_file file(name);
    if (!file.is_open()) {
        return false;
    }
    constexpr std::size_t begin_bytes = 64 * 1024;
    std::vector<std::uint8_t> begin;
    bool failed = false;
    const auto read = [&](std::span<std::uint8_t> into) {
        const ssize_t n = file.read(into);
        failed = failed || n < 0;
        return n > 0 ? static_cast<std::size_t>(n) : 0;
    };
    if (auto guess = guess_file(file, choice)) {
        found.guess = std::move(*guess);
        begin.resize(begin_bytes);
        begin.resize(read(begin));
    } else {
        std::vector<std::uint8_t> rest;
        const auto keep = [&](bytes_view lines) {
            if (begin.size() < begin_bytes) {
                begin.insert(begin.end(), lines.begin(), lines.end());
            }
        };
        found.guess = pipe_guess(file, choice).run(rest, read, keep);
        keep(rest);
    }
    if (found.guess.is_known()) {
        found.breaks = kind_of_breaks(begin, unit_of(found.guess.charset(), begin));
    }
    if (found.guess.is_sure() && found.guess.charset().kind == PVZAN_KIND_UTF_8) {
        found.misreading = find_misreading(begin);
    }
    return !failed;
}

std::string json_line(const std::string& name, const detected& found) {
    const source_guess& guess = found.guess;
    const std::string_view breaks = found.breaks;
    json_object line;
    line.add("file", name)
        .add_json("charset", guess.is_known() ? json_string(guess.charset().shown) : "null")
        .add("sure", guess.is_sure())
        .add_json("eol", breaks.empty()
                             ? "null"
                             : json_string(fold_name(breaks.substr(0, breaks.find(' ')))))
        .add("bom", guess.result.mark != 0);
    if (guess.is_binary()) {
        line.add("binary", true);
    }
    if (*guess.result.why != '\0') {
        line.add("reason", guess.result.why);
    }
    if (guess.result.doubt != std::numeric_limits<std::uint64_t>::max()) {
        line.add("doubt", guess.result.doubt);
    }
    if (found.misreading) {
        line.add("misreading", found.misreading->words);
    }
    std::vector<std::string> candidates;
    for (const pvzan_candidate& candidate : guess.candidates) {
        json_object one;
        one.add("charset", candidate.name.shown)
            .add_json("score",
                      fmt::format("{:.2f}", static_cast<double>(candidate.per_million) / 1e6));
        if (*candidate.reading != '\0') {
            one.add("reading", candidate.reading);
        }
        candidates.push_back(one.text());
    }
    return line.add_json("candidates", json_array(candidates)).line();
}

std::string plain_line(const std::string& name, std::size_t width, const detected& found) {
    const source_guess& guess = found.guess;
    std::string line = fmt::format("{:<{}}   ", name, width);
    if (guess.is_binary()) {
        return line + fmt::format("binary ({})\n", guess.result.why);
    }
    if (!guess.is_known()) {
        return line + "unknown\n";
    }
    const std::string_view breaks = *found.breaks == '\0' ? "-" : found.breaks;
    const std::string mark = guess.result.mark != 0 ? ", BOM" : "";
    line += fmt::format("{:<18}{:<7}{}", guess.charset().shown + mark,
                        breaks.substr(0, breaks.find(' ')), guess.is_sure() ? "sure" : "unsure");
    std::string reason = printable(guess.result.why);
    if (found.misreading) {
        reason = fmt::format("looks like {}; see pvzan repair", found.misreading->words);
    }
    if (!guess.is_sure() && reason.empty() && guess.candidates.size() > 1) {
        const pvzan_candidate &best = guess.candidates[0], &next = guess.candidates[1];
        reason =
            fmt::format("{} fits too: from byte {} on '{}', not '{}'", printable(next.name.shown),
                        guess.result.doubt, printable(next.reading), printable(best.reading));
    }
    if (!reason.empty()) {
        line += fmt::format("{}({})", guess.is_sure() ? "     " : "   ", reason);
    }
    return line + "\n";
}

int detect(const std::string& name, std::size_t width, const detect_options& options) {
    detected found;
    if (!look_at(name, options.choice, found)) {
        complain_about(name, fmt::format("cannot read: {}", system_error_text(errno)));
        return exit_no_work;
    }
    answer_lines(current_style().json ? json_line(name, found)
                                      : plain_line(shown_name(name), width, found));
    return found.guess.is_known() ? exit_converted : exit_bad_text;
}

} // namespace

int detect_files(const detect_options& options) {
    std::vector<std::string> files = options.files;
    if (files.empty()) {
        files.emplace_back("-");
    }
    for (const std::string& name : options.choice.among) {
        if (!is_known(name)) {
            return exit_no_work;
        }
    }
    std::size_t width = 0;
    for (const std::string& file : files) {
        width = std::max(width, shown_name(file).size());
    }
    int worst = exit_converted;
    for (const std::string& file : files) {
        worst = std::max(worst, detect(file, width, options));
    }
    return finish_answers() ? worst : exit_no_work;
}

} // namespace tool
