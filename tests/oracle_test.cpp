// Every public charset against another converter, the C library's iconv: the whole code space
// decoded, all scalars encoded. A difference that is not listed fails, and so does a listed one
// that is none.
#include "cconv/tables/table.h"
#include "tests/support/child.h"
#include "tests/support/convert.h"

namespace {

using namespace test;

using scalars = std::u32string; // empty: refused

// Codes, or scalars, from first to last that the two converters treat differently: all, or those
// that are refused by one of them or for private use here.
struct difference {
    u32 first, last;
    std::string which;
};

// A list of tests/data/oracle_differences.tsv.
std::vector<difference> differences(const std::string& list) {
    std::ifstream file(PVZAN_SOURCE_DIR "/tests/data/oracle_differences.tsv");
    std::vector<difference> listed;
    for (std::string line; std::getline(file, line);) {
        std::istringstream row(line);
        std::string name;
        difference d{};
        std::getline(row, name, '\t');
        if (name == list) {
            (row >> std::hex >> d.first >> d.last).ignore();
            std::getline(row, d.which, '\t');
            listed.push_back(d);
        }
    }
    EXPECT_EQ(listed.empty(), list.empty()) << list;
    return listed;
}

// ---- The two converters ------------------------------------------------------------------------

scalars scalars_of(std::string_view ucs4) {
    scalars text;
    for (; ucs4.size() >= 4; ucs4.remove_prefix(4)) {
        text += static_cast<char32_t>(load_big_endian(bytes_of(ucs4.substr(0, 4))));
    }
    return text;
}

// The C library's converter. Empty: refused.
class peer_converter {
public:
    peer_converter(const char* from, const char* to) : convert_(from, to) {
        EXPECT_TRUE(convert_.available()) << from << " to " << to;
    }
    std::string convert(std::string_view input) { return convert_(input).value_or(""); }

private:
    test::oracle convert_;
};

// Ours. Empty: refused.
class our_converter {
public:
    our_converter(const char* from, const char* to) : convert_(from, to) {}
    std::string convert(std::string_view input) { return convert_(input, true).value_or(""); }

private:
    test::character_converter convert_;
};

// ---- What is compared --------------------------------------------------------------------------

bool holds(const std::string& which, const scalars& ours, const scalars& theirs) {
    if (which == "private use here") {
        return ours.size() == 1 && ours[0] >= 0xE000 && ours[0] <= 0xF8FF && theirs.empty();
    }
    return which == "-" ||
           (ours.empty() != theirs.empty() && ours.empty() == (which == "refused here"));
}

// Counts what does not agree with the list, and reports the first few.
class comparison {
public:
    comparison(std::string title, const char* list)
        : title_(std::move(title)), listed_(differences(list)) {}

    void compare(u32 code, const scalars& ours, const scalars& theirs) {
        characters_ += !ours.empty();
        const bool expected = std::ranges::any_of(listed_, [&](const difference& d) {
            return code >= d.first && code <= d.last && holds(d.which, ours, theirs);
        });
        if ((ours != theirs) == expected) {
            return;
        }
        if (++unexpected_ <= 12) {
            ADD_FAILURE() << title_ << std::hex << ", code " << code << ": ours " << show(ours)
                          << "theirs " << show(theirs)
                          << (ours == theirs ? "(listed as different)" : "");
        }
    }

    // characters: how many codes or scalars ours takes.
    void finish(int characters) const {
        EXPECT_EQ(unexpected_, 0) << title_;
        EXPECT_EQ(characters_, characters) << title_;
    }

private:
    static std::string show(const scalars& text) {
        std::string shown;
        for (const char32_t c : text) {
            std::array<char, 16> number;
            std::snprintf(number.data(), number.size(), "%X ", static_cast<unsigned>(c));
            shown += number.data();
        }
        return shown.empty() ? "refused " : shown;
    }

