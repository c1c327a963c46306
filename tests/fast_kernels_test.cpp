// Kernels of the fast path against plain loops, where fast_test does not come by every odd value.
#include "cconv/fast/kernels/kernels.h"
#include "tests/support/convert.h"

namespace {

using namespace fast;

std::vector<const kernels*> runnable_kernels() {
    kernel_list list{};
    list_kernels(list);
    return {std::begin(list), std::ranges::find(list, nullptr)};
}

TEST(Kernels, AreThoseThatTheProcessorRuns) {
    std::size_t count = 1;
#if defined(__x86_64__)
    const bool avx2 = __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("bmi2") != 0;
    count += avx2 ? 1 : 0;
    count += avx2 && __builtin_cpu_supports("avx512vbmi2") != 0 &&
                     __builtin_cpu_supports("avx512vbmi") != 0 &&
                     __builtin_cpu_supports("avx512bw") != 0 &&
                     __builtin_cpu_supports("avx512vl") != 0
                 ? 1
                 : 0;
#endif
    EXPECT_EQ(runnable_kernels().size(), count);
}

constexpr std::size_t most_bytes = 4 * chunk_bytes;

struct kernels_test : testing::TestWithParam<const kernels*> {
    const kernels& k = *GetParam();
    std::mt19937 random{1};

