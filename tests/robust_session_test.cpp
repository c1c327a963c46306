// Whatever a session's fields and options say: nothing outside the buffers is touched, and every
// call ends.
#include "cconv/rulefunc/rules.h"
#include "tests/support/charset_directory.h"
#include "tests/support/child.h"
#include "tests/support/convert.h"
#include "tests/support/linear_time.h"
#include "tests/support/oracle.h"

namespace {

using test::conversion;
using std::operator""sv;

constexpr std::size_t page = 4096;
struct random_numbers {
    std::mt19937 engine;
    explicit random_numbers(u32 seed) : engine(seed) {}
    u32 operator()() { return static_cast<u32>(engine()); }
};

void choose_options(conversion& c, random_numbers& random) {
    c.source = {random() % 2, random() % 2, random() % 2};
    target_options& t = c.target;
    t.dstBigEndian = random() % 2;
    t.dstWriteBom = random() % 4 == 0;
    t.useSubstitute = random() % 2;
    t.substChar1 = static_cast<u16>(random());
    t.substChar2 = static_cast<u16>(random());
    t.convertNewline = random() % 2;
    t.newlineMode = random() % 7;
    t.charRefMode = random() % 4;
    if (random() % 4 == 0) {
        std::memset(t.langTag, 'a', random() % 2 != 0 ? 2 : sizeof t.langTag); // without a NUL, too
    }
}

// With directories of their own, each in a process of its own, before this one settles the shipped
// one.

// Every rule with charsets that make no sense: no sets, sets of no bytes or of too many, tables
// that map everything to 0.
TEST(Termination, EveryCombinationEnds) {
    test::in_child([] {
        const test::temp_dir directory;
        directory.write("zero.txt", test::widen("0 0\r\n41 0\r\nFF 0\r\n4142 0\r\n  ", 2, false));
        directory.write("some.txt", test::widen("0 41\r\n41 42\r\n4142 E0001\r\n  ", 2, false));
        const std::vector<test::set_definition> members[] = {
            {},
            {{"nothing", 0}},
            {{"none", 0, "some.txt"}, {"two", 2, "some.txt"}},
            {{"zero1", 1, "zero.txt"}, {"zero2", 2, "zero.txt"}},
            {{"many", 65535}, {"five", 5, "some.txt"}, {"three", 3}},
            {{"jis_x0213", 4}, {"iso-646irv", 0}, {"jis_x0208-1990", 1}},
        };
        std::vector<std::string> names;
        for (std::size_t rule = 0; rule < std::size(ruleList); rule += 2) {
            for (std::size_t i = 0; i < std::size(members); ++i) {
                names.push_back("c" + std::to_string(rule) + "-" + std::to_string(i));
                test::write_definition(directory, {names.back(), ruleList[rule + 1].name,
                                                   ruleList[rule].name, members[i]});
            }
        }
        ASSERT_EQ(ZAN_setCharsetPath(directory.path().c_str()), 1U);
        random_numbers random(2);
        constexpr std::string_view likely = "\0A\x1B$B(\x8E\xF3\xA0\x80\x81\xFF\xFE\xD8\r\nA"sv;
        std::string text(150, '\0');
        for (const std::string& from : names) {
            for (const std::string& to : names) {
                for (char& c : text) {
                    c = random() % 2 != 0 ? likely[random() % likely.size()]
                                          : static_cast<char>(random());
                }
                conversion c{.from = from.c_str(), .to = to.c_str()};
                choose_options(c, random);
                test::run(c, {text}, random() % 64);
                ASSERT_FALSE(::testing::Test::HasFailure()) << from << " to " << to;
            }
        }
    });
}

// Texts of nothing but what costs most.
TEST(Termination, TheWorstTextsTakeLinearTime) {
    test::in_child([] {
        // The shipped charsets, and one that leaves language tags to their collector.
        const test::temp_dir directory;
        for (const auto& entry : std::filesystem::directory_iterator(PVZAN_BASE2_DIR)) {
            std::filesystem::create_symlink(entry.path(),
                                            directory.file(entry.path().filename().string()));
        }
        directory.write("letters.txt", test::widen("41 41\r\n42 42\r\n  ", 2, false));
        test::write_definition(
            directory, {"tagged", "constUTF-8", "destUTF-8", {{"letters", 1, "letters.txt"}}});
        ASSERT_EQ(ZAN_setCharsetPath(directory.path().c_str()), 1U);
        const std::string tag = "\xF3\xA0\x80\x81", letter = "\xF3\xA0\x81\xA1",
                          cancel = "\xF3\xA0\x81\xBF";
        const struct {
            const char* from;
            std::string unit, ending;
        } cases[] = {
            {"iso-2022-jp", "\x1B(B\x1B$B", "A"},
            {"iso-2022-jp", "\x1B(BA\x1B$B!!", ""},
            {"tagged", tag, cancel},
            {"tagged", tag + letter, cancel},
            {"tagged", tag, "\xE4\xB8\x80"},
            {"tagged", tag, ""},
            {"utf-8", "\xFE\xFF", ""},
            {"utf-8", "A\xFE", "A"},
            {"shift_jis", "\x80", ""},
            {"euc-jp", "\x8F\xA1", ""},
            {"gb18030", "\xFF", ""},
            {"utf-8", "か", ""},
            {"utf-8", "か゚", ""},
        };
        std::string text;
        for (const auto& c : cases) {
            test::expect_linear_time(c.from + c.unit, [&](std::size_t bytes) {
                text.clear();
                while (text.size() < bytes) {
                    text += c.unit;
                }
                text += c.ending;
                return [&] {
                    test::run({.from = c.from, .to = "iso-2022-jp", .source = {1, 0, 1}}, {text},
                              std::size_t{1} << 22);
                    pvzan_detection_request request{};
                    request.text = test::bytes_of(text).data();
                    request.textEnd = static_cast<i32>(text.size());
                    cconvChkEncode(&request);
                };
            });
        }
    });
}

constexpr i32 length = 200;

session session_of(const char* charset, u32 status, const test::guarded_buffer& in,
                   const test::guarded_buffer& out) {
    session s = *test::open(charset, charset);
    s.inBuf = in.data();
    s.outBuf = out.data();
    s.inPos = s.outPos = 0;
    s.inLen = s.outLen = length;
    s.status = status;
    return s;
}

TEST(Bounds, PositionsAreInput) {
    test::use_shipped_charsets();
    const test::guarded_buffer in(page), out(page);
    std::memset(in.data(), 'a', page);
    constexpr std::pair<i32, i32> hostile[] = {{-1, 10},
                                               {INT_MIN, 10},
                                               {INT_MIN, INT_MAX},
                                               {-1, INT_MAX},
                                               {0, -1},
                                               {0, INT_MIN},
                                               {10, 9},
                                               {INT_MAX, 0},
                                               {INT_MAX, INT_MIN},
                                               {INT_MAX, INT_MAX},
                                               {INT_MIN, INT_MIN},
                                               {0, 0}};
    pvzan_detection_request request{};
    request.text = in.data();
    for (const auto& [pos, len] : hostile) {
        for (const char* charset : test::all_charsets) {
            for (const u32 status : {0U, 1U, 11U, 12U, 13U, 21U, 22U, 23U, 31U, 99U, ~0U}) {
                for (const bool null_buffer : {false, true}) {
                    session s = session_of(charset, status, in, out);
                    s.inPos = pos;
                    s.inLen = len;
                    s.inBuf = null_buffer ? nullptr : in.data();
                    cconvConvert(&s);
                    ASSERT_EQ(s.inPos, pos) << charset << status;
                    // In the other direction not a byte is written.
                    s = session_of(charset, status, in, out);
                    s.outPos = pos;
                    s.outLen = len;
                    s.outBuf = null_buffer ? nullptr : out.data();
                    std::memset(out.data(), '#', page);
                    cconvConvert(&s);
                    cconvTermConvert(&s);
                    ASSERT_EQ(s.outPos, pos) << charset << status;
                    ASSERT_EQ(std::count(out.data(), out.data() + page, '#'), i64{page});
                }
            }
        }
        request.textPos = pos;
        request.textEnd = len;
        cconvChkEncode(&request); // touches no fence
    }
}

// The last bytes that a position can reach are converted like any others.
TEST(Bounds, PositionsReachTheLargestNumber) {
    test::use_shipped_charsets();
    const test::guarded_buffer in(page), out(page);
    std::memset(in.data(), 'a', page);
    constexpr i32 begin = INT_MAX - length;
    const auto minus_begin = [](u8* memory) {
        return reinterpret_cast<u8*>(reinterpret_cast<std::uintptr_t>(memory) - begin);
    };
    for (const char* charset : test::all_charsets) {
        session s = session_of(charset, 0, in, out);
        const u32 plain_status = cconvConvert(&s);
        const std::string plain(out.data(), out.data() + s.outPos);
        const i32 read = s.inPos;
        s = session_of(charset, 0, in, out);
        s.inBuf = minus_begin(in.data());
        s.outBuf = minus_begin(out.data());
        s.inPos = s.outPos = begin;
        s.inLen = s.outLen = INT_MAX;
        EXPECT_EQ(cconvConvert(&s), plain_status) << charset;
        EXPECT_EQ(s.inPos - begin, read) << charset;
        EXPECT_EQ(std::string(out.data(), out.data() + (s.outPos - begin)), plain) << charset;
    }
}

} // namespace
