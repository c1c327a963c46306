// The example of README.md, taken out of it by the build and compiled as C.
#include "tests/support/oracle.h"

extern "C" int to_utf8(const unsigned char* in, int length, unsigned char* out, int size);

namespace {

std::string example(const std::string& text, int room, int& result) {
    test::use_shipped_charsets();
    std::string out(static_cast<std::size_t>(room), '\0');
    result =
        to_utf8(reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()),
                reinterpret_cast<unsigned char*>(out.data()), room);
    out.resize(result > 0 ? static_cast<std::size_t>(result) : 0);
    return out;
}

TEST(Readme, ItsExampleDoesWhatItSays) {
    int result = 0;
    EXPECT_EQ(example("A\x82\xA0\xB1", 100, result), "Aあｱ");
    EXPECT_EQ(result, 7);
    example("\x82\xA0", 2, result); // no room
    EXPECT_EQ(result, -1);
    example("\xFD\x20", 100, result); // invalid
    EXPECT_EQ(result, -1);
}

} // namespace