    std::string title_;
    std::vector<difference> listed_;
    int unexpected_ = 0, characters_ = 0;
};

// Bytes as they are, to compare and show them like scalars.
scalars widen(std::string_view bytes) {
    const std::span<const u8> units = bytes_of(bytes);
    return {units.begin(), units.end()};
}

// All codes of one and two bytes, of three behind single shift 3, of four as in GB 18030 and
// EUC-TW. visit tells whether a code is no character by itself, so that a longer one may begin with
// it.
void for_each_code(std::size_t longest, const std::function<bool(u32, std::size_t)>& visit) {
    for (u32 lead = 0; lead < 0x100; ++lead) {
        if (!visit(lead, 1) || longest < 2) {
            continue;
        }
        for (u32 code = lead << 8; code <= (lead << 8 | 0xFF); ++code) {
            if (!visit(code, 2)) {
                continue;
            }
            if (longest == 3 && lead == 0x8F) {
                for (u32 third = 0x80; third < 0x100; ++third) {
                    visit(code << 8 | third, 3);
                }
            }
            const bool four_byte_lead = (code & 0xFF) >= 0x30 && (code & 0xFF) <= 0x39;
            for (u32 third = 0x80; longest == 4 && four_byte_lead && third < 0x100; ++third) {
                for (u32 fourth = 0x30; fourth <= 0x39; ++fourth) {
                    visit(code << 16 | third << 8 | fourth, 4);
                }
            }
            for (u32 third = 0xA1; longest == 4 && lead == 0x8E && third < 0xFF; ++third) {
                for (u32 fourth = 0xA1; fourth < 0xFF; ++fourth) {
                    visit(code << 16 | third << 8 | fourth, 4);
                }
            }
        }
    }
}

using byte_form = std::string (*)(std::string_view);

std::string unchanged(std::string_view text) {
    return std::string(text);
}

void compare_decoding(const char* ours, const char* theirs, std::size_t longest, int codes,
                      const char* listed, byte_form their_form = unchanged) {
    our_converter our(ours, "iso-10646-ucs-4");
    peer_converter peer(theirs, "UCS-4BE");
    comparison result(std::string(ours) + " decoded", listed);
    for_each_code(longest, [&](u32 code, std::size_t length) {
        const std::string text = code_text(code, length);
        const scalars a = scalars_of(our.convert(text));
        const scalars b = scalars_of(peer.convert(their_form(text)));
        result.compare(code, a, b);
        return a.empty() && b.empty();
    });
    result.finish(codes);
}

void for_each_scalar(const std::function<void(u32)>& visit) {
    for (u32 scalar = 0; scalar < 0x110000; ++scalar) {
        if (scalar < 0xD800 || scalar > 0xDFFF) {
            visit(scalar);
        }
    }
}

void compare_encoding(const char* ours, const char* theirs, int characters, const char* listed,
                      byte_form our_form = unchanged) {
    our_converter our("iso-10646-ucs-4", ours);
    peer_converter peer("UCS-4BE", theirs);
    comparison result(std::string(ours) + " encoded", listed);
    for_each_scalar([&](u32 scalar) {
        const std::string text = code_text(scalar, 4);
        result.compare(scalar, widen(our_form(our.convert(text))), widen(peer.convert(text)));
    });
    result.finish(characters);
}

// For a converter that writes the same characters otherwise: what ours writes is given to it to
// read.
void compare_reading(const char* ours, const char* theirs, int characters, const char* listed,
                     byte_form their_form = unchanged) {
    our_converter our("iso-10646-ucs-4", ours);
    peer_converter peer(theirs, "UCS-4BE");
    comparison result(std::string(ours) + " encoded", listed);
    for_each_scalar([&](u32 scalar) {
        const std::string text = code_text(scalar, 4), written = our.convert(text);
        if (!written.empty()) {
            result.compare(scalar, scalars_of(text), scalars_of(peer.convert(their_form(written))));
        }
    });
    result.finish(characters);
}

// ---- The charsets ------------------------------------------------------------------------------

// The fixed-width form as the variable one; empty where it has no such form.
std::string variable_width(std::string_view fixed) {
    if (fixed.size() != 2) {
        return {};
    }
    const u32 first = bytes_of(fixed)[0], second = bytes_of(fixed)[1];
    if (first == 0) {
        return second >= 0xA0 ? code_text(0x8E00 | second, 2) : code_text(second, 1);
    }
    if (first < 0xA0) {
        return {};
    }
    return second >= 0xA0 ? std::string(fixed) : code_text(0x8F0080 | first << 8 | second, 3);
}

// The second charset directory, which reads the disputed characters as the standards do. First, for
// what follows settles the other one in this process.
TEST(Oracle, DirectoryOfJisReadings) {
    in_child([] {
        my_init();
        ASSERT_EQ(ZAN_setCharsetPath(PVZAN_BASE2_JIS_DIR), 1U);
        compare_decoding("shift_jis", "SJIS", 2, 7070, "");
        compare_encoding("shift_jis", "SJIS", 7079, "shift_jis_of_jis_encoded");
        compare_decoding("euc-jp", "EUC-JP", 3, 13136, "euc_jp_of_jis_decoded");
        compare_encoding("euc-jp", "EUC-JP", 13146, "euc_jp_of_jis_encoded");
        EXPECT_EQ(test::convert("iso-2022-jp", "utf-8", "\x1B$B\x21\x41\x1B$@\x21\x41"), "〜〜");
        EXPECT_EQ(cconvChgCharset(open("utf-8", "utf-8").get(), nullptr, "windows31j"),
                  u32{PVZAN_UNKNOWN_CHARSET});
    });
}

struct charset_row {
    const char *ours, *theirs;
    std::size_t longest; // code
    int codes;           // that are characters
    const char* decoded; // list of differences
    int characters;      // that have a code
    const char* encoded;
    byte_form form = unchanged;

