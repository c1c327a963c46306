// iconv(3) over the library, call by call beside the C library's own.
#include "tests/support/child.h"
#include "tests/support/rows.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <iconv.h>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct library {
    decltype(&::iconv_open) open;
    decltype(&::iconv) convert;
    decltype(&::iconv_close) close;
};

template <typename call>
void find(call& found, const char* name) {
    found = reinterpret_cast<call>(dlsym(dlopen("libc.so.6", RTLD_NOW), name));
}

struct Iconv : testing::Test {
    library ours{&::iconv_open, &::iconv, &::iconv_close}, c{};
    Iconv() {
        find(c.open, "iconv_open");
        find(c.convert, "iconv");
        find(c.close, "iconv_close");
    }
};

struct answer {
    std::string said; // the count or the error
    std::size_t used;
    std::string written;
};

// One call. Nothing is written behind the room, errno speaks of errors alone, and pointers and
// sizes agree.
answer call(const library& with, iconv_t cd, std::string in, std::size_t room, bool ends = false) {
    static const std::map<int, std::string> errors = {
        {E2BIG, "E2BIG"}, {EILSEQ, "EILSEQ"}, {EINVAL, "EINVAL"}, {EBADF, "EBADF"}};
    std::string out(room + 16, '\xA5');
    char *from = in.data(), *to = out.data();
    std::size_t left = in.size(), space = room;
    errno = 0;
    const std::size_t count = with.convert(cd, ends ? nullptr : &from, &left, &to, &space);
    const int error = errno;
    EXPECT_EQ(count + 1 == 0, error != 0);
    EXPECT_EQ(from + left, in.data() + in.size());
    EXPECT_EQ(to + space, out.data() + room);
    EXPECT_EQ(out.find_first_not_of('\xA5', room), std::string::npos);
    return {error != 0 ? errors.at(error) : std::to_string(count), in.size() - left,
            out.substr(0, room - space)};
}

// Calls as iconv.tsv has them, and what came of each.
std::string run(const library& with, const char* from, const char* to, const char* calls) {
    const iconv_t cd = with.open(to, from);
    if (cd == reinterpret_cast<iconv_t>(-1)) {
        return "not opened " + std::to_string(errno);
    }
    std::string told;
    std::istringstream steps(calls);
    for (std::string step; steps >> step;) {
        const std::size_t colon = step.find(':') + 1, room = colon > 0 ? std::stoul(step) : 32;
        const std::string what = step.substr(colon);
        std::string in;
        for (std::size_t i = 0; what < "a" && i < what.size(); i += 2) {
            in += static_cast<char>(std::stoi(what.substr(i, 2), nullptr, 16));
        }
        if (what == "reset") {
            told += std::to_string(with.convert(cd, nullptr, nullptr, nullptr, nullptr)) + ' ';
            continue;
        }
        const answer got = call(with, cd, in, room, what == "end");
        told += got.said + '/' + std::to_string(got.used) + '/' + got.written + ' ';
    }
    with.close(cd);
    return told;
}

// Whom to ask is settled once in a process.
TEST_F(Iconv, AnswersAsTheCLibrary) {
    test::in_child([this] {
        setenv("PVZAN_ICONV", "all", 1);
        for (const test::row_cells& row : test::rows_of("iconv.tsv", 5)) {
            const char *from = row[0].c_str(), *to = row[1].c_str(), *calls = row[2].c_str();
            const std::string wanted = run(c, from, to, calls), &deliberate = row[3];
            EXPECT_NE(wanted, deliberate) << to << ": no longer a difference";
            EXPECT_EQ(run(ours, from, to, calls), deliberate.empty() ? wanted : deliberate)
                << from << " to " << to << ": " << calls << ' ' << row[4];
        }
        EXPECT_EQ(run(ours, "none", "UTF-8", ""), run(c, "none", "UTF-8", ""));
        EXPECT_EQ(call(ours, reinterpret_cast<iconv_t>(-1), "a", 1).said, "EBADF");
        EXPECT_EQ(ours.close(reinterpret_cast<iconv_t>(-1)), -1);
    });
}

