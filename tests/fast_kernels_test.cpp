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
    const bool vbmi =
        __builtin_cpu_supports("avx512vbmi2") != 0 && __builtin_cpu_supports("avx512vbmi") != 0 &&
        __builtin_cpu_supports("avx512bw") != 0 && __builtin_cpu_supports("avx512vl") != 0;
    count += (avx2 ? 1U : 0U) + (avx2 && vbmi ? 1U : 0U);
#endif
    EXPECT_EQ(runnable_kernels().size(), count);
}

std::mt19937 random_numbers{1};
unsigned below(unsigned n) {
    return static_cast<unsigned>(random_numbers() % n);
}
u8 byte_from(unsigned first, unsigned count) {
    return static_cast<u8>(first + below(count));
}

using codes = std::vector<u16>;

void check_split_codes(const kernels& k) {
    const std::size_t chunks = 1 + below(block_chunks), size = chunks * chunk_bytes;
    split_by by{{}, below(2) == 0 ? u8{0} : u8{0x8F}};
    for (u32 byte = 0x80; byte < 0x100; ++byte) {
        const bool lead = byte != by.single_shift && below(8) != 0;
        by.leads.rows[byte & 0xF] |= static_cast<u8>(lead ? 1U << (byte >> 4 & 7) : 0);
    }
    std::vector<u8> text(size);
    const unsigned share = 1 + below(9);
    for (u8& byte : text) {
        byte = below(10) >= share ? byte_from(0, 0x80)
               : below(16) == 0   ? u8{0x8F}
                                  : byte_from(0xA0, 0x60);
    }
    const auto is_lead = [&](std::size_t at) { return text[at] >= 0x80 && by.leads.has(text[at]); };
    codes expected, written(block_codes + chunk_codes);
    std::size_t at = 0;
    while (at < size && (!is_lead(at) || at + 1 < size)) {
        const bool shift = text[at] == by.single_shift && at % chunk_bytes + 2 < chunk_bytes &&
                           by.single_shift != 0 && is_lead(at + 1) && text[at + 1] >= 0xA1 &&
                           text[at + 2] >= 0xA1;
        at += shift ? 1U : 0U;
        const u32 pair = is_lead(at) ? u32{text[at]} << 8 | text[at + 1] : text[at];
        at += is_lead(at) ? 2U : 1U;
        expected.push_back(static_cast<u16>(shift ? pair & 0x7F7F : pair));
    }
    const chunk_read read = k.split_codes(text.data(), chunks, by, written.data());
    written.resize(read.codes);
    ASSERT_EQ(written, expected);
    ASSERT_EQ(read.bytes, at);
}

codes random_scalars() {
    codes made(2 * chunk_codes); // vectors read behind the last
    const unsigned limit = std::array{0x80U, 0x900U, 0x10000U}[below(3)];
    std::ranges::generate(made, [=] { return static_cast<u16>(below(limit)); });
    return made;
}

void check_units_and_quads(const kernels& k) {
    const std::size_t count = below(chunk_codes + 1);
    const codes scalars = random_scalars();
    for (const bool big : {false, true}) {
        std::vector<u8> quads(4 * chunk_codes + kernel_margin);
        u16 back[chunk_codes];
        k.put_quads(scalars.data(), count, quads.data(), big);
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_EQ(load_code(std::span(quads).subspan(4 * i, 4), big), scalars[i]);
        }
        const std::size_t read = k.narrow_quads(quads.data(), back, big);
        ASSERT_TRUE(count < chunk_bytes / 4 || read == chunk_bytes / 4);
        ASSERT_TRUE(std::equal(back, back + std::min(read, count), scalars.begin()));
        quads[4 * below(chunk_bytes / 4) + (big ? 1U : 2U)] = 1;
        ASSERT_EQ(k.narrow_quads(quads.data(), back, big), 0U);
    }
    u16 swapped[chunk_bytes / 2];
    k.copy_units(scalars.data(), swapped, true);
    for (std::size_t i = 0; i < std::size(swapped); ++i) {
        ASSERT_EQ(swapped[i], static_cast<u16>(scalars[i] << 8 | scalars[i] >> 8));
    }
}

