// Throughput. A text is converted block by block, each block copied to one place first, where it
// is warm, as behind a read(2). The contenders take turns in each round. A block's time is the
// least of the rounds: other work on the machine only ever adds to it, to slow contenders most. The
// spread is how much more the medians come to.
#include "bench/measures.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <numeric>

namespace bench {

namespace {

struct figure {
    double rate = 0, spread = 0; // MB/s, per cent
};

struct lane {
    const char* name;
    std::unique_ptr<contender> runs;
    std::vector<std::vector<double>> times = {}; // by block and round, in ns
    std::size_t written = 0;
    std::vector<std::size_t> block_written = {};
    bool failed = false;

    [[nodiscard]] bool counts() const { return runs != nullptr && !failed; }
};

double clock_cost() {
    std::vector<double> costs;
    for (int i = 0; i < 1000; ++i) {
        const double begin = now_ns();
        costs.push_back(now_ns() - begin);
    }
    return median(costs);
}

// rooms: how much each block may write, besides what the charset wants to stay free; as much as it
// likes where there are none.
void run_round(lane& one, bytes_view text, std::size_t round, double clock,
               const std::vector<std::size_t>& rooms, std::size_t spare) {
    alignas(64) static std::array<std::uint8_t, block_bytes> block;
    one.runs->restart();
    one.written = 0;
    one.block_written.clear();
    std::size_t number = 0;
    for (std::size_t at = 0; at < text.size(); ++number) {
        const std::size_t size = std::min(block_bytes, text.size() - at);
        std::memcpy(block.data(), text.data() + at, size);
        if (number < rooms.size()) {
            one.runs->set_room(rooms[number] + spare);
        }
        const double begin = now_ns();
        const progress p = one.runs->step({block.data(), size});
        const double taken = now_ns() - begin - clock;
        if (p.failed || p.read == 0) {
            one.failed = true;
            return;
        }
        at += p.read;
        one.written += p.written;
        one.block_written.push_back(p.written);
        if (round > 0) { // the first one warms up
            one.times.resize(std::max(one.times.size(), number + 1));
            one.times[number].push_back(taken);
        }
    }
    one.written += one.runs->finish().written;
}

figure summarise(lane& one, std::size_t bytes) {
    double least = 0, middle = 0;
    for (std::vector<double>& times : one.times) {
        least += std::ranges::min(times);
        middle += median(times);
    }
    return {static_cast<double>(bytes) * 1e3 / least, 100 * (middle - least) / least};
}

struct row {
    std::string pair, text;
    kind what;
    double ratio, of_memcpy;
};

// The target of a row, and what it reached of it: 1 and more is enough.
double reached(const row& r) {
    if (r.text == "ascii") {
        return std::min(r.of_memcpy / 0.8, r.ratio);
    }
    return r.what == kind::legacy ? r.ratio / 3 : r.ratio;
}

void print_figure(lane& one, std::size_t bytes) {
    if (one.counts()) {
        const figure f = summarise(one, bytes);
        std::printf(" %.0f +%.0f |", f.rate, f.spread);
    } else {
        std::printf(one.failed ? " stops |" : " |");
    }
}

enum { now, fitting, before, first_peer, limit = first_peer + 4 };
using lanes_of_pair = std::array<lane, limit + 1>;

lanes_of_pair make_lanes(const options& wanted, const charset_pair& charsets) {
    const bool normalise = wanted.normalise_newlines;
    const auto peer = [&](auto make) { return wanted.peers ? make(charsets) : nullptr; };
    auto older = wanted.older != nullptr ? make_older(wanted.older, charsets, normalise) : nullptr;
    return {{{"pvzan", make_pvzan(charsets, normalise)},
             {"exact fit", make_pvzan(charsets, normalise)},
             {"before", std::move(older)},
             {"iconv", peer(make_iconv)},
             {"ICU", peer(make_icu)},
             {"encoding_rs", peer(make_encoding_rs)},
             {"Python", peer(make_python)},
             {"memcpy", make_memcpy()}}};
}

void run_rounds(lanes_of_pair& lanes, const options& wanted, bytes_view text, std::size_t spare) {
    const double clock = clock_cost();
    std::vector<std::size_t> rooms, no_rooms;
    for (std::size_t round = 0; round <= wanted.rounds; ++round) {
        for (std::size_t i = 0; i < lanes.size(); ++i) {
            // To and fro: the one that runs before leaves the caches as it likes.
            const std::size_t number = round % 2 == 0 ? i : lanes.size() - 1 - i;
            if (lanes[number].counts()) {
                run_round(lanes[number], text, round, clock, number == fitting ? rooms : no_rooms,
                          spare);
            }
            rooms = round == 0 && number == now ? lanes[now].block_written : rooms;
        }
    }
}

row run_pair(const options& wanted, const measured_pair& pair, const std::string& text_name,
             bytes_view text) {
    const charset_pair& charsets = pair.charsets;
    lanes_of_pair lanes = make_lanes(wanted, charsets);
    run_rounds(lanes, wanted, text, spare_of(charsets.to));
    std::printf("| %s → %s | %s |", charsets.from.pvzan, charsets.to.pvzan, text_name.c_str());
    row result{pair.name(), text_name, pair.what, 0, 0};
    double best = 0;
    const char* best_name = "";
    for (lane& one : lanes) {
        print_figure(one, text.size());
        if (&one != &lanes.back() && one.counts()) {
            const double rate = summarise(one, text.size()).rate;
            if (&one >= &lanes[first_peer] && rate > best) {
                best = rate;
                best_name = one.name;
            }
            if (lanes[0].counts() && one.written != lanes[0].written) {
                std::fprintf(stderr, "%s, %s: %s wrote %zu bytes, we %zu\n", result.pair.c_str(),
                             text_name.c_str(), one.name, one.written, lanes[0].written);
            }
        }
    }
    if (lanes[0].counts()) {
        const double ours = summarise(lanes[0], text.size()).rate;
        result.ratio = best > 0 ? ours / best : 0;
        result.of_memcpy = ours / summarise(lanes.back(), text.size()).rate;
    }
    std::printf(" **%.2f** %s |\n", result.ratio, best_name);
    std::fflush(stdout);
    return result;
}

void print_shortfalls(const std::vector<row>& rows) {
    std::printf(
        "\nShort of the target (3 times the best peer, its speed between Unicode forms; 0.8 of "
        "memcpy for ASCII):\n\n");
    std::size_t count = 0;
    for (const row& r : rows) {
        if (reached(r) < 1) {
            std::printf("- %s, %s: %.2f of the best peer, %.2f of memcpy, %.0f %% of the target\n",
                        r.pair.c_str(), r.text.c_str(), r.ratio, r.of_memcpy, 100 * reached(r));
            ++count;
        }
    }
    std::printf("\n%zu of %zu rows.\n", count, rows.size());
}

} // namespace

std::vector<std::uint8_t> read_text(const options& wanted, const std::string& name) {
    std::ifstream in(wanted.texts + "/" + name + ".txt", std::ios::binary);
    std::vector<std::uint8_t> text{std::istreambuf_iterator<char>(in), {}};
    if (text.empty()) {
        std::fprintf(stderr, "%s: no text\n", name.c_str());
    }
    if (wanted.megabytes != 0 && text.size() > wanted.megabytes * 1'000'000) {
        std::size_t size = wanted.megabytes * 1'000'000;
        while (text[size - 1] != '\n') {
            --size;
        }
        text.resize(size);
    }
    return text;
}

std::vector<std::uint8_t> in_charset(bytes_view utf8_text, const charset& to) {
    if (&to == &utf_8) {
        return {utf8_text.begin(), utf8_text.end()};
    }
    const auto converter = make_iconv({utf_8, to});
    std::vector<std::uint8_t> text;
    const auto take = [&](const progress& p) {
        text.insert(text.end(), converter->output().begin(),
                    converter->output().begin() + static_cast<std::ptrdiff_t>(p.written));
    };
    for (std::size_t at = 0; at < utf8_text.size();) {
        const progress p =
            converter->step(utf8_text.subspan(at, std::min(block_bytes, utf8_text.size() - at)));
        if (p.failed) {
            std::fprintf(stderr, "no %s for the text\n", to.pvzan);
            return {};
        }
        if (p.read == 0) {
            break; // cut off in a character
        }
        take(p);
        at += p.read;
    }
    take(converter->finish());
    return text;
}

void measure_throughput(const options& wanted) {
    std::vector<row> rows;
    std::printf("| pair | text | pvzan | exact fit | before | iconv | ICU | encoding_rs | Python | "
                "memcpy | times the best peer |\n"
                "|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
    for (const measured_pair& pair : measured_pairs()) {
        const std::string names = pair.texts;
        for (std::size_t at = 0; at < names.size();) {
            const std::size_t end = std::min(names.find(' ', at), names.size());
            const std::string name = names.substr(at, end - at);
            at = end + 1;
            if (pair.name().find(wanted.pair) == std::string::npos ||
                name.find(wanted.text) == std::string::npos) {
                continue;
            }
            const auto text = in_charset(read_text(wanted, name), pair.charsets.from);
            if (!text.empty()) {
                rows.push_back(run_pair(wanted, pair, name, text));
            }
        }
    }
    if (wanted.peers) {
        print_shortfalls(rows);
    }
}

} // namespace bench
