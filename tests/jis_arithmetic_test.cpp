// The arithmetic between Shift_JIS and JIS codes, over all codes: recorded when it was found to be
// the same as counting (valid Shift_JIS codes in order are the cells of the JIS rows in order).
#include "cconv/rulefunc/shift_jis_family.h"
#include "tests/support/child.h"
#include "tests/support/digest.h"

namespace {

// Line in which an input of JIStoSJIS2004 must stop the process; 0 for inputs with a result.
u32 assertion_line(u32 code) {
    const u32 row = code >> 8 & 0xFF, cell = code & 0xFF, ku = row - 0x20;
    if (code <= 0xFF) {
        return 0;
    }
    if ((code & 0x10000) == 0) {
        if (row < 0x21 || row > 0x7E) {
            return 217;
        }
    } else {
        // Plane 2 has these rows. 64 to 77 are let through although it has none: deliberate.
        constexpr std::string_view rows = "\1\3\4\5\10\14\15\16\17";
        if ((ku < 64 || ku > 94) && (ku > 15 || rows.find(static_cast<char>(ku)) == rows.npos)) {
            return 229;
        }
    }
    return ku % 2 != 0 && (cell < 0x21 || cell > 0x7E) ? 240 : 0;
}

// All codes, those off the grid of 94 cells included, which are counted on as a number would be,
// deliberately. What is above the code's own bits is ignored.
TEST(JisArithmetic, OverAllCodes) {
    const struct {
        const char* name;
        u32 (*convert)(u32);
        u32 last, ignored;
    } functions[] = {
        {"SJIStoJIS", SJIStoJIS, 0xFFFF, 0x10000},
        {"SJIStoJISex", SJIStoJISex, 0xFFFF, 0x10000},
        {"SJIStoJIS2004", SJIStoJIS2004, 0xFFFF, 0x10000},
        {"JIStoSJIS", JIStoSJIS, 0xFFFF, 0xABCD0000},
        {"JIStoSJISex", JIStoSJISex, 0xFFFF, 0xABCD0000},
        {"JIStoSJIS2004", JIStoSJIS2004, 0x1FFFF, 0xFFFE0000},
    };
    for (const auto& f : functions) {
        test::digest answers(f.name);
        for (u32 code = 0; code <= f.last; ++code) {
            if (f.convert != JIStoSJIS2004 || assertion_line(code) == 0) {
                const u32 converted = f.convert(code);
                answers.add({converted});
                ASSERT_TRUE(code <= 0xFF || f.convert(f.ignored | code) == converted) << f.name;
            }
        }
    }
}

TEST(JisArithmetic, CodesThatAreNoJisX0213StopTheProcess) {
    std::vector<u32> stopping = {0x100, 0x20041, 0x7FFE0041};
    for (u32 row = 0; row <= 0x1FF; ++row) {
        for (const u32 cell : {0x00U, 0x20U, 0x21U, 0x7EU, 0x7FU, 0xFFU}) {
            // Every row with a cell of the grid, every eighth with the others.
            if ((cell == 0x21 || row % 8 == 1) && assertion_line(row << 8 | cell) != 0) {
                stopping.push_back(row << 8 | cell);
            }
        }
    }
    EXPECT_GT(stopping.size(), 300U);
    for (const u32 code : stopping) {
        const std::string message = "cconv/rulefunc:" + std::to_string(assertion_line(code)) +
                                    ": JIStoSJIS2004: Assertion `0' failed";
        EXPECT_TRUE(test::dies_by_assertion([&] { JIStoSJIS2004(code); }, message.c_str()))
            << std::hex << code;
    }
}

} // namespace
