#include "fuzz/support.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

namespace fuzz {

namespace {

class made_directory {
public:
    made_directory() {
        std::error_code none;
        const bool memory = ::access("/dev/shm", W_OK) == 0;
        std::string name = (memory ? std::string("/dev/shm")
                                   : std::filesystem::temp_directory_path(none).string()) +
                           "/pvzan-fuzz-XXXXXX";
        if (::mkdtemp(name.data()) == nullptr) {
            fail("no scratch directory");
        }
        top_ = name;
        // Deep inside, so that a path that climbs does not climb out.
        path_ = top_ + "/1/2/3/4/5/6/7/8";
        std::filesystem::create_directories(path_, none);
    }
    ~made_directory() {
        std::error_code none;
        std::filesystem::remove_all(top_, none);
    }
    made_directory(const made_directory&) = delete;
    made_directory& operator=(const made_directory&) = delete;
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string top_, path_;
};

} // namespace

void fail(const std::string& what) {
    std::fprintf(stderr, "fuzz: %s\n", what.c_str());
    std::abort();
}

exact_bytes::exact_bytes(bytes from) : data_(new std::uint8_t[from.size()]), size_(from.size()) {
    std::copy(from.begin(), from.end(), data_.get());
}

exact_bytes::exact_bytes(std::size_t size, std::uint8_t fill)
    : data_(new std::uint8_t[size]), size_(size) {
    std::fill_n(data_.get(), size, fill);
}

const std::string& scratch_directory() {
    static const made_directory made;
    return made.path();
}

void write_file(const std::string& path, bytes contents) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return; // a name that no file can have
    }
    if (!contents.empty()) {
        std::fwrite(contents.data(), 1, contents.size(), file);
    }
    std::fclose(file);
}

void empty_directory(const std::string& path) {
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(path, none)) {
        std::filesystem::remove_all(entry.path(), none);
    }
}

} // namespace fuzz
