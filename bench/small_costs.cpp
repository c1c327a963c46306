// What happens once: opening a conversion, a call on a short text, one question to detection.
#include "bench/measures.h"

#include "pvzan.h"

#include <cstdio>
#include <cstring>
#include <functional>
#include <iconv.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef BENCH_WITH_ICU
#include <unicode/ucnv.h>
#endif

namespace bench {

namespace {

// Runs work in a process of its own, where nothing was opened before; its result, or -1.
double in_child(const std::function<double()>& work) {
    int ends[2];
    if (::pipe(ends) != 0) {
        return -1;
    }
    double result = -1;
    const pid_t child = ::fork();
    if (child == 0) {
        const double value = work();
        ::_exit(::write(ends[1], &value, sizeof value) == sizeof value ? 0 : 1);
    }
    ::close(ends[1]);
    if (child < 0 || ::read(ends[0], &result, sizeof result) != sizeof result) {
        result = -1;
    }
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    return result;
}

double timed(const std::function<void()>& work) {
    const double begin = now_ns();
    work();
    return now_ns() - begin;
}

struct opener {
    const char* name;
    std::function<void(const charset_pair&)> open; // and close, where that is needed
};

void start_library() {
    my_init();
    ZAN_setCharsetPath(PVZAN_BASE2_DIR);
}

void open_session(const charset_pair& pair) {
    static pvzan_session session;
    static const pvzan_target_options target{};
    static const pvzan_source_options source{};
    cconvInitConvert(&session, &target, pair.to.pvzan);
    cconvChgCharset(&session, &source, pair.from.pvzan);
}

std::vector<opener> openers() {
    std::vector<opener> all;
    all.push_back({"pvzan", open_session});
    all.push_back({"iconv", [](const charset_pair& pair) {
                       ::iconv_close(::iconv_open(pair.to.iconv, pair.from.iconv));
                   }});
#ifdef BENCH_WITH_ICU
    all.push_back({"ICU", [](const charset_pair& pair) {
                       UErrorCode error = U_ZERO_ERROR;
                       UConverter* to = ucnv_open(pair.to.icu, &error);
                       UConverter* from = ucnv_open(pair.from.icu, &error);
                       ucnv_close(to);
                       ucnv_close(from);
                   }});
#endif
    return all;
}

void print_header(const char* first, std::initializer_list<const char*> columns) {
    std::printf("\n| %s |", first);
    for (const char* column : columns) {
        std::printf(" %s |", column);
    }
    std::printf("\n|---|");
    for (std::size_t i = 0; i < columns.size(); ++i) {
        std::printf("---:|");
    }
    std::printf("\n");
}

constexpr charset_pair opened_pairs[] = {
    {shift_jis, utf_8}, {utf_8, shift_jis}, {euc_jp, utf_8}, {gb18030, utf_8}, {utf_8, gb18030}};

// Table caches and files are in the system's memory after the first of the rounds.
void first_openings() {
    constexpr int rounds = 31;
    print_header("first opening in a process, ms: least (median)", {"pvzan", "iconv", "ICU"});
    for (const charset_pair& pair : opened_pairs) {
        const auto all = openers();
        std::vector<std::vector<double>> times(all.size());
        for (int round = 0; round < rounds; ++round) {
            for (std::size_t i = 0; i < all.size(); ++i) {
                times[i].push_back(in_child([&] {
                    return timed([&] {
                        if (i == 0) {
                            start_library();
                        }
                        all[i].open(pair);
                    });
                }));
            }
        }
        std::printf("| %s → %s |", pair.from.pvzan, pair.to.pvzan);
        for (auto& one : times) {
            std::printf(" %.2f (%.2f) |", std::ranges::min(one) / 1e6, median(one) / 1e6);
        }
        std::printf("\n");
    }
}

// The least over the rounds of what each of some pieces of work takes, in ns, in turns.
std::vector<double> compare(const std::vector<std::function<void()>>& works, int repeats) {
    constexpr int rounds = 31;
    std::vector<std::vector<double>> times(works.size());
    for (int round = 0; round <= rounds; ++round) {
        for (std::size_t i = 0; i < works.size(); ++i) {
            const double begin = now_ns();
            for (int n = 0; n < repeats; ++n) {
                works[i]();
            }
            if (round > 0) {
                times[i].push_back((now_ns() - begin) / repeats);
            }
        }
    }
    std::vector<double> result;
    for (auto& one : times) {
        result.push_back(std::ranges::min(one));
    }
    return result;
}

void later_openings() {
    static pvzan_session session;
    print_header("later opening, ns", {"pvzan", "iconv", "ICU", "clearing the record alone"});
    for (const charset_pair& pair : opened_pairs) {
        std::vector<std::function<void()>> works;
        for (const opener& one : openers()) {
            works.emplace_back([&pair, open = one.open] { open(pair); });
        }
        works.emplace_back([] {
            std::memset(&session, 0, sizeof session);
            asm volatile("" : : "r"(&session) : "memory");
        });
        std::printf("| %s → %s |", pair.from.pvzan, pair.to.pvzan);
        const auto times = compare(works, 200);
        for (std::size_t i = 0; i < times.size(); ++i) {
            std::printf("%s %.0f |", works.size() == 3 && i == 2 ? " |" : "", times[i]);
        }
        std::printf("\n");
    }
}

// ---- Short texts -------------------------------------------------------------------------------

std::size_t character_length(const charset& in, const std::uint8_t* p) {
    if (&in == &utf_16le) {
        return 2;
    }
    if (&in == &utf_8) {
        return *p < 0x80 ? 1 : *p < 0xE0 ? 2 : *p < 0xF0 ? 3 : 4;
    }
    if (&in == &shift_jis) {
        return (*p >= 0x81 && *p <= 0x9F) || *p >= 0xE0 ? 2 : 1;
    }
    return *p < 0x80 ? 1 : 2;
}

// Pieces of 20 bytes out of a text, filled up with spaces.
std::vector<std::vector<std::uint8_t>> short_texts(bytes_view text, const charset& in) {
    constexpr std::size_t size = 20, count = 200;
    std::vector<std::vector<std::uint8_t>> pieces;
    for (std::size_t at = 0; pieces.size() < count && at + 2 * size < text.size();) {
        std::vector<std::uint8_t> piece;
        while (piece.size() + character_length(in, text.data() + at) <= size) {
            const std::size_t length = character_length(in, text.data() + at);
            piece.insert(piece.end(), text.data() + at, text.data() + at + length);
            at += length;
        }
        piece.resize(size, ' ');
        pieces.push_back(piece);
    }
    return pieces;
}

void short_calls(const options& wanted) {
    constexpr charset_pair pairs[] = {{shift_jis, utf_8}, {utf_8, shift_jis}, {euc_jp, utf_8},
                                      {utf_8, euc_jp},    {utf_8, utf_16le},  {utf_16le, utf_8}};
    print_header("20 bytes on a ready session, ns",
                 {"pvzan", "exact fit", "iconv", "ICU", "encoding_rs"});
    for (const char* name : {"ja-dense", "ja-prose", "ascii"}) {
        const auto text = read_text(wanted, name);
        for (const charset_pair& pair : pairs) {
            const bytes_view start(text.data(), std::min<std::size_t>(text.size(), 100'000));
            const auto pieces = short_texts(in_charset(start, pair.from), pair.from);
            std::unique_ptr<contender> all[] = {make_pvzan(pair, false), make_pvzan(pair, false),
                                                make_iconv(pair), make_icu(pair),
                                                make_encoding_rs(pair)};
            std::vector<std::size_t> rooms;
            for (const auto& piece : pieces) {
                rooms.push_back(all[0]->step(piece).written + spare_of(pair.to));
            }
            std::vector<std::function<void()>> works;
            for (auto& one : all) {
                works.emplace_back([&, fits = &one == &all[1]] {
                    for (std::size_t i = 0; one != nullptr && i < pieces.size(); ++i) {
                        if (fits) {
                            one->set_room(rooms[i]);
                        }
                        one->step(pieces[i]);
                    }
                });
            }
            std::printf("| %s → %s, %s |", pair.from.pvzan, pair.to.pvzan, name);
            const auto times = compare(works, 10);
            for (std::size_t i = 0; i < times.size(); ++i) {
                if (all[i] != nullptr) {
                    std::printf(" %.0f |", times[i] / static_cast<double>(pieces.size()));
                } else {
                    std::printf(" |");
                }
            }
            std::printf("\n");
        }
    }
}

// ---- Detection ---------------------------------------------------------------------------------

void detection(const options& wanted) {
    constexpr std::size_t looked_at = 2048;
    print_header("detection, of the first 2048 bytes", {"answer", "µs", "MB/s"});
    for (const char* name : {"ja-dense", "ja-prose", "ascii"}) {
        const auto text = read_text(wanted, name);
        for (const charset* in : {&shift_jis, &euc_jp, &utf_8, &utf_16le}) {
            const bytes_view start(text.data(), std::min<std::size_t>(text.size(), 100'000));
            const auto bytes = in_charset(start, *in);
            auto request = std::make_unique<pvzan_detection_request>();
            request->text = bytes.data();
            request->textEnd = static_cast<std::int32_t>(bytes.size());
            const double ns = compare({[&] { cconvChkEncode(request.get()); }}, 20)[0];
            std::printf("| %s in %s | %s | %.1f | %.0f |\n", name, in->pvzan, request->encodingName,
                        ns / 1e3, static_cast<double>(looked_at) * 1e3 / ns);
        }
    }
}

// ---- Memory ------------------------------------------------------------------------------------

double heap_in_use() {
    const struct mallinfo2 info = ::mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

void memory(const options& wanted) {
    const auto dense = read_text(wanted, "ja-dense");
    print_header("the library's heap, KB", {"opened", "and a text converted"});
    for (const charset_pair& pair : opened_pairs) {
        const auto text = in_charset(dense, pair.from);
        const auto heap = [&](bool convert) {
            return in_child([&] {
                const double before = heap_in_use();
                start_library();
                open_session(pair);
                if (!convert) {
                    return heap_in_use() - before;
                }
                auto converter = make_pvzan(pair, false);
                for (std::size_t at = 0; at + block_bytes < text.size();) {
                    at += converter->step({text.data() + at, block_bytes}).read;
                }
                converter.reset();
                return heap_in_use() - before;
            });
        };
        std::printf("| %s → %s | %.0f | %.0f |\n", pair.from.pvzan, pair.to.pvzan,
                    heap(false) / 1e3, heap(true) / 1e3);
    }
}

} // namespace

void measure_small_costs(const options& wanted) {
    first_openings();
    memory(wanted);
    start_library();
    later_openings();
    short_calls(wanted);
    detection(wanted);
}

} // namespace bench
