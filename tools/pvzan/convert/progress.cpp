#include "tools/pvzan/convert/progress.h"

#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include <algorithm>
#include <unistd.h>

namespace tool {

namespace {

using namespace std::chrono_literals;

constexpr auto before_first = 1s; // quick work shows nothing
constexpr auto between = 100ms;

std::string size_text(double bytes) {
    constexpr std::array units = {"bytes", "kB", "MB", "GB", "TB"};
    std::size_t unit = 0;
    constexpr double step = 1000;
    while (bytes >= step && unit + 1 < units.size()) {
        bytes /= step;
        ++unit;
    }
    return fmt::format("{:.{}f} {}", bytes, unit == 0 || bytes >= 100 ? 0 : 1, units[unit]);
}

} // namespace

progress::progress(const std::vector<listed_file>& files)
    : wanted_(::isatty(STDERR_FILENO) == 1 && !current_style().quiet && !current_style().json),
      files_(files.size()) {
    for (const listed_file& file : files) {
        all_bytes_ += file.bytes;
    }
}

void progress::add(std::uint64_t bytes, std::uint64_t problems) {
    ++done_;
    bytes_ += bytes;
    problems_ += problems;
    const auto now = clock::now();
    if (wanted_ && files_ > 1 && now - start_ >= before_first && now - shown_ >= between) {
        show(now);
    }
}

void progress::show(clock::time_point now) {
    shown_ = now;
    on_screen_ = true;
    constexpr int width = 26;
    const double seconds = std::chrono::duration<double>(now - start_).count();
    const double part =
        all_bytes_ > 0 ? static_cast<double>(bytes_) / static_cast<double>(all_bytes_) : 0;
    const auto filled = static_cast<std::size_t>(part * width);
    const double speed = static_cast<double>(bytes_) / seconds;
    const auto left = static_cast<std::uint64_t>(
        speed > 0 ? static_cast<double>(all_bytes_ - std::min(bytes_, all_bytes_)) / speed : 0);
    std::string line =
        fmt::format("[{:-<{}}] {:3.0f} %  {}/{} files  {}  {}/s  {}:{:02} left",
                    std::string(std::min<std::size_t>(filled, width), '#'), width, part * 100,
                    grouped(done_), grouped(files_), size_text(static_cast<double>(bytes_)),
                    size_text(speed), left / 60, left % 60);
    if (problems_ > 0) {
        line += fmt::format("  {} problems", grouped(problems_));
    }
    show_status_line(line);
}

void progress::end() {
    if (on_screen_) {
        show_status_line({});
        on_screen_ = false;
    }
}

} // namespace tool
