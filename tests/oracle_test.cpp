// Every charset against another converter, the C library's iconv: the whole code space read, all
// scalars written, as tests/data/oracle_charsets.tsv says. A difference that is not listed fails,
// and so does a listed one that is none.
#include "cconv/engine/engine.h"
#include "cconv/tables/table.h"
#include "tests/support/child.h"
#include "tests/support/convert.h"
#include "tests/support/digest.h"
#include "tests/support/rows.h"

#include "pvzan_text.h"

namespace {

using namespace test;

using scalars = std::u32string; // empty: refused

// Codes, or scalars, from first to last that the two converters treat differently: all, or those
// that are refused by one of them or for private use here.
struct difference {
    u32 first, last;
    std::string which;
};

u32 from_hex(const std::string& digits) {
    return static_cast<u32>(std::stoul(digits, nullptr, 16));
}

// A list of tests/data/oracle_differences.tsv.
std::vector<difference> differences(const std::string& list) {
    std::vector<difference> listed;
    for (const row_cells& row : rows_of("oracle_differences.tsv", 5)) {
        if (row[0] == list) {
            listed.push_back({from_hex(row[1]), from_hex(row[2]), row[3]});
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

// The C library's and ours. Empty: refused.
class peer_converter {
public:
    peer_converter(const std::string& from, const std::string& to)
        : convert_(from.c_str(), to.c_str()) {
        EXPECT_TRUE(convert_.available()) << from << " to " << to;
    }
    std::string convert(std::string_view input) { return convert_(input).value_or(""); }

private:
    test::oracle convert_;
};

class our_converter {
public:
    our_converter(const std::string& from, const std::string& to)
        : convert_(from.c_str(), to.c_str()) {}
    std::string convert(std::string_view input) { return convert_(input, true).value_or(""); }

private:
    test::character_converter convert_;
};

// ---- What is compared --------------------------------------------------------------------------

bool holds(const std::string& which, const scalars& ours, const scalars& theirs) {
    if (which == "private use here") {
        return ours.size() == 1 && ours[0] >= 0xE000 && ours[0] <= 0xF8FF && theirs.empty();
    }
    return which.empty() ||
           (ours.empty() != theirs.empty() && ours.empty() == (which == "refused here"));
}

// Counts what does not agree with the list, and reports the first few.
class comparison {
public:
    comparison(std::string title, const std::string& list)
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

void for_each_scalar(const std::function<void(u32)>& visit) {
    for (u32 scalar = 0; scalar < 0x110000; ++scalar) {
        if (scalar < 0xD800 || scalar > 0xDFFF) {
            visit(scalar);
        }
    }
}

// ---- Shapes ------------------------------------------------------------------------------------

std::string unchanged(std::string_view text) {
    return std::string(text);
}

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

// ISO 2022 in the shape of Shift_JIS.
std::string windows_shape(std::string_view text) {
    const u32 row = bytes_of(text.substr(text.size() - 2))[0], cell = bytes_of(text).back();
    if (text.starts_with("\x1B$") && (row < 0x21 || row > 0x7E || cell < 0x21 || cell > 0x7E)) {
        return {};
    }
    if (text.size() == 5) { // behind ESC $ B or ESC $ @
        return shift_jis_shape(code_text(0x8080 | row << 8 | cell, 2));
    }
    if (text.starts_with("\x1B$(?")) { // rows 21 to 34 lie behind those
        const std::string first =
            shift_jis_shape(code_text(0xA180 + ((row - 0x21) % 2 << 8) + cell, 2));
        return row > 0x34 ? "" : static_cast<char>(0xF0 + (row - 0x21) / 2) + first.substr(1);
    }
    return std::string(1, static_cast<char>(cell | 0x80));
}

// HZ as EUC.
std::string euc_shape(std::string_view text) {
    if (!text.starts_with("~{")) {
        return std::string(text == "~~" ? "~" : text);
    }
    const u32 code = 0x8080U | static_cast<u32>(bytes_of(text)[2] << 8 | bytes_of(text)[3]);
    return (bytes_of(text)[2] | bytes_of(text)[3]) < 0x80 ? code_text(code, 2) : "";
}

// Our text begins with the designation of its first set, ASCII too.
std::string without_ascii_designation(std::string_view text) {
    constexpr std::string_view to_ascii = "\x1B(B";
    const bool designated = text.size() > to_ascii.size() && text.starts_with(to_ascii);
    return std::string(designated ? text.substr(to_ascii.size()) : text);
}

// UTF-8 as CESU-8.
std::string with_surrogates(std::string_view text) {
    if (text.size() < 4) {
        return std::string(text);
    }
    const std::span<const u8> b = bytes_of(text);
    const u32 above =
        ((b[0] & 7U) << 18 | (b[1] & 0x3FU) << 12 | (b[2] & 0x3FU) << 6 | b[3] % 64U) - 0x10000;
    std::string pair;
    for (const u32 unit : {0xD800 | above >> 10, 0xDC00 | (above & 0x3FF)}) {
        pair += code_text(0xED8080 | (unit & 0xFC0) << 2 | (unit & 0x3F), 3);
    }
    return pair;
}

// What brings our bytes into the shape of theirs, and theirs into that of ours.
struct form {
    std::string_view name;
    std::string (*ours)(std::string_view);
    std::string (*theirs)(std::string_view) = unchanged;
};
constexpr form forms[] = {{"", unchanged},
                          {"fixed", variable_width},
                          {"shift-jis", shift_jis_shape},
                          {"windows", windows_shape},
                          {"hz", euc_shape},
                          {"designated", without_ascii_designation},
                          {"cesu", unchanged, with_surrogates}};

// ---- The comparisons ---------------------------------------------------------------------------

struct charset_row {
    std::string what, ours, theirs, before, list;
    std::size_t bytes;
    int count;
    form shape;
};

std::vector<charset_row> charset_rows(const std::string& directory) {
    std::vector<charset_row> rows;
    for (const row_cells& row : rows_of("oracle_charsets.tsv", 9)) {
        if (row[0] == directory) {
            rows.push_back({row[1], row[2], row[3], row[5], row[8], from_hex("0" + row[6]),
                            std::stoi(row[7]), *std::ranges::find(forms, row[4], &form::name)});
        }
    }
    EXPECT_FALSE(rows.empty());
    return rows;
}

// Reads codes of the row, the ones that visit is called with by each_code.
template <typename EachCode>
void compare_codes(const charset_row& row, EachCode each_code) {
    our_converter our(row.ours, "iso-10646-ucs-4"), back("utf-16", row.ours);
    peer_converter peer(row.theirs, "UCS-4BE");
    comparison result(row.ours + " read behind " + test::to_hex(row.before), row.list);
    each_code([&](u32 code, std::size_t length) {
        const std::string bytes = code_text(code, length), text = row.before + bytes;
        const scalars a = scalars_of(our.convert(text));
        const scalars b = scalars_of(peer.convert(row.shape.ours(text)));
        result.compare(code, a, b);
        // Letters with marks of JIS X 0213 go the other way, too.
        if (a.size() == 2 && IsJISX0213CombiningUCS(a[0], a[1]) != 0 &&
            row.ours != "iso-2022-jp-2004") {
            const std::string pair = code_text(static_cast<u32>(a[0]) << 16 | a[1], 4);
            EXPECT_NE(back.convert(pair).find(bytes), std::string::npos) << std::hex << code;
        }
        return a.empty() && b.empty();
    });
    result.finish(row.count);
}

// Codes of one length. Bytes that change what follows are left out; so are those that the older
// rules do not check.
void for_each_designated(const charset_row& row,
                         const std::function<void(u32, std::size_t)>& visit) {
    const bool old = row.ours == "iso-2022-jp" || row.ours == "iso-2022-jp-2004";
    const bool seven_bits = !row.ours.starts_with("ibm"), wide = row.bytes == 2;
    for (u32 code = wide ? 0x2121 : 0; code <= (wide ? 0xFFFFU : 0xFFU); ++code) {
        const u32 cell = code & 0xFF, lead = wide ? code >> 8 : cell;
        if (lead == 0x0E || lead == 0x0F || lead == 0x1B || (seven_bits && (lead & 0x7F) == 0x7F) ||
            (wide && cell < 0x21) || (old && ((code & 0x8080) != 0 || (wide && cell == 0x7F)))) {
            continue;
        }
        visit(code, row.bytes);
    }
}

void compare_written(const charset_row& row) {
    our_converter our("iso-10646-ucs-4", row.ours);
    peer_converter peer("UCS-4BE", row.theirs);
    comparison result(row.ours + " written", row.list);
    for_each_scalar([&](u32 scalar) {
        const std::string text = code_text(scalar, 4);
        result.compare(scalar, widen(row.shape.ours(our.convert(text))),
                       widen(row.shape.theirs(peer.convert(text))));
    });
    result.finish(row.count);
}

// For a converter that writes the same characters otherwise: what one writes the other one reads.
template <typename Writer, typename Reader>
void compare_reading(const charset_row& row, Writer writer, Reader reader,
                     std::string (*shape)(std::string_view)) {
    comparison result(row.ours + " " + row.what, row.list);
    for_each_scalar([&](u32 scalar) {
        const std::string text = code_text(scalar, 4), written = writer.convert(text);
        if (!written.empty()) {
            result.compare(scalar, scalars_of(text), scalars_of(reader.convert(shape(written))));
        }
    });
    result.finish(row.count);
}

// All codes, and all characters of the BMP.
void compare_single(const charset_row& row) {
    our_converter decode(row.ours, "utf-8"), encode("utf-8", row.ours);
    peer_converter read(row.theirs, "UTF-8"), write("UTF-8", row.theirs);
    for (u32 code = 0; code < 0x100; ++code) {
        const std::string text = code_text(code, 1);
        EXPECT_EQ(decode.convert(text), read.convert(text)) << row.ours << to_hex(text);
    }
    for (u32 scalar = 0x20; scalar < 0x10000; ++scalar) {
        const std::string text = utf8(std::u32string(1, scalar));
        // That the other also writes what it reads back as something else is its affair; below the
        // strict interface control codes are written as they are everywhere.
        const std::string form = write.convert(text);
        const std::string back = form.size() == 1 ? read.convert(form) : "";
        EXPECT_EQ(encode.convert(text), back == text ? form : "") << row.ours << to_hex(text);
    }
}

// All codes of up to two bytes, all characters.
void compare_recorded(const charset_row& row) {
    our_converter read(row.ours, "utf-16"), write("utf-16", row.ours);
    digest answers("charset " + row.ours);
    for_each_code(2, [&](u32 code, std::size_t length) {
        const std::string text = read.convert(code_text(code, length));
        answers.add(text);
        answers.add(text.size() == 4 ? write.convert(text) : "");
        return text.empty();
    });
    for_each_scalar([&](u32 scalar) {
        const u32 above = scalar - 0x10000;
        answers.add(write.convert(
            scalar > 0xFFFF ? code_text(0xD800DC00 | (above >> 10) << 16 | above % 0x400, 4)
                            : code_text(scalar, 2)));
    });
}

void compare(const charset_row& row) {
    if (row.what == "single") {
        compare_single(row);
    } else if (row.what == "recorded") {
        compare_recorded(row);
    } else if (row.what == "codes") {
        compare_codes(row, [&](auto visit) { for_each_code(row.bytes, visit); });
    } else if (row.what == "behind") {
        compare_codes(row, [&](auto visit) { for_each_designated(row, visit); });
    } else if (row.what == "written") {
        compare_written(row);
    } else if (row.what == "read") {
        compare_reading(row, our_converter("iso-10646-ucs-4", row.ours),
                        peer_converter(row.theirs, "UCS-4BE"), row.shape.ours);
    } else {
        ASSERT_EQ(row.what, "reads");
        compare_reading(row, peer_converter("UCS-4BE", row.theirs),
                        our_converter(row.ours, "iso-10646-ucs-4"), row.shape.theirs);
    }
}

// The second charset directory, which reads the disputed characters as the standards do. First, for
// what follows settles the other one in this process.
TEST(Oracle, DirectoryOfJisReadings) {
    in_child([] {
        my_init();
        ASSERT_EQ(ZAN_setCharsetPath(PVZAN_BASE2_JIS_DIR), 1U);
        std::ranges::for_each(charset_rows("base2-jis"), compare);
        EXPECT_EQ(test::convert("iso-2022-jp", "utf-8", "\x1B$@!A!B!]!q!r\"L"), "〜‖−¢£¬");
        EXPECT_EQ(cconvChgCharset(open("utf-8", "utf-8").get(), nullptr, "windows31j"),
                  u32{PVZAN_UNKNOWN_CHARSET});
    });
}

TEST(Oracle, Charsets) {
    const std::vector<charset_row> rows = charset_rows("base2");
    std::ranges::for_each(rows, compare);
    pvzan_name name = {};
    name.size = sizeof name;
    for (std::size_t i = 0; pvzan_each_charset(i, &name) == 1; ++i) {
        EXPECT_TRUE(std::ranges::count(rows, name.charset, &charset_row::ours))
            << name.charset << " is compared with nothing: oracle_charsets.tsv lacks it";
    }
}

} // namespace
