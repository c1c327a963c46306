// Whether a process stays as fast as a fresh one, and within its memory, whatever it converted
// before: thousands of different option records, every pair of the shipped charsets, and charsets
// of a user's own that are loaded one after another.
//
//     pvzan_bench_bounded
//
// A fresh and a worn process convert the same text in turns; medians count. Fails where the worn
// one is below 0.9 of the fresh one's speed, or over the library's budget.
#include "bench/measures.h"

#include "cconv/fast/pair.h"
#include "pvzan.h"
#include "tests/support/temp_dir.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <malloc.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int option_records = 5000, own_charsets = 20;
constexpr double megabyte = 1e6;

// ---- Charsets ----------------------------------------------------------------------------------

std::string own_name(int number) {
    return "own-" + std::to_string(number);
}

// ASCII and a table of two-byte codes that no other charset has.
void write_own_charset(const test::temp_dir& directory, int number) {
    const std::string name = own_name(number);
    directory.write_utf16(name + ".xml", R"(<?xml version="1.0" encoding="UTF-16"?>
<!DOCTYPE charset [
<!ENTITY ascii SYSTEM "iso-646irv.set">
<!ENTITY table-iso-646irv SYSTEM "iso-646irv.txt">
<!ENTITY own SYSTEM ")" + name + R"(.set">
<!ENTITY table SYSTEM ")" + name + R"(.txt">
]>
<charset>
  <name>)" + name + R"(</name>
  <rule construle="constSAME" destrule="destSAME"/>
  <baseset>&ascii;</baseset>
  <baseset>&own;</baseset>
</charset>
)");
    directory.write_utf16(name + ".set", R"(<?xml version="1.0" encoding="UTF-16"?>
<subseta>
  <name>)" + name + R"(</name>
  <lang domain="ja"/>
  <code bytenum="2"/>
  <defined>A1A1-FEFE</defined>
  <srtable>&table;</srtable>
</subseta>
)");
    constexpr unsigned rows = 94, first_scalar = 0x4E00;
    std::string table;
    for (unsigned i = 0; i < rows * rows; ++i) {
        char line[32];
        std::snprintf(line, sizeof line, "%04X\t%04X\r\n",
                      (0xA1 + i / rows) << 8 | (0xA1 + i % rows),
                      first_scalar + (i + 100 * static_cast<unsigned>(number)) % (rows * rows));
        table += line;
    }
    directory.write_utf16(name + ".txt", table);
}

std::vector<std::string> shipped_charsets() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(PVZAN_BASE2_DIR)) {
        if (entry.path().extension() == ".xml") {
            names.push_back(entry.path().stem());
        }
    }
    return names;
}

// ---- Converting --------------------------------------------------------------------------------

using bytes = std::vector<std::uint8_t>;

constexpr pvzan_target_options big_endian() {
    pvzan_target_options target{};
    target.dstBigEndian = 1;
    return target;
}

struct conversion {
    const char *from, *to;
    pvzan_source_options source{.srcBigEndian = 1, .srcCheckBom = 0, .skipInvalid = 0};
    pvzan_target_options target = big_endian();
};

void open(pvzan_session& s, const conversion& c) {
    if (cconvInitConvert(&s, &c.target, c.to) != PVZAN_DONE ||
        cconvChgCharset(&s, &c.source, c.from) != PVZAN_DONE) {
        std::fprintf(stderr, "cannot convert %s to %s\n", c.from, c.to);
        std::exit(2);
    }
}

// Converts the text once, without what cannot be; returns how many bytes that makes.
std::size_t convert(pvzan_session& s, const bytes& text, bytes& output) {
    output.resize(std::max(output.size(), 4 * text.size() + 64));
    s.inBuf = text.data();
    s.inPos = s.outPos = 0;
    s.inLen = static_cast<std::int32_t>(text.size());
    s.outBuf = output.data();
    s.outLen = static_cast<std::int32_t>(output.size());
    for (;;) {
        const std::int32_t before = s.inPos;
        const std::uint32_t status = cconvConvert(&s);
        if (status == PVZAN_INVALID_INPUT && s.inPos == before) {
            ++s.inPos;
        } else if (status != PVZAN_INVALID_INPUT && status != PVZAN_UNREPRESENTABLE) {
            break;
        }
    }
    return static_cast<std::size_t>(s.outPos);
}
std::size_t convert(const conversion& c, const bytes& text, bytes& output) {
    static pvzan_session s;
    open(s, c);
    return convert(s, text, output);
}

