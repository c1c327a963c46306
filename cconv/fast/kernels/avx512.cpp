// Kernels for processors with AVX-512 VBMI2, whose byte compression puts variable lengths together.
#if defined(__x86_64__)

#include <array>
#include <cstddef>
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized" // in the header of g++ 12 itself
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#define MACHINE [[gnu::target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,bmi,bmi2,popcnt")]]
#define VECTOR_BYTES 64
#include "cconv/fast/kernels/vectors.inc"

namespace fast {

namespace {

template <typename V>
MACHINE inline __m512i raw(V v) {
    return reinterpret_cast<__m512i>(v);
}

// The compiler's own conversion of vectors goes by single elements here.
template <typename Wide, typename Narrow>
MACHINE inline Wide widen(const Narrow* p) {
    if constexpr (sizeof(Narrow) == 1 && sizeof(Wide{}[0]) == 4) {
        return reinterpret_cast<Wide>(_mm512_cvtepu8_epi32(load<__m128i>(p)));
    } else {
        const auto narrow = load<__m256i>(p);
        return reinterpret_cast<Wide>(sizeof(Narrow) == 1 ? _mm512_cvtepu8_epi16(narrow)
                                                          : _mm512_cvtepu16_epi32(narrow));
    }
}

template <u8 Limit>
MACHINE inline u64 at_least(bytes_v bytes) {
    return Limit == 0x80
               ? _mm512_movepi8_mask(raw(bytes))
               : _mm512_cmpge_epu8_mask(raw(bytes), _mm512_set1_epi8(static_cast<char>(Limit)));
}

MACHINE inline u64 rare_leads(bytes_v bytes) {
    const auto by_low_bits = make_vector<bytes_v>([](std::size_t low_bits) {
        return low_bits < 2 || low_bits == 0x20 || low_bits >= 0x30 ? 0x80 : 0;
    });
    return _mm512_movepi8_mask(_mm512_permutexvar_epi8(raw(bytes), raw(by_low_bits)));
}

MACHINE inline bytes_v only(bytes_v bytes, u64 places) {
    return reinterpret_cast<bytes_v>(_mm512_maskz_mov_epi8(places, raw(bytes)));
}

MACHINE inline u16* draw_codes(bytes_v low_bytes, bytes_v high_bytes, u64 places, u16* out) {
    const __m512i low = _mm512_maskz_compress_epi8(places, raw(low_bytes));
    const __m512i high = _mm512_maskz_compress_epi8(places, raw(high_bytes));
    // Where the bytes of the first 32 codes stand in both vectors.
    const __m512i first = raw(make_vector<bytes_v>(
                      [](std::size_t i) { return i / 2 + i % 2 * vector_bytes; })),
                  second = _mm512_add_epi8(first, _mm512_set1_epi8(vector_bytes / 2));
    _mm512_storeu_si512(out, _mm512_permutex2var_epi8(low, first, high));
    _mm512_storeu_si512(out + vector_bytes / 2, _mm512_permutex2var_epi8(low, second, high));
    return out + std::popcount(places);
}

MACHINE inline u8* draw_bytes(quads_v packed, u8* out) {
    const __m512i lengths = _mm512_shuffle_epi8(
        raw(packed), _mm512_broadcast_i32x4(
                         _mm_set_epi8(15, 15, 15, 15, 11, 11, 11, 11, 7, 7, 7, 7, 3, 3, 3, 3)));
    const u64 keep = _mm512_cmpgt_epi8_mask(lengths, _mm512_set1_epi32(0x7F020100));
    _mm512_storeu_si512(out, _mm512_maskz_compress_epi8(keep, raw(packed)));
    return out + std::popcount(keep);
}

MACHINE inline quads_v join(__m128i a, __m128i b, __m128i c, __m128i d) {
    const __m256i low = _mm256_set_m128i(b, a), high = _mm256_set_m128i(d, c);
    return reinterpret_cast<quads_v>(_mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1));
}

// A byte for each of ASCII: 80 for those that are not in the set, marks for line breaks.
struct outside_table {
    __m512i low, high;
};
MACHINE inline outside_table table_of(const byte_set& set) {
    const __m512i rows =
        _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(set.rows)));
    const __m512i bits = _mm512_set_epi64(
        0x0808080808080808, 0x0808080808080808, 0x0404040404040404, 0x0404040404040404,
        0x0202020202020202, 0x0202020202020202, 0x0101010101010101, 0x0101010101010101);
    const auto of = [&](__m512i some) __attribute__((target("avx512f,avx512bw"))) {
        return _mm512_maskz_set1_epi8(_mm512_testn_epi8_mask(rows, some), static_cast<char>(0x80));
    };
    const __m512i marks = _mm512_zextsi128_si512(
        _mm_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, feed_mark, 0, 0, return_mark, 0, 0));
    return {_mm512_or_si512(of(bits), marks), of(_mm512_slli_epi16(bits, 4))};
}
MACHINE inline bytes_v ascii_marks(bytes_v bytes, const outside_table& table) {
    return reinterpret_cast<bytes_v>(_mm512_permutex2var_epi8(table.low, raw(bytes), table.high));
}
MACHINE inline bytes_v outsiders(bytes_v bytes, const outside_table& table) {
    return ascii_marks(bytes, table) | bytes;
}

