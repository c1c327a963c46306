// The arithmetic between Shift_JIS and JIS codes, over all codes. The expected values come from
// counting: valid Shift_JIS codes in order are the cells of the JIS rows in order.
#include "cconv/rulefunc/shift_jis_family.h"
#include "tests/support/child.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

namespace {

constexpr u32 cells = 94;

std::vector<u32> bytes_between(std::initializer_list<std::pair<u32, u32>> ranges) {
    std::vector<u32> bytes;
    for (const auto& [first, last] : ranges) {
        for (u32 byte = first; byte <= last; ++byte) {
            bytes.push_back(byte);
        }
    }
    return bytes;
}

const std::vector<u32> leads = bytes_between({{0x81, 0x9F}, {0xE0, 0xFC}});
const std::vector<u32> trails = bytes_between({{0x40, 0x7E}, {0x80, 0xFC}});

// Rows of JIS X 0213 plane 2 behind each lead from F0 on: JIS X 0213:2004, annex 1, table 3.
constexpr std::pair<u32, u32> plane2_rows[] = {
    {1, 8},   {3, 4},   {5, 12},  {13, 14}, {15, 78}, {79, 80}, {81, 82},
    {83, 84}, {85, 86}, {87, 88}, {89, 90}, {91, 92}, {93, 94},
};

// Every double-byte Shift_JIS code with its JIS code, rows running on behind 7E.
std::map<u32, u32> shift_jis_codes() {
    std::map<u32, u32> codes;
    u32 index = 0;
    for (const u32 lead : leads) {
        for (const u32 trail : trails) {
            codes[lead << 8 | trail] = (index / cells + 0x21) << 8 | (index % cells + 0x21);
            ++index;
        }
    }
    return codes;
}

std::map<u32, u32> shift_jis_2004_codes() {
    std::map<u32, u32> codes = shift_jis_codes();
    for (u32 i = 0; i < std::size(plane2_rows); ++i) {
        for (u32 t = 0; t < trails.size(); ++t) {
            const u32 row = t < cells ? plane2_rows[i].first : plane2_rows[i].second;
            codes[(0xF0 + i) << 8 | trails[t]] = 0x10000 | (row + 0x20) << 8 | (t % cells + 0x21);
        }
    }
    return codes;
}

u32 value_or_0(const std::map<u32, u32>& codes, u32 code) {
    const auto found = codes.find(code);
    return found == codes.end() ? 0 : found->second;
}

TEST(JisArithmetic, ShiftJisToJisOverAllCodes) {
    const auto codes = shift_jis_codes(), codes_2004 = shift_jis_2004_codes();
    for (u32 code = 0; code <= 0xFFFF; ++code) {
        const u32 jis = code <= 0xFF ? code : value_or_0(codes, code);
        const u32 jis2004 = code <= 0xFF ? code : value_or_0(codes_2004, code);
        for (const u32 ignored : {0U, 0x10000U, 0xFFFF0000U}) {
            ASSERT_EQ(SJIStoJISex(ignored | code), jis) << std::hex << code;
            ASSERT_EQ(SJIStoJIS(ignored | code), jis) << std::hex << code;
            ASSERT_EQ(SJIStoJIS2004(ignored | code), jis2004) << std::hex << code;
        }
    }
}

TEST(JisArithmetic, JisToShiftJisOverAllCodes) {
    std::map<u32, u32> codes;
    for (const auto& [shift_jis, jis] : shift_jis_codes()) {
        codes[jis] = shift_jis;
    }
    u32 on_grid = 0;
    for (u32 code = 0; code <= 0xFFFF; ++code) {
        u32 expected = 0;
        if (code <= 0xFF) {
            expected = code;
        } else if (const auto found = codes.find(code); found != codes.end()) {
            expected = found->second;
            ++on_grid;
        } else if (code >= 0x2121 && code <= 0x987E) {
            // Deliberately not refused: a cell off the grid counts on from (or back into) the row
            // as a number would, and a trail byte above FF is ored into the lead.
            const u32 distance = code - 0x2121;
            const u32 row = distance / 256;
            const u32 position = row % 2 * cells + distance % 256;
            const u32 trail = position + (position < 0x3F ? 0x40 : 0x41);
            expected = leads[row / 2] << 8 | trail;
            expected &= 0xFFFF;
        }
        for (const u32 ignored : {0U, 0x10000U, 0xABCD0000U}) {
            ASSERT_EQ(JIStoSJISex(ignored | code), expected) << std::hex << code;
            ASSERT_EQ(JIStoSJIS(ignored | code), expected) << std::hex << code;
        }
    }
    EXPECT_EQ(on_grid, 120 * cells);
}

// Line in which an input of JIStoSJIS2004 must stop the process; 0 for inputs with a result.
u32 assertion_line(u32 code) {
    if (code <= 0xFF) {
        return 0;
    }
    const u32 row = code >> 8 & 0xFF, cell = code & 0xFF, ku = row - 0x20;
    if ((code & 0x10000) == 0) {
        if (row < 0x21 || row > 0x7E) {
            return 217;
        }
    } else {
        // Rows 64 to 77 are let through although plane 2 has none: deliberate.
        bool has_row = ku >= 64 && ku <= 94;
        for (const auto& [first, second] : plane2_rows) {
            has_row = has_row || ku == first || ku == second;
        }
        if (!has_row) {
            return 229;
        }
    }
    return ku % 2 != 0 && (cell < 0x21 || cell > 0x7E) ? 240 : 0;
}

TEST(JisArithmetic, JisX0213ToShiftJisOverAllCodes) {
    std::map<u32, u32> codes;
    for (const auto& [shift_jis, jis] : shift_jis_2004_codes()) {
        codes[jis] = shift_jis;
    }
    u32 on_grid = 0;
    for (u32 code = 0x100; code <= 0x1FFFF; ++code) {
        if (assertion_line(code) != 0) {
            continue;
        }
        const u32 got = JIStoSJIS2004(code);
        ASSERT_EQ(JIStoSJIS2004(0xFFFE0000 | code), got) << std::hex << code;
        if (const auto found = codes.find(code); found != codes.end()) {
            ASSERT_EQ(got, found->second) << std::hex << code;
            ++on_grid;
            continue;
        }
        // Off the grid: rows 64 to 77 of plane 2 lead up to row 78 behind F4, and the cells of even
        // rows are not looked at.
        const u32 ku = (code >> 8 & 0xFF) - 0x20, cell = code & 0xFF;
        const bool missing_row = code > 0xFFFF && ku >= 64 && ku < 78;
        const u32 lead =
            missing_row ? 0xF4 - (78 - ku) / 2 : codes.at((code & 0x1FF00) | 0x21) >> 8;
        const u32 position = (ku % 2 == 0 ? cells : 0) + cell - 0x21;
        const u32 trail = position + (ku % 2 == 0 || position >= 0x3F ? 0x41 : 0x40);
        ASSERT_EQ(got, ((lead << 8) | trail) & 0xFFFF) << std::hex << code;
    }
    for (u32 code = 0; code <= 0xFF; ++code) {
        ASSERT_EQ(JIStoSJIS2004(code), code);
    }
    EXPECT_EQ(on_grid, (94 + 26) * cells);
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