bytes in_charset(const bytes& utf8_text, const char* to) {
    bytes text;
    text.resize(convert({"utf-8", to}, utf8_text, text));
    return text;
}

// Japanese, with line breaks and ASCII: its characters by the thousand.
bytes sample(std::size_t size) {
    bytes text;
    for (unsigned i = 0; text.size() < size; ++i) {
        const unsigned scalar = i % 3 == 0 ? 0x3042 + i * 7 % 80 : 0x4E00 + i * 37 % 6000;
        for (const unsigned byte :
             {0xE0 | scalar >> 12, 0x80 | (scalar >> 6 & 0x3F), 0x80 | (scalar & 0x3F)}) {
            text.push_back(static_cast<std::uint8_t>(byte));
        }
        for (const char c : std::string_view(i % 12 == 0 ? "some ASCII\r\n" : "")) {
            text.push_back(static_cast<std::uint8_t>(c));
        }
    }
    return text;
}

// Those of the sample that all charsets of the conversions below have.
bytes common_characters(const bytes& utf8_text) {
    bytes text;
    text.resize(convert({"shift_jis", "utf-8"}, in_charset(utf8_text, "shift_jis"), text));
    return text;
}

constexpr conversion in_use[] = {{"shift_jis", "utf-8"}, {"utf-8", "shift_jis"},
                                 {"euc-jp", "utf-16"},   {"iso-2022-jp", "utf-8"},
                                 {"gb18030", "utf-8"},   {"utf-8", "utf-16"}};

// ---- Wear --------------------------------------------------------------------------------------

void wear() {
    const bytes text = sample(2000);
    bytes output;
    for (unsigned i = 0; i < option_records; ++i) {
        const auto one_of = [i](unsigned step, unsigned many) { return i / step % many; };
        conversion c = in_use[i % std::size(in_use)];
        c.source.skipInvalid = one_of(1, 2);
        c.source.srcBigEndian = one_of(2, 2);
        c.target.useSubstitute = 1;
        c.target.substChar1 = static_cast<std::uint16_t>('!' + one_of(1, 90));
        c.target.substChar2 = static_cast<std::uint16_t>(0x4E00 + i);
        c.target.dstBigEndian = one_of(4, 2);
        c.target.convertNewline = one_of(8, 2);
        c.target.newlineMode = one_of(16, 7);
        convert(c, in_charset(text, c.from), output);
    }
    const std::vector<std::string> names = shipped_charsets();
    for (const std::string& from : names) {
        const bytes there = in_charset(text, from.c_str());
        for (const std::string& to : names) {
            convert({from.c_str(), to.c_str()}, there, output);
        }
    }
    for (int i = 0; i < own_charsets; ++i) {
        const std::string name = own_name(i);
        convert({name.c_str(), "shift_jis"}, in_charset(text, name.c_str()), output);
        convert(in_use[0], in_charset(text, in_use[0].from), output); // is used meanwhile
    }
}

// ---- Two processes -----------------------------------------------------------------------------

// Of this process, whoever else wants the machine.
double processor_ns() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return 1e9 * static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec);
}

constexpr std::size_t sizes[] = {2 * bench::block_bytes, 20};

// Which of the conversions in use, and which size of text.
struct question {
    std::size_t number, size;
};
struct answer {
    double ns, budget_bytes, heap_bytes; // ns for a byte
};

// A process that converts a text whenever it is asked how long that takes.
class worker {
public:
    worker(const std::string& directory, bool worn) {
        int to[2], from[2];
        if (::pipe(to) != 0 || ::pipe(from) != 0) {
            std::exit(2);
        }
        process_ = ::fork();
        if (process_ == 0) {
            ::close(to[1]);
            serve(to[0], from[1], directory, worn);
            ::_exit(0);
        }
        ::close(to[0]);
        ::close(from[1]);
        to_ = to[1];
        from_ = from[0];
    }
    ~worker() {
        ::close(to_);
        ::waitpid(process_, nullptr, 0);
    }
    worker(const worker&) = delete;
    worker& operator=(const worker&) = delete;

