// Files that are written under a short, hidden name in the folder of the one they are to have.
#pragma once

#include <csignal>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace tool {

// How many may exist at once; no more threads may write files.
inline constexpr std::size_t most_temporaries = 64;

// Keeps SIGINT and the like from a thread that works for the main one, which removes the
// temporaries of all threads when such a signal ends the tool.
void hold_ending_signals();

// While one exists, no signal ends the tool: it waits for what must be done whole.
class ending_held {
public:
    ending_held();
    ~ending_held();
    ending_held(const ending_held&) = delete;
    ending_held& operator=(const ending_held&) = delete;

private:
    sigset_t before_{};
};

// Whether a file has the name of a temporary one, of this run or another.
bool is_temporary_name(std::string_view name);
// Whether nobody writes a temporary file any more, as after a run that was killed.
bool is_left_over(const std::string& path);

class temporary_file {
public:
    temporary_file() = default;
    ~temporary_file();
    temporary_file(const temporary_file&) = delete;
    temporary_file& operator=(const temporary_file&) = delete;

    // Creates one in a folder, for its owner only. False on failure, with errno set.
    bool create(const std::string& folder);
    [[nodiscard]] bool exists() const { return !name_.empty(); }
    [[nodiscard]] int descriptor() const { return descriptor_; }
    [[nodiscard]] const std::string& name() const { return name_; }
    // Closes it; the name stays.
    bool close();
    // Gives it the name it was made for, replacing what has it.
    bool rename_to(const std::string& path);

private:
    void forget();

    int descriptor_ = -1;
    std::string name_;
    std::size_t slot_ = 0;
};

} // namespace tool