    unsigned below(unsigned n) { return static_cast<unsigned>(random() % n); }
};

TEST_P(kernels_test, EncodesAndStopsScalars) {
    for (int round = 0; round < 20000; ++round) {
        u16 scalars[2 * chunk_codes];
        const unsigned limit = round % 3 == 0 ? 0x80 : round % 3 == 1 ? 0x900 : 0x10000;
        for (u16& s : scalars) {
            s = static_cast<u16>(below(limit));
        }
        const std::size_t count = below(chunk_codes + 1);
        const u16 stops[] = {0x301, static_cast<u16>(below(0x10000)), 0x0A};
        const std::span used = std::span(scalars).first(count);
        const auto stop = std::ranges::find_if(used, [&](u16 s) {
            return (s & 0xF800) == 0xD800 || std::ranges::find(stops, s) != std::end(stops);
        });
        ASSERT_EQ(k.plain_scalars(scalars, count, std::span<const u16>(stops)),
                  static_cast<std::size_t>(stop - used.begin()));

        std::vector<u8> expected, out(3 * count + kernel_margin);
        for (const u16 s : used) {
            if (s < 0x80) {
                expected.push_back(static_cast<u8>(s));
            } else if (s < 0x800) {
                expected.insert(expected.end(), {static_cast<u8>(0xC0 | s >> 6),
                                                 static_cast<u8>(0x80 | (s & 0x3F))});
            } else {
                expected.insert(expected.end(), {static_cast<u8>(0xE0 | s >> 12),
                                                 static_cast<u8>(0x80 | (s >> 6 & 0x3F)),
                                                 static_cast<u8>(0x80 | (s & 0x3F))});
            }
        }
        if (k.encode_utf8 != nullptr) {
            out.resize(k.encode_utf8(scalars, count, out.data()));
            ASSERT_EQ(out, expected) << round;
        }

        for (const bool big : {false, true}) {
            std::vector<u8> quads(4 * chunk_codes + kernel_margin);
            u16 back[chunk_codes];
            k.put_quads(scalars, count, quads.data(), big);
            for (std::size_t i = 0; i < count; ++i) {
                const std::span quad = std::span(quads).subspan(4 * i, 4);
                ASSERT_EQ(load_code(quad, big), scalars[i]);
            }
            const std::size_t read = k.narrow_quads(quads.data(), back, big);
            ASSERT_TRUE(count < chunk_bytes / 4 || read == chunk_bytes / 4);
            ASSERT_TRUE(std::equal(back, back + std::min(read, count), scalars));
            quads[4 * below(chunk_bytes / 4) + (big ? 1U : 2U)] = 1;
            ASSERT_EQ(k.narrow_quads(quads.data(), back, big), 0U);
        }
        u16 swapped[chunk_bytes / 2];
        k.copy_units(scalars, swapped, true);
        for (std::size_t i = 0; i < std::size(swapped); ++i) {
            ASSERT_EQ(swapped[i], static_cast<u16>(scalars[i] << 8 | scalars[i] >> 8));
        }
    }
}

// UTF-8 in too many bytes is left to the rules, and line breaks are counted in any units.
TEST_P(kernels_test, LeaveOverLongFormsAndCountBreaks) {
    for (const char* form : {"\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF"}) {
        for (std::size_t at = 0; k.decode_utf8 != nullptr && at + 3 < chunk_bytes; ++at) {
            u8 in[chunk_bytes];
            u16 scalars[2 * chunk_codes];
            std::ranges::fill(in, u8{'a'});
            std::memcpy(in + at, form, std::strlen(form));
            ASSERT_LE(k.decode_utf8(in, scalars).bytes, at);
        }
    }
    for (int round = 0; round < 4000; ++round) {
        for (const ascii_unit unit :
             {ascii_unit{1, true}, {2, false}, {2, true}, {4, false}, {4, true}}) {
            std::vector<u8> text(unit.bytes * (1 + below(round % 4 == 0 ? 1200 : 200)));
            for (u8& byte : text) {
                byte = static_cast<u8>("\r\n\0\0\0a"[below(6)]);
            }
            const std::size_t units = text.size() / unit.bytes - 1;
            u64 breaks = 0;
            const auto at = [&](std::size_t i) {
                return load_code(std::span(text).subspan(i * unit.bytes, unit.bytes),
                                 unit.big_endian);
            };
            for (std::size_t i = 0; i < units; ++i) {
                breaks += at(i) == '\n' || (at(i) == '\r' && at(i + 1) != '\n') ? 1U : 0U;
            }
            ASSERT_EQ(k.count_breaks(text.data(), units, unit), breaks);
        }
    }
}

// Runs end exactly where they must, however short input or output is.
TEST_P(kernels_test, RunsEndWhereTheyMust) {
    for (int round = 0; round < 20000; ++round) {
        byte_set plain{};
        std::ranges::fill(plain.rows, 0xFF);
        plain.rows[0x0A] &= static_cast<u8>(~(1U << ('\n' >> 4)) | (round % 2 == 0 ? 1U : 0U));
        std::vector<u8> text(below(round % 4 == 0 ? 1200 : most_bytes));
        for (u8& byte : text) {
            byte = static_cast<u8>(below(0x80));
            byte = !plain.has(byte) ? u8{'A'} : byte;
        }
        if (!text.empty() && below(3) != 0) {
            text[below(static_cast<unsigned>(text.size()))] = below(2) != 0 ? '\n' : 0x80;
        }
        const auto stop =
            std::ranges::find_if(text, [&](u8 byte) { return byte >= 0x80 || !plain.has(byte); });
        const auto clean = static_cast<std::size_t>(stop - text.begin());
        std::vector<u8> same(below(2) == 0 ? text.size() : below(most_bytes));
        const auto in_run = [&](std::span<const u8> in, std::vector<u8>& out) {
            return ascii_run{in.data(), in.size(), out.data(), out.size(), plain};
        };
        const std::size_t n = k.copy_ascii(in_run(text, same));
        ASSERT_EQ(n, std::min(clean, same.size()));
        ASSERT_TRUE(
            std::equal(same.begin(), same.begin() + static_cast<std::ptrdiff_t>(n), text.begin()));
        for (const ascii_unit unit : {ascii_unit{2, false}, {2, true}, {4, false}, {4, true}}) {
            std::vector<u8> wide(unit.bytes * below(most_bytes)), narrow(below(most_bytes));
            std::vector<u8> units(unit.bytes * text.size());
            const std::size_t place = unit.big_endian ? unit.bytes - 1 : 0;
            const std::size_t w = k.widen_ascii(in_run(text, wide), unit);
            ASSERT_EQ(w, std::min(clean, wide.size() / unit.bytes));
            for (std::size_t i = 0; i < text.size(); ++i) {
                units[unit.bytes * i + place] = text[i];
                ASSERT_TRUE(i >= w || load_code(std::span(wide).subspan(unit.bytes * i, unit.bytes),
                                                unit.big_endian) == text[i]);
            }
            std::size_t beyond = clean;
            if (!units.empty() && below(4) == 0) {
                const std::size_t odd = below(static_cast<unsigned>(text.size()));
                units[unit.bytes * odd + (place + 1 + below(unit.bytes - 1)) % unit.bytes] =
                    static_cast<u8>(1 + below(0xFF));
                beyond = std::min(clean, odd);
            }
            const std::size_t m = k.narrow_ascii(in_run(units, narrow), unit);
            ASSERT_EQ(m, std::min(beyond, narrow.size()));
            ASSERT_TRUE(std::equal(narrow.begin(), narrow.begin() + static_cast<std::ptrdiff_t>(m),
                                   text.begin()));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, kernels_test, testing::ValuesIn(runnable_kernels()),
                         [](const auto& one) { return std::string(one.param->name); });

} // namespace