    friend void PrintTo(const charset_row& row, std::ostream* out) { *out << row.ours; }
};

const charset_row charsets[] = {
    {"windows31j", "CP932", 2, 9795, "", 9407, "windows31j_encoded"},
    {"shift_jis", "SJIS", 2, 7070, "shift_jis_decoded", 7079, "shift_jis_encoded"},
    {"euc-jp", "EUC-JP", 3, 13136, "euc_jp_decoded", 13146, "euc_jp_encoded"},
    {"euc-jp-fix", "EUC-JP", 2, 13136, "euc_jp_decoded", 13146, "euc_jp_encoded", variable_width},
    {"shift_jis-2004", "SHIFT_JISX0213", 2, 11424, "shift_jis_2004_decoded", 11408,
     "shift_jis_2004_encoded"},
    {"euc-jis-2004", "EUC-JISX0213", 3, 11423, "euc_jis_2004_decoded", 11408,
     "euc_jis_2004_encoded"},
    {"chinesegbk", "GBK", 2, 24069, "private_use_decoded", 24069, "private_use_encoded"},
    {"chinesebig5", "BIG5", 2, 19848, "big5_decoded", 19838, "big5_encoded"},
    {"koreanksc", "UHC", 2, 17364, "private_use_decoded", 17364, "private_use_encoded"},
    {"gb18030", "GB18030", 4, 1112064, "gb18030_decoded", 1112064, "gb18030_encoded"},
    {"cp943", "IBM943", 2, 9795, "cp943_decoded", 9407, "cp943_encoded"},
    {"eucjp-ms", "EUC-JP-MS", 3, 15206, "c1_decoded", 15192, "c1_encoded"},
    {"gb2312", "EUC-CN", 2, 7573, "", 7575, "gb2312_encoded"},
    {"euc-kr", "EUC-KR", 2, 8355, "c1_decoded", 8355, "euc_kr_encoded"},
    {"johab", "JOHAB", 2, 17176, "johab_decoded", 17177, "johab_encoded"},
    {"euc-tw", "EUC-TW", 4, 61437, "", 55569, ""},
    {"big5-hkscs", "BIG5-HKSCS", 2, 18598, "hkscs_decoded", 18593, "hkscs_encoded"},
    {"big5-web", "BIG5-HKSCS", 2, 18722, "big5_web_decoded", 14790, "big5_web_encoded"},
    {"gbk-web", "GB18030", 4, 1112065, "gbk_web_decoded", 24086, "gbk_web_encoded"},
    {"iso-646irv", "ASCII", 1, 128, "", 128, ""},
    {"iso-8859-1", "ISO-8859-1", 1, 256, "", 256, ""},
};

// Charsets of single bytes that the other converter knows by the same name, but for windows-; the
// rest is held against others where the tables are derived.
constexpr std::pair<const char*, const char*> single_bytes[] = {
    {"iso-8859-", "2 3 4 5 6 7 8 9 10 11 13 14 15 16"},
    {"windows-", "874 1250 1251 1252 1253 1254 1255 1256 1257 1258"},
    {"cp", "437 737 775 850 852 855 857 858 860 861 862 863 864 865 866 869 1125"},
    {"koi8-", "r u ru"},
    {"ibm", "037 500 1047 1140"},
    {"georgian-", "academy ps"},
    {"", "tis-620 viscii armscii-8 mac-centraleurope"},
};

// All codes, and all characters of the BMP.
TEST(Oracle, SingleBytes) {
    for (const auto& [family, members] : single_bytes) {
        std::istringstream names(members);
        for (std::string member; names >> member;) {
            const bool windows = family == std::string_view("windows-");
            const std::string ours = family + member, theirs = windows ? "cp" + member : ours;
            our_converter decode(ours.c_str(), "utf-8"), encode("utf-8", ours.c_str());
            peer_converter read(theirs.c_str(), "UTF-8"), write("UTF-8", theirs.c_str());
            for (u32 code = 0; code < 0x100; ++code) {
                const std::string text = code_text(code, 1);
                EXPECT_EQ(decode.convert(text), read.convert(text)) << ours << to_hex(text);
            }
            for (u32 scalar = 0x20; scalar < 0x10000; ++scalar) {
                const std::string text = utf8(std::u32string(1, scalar));
                // That the other also writes what it reads back as something else is its affair;
                // below the strict interface control codes are written as they are everywhere.
                const std::string form = write.convert(text);
                const std::string back = form.size() == 1 ? read.convert(form) : "";
                EXPECT_EQ(encode.convert(text), back == text ? form : "") << ours << to_hex(text);
            }
        }
    }
}

struct Charsets : testing::TestWithParam<charset_row> {};

TEST_P(Charsets, AgreeBothWays) {
    const charset_row& row = GetParam();
    compare_decoding(row.ours, row.theirs, row.longest, row.codes, row.decoded, row.form);
    compare_encoding(row.ours, row.theirs, row.characters, row.encoded, row.form);
}

INSTANTIATE_TEST_SUITE_P(Oracle, Charsets, testing::ValuesIn(charsets));

// Decodes every code of a designated set, with its escape sequence in front.
void compare_designated(const char* ours, const char* theirs, std::string_view escape,
                        std::size_t width, int codes, const char* listed,
                        byte_form their_form = unchanged) {
    our_converter our(ours, "iso-10646-ucs-4");
    peer_converter peer(theirs, "UCS-4BE");
    comparison result(std::string(ours) + " behind " + test::to_hex(escape), listed);
    // Bytes that change what follows are left out; so are those that the older rules do not check.
    const std::string_view charset(ours);
    const bool old = charset == "iso-2022-jp" || charset == "iso-2022-jp-2004";
    const bool seven_bits = !charset.starts_with("ibm");
    const u32 first = width == 1 ? 0x00 : 0x2121, last = width == 1 ? 0xFF : 0xFFFF;
    for (u32 code = first; code <= last; ++code) {
        const u32 cell = code & 0xFF, row = width == 1 ? cell : code >> 8;
        if (row == 0x0E || row == 0x0F || row == 0x1B || (seven_bits && (row & 0x7F) == 0x7F) ||
            (width == 2 && cell < 0x21) ||
            (old && ((code & 0x8080) != 0 || (width == 2 && cell == 0x7F)))) {
            continue;
        }
        const std::string text = std::string(escape) + code_text(code, width);
        result.compare(code, scalars_of(our.convert(text)),
                       scalars_of(peer.convert(their_form(text))));
    }
    result.finish(codes);
}

// Our text begins with the designation of its first set, ASCII too.
std::string without_ascii_designation(std::string_view text) {
    constexpr std::string_view to_ascii = "\x1B(B";
    const bool designated = text.size() > to_ascii.size() && text.starts_with(to_ascii);
    return std::string(designated ? text.substr(to_ascii.size()) : text);
}

TEST(Oracle, Iso2022Jp) {
    const auto compare = [](std::string_view escape, std::size_t width, int codes,
                            const char* listed) {
        compare_designated("iso-2022-jp", "ISO-2022-JP", escape, width, codes, listed);
        compare_designated("iso-2022-jp-2004", "ISO-2022-JP-3", escape, width, codes, listed);
    };
    compare("\x1B(B", 1, 124, "");
    compare("\x1B(J", 1, 124, "roman_decoded");
    compare("\x1B$B", 2, 6879, "jisx0208_decoded");
    compare("\x1B$@", 2, 6879, "jisc6226_decoded");
    compare_encoding("iso-2022-jp", "ISO-2022-JP", 7079, "iso_2022_jp_encoded",
                     without_ascii_designation);
}

TEST(Oracle, Iso2022Jp2004) {
    compare_designated("iso-2022-jp-2004", "ISO-2022-JP-3", "\x1B$(Q", 2, 8797, "");
    compare_designated("iso-2022-jp-2004", "ISO-2022-JP-3", "\x1B$(P", 2, 2436, "");

    // It writes the same characters under ESC $ B.
    compare_reading("iso-2022-jp-2004", "ISO-2022-JP-3", 11408, "iso_2022_jp_2004_read");
}

// EUC-JP in the shape of Shift_JIS; empty where it has none.
std::string shift_jis_shape(std::string_view euc) {
    const u32 first = bytes_of(euc)[0], second = bytes_of(euc).back();
    if (euc.size() == 1) {
        return first < 0x80 ? std::string(euc) : "";
    }
    if (first == 0x8E) {
        return second >= 0xA1 && second <= 0xDF ? std::string(euc.substr(1)) : "";
    }
    if (first < 0xA1 || second < 0xA1 || first == 0xFF || second == 0xFF) {
        return {};
    }
    const u32 row = first - 0xA1, cell = second - 0xA1;
    const u32 lead = row / 2 + (row < 62 ? 0x81 : 0xC1);
    const u32 trail = row % 2 != 0 ? cell + 0x9F : cell + (cell < 63 ? 0x40 : 0x41);
    return code_text(lead << 8 | trail, 2);
}

// Windows' EUC-JP has the characters of code page 932, and writes those of IBM in NEC's places.
TEST(Oracle, Cp51932) {
    compare_decoding("cp51932", "CP932", 2, 7527, "", shift_jis_shape);
    compare_reading("cp51932", "CP932", 7526, "cp51932_read", shift_jis_shape);
    EXPECT_EQ(test::convert("utf-8", "cp51932", "∪①髙¬"), "\xA2\xC0\xAD\xA1\xFC\xE2\xA2\xCC");
}

// The charsets whose definitions say designations: each set behind what designates it, and all
// that is written, as the other converter reads it.
struct designated_row {
    const char *ours, *theirs;
    std::string_view before;
    std::size_t width;
    int codes;
    const char* listed;
    byte_form their_form = unchanged;
};

// ISO 2022 in the shape of Shift_JIS.
std::string windows_shape(std::string_view text) {
    const u32 row = bytes_of(text.substr(text.size() - 2))[0], cell = bytes_of(text).back();
    if (text.starts_with("\x1B$") && (row < 0x21 || row > 0x7E || cell < 0x21 || cell > 0x7E)) {
        return {};
    }
    if (text.starts_with("\x1B$B")) {
        return shift_jis_shape(code_text(0x8080 | row << 8 | cell, 2));
    }
    if (text.starts_with("\x1B$(?")) { // rows 21 to 34 lie behind those
        const std::string first =
            shift_jis_shape(code_text(0xA180 + ((row - 0x21) % 2 << 8) + cell, 2));
        return row > 0x34 ? "" : static_cast<char>(0xF0 + (row - 0x21) / 2) + first.substr(1);
    }
    return std::string(1, static_cast<char>(cell | 0x80));
}

using namespace std::string_view_literals;
const designated_row designated_rows[] = {
    {"iso-2022-jp-1", "ISO-2022-JP-2", "", 1, 124, ""},
    {"iso-2022-jp-1", "ISO-2022-JP-2", "\x1B(J", 1, 124, "roman_decoded"},
    {"iso-2022-jp-1", "ISO-2022-JP-2", "\x1B$B", 2, 6879, "jisx0208_decoded"},
    {"iso-2022-jp-1", "ISO-2022-JP-2", "\x1B$@", 2, 6879, "jisc6226_decoded"},
    {"iso-2022-jp-1", "ISO-2022-JP-2", "\x1B$(D", 2, 6067, ""},
    {"iso-2022-jp-2", "ISO-2022-JP-2", "\x1B$A", 2, 7445, ""},
    {"iso-2022-jp-2", "ISO-2022-JP-2", "\x1B$(C", 2, 8227, ""},
    {"iso-2022-jp-2", "ISO-2022-JP-2", "\x1B.A\x1BN", 1, 95, "iso_2022_jp_2_decoded"},
    {"iso-2022-jp-2", "ISO-2022-JP-2", "\x1B.F\x1BN", 1, 93, ""},
    {"iso-2022-jp-3", "ISO-2022-JP-3", "\x1B(I", 1, 93, ""},
    {"iso-2022-jp-3", "ISO-2022-JP-3", "\x1B$B", 2, 6879, "jisx0208_decoded"},
    {"iso-2022-jp-3", "ISO-2022-JP-3", "\x1B$(O", 2, 8797, ""},
    {"iso-2022-jp-3", "ISO-2022-JP-3", "\x1B$(Q", 2, 8797, ""},
    {"iso-2022-jp-3", "ISO-2022-JP-3", "\x1B$(P", 2, 2436, ""},
    {"iso-2022-kr", "ISO-2022-KR", "\x1B$)C", 1, 124, ""},
    {"iso-2022-kr", "ISO-2022-KR", "\x1B$)C\x0E", 2, 8227, ""},
    {"cp50220", "CP932", "\x1B$B", 2, 7336, "", windows_shape},
    {"cp50221", "CP932", "\x1B$B", 2, 7336, "", windows_shape},
    {"cp50222", "CP932", "\x1B(I", 1, 156, "kana_decoded", windows_shape},
    {"cp50221", "CP932", "\x0E", 1, 156, "kana_decoded", windows_shape},
    {"cp50221", "ISO-2022-JP-2", "\x1B$(D", 2, 6067, ""},
    {"iso-2022-jp-ms", "CP932", "\x1B$B", 2, 7336, "", windows_shape},
    {"iso-2022-jp-ms", "CP932", "\x1B$(?", 2, 1880, "", windows_shape},
    {"iso-2022-cn", "ISO-2022-CN", "\x1B$)A\x0E", 2, 7445, ""},
    {"iso-2022-cn", "ISO-2022-CN", "\x1B$)G\x0E", 2, 5867, ""},
    {"iso-2022-cn", "ISO-2022-CN", "\x1B$*H\x1BN", 2, 7650, ""},
    {"ibm930", "IBM930", "", 1, 225, ""},
    {"ibm930", "IBM930", "\x0E", 2, 11635, ""},
    {"ibm939", "IBM939", "", 1, 225, ""},
    {"ibm939", "IBM939", "\x0E", 2, 11635, ""},
    {"ibm1390", "IBM1390", "", 1, 226, "ibm1390_decoded"},
    {"ibm1390", "IBM1390", "\x0E", 2, 22102, ""},
    {"ibm1399", "IBM1399", "", 1, 226, "ibm1399_decoded"},
};
struct written_row {
    const char *ours, *theirs;
    int characters;
    const char* listed;
};
const written_row written_rows[] = {
    {"iso-2022-jp-1", "ISO-2022-JP-2", 13143, "iso_2022_jp_1_read"},
    {"iso-2022-jp-2", "ISO-2022-JP-2", 18797, "iso_2022_jp_1_read"},
    {"iso-2022-jp-3", "ISO-2022-JP-3", 11405, "iso_2022_jp_3_read"},
    {"iso-2022-kr", "ISO-2022-KR", 8352, ""},
    {"iso-2022-cn", "ISO-2022-CN", 16424, "iso_2022_cn_read"},
    {"ibm930", "IBM930", 11861, ""},
    {"ibm939", "IBM939", 11861, ""},
    {"ibm1390", "IBM1390", 22303, ""},
    {"ibm1399", "IBM1399", 22303, ""},
    {"utf-7", "UTF-7", 1112064, ""},
};

TEST(Oracle, CharsetsOfDesignations) {
    for (const designated_row& row : designated_rows) {
        compare_designated(row.ours, row.theirs, row.before, row.width, row.codes, row.listed,
                           row.their_form);
    }
    for (const written_row& row : written_rows) {
        compare_reading(row.ours, row.theirs, row.characters, row.listed);
    }
}

// Well-formed text both ways; what else the decoders take is not this converter's to judge.
void compare_unicode(const char* ours, const char* theirs, u32 last) {
    our_converter encode("iso-10646-ucs-4", ours), decode(ours, "iso-10646-ucs-4");
    peer_converter peer("UCS-4BE", theirs);
    comparison encoded(std::string(ours) + " encoded", ""), decoded(ours, "");
    int characters = 0;
    for_each_scalar([&](u32 scalar) {
        if (scalar <= last) {
            ++characters;
            const std::string text = code_text(scalar, 4), form = peer.convert(text);
            encoded.compare(scalar, widen(encode.convert(text)), widen(form));
            decoded.compare(scalar, widen(decode.convert(form)), widen(text));
        }
    });
    encoded.finish(characters);
    decoded.finish(characters);
}

TEST(Oracle, Unicode) {
    compare_unicode("utf-8", "UTF-8", 0x10FFFF);
    compare_unicode("utf-16", "UTF-16BE", 0x10FFFF);
    compare_unicode("iso-10646-ucs-4", "UCS-4BE", 0x10FFFF);
    compare_unicode("iso-10646-ucs-2", "UCS-2BE", 0xFFFF);
}

} // namespace