MACHINE inline u64 first_places(std::size_t size) {
    return size < vector_bytes ? (u64{1} << size) - 1 : ~u64{0};
}
MACHINE inline bytes_v load_some(const void* p, std::size_t size) {
    return reinterpret_cast<bytes_v>(_mm512_maskz_loadu_epi8(first_places(size), p));
}
MACHINE inline void store_some(void* p, bytes_v bytes, std::size_t size) {
    _mm512_mask_storeu_epi8(p, first_places(size), raw(bytes));
}

} // namespace

} // namespace fast

#include "cconv/fast/kernels/vector_loops.inc"

namespace fast {

namespace {

MACHINE block_written put_entries(const entry_word* entries, const u16* codes, std::size_t count,
                                  u8* out) {
    const u8* const begin = out;
    for (std::size_t at = 0; at < count; at += lanes) {
        const quads_v now = look_up(entries, codes + at);
        const u64 others = at_least<0x80>(
            reinterpret_cast<bytes_v>(reinterpret_cast<signed_quads_v>(now) < i32{one_byte}));
        const auto n =
            std::min(count - at, static_cast<std::size_t>(std::countr_zero(others)) / sizeof(u32));
        if (n < lanes) {
            out = draw_bytes(first_lanes(now, n), out);
            return {at + n, static_cast<std::size_t>(out - begin)};
        }
        out = draw_bytes(now, out);
    }
    return {count, static_cast<std::size_t>(out - begin)};
}

// ---- Single bytes ------------------------------------------------------------------------------

MACHINE inline quads_v load_entries(const entry_word* entries) {
    u32 packed[lanes];
    for (std::size_t i = 0; i < lanes; ++i) {
        packed[i] = entries[i].load(std::memory_order_relaxed);
    }
    return load<quads_v>(packed);
}

MACHINE inline void store_low_bytes(quads_v quads, u8* out) {
    store(out, _mm512_cvtepi32_epi8(raw(quads)));
}

MACHINE inline __m512i row_of(const byte_tables& tables, std::size_t row) {
    return _mm512_load_si512(tables.rows[row]);
}

// What two rows hold for the low seven bits of each byte.
MACHINE inline __m512i look_up(const byte_tables& tables, std::size_t row, bytes_v bytes) {
    return _mm512_permutex2var_epi8(row_of(tables, row), raw(bytes), row_of(tables, row + 1));
}
// And the next two rows, for those from 80 on.
MACHINE inline __m512i look_up_all(const byte_tables& tables, std::size_t row, bytes_v bytes) {
    return _mm512_mask_blend_epi8(at_least<0x80>(bytes), look_up(tables, row, bytes),
                                  look_up(tables, row + 2, bytes));
}

// Copies some vectors that hold nothing else but plain ASCII, which is worth a look every so often.
struct plain_copy {
    static constexpr std::size_t vectors = 4, size = vectors * vector_bytes;
    outside_table plain;
    std::size_t next = 0;

    MACHINE bool copies(const ascii_run& run, std::size_t at, std::size_t written) {
        if (at < next || at + size > run.in_size || written + size > run.out_size) {
            return false;
        }
        next = at + size;
        return convert_vectors<1, 1, false, vectors>(run.in + at, run.out + written, plain) == 0;
    }
};

// Of 64 characters: their bytes and lengths, in the order in which unpacking draws them together.
struct character_parts {
    __m512i first, second, third, lengths;
};
MACHINE inline __m512i in_drawing_order(__m512i v) {
    return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 4, 1, 5, 2, 6, 3, 7), v);
}
MACHINE inline __m512i in_text_order(__m512i v) {
    return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), v);
}

