#include "tools/pvzan/file_queue.h"

#include "tools/pvzan/exit_status.h"
#include "tools/pvzan/message.h"
#include "tools/pvzan/progress.h"
#include "tools/pvzan/temporary_file.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace tool {

namespace {

struct finished_file {
    file_outcome outcome;
    std::string lines;
};

class file_queue {
public:
    file_queue(const std::vector<listed_file>& files, bool skips_binary, bool on_output,
               const file_work& work)
        : files_(files), skips_binary_(skips_binary), on_output_(on_output), work_(work),
          finished_(files.size()), progress_(files) {}

    queue_totals run(unsigned jobs) {
        if (jobs <= 1) {
            const auto at_once = [this](std::string_view lines) { print(lines); };
            for (const listed_file& file : files_) {
                count(file, work_(file, at_once), at_once);
            }
        } else {
            run_threads(jobs);
        }
        progress_.end();
        if (on_output_ && (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)) {
            complain(fmt::format("standard output: cannot write: {}", system_error_text(errno)));
            totals_.worst = exit_no_work;
        }
        return totals_;
    }

private:
    void print(std::string_view lines) const {
        if (on_output_) {
            answer_lines(lines);
        } else {
            say_lines(lines);
        }
    }

    void count(const listed_file& file, file_outcome outcome, const file_report::line_sink& sink) {
        switch (outcome.kind) {
        case file_kind::converted: ++totals_.converted; break;
        case file_kind::unchanged: ++totals_.unchanged; break;
        case file_kind::binary:
            ++totals_.binary;
            if (skips_binary_) {
                outcome.status = exit_converted;
            } else {
                sink(complaint_about(file.path, "is binary; left as it is"));
            }
            break;
        default: ++totals_.failed; break;
        }
        totals_.worst = std::max(totals_.worst, outcome.status);
        progress_.add(file.bytes, outcome.problems);
    }

    void run_threads(unsigned jobs) {
        std::atomic<std::size_t> next = 0;
        std::vector<std::thread> threads;
        const std::size_t number = std::min<std::size_t>({jobs, most_temporaries, files_.size()});
        for (std::size_t i = 0; i < number; ++i) {
            threads.emplace_back([&] {
                hold_ending_signals();
                for (std::size_t k = next++; k < files_.size(); k = next++) {
                    finished_file result{};
                    result.outcome =
                        work_(files_[k], [&](std::string_view lines) { result.lines += lines; });
                    const std::scoped_lock lock(mutex_);
                    finished_[k] = std::move(result);
                    tell_finished();
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    // In the order of the files, as far as those before are finished.
    void tell_finished() {
        for (; told_ < files_.size() && finished_[told_]; ++told_) {
            const finished_file result = *std::exchange(finished_[told_], std::nullopt);
            print(result.lines);
            count(files_[told_], result.outcome, [this](std::string_view lines) { print(lines); });
        }
    }

    const std::vector<listed_file>& files_;
    bool skips_binary_, on_output_;
    const file_work& work_;
    std::vector<std::optional<finished_file>> finished_;
    std::mutex mutex_; // of what is finished, and told
    std::size_t told_ = 0;
    queue_totals totals_;
    progress progress_;
};

} // namespace

queue_totals run_queue(const std::vector<listed_file>& files, unsigned jobs, bool skips_binary,
                       bool on_output, const file_work& work) {
    return file_queue(files, skips_binary, on_output, work).run(jobs);
}

} // namespace tool