// What the C library opens stays its own; what only we have is opened beside it, under the names
// that it takes, too.
TEST_F(Iconv, AsksTheCLibraryFirst) {
    test::in_child([this] {
        for (const test::row_cells& row : test::rows_of("iconv.tsv", 5)) {
            const char *from = row[0].c_str(), *to = row[1].c_str(), *calls = row[2].c_str();
            EXPECT_EQ(run(ours, from, to, calls), run(c, from, to, calls)) << to;
        }
        EXPECT_EQ(run(ours, "EUC-JIS-2004", "UTF-8", "A4F7 A4"), "0/2/か゚ EINVAL/0/ ");
        std::istringstream names(
            "UTF-16|UTF-32|UNICODE|UCS-2|UCS-4|WCHAR_T|U T F - 8|(utf8)|Shift.JIS||//|"
            "//IGNORE|utf-8/IGNORE|UTF-8/x/y|UTF-8///|ISO-10646/UCS4/|sjis,x|none|"
            "iso-10646/ucs4//IGNORE|/UTF-8|UTF-8//TRANSLIT//");
        for (std::string name; std::getline(names, name, '|');) {
            const char* const to = name.c_str();
            const char *letter = "41 0:end 42", *letters = "4100000041000000 00000041";
            EXPECT_EQ(run(ours, "EUC-JIS-2004", to, letter), run(c, "UTF-8", to, letter)) << to;
            EXPECT_EQ(run(ours, to, "EUC-JIS-2004", letters), run(c, to, "EUC-JP", letters)) << to;
        }
        EXPECT_EQ(run(ours, "EUC-JIS-2004", std::string(200, 'x').c_str(), ""),
                  run(c, "none", "UTF-8", ""));
        errno = ENOENT;
        ours.close(ours.open("EUC-JIS-2004", "UTF-8"));
        EXPECT_EQ(errno, ENOENT);
    });
}

// What comes of a text, cut into two pieces. A fault is stepped over byte by byte, as by mutt.
std::string convert(const library& with, iconv_t cd, const std::string& text, std::size_t cut,
                    std::size_t room, std::string& out) {
    std::string told;
    out.clear();
    with.convert(cd, nullptr, nullptr, nullptr, nullptr);
    for (std::size_t at = 0, end = cut;;) {
        const answer got = call(with, cd, text.substr(at, end - at), room);
        told += got.said + '/' + std::to_string(got.used) + ' ';
        out += got.written;
        at += got.used;
        if (got.said == "EILSEQ") {
            end = std::max(end, ++at);
        } else if (got.said != "E2BIG" && end < text.size()) {
            end = text.size();
        } else if (got.said != "E2BIG" || got.used + got.written.size() == 0) {
            const answer closed = call(with, cd, "", room, true);
            out += closed.written;
            return told + closed.said;
        }
    }
}

// Every text of three tokens, cut anywhere, and in rooms of every size.
TEST_F(Iconv, TextsCutsAndRooms) {
    setenv("PVZAN_ICONV", "all", 1);
    for (const std::string from : {"UTF-8", "UTF-16BE", "CP932", "EUC-JP", "ISO-2022-JP",
                                   "EUC-JISX0213", "SHIFT_JISX0213"}) {
        std::vector<std::string> tokens = {"\xFF"};
        for (const char* letter : {"A", "あ", "亜", "갂"}) {
            const iconv_t cd = c.open(from.c_str(), "UTF-8//IGNORE");
            tokens.push_back(call(c, cd, letter, 32).written);
            tokens.back() += call(c, cd, "", 32, true).written;
            c.close(cd);
        }
        if (from != "ISO-2022-JP") { // the C library waits for the rest of any escape sequence
            tokens.push_back(tokens[2].substr(0, 1));
        }
        for (const std::string to : {"UTF-8", "UTF-16LE", "UTF-32BE", "CP932", "EUC-JP",
                                     "ISO-2022-JP", "EUC-JISX0213", "SHIFT_JISX0213", "GB18030"}) {
            SCOPED_TRACE(from + " to " + to);
            const iconv_t theirs = c.open(to.c_str(), from.c_str()),
                          mine = ours.open(to.c_str(), from.c_str());
            const std::size_t n = tokens.size();
            std::string wanted, got;
            for (std::size_t i = 0; i < n * n * n; ++i) {
                const std::string text = tokens[i / n / n] + tokens[i / n % n] + tokens[i % n];
                for (std::size_t cut = 0; cut <= text.size(); ++cut) {
                    const std::string told = convert(c, theirs, text, cut, 32, wanted);
                    ASSERT_EQ(convert(ours, mine, text, cut, 32, got), told)
                        << testing::PrintToString(text) << cut;
                    ASSERT_EQ(got, wanted) << testing::PrintToString(text) << cut;
                }
                for (std::size_t room = 0; room <= 16; ++room) {
                    convert(ours, mine, text, text.size(), room, got);
                    ASSERT_EQ(got, wanted.substr(0, room < 8 ? got.size() : std::string::npos))
                        << testing::PrintToString(text) << room;
                }
            }
            c.close(theirs);
            ours.close(mine);
        }
    }
}

} // namespace
