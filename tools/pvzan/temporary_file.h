// Files that are written under another name, beside the one they are to have.
#pragma once

#include <string>
#include <sys/types.h>

namespace tool {

// How many may exist at once; no more threads may write files.
inline constexpr std::size_t most_temporaries = 64;

// Keeps SIGINT and the like from a thread that works for the main one, which removes the
// temporaries of all threads when such a signal ends the tool.
void hold_ending_signals();

class temporary_file {
public:
    temporary_file() = default;
    ~temporary_file();
    temporary_file(const temporary_file&) = delete;
    temporary_file& operator=(const temporary_file&) = delete;

    // Creates one beside the path. False on failure, with errno set.
    bool create(const std::string& path);
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
