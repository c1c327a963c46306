// Whole conversions through the four calls.
#include "tests/support/convert.h"

#include <gtest/gtest.h>

namespace {

using test::conversion;
using test::expect_conversion;

TEST(Convert, ShiftJisToUtf8InEveryCut) {
    expect_conversion({.from = "shift_jis",
                       .to = "utf-8",
                       .input = "A\x82\xA0\xB1\x88\x9F\n",
                       .expected = "A\xE3\x81\x82\xEF\xBD\xB1\xE4\xBA\x9C\n"});
}

} // namespace
