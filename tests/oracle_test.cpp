// Every public charset against another converter, the C library's iconv: the whole code space
// decoded, all scalars encoded. A difference that is not listed fails, and so does a listed one
// that is none.
#include "cconv/tables/table.h"
#include "tests/support/convert.h"

#include <fstream>
#include <functional>
#include <sstream>

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

// All codes of one and two bytes, of three behind single shift 3, of four as in GB 18030. visit
// tells whether a code is no character by itself, so that a longer one may begin with it.
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
    {"gb18030", "GB18030", 4, 204192, "gb18030_decoded", 204192, "gb18030_encoded"},
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
                        std::size_t width, int codes, const char* listed) {
    our_converter our(ours, "iso-10646-ucs-4");
    peer_converter peer(theirs, "UCS-4BE");
    comparison result(std::string(ours) + " behind " + test::to_hex(escape), listed);
    const u32 first = width == 1 ? 0x00 : 0x2121, last = width == 1 ? 0x7F : 0x7E7E;
    for (u32 code = first; code <= last; ++code) {
        const u32 cell = code & 0xFF;
        if (code == 0x1B || (width == 2 && (cell < 0x21 || cell > 0x7E))) {
            continue;
        }
        const std::string text = std::string(escape) + code_text(code, width);
        result.compare(code, scalars_of(our.convert(text)), scalars_of(peer.convert(text)));
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
    compare("\x1B(B", 1, 127, "");
    compare("\x1B(J", 1, 127, "roman_decoded");
    compare("\x1B$B", 2, 6879, "jisx0208_decoded");
    compare("\x1B$@", 2, 6879, "jisc6226_decoded");
    compare_encoding("iso-2022-jp", "ISO-2022-JP", 7079, "iso_2022_jp_encoded",
                     without_ascii_designation);
}

TEST(Oracle, Iso2022Jp2004) {
    compare_designated("iso-2022-jp-2004", "ISO-2022-JP-3", "\x1B$(Q", 2, 8797, "");
    compare_designated("iso-2022-jp-2004", "ISO-2022-JP-3", "\x1B$(P", 2, 2436, "");

    // The other converter writes the same characters otherwise (ESC $ B), so what ours writes is
    // given to it to read.
    our_converter our("iso-10646-ucs-4", "iso-2022-jp-2004");
    peer_converter peer("ISO-2022-JP-3", "UCS-4BE");
    comparison result("iso-2022-jp-2004 encoded", "iso_2022_jp_2004_read");
    for_each_scalar([&](u32 scalar) {
        const std::string text = code_text(scalar, 4), written = our.convert(text);
        if (!written.empty()) {
            result.compare(scalar, scalars_of(text), scalars_of(peer.convert(written)));
        }
    });
    result.finish(11408);
}

// The second charset directory, which reads the disputed characters as the standards do.
TEST(Oracle, DirectoryOfJisReadings) {
    my_init();
    ASSERT_EQ(ZAN_setCharsetPath(PVZAN_BASE2_JIS_DIR), 1U);
    compare_decoding("shift_jis", "SJIS", 2, 7070, "");
    compare_encoding("shift_jis", "SJIS", 7079, "shift_jis_of_jis_encoded");
    compare_decoding("euc-jp", "EUC-JP", 3, 13136, "euc_jp_of_jis_decoded");
    compare_encoding("euc-jp", "EUC-JP", 13146, "euc_jp_of_jis_encoded");
    EXPECT_EQ(test::convert("iso-2022-jp", "utf-8", "\x1B$B\x21\x41\x1B$@\x21\x41"), "〜〜");
    EXPECT_EQ(cconvChgCharset(open("utf-8", "utf-8").get(), nullptr, "windows31j"),
              u32{PVZAN_UNKNOWN_CHARSET});
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
