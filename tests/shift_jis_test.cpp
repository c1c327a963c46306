// Shift_JIS and Shift_JIS-2004: every byte sequence, what is stepped over, and codes that are none.
// The mapping itself is compared with iconv(3) in oracle_test.cpp.
#include "tests/support/codec.h"

#include <set>

namespace {

using namespace test;

constexpr u32 latin = PVZAN_SET_JIS_X_0201_LATIN, kana = PVZAN_SET_JIS_X_0201_KANA,
              jisx0208 = PVZAN_SET_JIS_X_0208_1990, jisx0213 = PVZAN_SET_JIS_X_0213;

struct charset_row {
    const char* name;
    const char* peer; // of the same repertoire
    u32 set;          // of its double-byte codes
    u32 (*to_jis)(u32);
};

const charset_row charsets[] = {
    {"shift_jis", "SJIS", jisx0208, SJIStoJIS},
    {"shift_jis-2004", "SHIFT_JISX0213", jisx0213, SJIStoJIS2004},
};

// What the decode rule must make of a code: characters that another converter has, all else invalid
// with only the first byte used up, so that the second is read again.
decoded judge(const charset_row& charset, test::oracle& peer, std::string_view input) {
    const std::span<const u8> bytes = bytes_of(input);
    if (bytes.empty()) {
        return {PVZAN_DONE, 0};
    }
    const u32 first = bytes[0];
    if (first <= 0x7F || (first >= 0xA1 && first <= 0xDF)) {
        return {PVZAN_DECODED, 1, first < 0x80 ? latin : kana, first};
    }
    if (bytes.size() < 2) {
        return {PVZAN_INPUT_INCOMPLETE, 0};
    }
    const u32 code = load_big_endian(bytes.first(2));
    if (!peer(input.substr(0, 2))) {
        return {PVZAN_INVALID_INPUT, 1};
    }
    return {PVZAN_DECODED, 2, charset.set, charset.to_jis(code)};
}

TEST(ShiftJis, ReadsEveryByteSequence) {
    for (const charset_row& charset : charsets) {
        test::oracle peer(charset.peer, "UCS-4BE");
        if (!peer.available()) {
            GTEST_SKIP() << "no converter to compare with";
        }
        const session_owner s = open(charset.name, "utf-8");
        const test::guarded_buffer buffer(2);
        for (u32 code = 0; code < 0x10000; ++code) {
            for (std::size_t length = 0; length <= 2; ++length) {
                if (length < 2 && code >= 0x100) {
                    continue;
                }
                const std::string input = code_text(code, length);
                u8* start = buffer.data() + buffer.size() - length; // it ends where memory ends
                std::ranges::copy(bytes_of(input), start);
                for (const rule decode : {destSHIFT_JIS, destSHIFT_JIS_2004}) {
                    give_input(*s, text_of({start, length}));
                    s->inCount = 0;
                    s->outCode2 = 0;
                    const decoded got = decode_next(*s, decode);
                    ASSERT_EQ(got, judge(charset, peer, input))
                        << charset.name << " " << test::to_hex(input);
                    ASSERT_EQ(s->inCount, got.status == PVZAN_DECODED ? 1U : 0U);
                    if (got.status == PVZAN_DECODED) {
                        ASSERT_EQ(s->srcCode, got.position == 2 ? code : code >> 8 * (length - 1));
                        ASSERT_EQ(s->charSetType, PVZAN_SET_BASE);
                        ASSERT_EQ(s->outCode2 != 0,
                                  IsJISX0213Combining(s->setCode) != 0 && charset.set == jisx0213);
                    }
                }
            }
        }
    }
}

TEST(ShiftJis, AfterADefectTheNextByteIsReadAgain) {
    const struct {
        const char *from, *input, *expected;
        std::vector<test::fault> faults;
        std::size_t unread;
    } rows[] = {
        {"shift_jis", "\x81\x7F\x81\x40", "\x7F\u3000", {{13, 1}}, 0},
        {"shift_jis", "\xA0\xA0\x82\xA0", "あ", {{13, 1}, {13, 2}}, 0},
        {"shift_jis", "\x81\xAD", "\uFF6D", {{13, 1}}, 0},
        {"shift_jis", "\xF0\x40\xFC\xFC\xFC", "@", {{13, 1}, {13, 3}, {13, 4}}, 1},
        {"shift_jis", "\x81\x0A\x88\x9F\x88", "\n亜", {{13, 1}}, 1},
        {"shift_jis", "A\x80", "A", {}, 1},
        {"shift_jis-2004", "\xFD\x41\xFC\xF5", "A", {{13, 1}, {13, 3}}, 1},
        {"shift_jis-2004", "\xF0\x40\xFD", "\U00020089", {}, 1},
    };
    for (const auto& row : rows) {
        test::conversion c{row.from, "utf-8", row.input, row.expected, row.faults, row.unread};
        test::expect_conversion(c);
        c.source.skipInvalid = 1;
        c.faults.clear();
        test::expect_conversion(c);
    }
}

// A set that no definition has is refused; one without its table is read as its codes.
TEST(ShiftJis, ReadsTheSetsThatThereAre) {
    for (const charset_row& charset : charsets) {
        const session_owner s = open(charset.name, "utf-8");
        const std::pair<u32, const char*> rows[] = {
            {latin, "A"}, {kana, "\xB1"}, {charset.set, "\x88\x9F"}};
        const auto status_of = [&](const char* input) {
            give_input(*s, input);
            return decode_next(*s, destSHIFT_JIS).status;
        };
        for (const auto& [set, input] : rows) {
            for (const auto& [other, other_input] : rows) {
                const hidden_set hidden(set);
                EXPECT_EQ(status_of(other_input),
                          set == other ? u32{PVZAN_INVALID_INPUT} : u32{PVZAN_DECODED});
                EXPECT_EQ(s->inPos, set != other && other == charset.set ? 2 : 1);
            }
            const set_without_table without(set);
            EXPECT_EQ(status_of(set == charset.set ? "\xFC\xFC" : input), u32{PVZAN_DECODED});
            EXPECT_EQ(s->ucsCode, s->setCode);
        }
    }
}

// A byte below 80 is a character even if its table has nothing for it; katakana are not.
TEST(ShiftJis, UnmappedSingleBytes) {
    const session_owner s = open("shift_jis", "utf-8");
    table_object* table = registered(latin).decodeTable;
    putTable(table, 'A', 0);
    give_input(*s, "A");
    EXPECT_EQ(decode_next(*s, destSHIFT_JIS), (decoded{PVZAN_DECODED, 1, latin, 'A'}));
    EXPECT_EQ(s->ucsCode, 0U);
    putTable(table, 'A', 'A');

    table = registered(kana).decodeTable;
    putTable(table, 0xB1, 0);
    give_input(*s, "\xB1");
    EXPECT_EQ(decode_next(*s, destSHIFT_JIS), (decoded{PVZAN_INVALID_INPUT, 1}));
    putTable(table, 0xB1, 0xFF71);
}

// Codes that reach the encoder unchecked, by way of a set that source and target share, never reach
// the arithmetic that stops the process: what is no cell of JIS X 0213 is refused.
TEST(ShiftJis2004, WritesTheCellsOfJisX0213AndNothingElse) {
    std::set<u32> cells;
    for (u32 code = 0x8140; code <= 0xFCFC; ++code) {
        cells.insert(SJIStoJIS2004(code)); // 0 for what is no code
    }
    const session_owner s = open("shift_jis-2004", "shift_jis-2004");
    std::array<u8, 2> out;
    for (u32 code = 0x100; code <= 0x2FFFF; ++code) {
        give_output(*s, out);
        s->outSetNo = jisx0213;
        s->outCode = code;
        s->outBytes = 4;
        s->outCode2 = 0;
        s->status = PVZAN_OUTPUT_FULL; // write what is prepared
        constSHIFT_JIS_2004(s.get());
        if (!cells.contains(code)) {
            ASSERT_EQ(s->status, u32{PVZAN_UNREPRESENTABLE}) << std::hex << code;
            ASSERT_EQ(s->outPos, 0);
            continue;
        }
        ASSERT_EQ(s->status, u32{PVZAN_WRITTEN}) << std::hex << code;
        ASSERT_EQ(test::to_hex(text_of(out)), test::to_hex(code_text(JIStoSJIS2004(code), 2)));
    }
}

TEST(ShiftJis, WritesIntoEveryBuffer) {
    const struct {
        const char* to;
        rule encode;
        written_row row;
    } rows[] = {
        {"shift_jis", constSHIFT_JIS, {jisx0208, 0x3021, "\x88\x9F"}},
        {"shift_jis", constSHIFT_JIS, {jisx0208, 0x7E7E, "\xEF\xFC"}},
        {"shift_jis-2004", constSHIFT_JIS_2004, {jisx0213, 0x12121, "\xF0\x40"}},
        {"shift_jis-2004", constSHIFT_JIS_2004, {jisx0208, 0x3021, "\x88\x9F"}},
    };
    for (const auto& [to, encode, row] : rows) {
        const session_owner s = open("utf-8", to);
        check_writer(*s, encode, row, 0);
        s->status = PVZAN_TERMINATE;
        s->outPos = 0;
        encode(s.get());
        EXPECT_EQ(s->status, u32{PVZAN_DONE});
        EXPECT_EQ(s->outPos, 0);
    }
}

} // namespace
