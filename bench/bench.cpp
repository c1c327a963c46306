// The benchmark: this library side by side with iconv(3), ICU, encoding_rs, and memcpy as the
// limit.
//
//     pvzan_bench TEXTS [--quick] [--newlines] [--rounds N] [--kernels NAME] [--before LIBRARY]
//                 [--no-peers] [PAIR [TEXT]]
//
// TEXTS is the directory that make_texts.py filled. PAIR is a part of FROM:TO, TEXT a part of a
// text's name; without PAIR the small costs are measured too. --quick takes 3 MB of each text and
// fewer rounds; --newlines normalises line breaks, as most callers do; --kernels takes those of
// another machine: portable, avx2, avx512; --before measures an older build of the shared library,
// with the kernels that it chooses, beside this one.
#include "bench/measures.h"

#include "cconv/fast/kernels/kernels.h"
#include "pvzan.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// False where this machine does not run them.
bool choose_kernels(const char* name) {
    fast::kernel_list list{};
    fast::list_kernels(list);
    for (std::size_t i = 0; list[i] != nullptr; ++i) {
        if (std::strcmp(list[i]->name, name) == 0) {
            fast::choose_kernels(list[i]);
            return true;
        }
    }
    std::fprintf(stderr, "no such kernels here: %s\n", name);
    return false;
}

} // namespace

int main(int argc, char** argv) {
    bench::options wanted;
    std::string* const words[] = {&wanted.texts, &wanted.pair, &wanted.text};
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--quick") == 0) {
            wanted.megabytes = 3;
            wanted.rounds = 5;
        } else if (std::strcmp(argv[i], "--newlines") == 0) {
            wanted.normalise_newlines = true;
        } else if (std::strcmp(argv[i], "--rounds") == 0 && i + 1 < argc) {
            wanted.rounds = std::strtoul(argv[++i], nullptr, 10);
        } else if (std::strcmp(argv[i], "--kernels") == 0 && i + 1 < argc) {
            if (!choose_kernels(argv[++i])) {
                return 2;
            }
        } else if (std::strcmp(argv[i], "--before") == 0 && i + 1 < argc) {
            wanted.older = argv[++i];
        } else if (std::strcmp(argv[i], "--no-peers") == 0) {
            wanted.peers = false;
        } else if (count < std::size(words)) {
            *words[count++] = argv[i];
        }
    }
    if (count == 0 || wanted.rounds == 0) {
        std::fprintf(
            stderr, "usage: pvzan_bench TEXTS [--quick] [--newlines] [--rounds N] [--kernels NAME] "
                    "[--before LIBRARY] [--no-peers] [PAIR [TEXT]]\n");
        return 2;
    }
    if (wanted.pair.empty() || wanted.pair == "small") {
        bench::measure_small_costs(wanted);
        std::printf("\n");
    }
    if (wanted.pair != "small") {
        my_init();
        ZAN_setCharsetPath(PVZAN_BASE2_DIR);
        bench::measure_throughput(wanted);
    }
    return 0;
}
