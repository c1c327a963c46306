// Runs a fuzzer over files, or whole directories of them, without a fuzzing engine: as they are,
// then cut or changed in many places.
#include "fuzz/support.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

constexpr std::size_t damaged_runs = 8000; // of all files together

void run(const std::string& text) {
    const fuzz::exact_bytes exact(
        {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

std::string damaged(std::string text, fuzz::sequence& numbers) {
    const std::size_t at = numbers.below(static_cast<std::uint32_t>(text.size()));
    if (numbers.below(4) == 0) {
        text.resize(at);
    } else {
        const std::uint32_t bit = 1U << numbers.below(8), any = numbers.below(256);
        text[at] = static_cast<char>(
            numbers.below(2) == 0 ? any : bit ^ static_cast<std::uint8_t>(text[at]));
    }
    return text;
}

} // namespace

int main(int argc, char** argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        if (std::filesystem::is_directory(argv[i])) {
            const std::filesystem::directory_iterator entries(argv[i]);
            std::copy(begin(entries), end(entries), std::back_inserter(files));
        } else {
            files.emplace_back(argv[i]);
        }
    }
    std::ranges::sort(files);
    for (const std::filesystem::path& path : files) {
        std::ifstream file(path, std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        if (!file) {
            fuzz::fail("cannot read " + path.string());
        }
        std::fprintf(stderr, "%s\n", path.c_str());
        run(text);
        fuzz::sequence numbers(1);
        for (std::size_t i = 0; i < damaged_runs / files.size() && !text.empty(); ++i) {
            run(damaged(text, numbers));
        }
    }
    std::fprintf(stderr, "%zu inputs\n", files.size());
    return files.empty() ? 1 : 0;
}
