// Throughput in MB (10^6 bytes) of input a second: this library, iconv(3), ICU, and memcpy as the
// limit. The contenders take turns in each round, and the median of the rounds counts; the spread
// is the distance between the quartiles, in per cent of it.
//
//     pvzan_bench [--rounds N] [--newlines] TEXT...      each TEXT a UTF-8 file
#include "bench/converters.h"

#include "pvzan.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

namespace {

using bench::converter;
using bench::pair_name;

constexpr pair_name pairs[] = {
    {"shift_jis", "utf-8", "SHIFT_JIS", "UTF-8", "ibm-943_P15A-2003", "UTF-8"},
    {"utf-8", "shift_jis", "UTF-8", "SHIFT_JIS", "UTF-8", "ibm-943_P15A-2003"},
    {"windows31j", "utf-8", "CP932", "UTF-8", "windows-31j", "UTF-8"},
    {"utf-8", "windows31j", "UTF-8", "CP932", "UTF-8", "windows-31j"},
    {"euc-jp", "utf-8", "EUC-JP", "UTF-8", "EUC-JP", "UTF-8"},
    {"utf-8", "euc-jp", "UTF-8", "EUC-JP", "UTF-8", "EUC-JP"},
    {"iso-2022-jp", "utf-8", "ISO-2022-JP", "UTF-8", "ISO-2022-JP", "UTF-8"},
    {"utf-8", "iso-2022-jp", "UTF-8", "ISO-2022-JP", "UTF-8", "ISO-2022-JP"},
    {"shift_jis-2004", "utf-8", "SHIFT_JISX0213", "UTF-8", nullptr, nullptr},
    {"utf-8", "shift_jis-2004", "UTF-8", "SHIFT_JISX0213", nullptr, nullptr},
    {"euc-jis-2004", "utf-8", "EUC-JISX0213", "UTF-8", nullptr, nullptr},
    {"utf-8", "euc-jis-2004", "UTF-8", "EUC-JISX0213", nullptr, nullptr},
    {"chinesegbk", "utf-8", "GBK", "UTF-8", "GBK", "UTF-8"},
    {"utf-8", "chinesegbk", "UTF-8", "GBK", "UTF-8", "GBK"},
    {"gb18030", "utf-8", "GB18030", "UTF-8", "gb18030", "UTF-8"},
    {"utf-8", "gb18030", "UTF-8", "GB18030", "UTF-8", "gb18030"},
    {"shift_jis", "euc-jp", "SHIFT_JIS", "EUC-JP", "ibm-943_P15A-2003", "EUC-JP"},
    {"euc-jp", "shift_jis", "EUC-JP", "SHIFT_JIS", "EUC-JP", "ibm-943_P15A-2003"},
    {"shift_jis", "utf-16le", "SHIFT_JIS", "UTF-16LE", "ibm-943_P15A-2003", "UTF-16LE"},
    {"utf-16le", "shift_jis", "UTF-16LE", "SHIFT_JIS", "UTF-16LE", "ibm-943_P15A-2003"},
    {"utf-8", "utf-16le", "UTF-8", "UTF-16LE", "UTF-8", "UTF-16LE"},
    {"utf-16le", "utf-8", "UTF-16LE", "UTF-8", "UTF-16LE", "UTF-8"},
};

std::vector<std::uint8_t> read_file(const char* path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The text in the source charset of a pair; characters that it lacks are dropped.
std::vector<std::uint8_t> make_input(const std::vector<std::uint8_t>& utf8, const pair_name& pair) {
    const pair_name there{"utf-8", pair.from, nullptr, nullptr, nullptr, nullptr};
    const pair_name back{pair.from, "utf-8", nullptr, nullptr, nullptr, nullptr};
    static_cast<void>(back);
    auto s = std::make_unique<pvzan_session>();
    std::string to = there.to;
    const bool little = to.ends_with("le");
    if (little) {
        to.resize(to.size() - 2);
    }
    pvzan_target_options target{};
    target.dstBigEndian = little ? 0 : 1;
    pvzan_source_options source{};
    source.srcBigEndian = 1;
    std::vector<std::uint8_t> out(utf8.size() * 2 + 64);
    if (cconvInitConvert(s.get(), &target, to.c_str()) != 0 ||
        cconvChgCharset(s.get(), &source, "utf-8") != 0) {
        return {};
    }
    s->inBuf = utf8.data();
    s->inLen = static_cast<std::int32_t>(utf8.size());
    s->outBuf = out.data();
    s->outLen = static_cast<std::int32_t>(out.size());
    while (cconvConvert(s.get()) == PVZAN_UNREPRESENTABLE) {
    }
    cconvTermConvert(s.get());
    out.resize(static_cast<std::size_t>(s->outPos));
    return out;
}

struct figure {
    double megabytes = 0, spread = 0;
};

figure summarise(std::vector<double> rates) {
    std::ranges::sort(rates);
    const std::size_t n = rates.size();
    const double median = rates[n / 2];
    return {median, 100 * (rates[n * 3 / 4] - rates[n / 4]) / median};
}

struct contender {
    const char* name;
    std::unique_ptr<converter> convert;
    std::vector<double> rates = {};
    std::size_t written = 0;
};

void measure(contender& c, bench::bytes_view text) {
    using clock = std::chrono::steady_clock;
    const auto begin = clock::now();
    c.written = c.convert->run(text);
    const std::chrono::duration<double> seconds = clock::now() - begin;
    if (c.written != 0) {
        c.rates.push_back(static_cast<double>(text.size()) / 1e6 / seconds.count());
    }
}

void run_pair(const pair_name& pair, const std::vector<std::uint8_t>& utf8, int rounds,
              bool newlines) {
    std::vector<std::uint8_t> text = make_input(utf8, pair);
    if (std::strcmp(pair.from, "utf-8") == 0) {
        // What the target lacks would stop every contender: let the text go there and back first.
        const pair_name there{pair.to, "utf-8", nullptr, nullptr, nullptr, nullptr};
        const auto target =
            make_input(utf8, {pair.to, pair.to, nullptr, nullptr, nullptr, nullptr});
        auto back = bench::make_pvzan(there, false);
        if (back == nullptr) {
            return;
        }
        std::vector<std::uint8_t> whole;
        for (std::size_t at = 0; at < target.size();) {
            // Cut behind line feeds, so that every block stands alone.
            std::size_t end = std::min(target.size(), at + bench::block_bytes / 2);
            const std::size_t unit = std::string(pair.to).starts_with("utf-16") ? 2 : 1;
            while (end < target.size() && !(target[end - unit] == '\n' && (end - at) % unit == 0)) {
                ++end;
            }
            const std::size_t n = back->run({target.data() + at, end - at});
            whole.insert(whole.end(), back->block().begin(),
                         back->block().begin() + static_cast<std::ptrdiff_t>(n));
            at = end;
        }
        text = whole;
    }
    contender all[] = {{"pvzan", bench::make_pvzan(pair, newlines)},
                       {"iconv", bench::make_iconv(pair)},
                       {"icu", bench::make_icu(pair)},
                       {"memcpy", bench::make_memcpy()}};
    for (int round = 0; round < rounds; ++round) {
        for (contender& c : all) {
            if (c.convert != nullptr) {
                measure(c, text);
            }
        }
    }
    double best_peer = 0;
    std::printf("%-15s %-15s %6.1f MB ", pair.from, pair.to,
                static_cast<double>(text.size()) / 1e6);
    for (contender& c : all) {
        if (c.rates.empty()) {
            std::printf(" %-7s      -      ", c.name);
            continue;
        }
        const figure f = summarise(c.rates);
        std::printf(" %-6s %7.0f ±%2.0f%%", c.name, f.megabytes, f.spread);
        if (&c != &all[0] && &c != &all[3]) {
            best_peer = std::max(best_peer, f.megabytes);
        }
    }
    if (best_peer > 0 && !all[0].rates.empty()) {
        std::printf("  ratio %.2f", summarise(all[0].rates).megabytes / best_peer);
    }
    std::printf("\n");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    int rounds = 7;
    bool newlines = false;
    const char* only = nullptr;
    my_init();
    ZAN_setCharsetPath(PVZAN_BASE2_DIR);
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--rounds") == 0 && i + 1 < argc) {
            rounds = std::atoi(argv[++i]);
        } else if (std::strcmp(argv[i], "--newlines") == 0) {
            newlines = true;
        } else if (std::strcmp(argv[i], "--only") == 0 && i + 1 < argc) {
            only = argv[++i];
        } else {
            const auto text = read_file(argv[i]);
            std::printf("%s\n", argv[i]);
            for (const pair_name& pair : pairs) {
                const std::string name = std::string(pair.from) + ">" + pair.to;
                if (only == nullptr || name.find(only) != std::string::npos) {
                    run_pair(pair, text, rounds, newlines);
                }
            }
        }
    }
    return 0;
}
