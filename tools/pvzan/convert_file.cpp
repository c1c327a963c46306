#include "tools/pvzan/convert_file.h"

#include "tools/pvzan/charset_directory.h"
#include "tools/pvzan/exit_status.h"
#include "tools/pvzan/input_file.h"
#include "tools/pvzan/message.h"
#include "tools/pvzan/output_file.h"
#include "tools/pvzan/text_stream.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

namespace {

constexpr std::size_t input_bytes = 64 * 1024;
constexpr std::size_t most_messages = 20; // for each file

bool same_file(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// ---- Problems ----------------------------------------------------------------------------------

struct problem_counts {
    std::array<std::uint64_t, 3> of_kind{}; // by problem_kind

    [[nodiscard]] std::uint64_t total() const { return of_kind[0] + of_kind[1] + of_kind[2]; }
};

std::string code_point(char32_t scalar) {
    return fmt::format("U+{:04X}", static_cast<std::uint32_t>(scalar));
}

std::string describe(const problem& p, const charset_name& from, const charset_name& to) {
    switch (p.kind) {
    case problem_kind::invalid: return fmt::format("invalid {}", printable(from.asked));
    case problem_kind::incomplete:
        return fmt::format("the text ends inside a character of {}", printable(from.asked));
    case problem_kind::unrepresentable: break;
    }
    return fmt::format("{}{}{} has no code in {}", code_point(p.scalar), p.mark != 0 ? " " : "",
                       p.mark != 0 ? code_point(p.mark) : "", printable(to.asked));
}

std::string totals(const problem_counts& counts) {
    constexpr std::array words = {"invalid sequence", "unrepresentable character",
                                  "incomplete character"};
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::uint64_t n = counts.of_kind[i];
        if (n > 0) {
            text +=
                fmt::format("{}{} {}{}", text.empty() ? "" : ", ", n, words[i], n > 1 ? "s" : "");
        }
    }
    return text;
}

// ---- One run -----------------------------------------------------------------------------------

class conversion_run {
public:
    explicit conversion_run(const convert_options& options)
        : options_(options), from_(resolve_charset(options.from)),
          to_(resolve_charset(options.to)) {}

    int run() {
        std::vector<std::string> files = options_.files;
        if (files.empty()) {
            files.emplace_back("-");
        }
        if (!charsets_known() || output_is_input(files)) {
            return exit_no_work;
        }
        if (!output_.open(options_.output)) {
            complain(output_.error());
            return exit_no_work;
        }
        int worst = exit_converted;
        for (const std::string& file : files) {
            worst = std::max(worst, convert(file));
            if (output_failed_) {
                complain(output_.error());
                return exit_no_work;
            }
        }
        return finish(worst);
    }

private:
    bool charsets_known() {
        text_stream probe(from_, to_, {});
        if (probe.open()) {
            return true;
        }
        complain(fmt::format("unknown charset '{}' (pvzan list prints all names)",
                             printable(probe.unknown())));
        return false;
    }

    // Writing to a file that is still to be read would destroy it.
    bool output_is_input(const std::vector<std::string>& files) {
        struct stat out {};
        const bool known = options_.output.empty() ? ::fstat(STDOUT_FILENO, &out) == 0
                                                   : ::stat(options_.output.c_str(), &out) == 0;
        if (!known || !S_ISREG(out.st_mode)) {
            return false;
        }
        for (const std::string& file : files) {
            struct stat in {};
            const int found =
                is_standard_input(file) ? ::fstat(STDIN_FILENO, &in) : ::stat(file.c_str(), &in);
            if (found == 0 && same_file(in, out)) {
                complain(fmt::format("{}: is the output, too; name another output with -o",
                                     shown_name(file)));
                return true;
            }
        }
        return false;
    }

    int convert(const std::string& name) {
        const input_file file(name);
        if (!file.is_open()) {
            complain(
                fmt::format("{}: cannot open: {}", shown_name(name), system_error_text(errno)));
            return exit_no_work;
        }
        problem_counts counts;
        text_stream text(from_, to_,
                         {[this](bytes_view bytes) { write(bytes); },
                          [&](const problem& p) { report(name, p, counts); }});
        text.open();
        const int status = pump(file, text, name);
        if (counts.total() > most_messages) {
            say(fmt::format("{}: {} more problems not shown", shown_name(name),
                            counts.total() - most_messages));
        }
        if (counts.total() > 0) {
            const std::string lost =
                options_.output.empty()
                    ? std::string("its output ends before the first one")
                    : fmt::format("{} was not written", printable(options_.output));
            say(fmt::format("{}: not converted: {}; {}", shown_name(name), totals(counts), lost));
            return std::max<int>(status, exit_bad_text);
        }
        return status;
    }

    // Reads the file through the stream; what a piece leaves over goes before the next one.
    int pump(const input_file& file, text_stream& text, const std::string& name) {
        std::vector<std::uint8_t> buffer(input_bytes);
        constexpr std::size_t longest_mark = 4;
        std::size_t kept = 0;
        bool started = false;
        for (;;) {
            const ssize_t n = file.read(std::span(buffer).subspan(kept));
            if (n < 0) {
                complain(
                    fmt::format("{}: cannot read: {}", shown_name(name), system_error_text(errno)));
                return exit_no_work;
            }
            if (n == 0) {
                text.finish(bytes_view(buffer).first(kept));
                return exit_converted;
            }
            const std::size_t filled = kept + static_cast<std::size_t>(n);
            if (!started && filled < longest_mark) {
                kept = filled; // a byte-order mark is looked for in one piece
                continue;
            }
            started = true;
            const std::size_t used = text.feed(bytes_view(buffer).first(filled));
            kept = filled - used;
            std::memmove(buffer.data(), buffer.data() + used, kept);
            if (output_failed_) {
                return exit_no_work;
            }
        }
    }

    void write(bytes_view bytes) {
        output_failed_ = output_failed_ || !output_.write(bytes);
        to_.marked = false; // one byte-order mark for all files
    }

    void report(const std::string& name, const problem& p, problem_counts& counts) {
        ++counts.of_kind[static_cast<std::size_t>(p.kind)];
        if (counts.total() <= most_messages) {
            say(fmt::format("{}:{}:{}: error: {}, ({}) at byte {}", shown_name(name), p.place.line,
                            p.place.column, describe(p, from_, to_), hex_bytes(p.bytes),
                            p.place.offset));
        }
    }

    // The output gets its name only when every file went into it whole.
    int finish(int worst) {
        if (worst == exit_converted || options_.output.empty()) {
            if (!output_.commit()) {
                complain(output_.error());
                return exit_no_work;
            }
        }
        return worst;
    }

    const convert_options& options_;
    charset_name from_, to_;
    output_file output_;
    bool output_failed_ = false;
};

} // namespace

int convert_files(const convert_options& options) {
    return open_charset_directory(options.charset_dir) ? conversion_run(options).run()
                                                       : int{exit_no_work};
}

} // namespace tool
