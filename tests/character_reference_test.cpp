// Numeric character references in UCS-2 output.
#include "cconv/engine/engine.h"
#include "tests/support/convert.h"
#include "tests/support/temp_dir.h"

namespace {

using test::conversion;
using test::expect_conversion;

TEST(CharacterReferences, StandForWhatWindows31jLacks) {
    const struct {
        std::u32string_view text, hexadecimal, decimal;
    } rows[] = {
        {U"Aあ亜①ｱ\uE000\uE758\n", U"Aあ亜①ｱ\uE000\uE758\n", U"Aあ亜①ｱ\uE000\uE758\n"},
        {U"é\u0E01\uE759\uF8FF", U"&#xE9;&#xE01;&#xE759;&#xF8FF;",
         U"&#233;&#3585;&#59225;&#63743;"},
        {U"\uFF01\uFF5E\uFF5F\uFF60\uFF61", U"\uFF01\uFF5E&#xFF5F;&#xFF60;\uFF61",
         U"\uFF01\uFF5E&#65375;&#65376;\uFF61"},
        {U"\uFFE2\uFFE3\uFFE4\uFFE5", U"\uFFE2&#xFFE3;&#xFFE4;\uFFE5",
         U"\uFFE2&#65507;&#65508;\uFFE5"},
    };
    // The repertoire is known once the encode tables are loaded.
    test::convert("utf-8", "windows31j", "A");
    for (const auto& row : rows) {
        for (const u32 mode : {u32{PVZAN_CHARREF_HEX}, u32{PVZAN_CHARREF_DECIMAL}, 3U, ~0U}) {
            for (const bool big_endian : {false, true}) {
                const auto& text = mode == PVZAN_CHARREF_HEX ? row.hexadecimal : row.decimal;
                conversion c{.from = "utf-8",
                             .to = "iso-10646-ucs-2",
                             .input = test::utf8(row.text),
                             .expected = test::convert("utf-8", "utf-16", test::utf8(text)),
                             .enough_room = 2 * 8 + 1};
                if (!big_endian) {
                    c.expected = test::swapped(c.expected, 2);
                }
                c.target.dstBigEndian = big_endian;
                c.target.charRefMode = mode;
                expect_conversion(c);
            }
        }
    }
    // Characters that come from a set of Windows-31J are in it, whatever their value.
    conversion c{
        .from = "shift_jis", .to = "iso-10646-ucs-2", .input = "\x81\x50", .expected = "\xFF\xE3"};
    c.target.charRefMode = PVZAN_CHARREF_HEX;
    expect_conversion(c);
}

TEST(CharacterReferences, OfEveryLength) {
    const struct {
        u32 value;
        const char *hexadecimal, *decimal;
    } rows[] = {
        {0, "&#x;", "&#;"}, // no digits, deliberately
        {10, "&#xA;", "&#10;"},
        {0xABCDEF, "&#xABCDEF;", "&#11259375;"},
        {0xFFFFFFFF, "&#xFFFFFFFF;", "&#4294967295;"},
    };
    const auto s = std::make_unique<session>();
    for (const auto& row : rows) {
        for (const u32 mode : {1U, 2U}) {
            const std::string text = mode == 1 ? row.hexadecimal : row.decimal;
            const std::size_t needed = 2 * text.size();
            for (const bool big_endian : {false, true}) {
                for (std::size_t room = 0; room <= needed + 2; ++room) {
                    const test::guarded_buffer out(room + 3);
                    *s = {};
                    s->target.charRefMode = mode;
                    s->target.dstBigEndian = big_endian;
                    s->outBuf = out.data();
                    s->outPos = 3;
                    s->outLen = static_cast<i32>(room + 3);
                    const bool fits = room > needed;
                    ASSERT_EQ(ToCharRef(s.get(), row.value), fits ? 1U : 0U);
                    ASSERT_EQ(s->status, fits ? u32{PVZAN_WRITTEN} : u32{PVZAN_OUTPUT_FULL});
                    ASSERT_EQ(s->outPos, fits ? static_cast<i32>(3 + needed) : 3);
                    ASSERT_EQ(s->outCount, fits ? text.size() : 0);
                    const std::string written(out.data() + 3, out.data() + s->outPos);
                    const std::string units = test::widen(text, 2, big_endian);
                    ASSERT_EQ(written, fits ? units : "");
                }
            }
        }
    }
}

} // namespace