    [[nodiscard]] answer measure(const question& q) const {
        answer a{};
        if (::write(to_, &q, sizeof q) != sizeof q || ::read(from_, &a, sizeof a) != sizeof a) {
            std::fprintf(stderr, "a process ended early\n");
            std::exit(2);
        }
        return a;
    }

private:
    static void serve(int in, int out, const std::string& directory, bool worn) {
        my_init();
        ZAN_setCharsetPath(directory.c_str());
        bytes texts[std::size(sizes)], output;
        for (std::size_t i = 0; i < std::size(sizes); ++i) {
            texts[i] = common_characters(sample(sizes[i]));
        }
        for (const conversion& c : in_use) {
            convert(c, in_charset(texts[0], c.from), output);
        }
        if (worn) {
            wear();
        }
        for (question q{}; ::read(in, &q, sizeof q) == sizeof q;) {
            const answer a = measure_here(in_use[q.number], texts[q.size]);
            if (::write(out, &a, sizeof a) != sizeof a) {
                return;
            }
        }
    }
    static answer measure_here(const conversion& c, const bytes& utf8_text) {
        static pvzan_session s;
        const bytes text = in_charset(utf8_text, c.from);
        bytes output;
        open(s, c);
        const std::size_t repeats = 10 * sizes[0] / (text.size() + 200);
        convert(s, text, output); // back from the other one's turn
        const double begin = processor_ns();
        for (std::size_t i = 0; i < repeats; ++i) {
            convert(s, text, output);
        }
        const double ns = processor_ns() - begin;
        const struct mallinfo2 heap = ::mallinfo2();
        return {ns / static_cast<double>(repeats * text.size()),
                static_cast<double>(fast::bytes_claimed()),
                static_cast<double>(heap.uordblks + heap.hblkhd)};
    }

    pid_t process_;
    int to_, from_;
};

} // namespace

int main() {
    // Both on one processor: others may be slower for what else runs there.
    cpu_set_t here;
    CPU_ZERO(&here);
    CPU_SET(static_cast<unsigned>(::sched_getcpu()), &here);
    ::sched_setaffinity(0, sizeof here, &here);
    const test::temp_dir directory;
    std::filesystem::copy(PVZAN_BASE2_DIR, directory.path());
    for (int i = 0; i < own_charsets; ++i) {
        write_own_charset(directory, i);
    }
    const worker fresh(directory.path(), false), worn(directory.path(), true);
    bool well = true;
    answer last_fresh{}, last_worn{};
    for (std::size_t size = 0; size < std::size(sizes); ++size) {
        std::printf("\n| %zu bytes of UTF-8, MB/s | fresh process | worn process | ratio |\n"
                    "|---|---:|---:|---:|\n",
                    sizes[size]);
        for (std::size_t number = 0; number < std::size(in_use); ++number) {
            constexpr int rounds = 61;
            std::vector<double> fresh_times, worn_times, ratios;
            for (int round = 0; round < rounds; ++round) {
                last_fresh = fresh.measure({number, size});
                last_worn = worn.measure({number, size});
                fresh_times.push_back(last_fresh.ns);
                worn_times.push_back(last_worn.ns);
                ratios.push_back(last_fresh.ns / last_worn.ns);
            }
            const double ratio = bench::median(ratios);
            well = well && ratio >= 0.9;
            std::printf("| %s → %s | %.0f | %.0f | %.2f |\n", in_use[number].from,
                        in_use[number].to, 1e3 / bench::median(fresh_times),
                        1e3 / bench::median(worn_times), ratio);
        }
    }
    well = well && last_worn.budget_bytes <= static_cast<double>(fast::budget_bytes);
    std::printf("\n| MB | fresh process | worn process |\n|---|---:|---:|\n");
    std::printf("| of the budget of %.0f | %.1f | %.1f |\n",
                static_cast<double>(fast::budget_bytes) / megabyte,
                last_fresh.budget_bytes / megabyte, last_worn.budget_bytes / megabyte);
    std::printf("| allocated, tables and all | %.1f | %.1f |\n", last_fresh.heap_bytes / megabyte,
                last_worn.heap_bytes / megabyte);
    return well ? 0 : 1;
}
