#include "tests/support/temp_dir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <unistd.h>

namespace test {

// In memory unless told otherwise: many tests write thousands of small files.
temp_dir::temp_dir(std::string_view inside) {
    const bool memory = std::getenv("TMPDIR") == nullptr && ::access("/dev/shm", W_OK) == 0;
    top_ = (memory ? "/dev/shm" : std::filesystem::temp_directory_path()) / "pvzan-test-XXXXXX";
    if (::mkdtemp(top_.data()) == nullptr) {
        throw std::runtime_error("cannot make a temporary directory");
    }
    path_ = top_ + "/" + std::string(inside);
    std::filesystem::create_directories(path_);
}

temp_dir::temp_dir(without_caches_t) : temp_dir() {
    for (const auto& entry : std::filesystem::directory_iterator(PVZAN_BASE2_DIR)) {
        if (entry.is_regular_file() && entry.path().extension() != ".cmp") {
            std::filesystem::copy(entry.path(), path_);
        }
    }
}

temp_dir::~temp_dir() {
    std::error_code ignored;
    std::filesystem::remove_all(top_, ignored);
}

void temp_dir::clear() const {
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
        std::filesystem::remove_all(entry);
    }
}

std::string temp_dir::file(std::string_view name) const {
    return path_ + std::string(name);
}

void temp_dir::write(std::string_view name, std::string_view bytes) const {
    std::ofstream out(file(name), std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void temp_dir::write_utf16(std::string_view name, std::string_view text) const {
    write(name, "\xFF\xFE" + widen(text, 2, false));
}

std::string temp_dir::read(std::string_view name) const {
    std::ifstream in(file(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

bool temp_dir::has(std::string_view name) const {
    return std::filesystem::exists(file(name));
}

std::string widen(std::string_view text, std::size_t unit_bytes, bool big_endian) {
    std::string out;
    for (const char c : text) {
        std::string unit(unit_bytes, '\0');
        unit[big_endian ? unit_bytes - 1 : 0] = c;
        out += unit;
    }
    return out;
}

} // namespace test