void check_scalars(const kernels& k) {
    const std::size_t count = below(chunk_codes + 1);
    const codes scalars = random_scalars();
    const u16 stops[] = {0x301, static_cast<u16>(below(0x10000)), 0x0A};
    const std::span used = std::span(scalars).first(count);
    const auto stop = std::ranges::find_if(used, [&](u16 s) {
        return (s & 0xF800) == 0xD800 || std::ranges::find(stops, s) != std::end(stops);
    });
    ASSERT_EQ(k.plain_scalars(scalars.data(), count, std::span<const u16>(stops)),
              static_cast<std::size_t>(stop - used.begin()));
    {
        std::vector<u8> expected, out(3 * count + kernel_margin);
        for (const u16 s : used) {
            if (s >= 0x80) {
                const int above = s >> 6;
                expected.insert(expected.end(), s >= 0x800, static_cast<u8>(0xE0 | above >> 6));
                expected.push_back(
                    static_cast<u8>(s < 0x800 ? 0xC0 | above : 0x80 | (above & 0x3F)));
            }
            expected.push_back(static_cast<u8>(s < 0x80 ? s : 0x80 | (s & 0x3F)));
        }
        out.resize(k.encode_utf8(scalars.data(), count, out.data()));
        ASSERT_EQ(out, expected);
    }
}

// UTF-8 in too many bytes is left to the rules.
void check_over_long(const kernels& k) {
    for (const char* form : {"\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF"}) {
        for (std::size_t at = 0; k.decode_utf8 != nullptr && at + 3 < 2 * chunk_bytes; ++at) {
            u8 in[2 * chunk_bytes];
            u16 scalars[4 * chunk_codes];
            std::ranges::fill(in, u8{'a'});
            std::memcpy(in + at, form, std::strlen(form));
            ASSERT_LE(k.decode_utf8(in, 2, scalars).bytes, at);
        }
    }
}

void check_breaks() {
    for (const ascii_unit unit :
         {ascii_unit{1, true}, {2, false}, {2, true}, {4, false}, {4, true}}) {
        std::vector<u8> text(unit.bytes * (1 + below(below(4) == 0 ? 1200 : 200)));
        for (u8& byte : text) {
            byte = static_cast<u8>("\r\n\0\0\0a"[below(6)]);
        }
        const std::size_t units = text.size() / unit.bytes - 1;
        u64 breaks = 0;
        const auto at = [&](std::size_t i) {
            return load_code(std::span(text).subspan(i * unit.bytes, unit.bytes), unit.big_endian);
        };
        for (std::size_t i = 0; i < units; ++i) {
            breaks += at(i) == '\n' || (at(i) == '\r' && at(i + 1) != '\n') ? 1U : 0U;
        }
        ASSERT_EQ(count_breaks(text.data(), units, unit), breaks);
    }
}

// Runs end exactly where they must, however short input or output is.
void check_ascii(const kernels& k) {
    constexpr unsigned most_bytes = 4 * chunk_bytes;
    byte_set plain{};
    std::ranges::fill(plain.rows, 0xFF);
    plain.rows[0x0A] &= static_cast<u8>(~(1U << ('\n' >> 4)) | (below(2) == 0 ? 1U : 0U));
    std::vector<u8> text(below(below(4) == 0 ? 1200 : most_bytes));
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

TEST(Kernels, DoWhatPlainLoopsDo) {
    constexpr int rounds = 20000;
    for (int round = 0; round < rounds && !HasFatalFailure(); ++round) {
        check_breaks();
    }
    for (const kernels* k : runnable_kernels()) {
        SCOPED_TRACE(k->name);
        check_over_long(*k);
        for (int round = 0; round < rounds && !HasFatalFailure(); ++round) {
            check_ascii(*k);
            if (k->has_blocks) {
                check_units_and_quads(*k);
                check_scalars(*k);
                check_split_codes(*k);
            }
        }
    }
}

} // namespace
