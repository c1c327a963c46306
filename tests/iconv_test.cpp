// iconv(3) over the library, call by call beside the C library's own.
#include "tests/support/child.h"

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

// Calls, each [ROOM:]BYTES with the bytes in hex, [ROOM:]end without input, or "reset" without
// output, too; and what came of each.
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

struct row {
    const char *from, *to, *calls;
    const char *deliberate = "", *why = ""; // where we answer something else than the C library
};

const row rows[] = {
    {"CP932", "UTF-8", "41FF42 41823142 41854042 4182 A0 3:4182A042 0: 0:FF 0:82 0:82A0"},
    {"UTF-8", "UTF-16LE", "41C080 41EDA080 41F4908080 41F888808080 41E38141 41E381 EFBBBF41"},
    {"UTF-16LE", "UTF-8", "410042 41003DD8 41003DD84200 410000DC4200 FFFE4100"},
    {"CP932", "UTF-8//IGNORE", "41FF42 41823142 41854042 4182"},
    {"UTF-8", "CP932//IGNORE", "2:41C3A9424344 4344"},
    {"UTF-8//IGNORE", "CP932", "41C3A942"},
    {"UTF-8", "CP932//TRANSLIT", "41C3A9F0A0AEB742 41FF 0:C3A9 end"},
    {"UTF-8", "ASCII//TRANSLIT//IGNORE", "41FFF0A0AEB742"},
    {"UTF-8", "ascii//ignore/translit", "41FFF0A0AEB742"},
    {"UTF-8", "ASCII//x//Translit,ignore", "41FFF0A0AEB742"},
    {"UTF-8", "ISO-2022-JP", "E38182 end end E38182 2:end 3:end E38182 reset 41 5:E38182 FF end"},
    {"ISO-2022-JP", "UTF-8", "0:1B2442 reset 2422 1B24422422 end 2422 1B2442 1B 24"},
    {"UTF-8", "UTF-16", "end 3:41 4:41 42 end 43 reset 44"},
    {"UTF-16", "UTF-8", "FE FEFF0041 0041 FFFE4100"},
    {"UTF-16", "UTF-16", "41 0: 0:4100 2:4100 4100"},
    {"UCS-2", "UTF-8", "FFFE4100 FEFF0041 0:4100 41 00D84100"},
    {"UTF-32", "UTF-8", "41000000 reset FFFE0000 reset 0000FEFF00000041"},
    {"UNICODE", "UTF-8", "4100 reset FEFF0041"},
    {"UCS-4", "UTF-8", "0000004100 0000D800"},
    {"UTF-8", "SHIFT_JISX0213",
     "E3818B 0:end end end E3818B E3829A E3818B 41 E3818B EAB080 1:E3829A"},
    {"UTF-8", "ISO-8859-1", "E3818B 41 41E3 end 41"},
    {"UTF-8", "CP932", "E3818B E3829A"},
    {"UTF-16", "UTF-16", "FFFE end 4100"},
    {"UTF-16", "UTF-16", "FFFE 4100 end"},
    {"UTF-16", "UTF-8", "FFFE end"},
    // Deliberate differences.
    {"UTF-8", "CP932//IGNORE", "41C3A942", "1/4/AB ", "what is left out is counted"},
    {"UTF-8", "CP932//NON_IDENTICAL_DISCARD", "41C3A942 41FF", "1/4/AB EILSEQ/1/A ",
     "POSIX has it"},
    {"UTF-8", "CP932//IGNORE", "41FF42", "0/3/AB ", "as with longer texts"},
    {"UTF-8", "ASCII//TRANSLIT", "E282ACC39F41", "2/6/??A ", "look-alikes are one character"},
    {"UTF-8", "EUC-JP//TRANSLIT", "E3809CC2AC", "2/5/\xA1\xC1\xA2\xCC ",
     "what comes back as another is counted"},
    {"UTF-8", "ISO-2022-JP", "3:E38182 4:E38182 5:E38182", "E2BIG/0/ E2BIG/0/ 0/3/\x1B$B$\" ",
     "a character is written whole"},
    {"SHIFT_JISX0213", "UTF-8", "3:82F5 82F5", "E2BIG/0/ 0/2/か゚ ", "the same"},
    {"UTF-16", "UTF-8", "FEFF0041 end FFFE4100", "0/4/A 0/0/ 0/4/A ", "as the first text"},
    {"UTF-16", "UTF-8", "FEFF0041 reset 41 4100", "0/4/A 0 EINVAL/0/ 0/2/A ", "as the first text"},
    {"SHIFT_JIS", "UTF-8", "5C7E", "0/2/\\~ ", "as our charset has it"},
    {"UTF-8", "CP932", "C2A5 E3809C", "EILSEQ/0/ EILSEQ/0/ ", "they would come back as others"},
};

// Whom to ask is settled once in a process.
TEST_F(Iconv, AnswersAsTheCLibrary) {
    test::in_child([this] {
        setenv("PVZAN_ICONV", "all", 1);
        for (const row& r : rows) {
            const std::string wanted = run(c, r.from, r.to, r.calls);
            EXPECT_NE(wanted, r.deliberate) << r.to << ": no longer a difference";
            EXPECT_EQ(run(ours, r.from, r.to, r.calls),
                      *r.deliberate != '\0' ? r.deliberate : wanted)
                << r.from << " to " << r.to << ": " << r.calls << ' ' << r.why;
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
        for (const row& r : rows) {
            EXPECT_EQ(run(ours, r.from, r.to, r.calls), run(c, r.from, r.to, r.calls)) << r.to;
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
