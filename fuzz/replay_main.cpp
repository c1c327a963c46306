// Runs a fuzzer over files, or whole directories of them, without a fuzzing engine.
#include "fuzz/support.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

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
        const fuzz::exact_bytes exact(
            {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
        LLVMFuzzerTestOneInput(exact.data(), exact.size());
    }
    std::fprintf(stderr, "%zu inputs\n", files.size());
    return files.empty() ? 1 : 0;
}