// Writes 32 characters of at most two bytes.
MACHINE inline u8* draw_pairs(__m512i pairs, __m512i lengths, u8* out) {
    const u64 keep = _mm512_cmpgt_epi8_mask(lengths, _mm512_set1_epi16(0x0100));
    _mm512_storeu_si512(out, _mm512_maskz_compress_epi8(keep, pairs));
    return out + std::popcount(keep);
}
// Writes 32 characters, given two of their bytes at a time.
MACHINE inline u8* draw_threes(__m512i pairs, __m512i rest, u8* out) {
    const __m512i even = _mm512_unpacklo_epi16(pairs, rest),
                  odd = _mm512_unpackhi_epi16(pairs, rest),
                  first = _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11),
                  second = _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15);
    out = draw_bytes(reinterpret_cast<quads_v>(_mm512_permutex2var_epi64(even, first, odd)), out);
    return draw_bytes(reinterpret_cast<quads_v>(_mm512_permutex2var_epi64(even, second, odd)), out);
}
MACHINE inline u8* draw_characters(const character_parts& of, u8* out) {
    const __m512i low = _mm512_unpacklo_epi8(of.first, of.second),
                  high = _mm512_unpackhi_epi8(of.first, of.second);
    if (at_least<3>(reinterpret_cast<bytes_v>(of.lengths)) == 0) {
        out = draw_pairs(low, _mm512_unpacklo_epi8(of.lengths, of.lengths), out);
        return draw_pairs(high, _mm512_unpackhi_epi8(of.lengths, of.lengths), out);
    }
    out = draw_threes(low, _mm512_unpacklo_epi8(of.third, of.lengths), out);
    return draw_threes(high, _mm512_unpackhi_epi8(of.third, of.lengths), out);
}

// The rows hold the first, second and third bytes of all characters, and their lengths.
MACHINE void make_planes(const entry_word* entries, byte_tables& tables) {
    for (std::size_t i = 0; i < 0x100; i += lanes) {
        const quads_v packed = load_entries(entries + i);
        for (std::size_t plane = 0; plane < 4; ++plane) {
            u8* const row = tables.rows[4 * plane + i / vector_bytes];
            store_low_bytes(packed >> static_cast<u32>(8 * plane), row + i % vector_bytes);
        }
    }
    tables.made = true;
}

MACHINE bytes_put put_bytes(const entry_word* entries, const ascii_run& run, byte_tables& tables) {
    constexpr std::size_t most_written = 4 * vector_bytes; // or touched
    if (!tables.made) {
        make_planes(entries, tables);
    }
    plain_copy plain{table_of(run.plain)};
    std::size_t at = 0, written = 0;
    while (at < run.in_size && written + most_written <= run.out_size) {
        if (plain.copies(run, at, written)) {
            at += plain.size;
            written += plain.size;
            continue;
        }
        const std::size_t size = std::min(vector_bytes, run.in_size - at);
        const auto bytes =
            reinterpret_cast<bytes_v>(in_drawing_order(raw(load_some(run.in + at, size))));
        const u64 high = at_least<0x80>(bytes);
        const bool is_plain = (at_least<0x80>(ascii_marks(bytes, plain.plain)) & ~high) == 0;
        character_parts parts =
            is_plain
                ? character_parts{_mm512_mask_blend_epi8(high, raw(bytes),
                                                         look_up(tables, 2, bytes)),
                                  look_up(tables, 6, bytes), look_up(tables, 10, bytes),
                                  _mm512_mask_blend_epi8(high, _mm512_set1_epi8(1),
                                                         look_up(tables, 14, bytes))}
                : character_parts{look_up_all(tables, 0, bytes), look_up_all(tables, 4, bytes),
                                  look_up_all(tables, 8, bytes), look_up_all(tables, 12, bytes)};
        u64 faults = _mm512_testn_epi8_mask(parts.lengths, parts.lengths);
        if (faults != 0 || size < vector_bytes) {
            const __m512i lengths = in_text_order(parts.lengths);
            faults = _mm512_testn_epi8_mask(lengths, lengths) | ~first_places(size);
            parts.lengths =
                in_drawing_order(_mm512_maskz_mov_epi8((faults & -faults) - 1, lengths));
        }
        u8* const out = run.out + written;
        const u8* const end = draw_characters(parts, out);
        written += static_cast<std::size_t>(end - out);
        if (faults != 0) {
            at += static_cast<std::size_t>(std::countr_zero(faults));
            break;
        }
        at += vector_bytes; // which does not wait for the tables
    }
    return {at, written, at};
}

// ---- From UTF-8 --------------------------------------------------------------------------------

// A block of text on its way. ASCII is copied, only other characters are looked up.
struct utf8_block {
    static constexpr std::size_t most_chunks = 8;
    // Of each chunk: which bytes are not ASCII, which are from E0 on, and where characters end.
    struct chunk {
        u64 beyond_ascii, from_e0, ends;
    };
    chunk chunks[most_chunks];
    std::size_t bytes, others; // up to the last end
    bool is_stopped;           // something else follows
    u16 codes[(most_chunks + 1) * chunk_codes];
    u8 drawn[2 * most_chunks * chunk_codes];
};

