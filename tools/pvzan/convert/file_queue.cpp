#include "tools/pvzan/convert/file_queue.h"

#include "tools/pvzan/convert/progress.h"
#include "tools/pvzan/files/temporary_file.h"
#include "tools/pvzan/report/exit_status.h"
#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <sys/resource.h>
#include <thread>
#include <utility>

namespace tool {

namespace {

struct finished_file {
    file_outcome outcome;
    std::string lines;
};

// How many may convert at a time. Not std::counting_semaphore: in libstdc++ 12, who waits may sleep
// on although there is a turn, when others take and give turns meanwhile.
class turns {
public:
    explicit turns(unsigned free) : free_(free) {}
    void take() {
        std::unique_lock lock(mutex_);
        freed_.wait(lock, [this] { return free_ > 0; });
        --free_;
    }
    void give() {
        const std::scoped_lock lock(mutex_);
        ++free_;
        freed_.notify_one();
    }

private:
    std::mutex mutex_;
    std::condition_variable freed_;
    unsigned free_;
};

class file_queue {
public:
    file_queue(const std::vector<listed_file>& files, bool skips_binary, bool on_output,
               const file_work& work)
        : files_(files), skips_binary_(skips_binary), on_output_(on_output), work_(work),
          finished_(files.size()), progress_(files) {}

    queue_totals run(unsigned jobs) {
        const std::size_t threads = number_of_threads(jobs);
        if (threads <= 1) {
            const auto at_once = [this](std::string_view lines) { print(lines); };
            for (const listed_file& file : files_) {
                count(file, guarded(file, at_once, [&] { return work_(file, at_once, [] {}); }),
                      at_once);
            }
        } else {
            run_threads(threads, jobs);
        }
        progress_.end();
        if (on_output_ && !finish_answers()) {
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

    void count(const listed_file& file, file_outcome outcome, const line_sink& sink) {
        switch (outcome.kind) {
        case file_kind::converted: ++totals_.converted; break;
        case file_kind::unchanged: ++totals_.unchanged; break;
        case file_kind::binary:
            ++totals_.binary;
            outcome.status = skips_binary_ ? exit_converted : outcome.status;
            if (!skips_binary_ || current_style().verbose) {
                sink(complaint_about(
                    file.path, fmt::format("looks binary ({}); not converted", outcome.what)));
            }
            break;
        default: ++totals_.failed; break;
        }
        totals_.worst = std::max(totals_.worst, outcome.status);
        progress_.add(file.bytes, outcome.problems);
    }

    // As many as may wait, unless there is a limit to what they take.
    [[nodiscard]] std::size_t number_of_threads(unsigned jobs) const {
        constexpr rlim_t for_all = 16, for_each = 3; // descriptors
        rlimit memory{}, descriptors{};
        ::getrlimit(RLIMIT_AS, &memory);
        ::getrlimit(RLIMIT_NOFILE, &descriptors);
        const rlim_t files = std::max(descriptors.rlim_cur, for_all + for_each) - for_all;
        const bool only_jobs = on_output_ || memory.rlim_cur != RLIM_INFINITY;
        return std::min({only_jobs ? std::size_t{jobs} : most_temporaries, most_temporaries,
                         static_cast<std::size_t>(files / for_each), files_.size()});
    }

    // This thread is one of them, and does it all when the system gives no others.
    void run_threads(std::size_t number, unsigned jobs) {
        turns shared(jobs);
        std::vector<std::thread> threads;
        threads.reserve(number);
        try {
            while (threads.size() + 1 < number) {
                threads.emplace_back([&] {
                    hold_ending_signals();
                    take_files(shared);
                });
            }
        } catch (const std::exception&) { // fewer, then
        }
        take_files(shared);
        for (std::thread& thread : threads) {
            thread.join();
        }
        if (trouble_) {
            std::rethrow_exception(trouble_);
        }
    }

    void take_files(turns& shared) noexcept {
        try {
            while (take_file(shared)) {
            }
        } catch (...) {
            const std::scoped_lock lock(mutex_);
            trouble_ = std::current_exception();
        }
    }

    // False when there is none.
    bool take_file(turns& shared) {
        bool has_turn = true;
        shared.take();
        const auto give_turn = [&] {
            if (std::exchange(has_turn, false)) {
                shared.give();
            }
        };
        const std::size_t k = next_++;
        const bool found = k < files_.size();
        finished_file result{};
        if (found) {
            const auto sink = [&](std::string_view lines) { result.lines += lines; };
            result.outcome =
                guarded(files_[k], sink, [&] { return work_(files_[k], sink, give_turn); });
        }
        give_turn();
        if (found) {
            const std::scoped_lock lock(mutex_);
            finished_[k] = std::move(result);
            tell_finished();
        }
        return found;
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
    std::atomic<std::size_t> next_ = 0;
    std::mutex mutex_; // of what is finished, and told
    std::exception_ptr trouble_;
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
