// ISO-2022-JP and ISO-2022-JP-2004: escape sequences, designation state, closing.
#include "tests/support/codec.h"

namespace {

using namespace test;
using namespace std::string_view_literals;

// Every designation, with a code of its set, as bytes and as a number.
struct shift {
    std::string_view escape;
    u32 set;
    std::string_view character;
    u32 code;
};

constexpr shift shifts[] = {
    {"\x1B(B", PVZAN_SET_ISO_646_IRV, "A", 0x41},
    {"\x1B(J", PVZAN_SET_JIS_X_0201_LATIN, "B", 0x42},
    {"\x1B$@", PVZAN_SET_JIS_C_6226_1978, "0!", 0x3021},
    {"\x1B$B", PVZAN_SET_JIS_X_0208_1990, "$\"", 0x2422},
    {"\x1B$(Q", PVZAN_SET_JIS_X_0213, "!!", 0x2121},
    {"\x1B$(P", PVZAN_SET_JIS_X_0213, "!\"", 0x12122},
};

constexpr bool is_plane2(const shift& s) {
    return s.code >= jisx0213_plane2;
}

std::string join(std::initializer_list<std::string_view> parts) {
    std::string all;
    for (const std::string_view part : parts) {
        all += part;
    }
    return all;
}

session_owner reader() {
    return open("iso-2022-jp-2004", "utf-8");
}

void expect_character(session& s, u32 set, u32 code, i32 position) {
    EXPECT_EQ(decode_next(s, destISO_2022_JP), (decoded{PVZAN_DECODED, position, set, code}));
}

void expect_stop(session& s, u32 status, i32 position) {
    EXPECT_EQ(decode_next(s, destISO_2022_JP), (decoded{status, position}));
}

// ---- Decoding ----------------------------------------------------------------------------------

// Cut anywhere, the input is read up to the last whole escape sequence or character; what is left
// is incomplete. A cut behind ESC $ ( P loses the plane: it lives for one call.
TEST(Iso2022JpDecoder, StopsAtEveryCut) {
    for (const shift& a : shifts) {
        for (const shift& b : shifts) {
            const std::string input = join({a.escape, a.character, b.escape, b.character});
            const std::size_t ends[] = {0, a.escape.size(), a.escape.size() + a.character.size(),
                                        input.size() - b.character.size(), input.size()};
            for (std::size_t cut = 0; cut < input.size(); ++cut) {
                SCOPED_TRACE(testing::Message() << test::to_hex(input) << "cut at " << cut);
                const session_owner s = reader();
                give_input(*s, std::string_view(input).substr(0, cut));
                decoded got;
                do {
                    got = decode_next(*s, destISO_2022_JP);
                } while (got.status == PVZAN_DECODED);
                const std::size_t end = *std::prev(std::ranges::upper_bound(ends, cut));
                EXPECT_EQ(got, (decoded{end == cut ? u32{PVZAN_DONE} : u32{PVZAN_INPUT_INCOMPLETE},
                                        static_cast<i32>(end)}));

                s->inLen = static_cast<i32>(input.size());
                std::vector<u32> rest;
                while (decode_next(*s, destISO_2022_JP).status == PVZAN_DECODED) {
                    rest.push_back(s->setCode);
                }
                const u32 code_a = end == ends[1] ? a.code & 0xFFFF : a.code;
                const u32 code_b = end == ends[3] ? b.code & 0xFFFF : b.code;
                EXPECT_EQ(rest,
                          end < ends[2] ? (std::vector{code_a, code_b}) : std::vector{code_b});
            }
        }
    }
}

// Unknown escape sequences are incomplete input: nothing is taken, no state changes.
TEST(Iso2022JpDecoder, TakesNoOtherEscape) {
    const session_owner s = reader();
    const auto check = [&](std::string_view input) {
        give_input(*s, input);
        s->srcShiftSet = PVZAN_SET_JIS_X_0208_1990;
        const decoded got = decode_next(*s, destISO_2022_JP);
        if (std::ranges::any_of(
                shifts, [=](const shift& known) { return input.starts_with(known.escape); })) {
            EXPECT_EQ(got.status, PVZAN_DECODED) << test::to_hex(input);
        } else {
            EXPECT_EQ(got, (decoded{PVZAN_INPUT_INCOMPLETE, 0})) << test::to_hex(input);
            EXPECT_EQ(s->srcShiftSet, u32{PVZAN_SET_JIS_X_0208_1990}) << test::to_hex(input);
        }
    };
    for (u32 code = 0; code < 0x10000; ++code) {
        check("\x1B" + code_text(code, 2) + "BBB");
    }
    for (u32 last = 0; last < 0x100; ++last) {
        check("\x1B$(" + code_text(last, 1) + "BB");
    }
    // Behind a known one, too: that one is used up.
    const std::string input = "\x1B$B\x1B(I1";
    give_input(*s, input);
    expect_stop(*s, PVZAN_INPUT_INCOMPLETE, 3);
}

TEST(Iso2022JpDecoder, ReadsLineControlsInDoubleByteText) {
    for (const shift& mode : shifts) {
        const std::string input = join({mode.escape, "\r", "\t", "\n", mode.character});
        SCOPED_TRACE(test::to_hex(input));
        const session_owner s = reader();
        give_input(*s, input);
        const bool single = mode.character.size() == 1;
        i32 position = static_cast<i32>(mode.escape.size());
        for (const u32 control : {0x0DU, 0x09U, 0x0AU}) {
            expect_character(*s, single ? mode.set : u32{PVZAN_SET_ISO_646_IRV}, control,
                             ++position);
            EXPECT_EQ(s->charSetType, PVZAN_SET_BASE);
        }
        // The set stays designated; the plane was for the character behind its escape sequence.
        expect_character(*s, mode.set, mode.code & 0xFFFF, static_cast<i32>(input.size()));
    }
}

// The bytes of a double-byte code are not judged, ESC included; any control code but the three
// takes two bytes.
TEST(Iso2022JpDecoder, ReadsAnyTwoBytesInDoubleByteText) {
    const session_owner s = reader();
    s->srcShiftSet = PVZAN_SET_JIS_X_0208_1990;
    for (u32 code = 0; code < 0x10000; ++code) {
        const std::string input = code_text(code, 2);
        if ("\x1B\r\t\n"sv.find(input[0]) != std::string_view::npos) {
            continue;
        }
        give_input(*s, input);
        expect_character(*s, PVZAN_SET_JIS_X_0208_1990, code, 2);
        give_input(*s, input.substr(0, 1));
        expect_stop(*s, PVZAN_INPUT_INCOMPLETE, 0);
    }
}

// A set that the charset lacks: every byte is invalid by itself, until the next escape sequence.
TEST(Iso2022JpDecoder, RefusesSetsTheCharsetLacks) {
    const session_owner s = open("iso-2022-jp", "utf-8");
    const std::string input = "\x1B$(Q!!\x1B(BA";
    give_input(*s, input);
    expect_stop(*s, PVZAN_INVALID_INPUT, 5);
    expect_stop(*s, PVZAN_INVALID_INPUT, 6);
    expect_character(*s, PVZAN_SET_ISO_646_IRV, 'A', 10);

    // Sets of a width that no designation has are passed over.
    basic_set& set = registered(PVZAN_SET_ISO_646_IRV);
    for (const u16 width : {u16{0}, u16{3}, u16{5}}) {
        set.byteNum = width;
        give_input(*s, input.substr(input.size() - 1));
        expect_stop(*s, PVZAN_INVALID_INPUT, 1);
    }
    set.byteNum = 1;
}

// ---- Encoding ----------------------------------------------------------------------------------

// Cuts behind ESC $ ( P, which lose the plane.
std::vector<std::size_t> cuts_before(const shift& plane2, std::size_t start) {
    if (!is_plane2(plane2)) {
        return {};
    }
    return {start + plane2.escape.size(), start + plane2.escape.size() + 1};
}

// JIS X 0213 is designated for each character and never remembered: behind it the set before it
// counts as designated. All other sets when they change. JIS X 0208 goes out as JIS X 0213 plane 1.
TEST(Iso2022JpEncoder, WritesEveryPairOfShifts) {
    const auto escape_for = [](const shift& s) {
        return s.set == PVZAN_SET_JIS_X_0208_1990 ? "\x1B$(Q"sv : s.escape;
    };
    for (const shift& a : shifts) {
        for (const shift& b : shifts) {
            const bool remembered = a.set == b.set && a.set != PVZAN_SET_JIS_X_0213;
            const std::string_view second = remembered ? ""sv : escape_for(b);
            const std::string_view closing = b.set == PVZAN_SET_ISO_646_IRV ? ""sv : "\x1B(B"sv;
            for (const std::string_view between : {""sv, "\x1B$(Q!!"sv}) {
                const std::string input =
                    join({a.escape, a.character, between, b.escape, b.character});
                std::vector<std::size_t> lossy =
                    cuts_before(b, input.size() - b.escape.size() - b.character.size());
                std::ranges::copy(cuts_before(a, 0), std::back_inserter(lossy));
                test::expect_conversion({.from = "iso-2022-jp-2004",
                                         .to = "iso-2022-jp-2004",
                                         .input = input,
                                         .expected = join({escape_for(a), a.character, between,
                                                           second, b.character, closing}),
                                         .other_at = lossy});
            }
        }
    }
}

TEST(Iso2022JpEncoder, ClosesFromEveryState) {
    for (const shift& last : shifts) {
        for (std::size_t room = 0; room <= 5; ++room) {
            const session_owner s = open("iso-2022-jp-2004", "iso-2022-jp-2004");
            std::array<u8, 16> out;
            const std::string input = join({last.escape, last.character});
            give_input(*s, input);
            give_output(*s, out);
            ASSERT_EQ(cconvConvert(s.get()), PVZAN_DONE);
            const u32 shift_set = s->dstShiftSet;
            const bool is_jisx0213 = last.set == PVZAN_SET_JIS_X_0213;
            EXPECT_EQ(s->dstShiftPlane, !is_jisx0213 ? 0U : is_plane2(last) ? 12U : 11U);

            give_output(*s, std::span(out).first(room));
            const bool closed = last.set == PVZAN_SET_ISO_646_IRV, fits = closed || room >= 4;
            EXPECT_EQ(cconvTermConvert(s.get()), fits ? u32{PVZAN_DONE} : u32{PVZAN_OUTPUT_FULL});
            EXPECT_EQ(s->outPos, fits && !closed ? 3 : 0) << last.escape << room;
            EXPECT_EQ(s->dstShiftSet, shift_set);
        }
    }
}

// Codes of sets without a designation, and what has no set at all, are refused without output.
TEST(Iso2022JpEncoder, RefusesOtherSets) {
    for (const u32 set : {PVZAN_SET_JIS_X_0201_KANA, PVZAN_SET_JIS_X_0208_1983,
                          PVZAN_SET_JIS_X_0212_1990, PVZAN_SET_NEC_EXT, PVZAN_SET_IBM_EXT}) {
        const session_owner s = open("utf-8", "iso-2022-jp");
        check_writer(*s, constISO_2022_JP, {set, 0x2121, {}}, 0);
        EXPECT_EQ(s->dstShiftSet, 0U);
    }
}

} // namespace