MACHINE void take_apart(const u8* in, std::size_t chunks, const outside_table& plain,
                        utf8_block& b) {
    utf8_begun begun{};
    u16* out = b.codes;
    b.bytes = 0;
    b.is_stopped = false;
    for (std::size_t i = 0; i < chunks && !b.is_stopped; ++i) {
        const u8* const chunk = in + i * chunk_bytes;
        const utf8_places at = find_places(chunk, begun);
        const u64 odd_ascii =
            at_least<0x80>(ascii_marks(load<bytes_v>(chunk), plain)) & ~at.beyond_ascii;
        const u64 stops = at.wrong | odd_ascii, right = (stops & -stops) - 1;
        const u64 ends = (at.long_ends | ~at.beyond_ascii) & right;
        b.chunks[i] = {at.beyond_ascii, at.from_e0, ends};
        out = draw_scalars(chunk, at.long_ends & right, out);
        b.bytes = ends != 0 ? i * chunk_bytes + up_to_last(ends) : b.bytes;
        b.is_stopped = stops != 0;
    }
    b.others = static_cast<std::size_t>(out - b.codes);
}

// Cuts the block before the other of that number.
MACHINE void cut_before(utf8_block& b, std::size_t other) {
    std::size_t bytes = 0, before = other;
    for (std::size_t at = 0; at < b.bytes; at += chunk_bytes) {
        const utf8_block::chunk& c = b.chunks[at / chunk_bytes];
        const u64 others = c.ends & c.beyond_ascii;
        const u64 its_end = before < 64 ? _pdep_u64(u64{1} << before, others) : 0;
        const u64 ends = c.ends & (its_end - 1);
        bytes = ends != 0 ? at + up_to_last(ends) : bytes;
        if (its_end != 0) {
            break;
        }
        before -= static_cast<std::size_t>(std::popcount(others));
    }
    b.bytes = bytes;
    b.others = other;
    b.is_stopped = true;
}

// Looks up what is written for the others, one or two bytes for each, and returns which. The block
// is cut before the first that has another length.
MACHINE u32 draw_others(const entry_word* entries, utf8_block& b) {
    u32 length = 1;
    for (std::size_t at = 0; at < b.others; at += lanes) {
        const quads_v some = look_up(entries, b.codes + at);
        length = at > 0 ? length : some[0] / one_byte == 2 ? 2 : 1;
        const u32 differing =
            _mm512_cmpge_epu32_mask(raw(some ^ length * one_byte), _mm512_set1_epi32(one_byte));
        const auto same = at + static_cast<std::size_t>(std::countr_zero(differing));
        if (same < b.others && differing != 0) {
            cut_before(b, same);
        }
        if (length == 1) {
            store_low_bytes(some, b.drawn + at);
        } else {
            store(b.drawn + 2 * at, _mm512_cvtepi32_epi16(raw(some)));
        }
    }
    return length;
}

// Puts what was drawn in the place of the others, at the last ones of their bytes.
MACHINE void put_drawn(const utf8_block& b, u32 length, const ascii_run& run, bytes_put& all) {
    const u8 *const in = run.in + all.read, *drawn = b.drawn;
    u8* out = run.out + all.written;
    for (std::size_t at = 0; at < b.bytes; at += chunk_bytes) {
        const utf8_block::chunk& c = b.chunks[at / chunk_bytes];
        const u64 there = first_places(b.bytes - at), ends = c.ends & there;
        const u64 keep = length == 1 ? ends : ~c.from_e0 & there, others = keep & c.beyond_ascii;
        const __m512i put =
            _mm512_mask_expand_epi8(raw(load<bytes_v>(in + at)), others, raw(load<bytes_v>(drawn)));
        _mm512_storeu_si512(out, _mm512_maskz_compress_epi8(keep, put));
        out += std::popcount(keep);
        drawn += std::popcount(others);
        all.characters += static_cast<std::size_t>(std::popcount(ends));
    }
    all.read += b.bytes;
    all.written = static_cast<std::size_t>(out - run.out);
}

MACHINE bytes_put put_utf8(const entry_word* entries, const ascii_run& run) {
    plain_copy plain{table_of(run.plain)};
    utf8_block b;
    b.others = 0;
    b.is_stopped = false;
    bytes_put all{};
    std::size_t most = 1;
    while (!b.is_stopped) {
        if (b.others == 0 && plain.copies(run, all.read, all.written)) {
            all.read += plain.size;
            all.written += plain.size;
            all.characters += plain.size;
            continue;
        }
        const std::size_t left = std::min(run.in_size - all.read, run.out_size - all.written);
        const std::size_t chunks = std::min(most, left / chunk_bytes);
        if (chunks == 0) {
            break;
        }
        take_apart(run.in + all.read, chunks, plain.plain, b);
        put_drawn(b, draw_others(entries, b), run, all);
        most = std::min(2 * most, b.most_chunks);
    }
    return all;
}

} // namespace

constinit const kernels avx512_kernels = [] {
    kernels k = vector_kernels("avx512");
    k.put_entries = put_entries;
    k.put_bytes = put_bytes;
    k.put_utf8 = put_utf8;
    return k;
}();

} // namespace fast

#endif
