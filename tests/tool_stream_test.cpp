// The tool's conversion of a stream: its strictness, the places it tells, and that neither hangs on
// where the input is cut.
#include "tests/support/oracle.h"
#include "tools/pvzan/text_stream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <ostream>
#include <random>
#include <tuple>

namespace {

using namespace std::string_literals;
using tool::problem_kind;

constexpr auto invalid = problem_kind::invalid, lacking = problem_kind::unrepresentable,
               incomplete = problem_kind::incomplete;

struct told {
    problem_kind kind;
    std::uint64_t line, column, offset;
    std::string bytes;
    char32_t scalar = 0, mark = 0;

    bool operator==(const told&) const = default;
};

std::ostream& operator<<(std::ostream& out, const told& t) {
    return out << "kind " << static_cast<int>(t.kind) << " at " << t.line << ":" << t.column
               << ", byte " << t.offset << ": " << test::to_hex(t.bytes) << " U+" << std::hex
               << static_cast<unsigned>(t.scalar) << " U+" << static_cast<unsigned>(t.mark)
               << std::dec;
}

struct result {
    std::string output;
    std::vector<told> problems;

    bool operator==(const result&) const = default;
};

std::ostream& operator<<(std::ostream& out, const result& r) {
    out << "output " << test::to_hex(r.output);
    for (const told& t : r.problems) {
        out << "\n  " << t;
    }
    return out;
}

// Feeds the text as reading from a pipe would: next_length gives the lengths of the pieces that
// arrive.
result convert(const char* from, const char* to, std::string_view text,
               const std::function<std::size_t()>& next_length) {
    test::use_shipped_charsets();
    result r;
    tool::text_stream stream(
        tool::resolve_charset(from), tool::resolve_charset(to),
        {[&r](tool::bytes_view bytes) { r.output.append(bytes.begin(), bytes.end()); },
         [&r](const tool::problem& p) {
             r.problems.push_back({p.kind, p.place.line, p.place.column, p.place.offset,
                                   std::string(p.bytes.begin(), p.bytes.end()), p.scalar, p.mark});
         }});
    EXPECT_TRUE(stream.open()) << stream.unknown();
    std::size_t used = 0, arrived = 0;
    const auto rest = [&] {
        return tool::bytes_view(reinterpret_cast<const std::uint8_t*>(text.data()) + used,
                                arrived - used);
    };
    while (arrived < text.size()) {
        arrived = std::min(text.size(), arrived + std::max<std::size_t>(next_length(), 1));
        if (arrived >= 4) {
            used += stream.feed(rest());
        }
    }
    stream.finish(rest());
    return r;
}

result convert(const char* from, const char* to, std::string_view text) {
    return convert(from, to, text, [] { return std::size_t{64 * 1024}; });
}

// ---- What is a problem, and what is written before it ------------------------------------------

struct stream_case {
    const char *from, *to;
    std::string text, output;
    std::vector<told> problems = {};
};

const std::vector<stream_case> cases = {
    // Ill-formed UTF-8, which the library would take: over-long, surrogates, beyond U+10FFFF, lone
    // continuation bytes, cut. Each problem is the longest beginning of a sequence.
    {"utf-8",
     "utf-16be",
     "a\xC0\xAF\xE0\x80\x80",
     "\0a"s,
     {{invalid, 1, 2, 1, "\xC0"},
      {invalid, 1, 3, 2, "\xAF"},
      {invalid, 1, 4, 3, "\xE0"},
      {invalid, 1, 5, 4, "\x80"},
      {invalid, 1, 6, 5, "\x80"}}},
    {"utf-8",
     "shift_jis",
     "\xED\xA0\x80\n\xF4\x90\x80\x80",
     "",
     {{invalid, 1, 1, 0, "\xED"},
      {invalid, 1, 2, 1, "\xA0"},
      {invalid, 1, 3, 2, "\x80"},
      {invalid, 2, 1, 4, "\xF4"},
      {invalid, 2, 2, 5, "\x90"},
      {invalid, 2, 3, 6, "\x80"},
      {invalid, 2, 4, 7, "\x80"}}},
    {"utf-8",
     "shift_jis",
     "\xE3\x81\x82\xE3\x81(\xF0\x9F\x98",
     "\x82\xA0",
     {{invalid, 1, 2, 3, "\xE3\x81"}, {incomplete, 1, 4, 6, "\xF0\x9F\x98"}}},
    {"utf-8", "shift_jis", "\xFE", "", {{invalid, 1, 1, 0, "\xFE"}}},
    // Ill-formed UTF-16, UCS-2 and UCS-4.
    {"utf-16be",
     "utf-8",
     "\0a\xD8\x40\0b\xDC\x0B\xD8\x40\xDC\x0B\xD8"s,
     "a",
     {{invalid, 1, 2, 2, "\xD8\x40"},
      {invalid, 1, 4, 6, "\xDC\x0B"},
      {incomplete, 1, 6, 12, "\xD8"}}},
    {"ucs2le", "utf-8", "a\0\x40\xD8"s, "a", {{invalid, 1, 2, 2, "\x40\xD8"}}},
    {"ucs4be",
     "utf-8",
     "\0\0\0a\0\x11\0\0\0\0\xDF\xFF"s,
     "a",
     {{invalid, 1, 2, 4, "\0\x11\0\0"s}, {invalid, 1, 3, 8, "\0\0\xDF\xFF"s}}},
    // Byte-order marks are no text. They decide for the names without a byte order; a character
    // that looks like half a mark is none.
    {"utf-8", "utf-16be", "\xEF\xBB\xBF\xFF", "", {{invalid, 1, 1, 3, "\xFF"}}},
    {"utf-16", "utf-8",
     "\xFF\xFE"
     "a\0"s,
     "a"},
    {"utf-16", "utf-8", "\xFE\xFF\0a"s, "a"},
    {"utf-16", "utf-8", "\xFF\x01\0a"s,
     "\xEF\xBC\x81"
     "a"},
    {"utf-16le", "utf-8",
     "\xFE\xFF"
     "a\0"s,
     "\xEF\xBF\xBE"
     "a"},
    {"ucs-4", "utf-8", "\xFF\xFE\0\0a\0\0\0"s, "a"},
    {"utf-8", "utf-16", "a", "\xFE\xFF\0a"s},
    {"utf-8", "utf-16", "", ""},
    // Shorter than a mark.
    {"utf-8", "shift_jis", "", ""},
    {"utf-8", "shift_jis", "ab", "ab"},
    // A letter and its mark: one code where there is one, else the mark is lacking; never its raw
    // value.
    {"utf-8", "shift_jis-2004", "\xE3\x81\x8B\xE3\x82\x9A", "\x82\xF5"},
    {"utf-8", "utf-16be", "\xE3\x81\x8B\xE3\x82\x9A", "\x30\x4B\x30\x9A"},
    {"utf-8",
     "shift_jis",
     "\xE3\x81\x8B\xE3\x82\x9A",
     "\x82\xA9",
     {{lacking, 1, 2, 3, "\xE3\x82\x9A", 0x309A}}},
    {"utf-16le",
     "windows31j",
     "\x4B\x30\x99\x30\n\0\x99\x30"s,
     "\x82\xAA\n",
     {{lacking, 2, 1, 6, "\x99\x30", 0x3099}}},
    {"utf-8",
     "shift_jis",
     "\u30CF\u309A\u309A.e\u0301",
     "\x83\x70",
     {{lacking, 1, 3, 6, "\u309A", 0x309A}, {lacking, 1, 6, 11, "\u0301", 0x301}}},
    {"utf-16be", "gb18030", "\x30\x4B\x30\x9A", "\xA4\xAB\x81\x39\xA7\x32"},
    {"shift_jis-2004", "utf-8", "\x82\xF5", "\xE3\x81\x8B\xE3\x82\x9A"},
    {"shift_jis-2004", "euc-jis-2004", "\x82\xF5", "\xA4\xF7"},
    {"shift_jis-2004",
     "shift_jis",
     "\x82\xA9\x82\xF5",
     "\x82\xA9",
     {{lacking, 1, 2, 2, "\x82\xF5", 0x304B, 0x309A}}},
    // Table charsets: bytes that begin nothing are blamed alone.
    {"shift_jis",
     "utf-8",
     "\x82\xA0\r\n\xB1 \x82 \xFD\xFF\n\x82",
     "\xE3\x81\x82\r\n\xEF\xBD\xB1 ",
     {{invalid, 2, 3, 6, "\x82 "},
      {invalid, 2, 5, 8, "\xFD"},
      {invalid, 2, 6, 9, "\xFF"},
      {incomplete, 3, 1, 11, "\x82"}}},
    {"chinesegbk", "utf-8", "\x80\xFF\x41", "\xE2\x82\xAC", {{invalid, 1, 2, 1, "\xFF"}}},
    // Of a code of four bytes, the ASCII in it is looked at anew, also where the text ends.
    {"gb18030",
     "utf-8",
     "a\x81\n\x81\x30\x81\n\x84\x31\xA5\x30\n\x81\x30\x81\x30\x81\x30\x81",
     "a",
     {{invalid, 1, 2, 1, "\x81\n"},
      {invalid, 2, 1, 3, "\x81\x30\x81\n"},
      {invalid, 2, 3, 5, "\x81\n"},
      {invalid, 3, 1, 7, "\x84\x31\xA5\x30"},
      {invalid, 3, 3, 9, "\xA5\x30\n"},
      {incomplete, 4, 2, 16, "\x81\x30\x81"},
      {incomplete, 4, 4, 18, "\x81"}}},
    // EUC codes without a character, which the library would hand on where the sets are the same.
    {"euc-jp",
     "shift_jis",
     "\xA4\xA2\xA9\xA1\x8F\xA2\xB0\x7F\r\xA0\xA0\n\x8F\n",
     "\x82\xA0",
     {{invalid, 1, 2, 2, "\xA9\xA1"},
      {lacking, 1, 3, 4, "\x8F\xA2\xB0", 0x2C7},
      {invalid, 1, 4, 7, "\x7F"},
      {invalid, 2, 1, 9, "\xA0\xA0"},
      {invalid, 3, 1, 12, "\x8F\n"}}},
    // In two-byte units the text stays in step.
    {"euc-jp-fix", "utf-8", "\xA4\xA2\x80\xA1\0A"s, "\xE3\x81\x82", {{invalid, 1, 2, 2, "\x80"}}},
    // An unknown escape sequence; set switches as characters.
    {"iso-2022-jp", "shift_jis", "\x1B(I1A", "", {{invalid, 1, 1, 0, "\x1B(I"}}},
    {"utf-8",
     "iso-2022-jp",
     "a\x1B\x0E\n",
     "\x1B(Ba",
     {{lacking, 1, 2, 1, "\x1B", 0x1B}, {lacking, 1, 3, 2, "\x0E", 0x0E}}},
    {"utf-8",
     "iso-2022-jp",
     "\xE4\xBA\x9C\xF0\x9F\x98\x80",
     "\x1B$B0!\x1B(B",
     {{lacking, 1, 2, 3, "\xF0\x9F\x98\x80", 0x1F600}}},
    {"utf-8", "iso-2022-jp", "", ""},
    // ISO-2022-JP-2004: the set before is designated anew behind a code of JIS X 0213, and the
    // plane
    // stands until the next escape sequence.
    {"utf-8", "iso-2022-jp-2004",
     "A\xE4\xBF\xB1"
     "B\xF0\xA0\x80\x8B",
     "\x1B(BA\x1B$(Q.!\x1B(BB\x1B$(Q.\"\x1B(B"},
    {"iso-2022-jp-2004", "utf-8", "\x1B$(P!\"!#\n!\"\x1B$(Q.!\x1B(BA",
     "\xE4\xB8\x82\xE4\xB8\x8F\n\xE4\xB8\x82\xE4\xBF\xB1"
     "A"},
};

TEST(ToolStream, TellsProblemsAndWritesWhatIsBefore) {
    for (const stream_case& c : cases) {
        SCOPED_TRACE(c.from + " to "s + c.to + ": "s + test::to_hex(c.text));
        const result whole = convert(c.from, c.to, c.text);
        EXPECT_EQ(test::to_hex(whole.output), test::to_hex(c.output));
        EXPECT_EQ(whole.problems, c.problems);
        EXPECT_EQ(convert(c.from, c.to, c.text, [] { return std::size_t{1}; }), whole)
            << "byte by byte";
    }
}

// ---- Random texts ------------------------------------------------------------------------------

struct source {
    const char *name, *oracle;
    std::size_t unit; // ASCII characters take that many bytes
};
constexpr source sources[] = {
    {"utf-8", "UTF-8", 1},
    {"utf-16be", "UTF-16BE", 2},
    {"utf-16le", "UTF-16LE", 2},
    {"shift_jis", "SJIS", 1},
    {"windows31j", "CP932", 1},
    {"euc-jp", "EUC-JP", 1},
    {"euc-jis-2004", "EUC-JISX0213", 1},
    {"shift_jis-2004", "SHIFT_JISX0213", 1},
};

// Lines of characters that all the charsets above have, of one, two and three bytes in most of
// them.
std::string random_lines(std::mt19937& random, std::size_t items) {
    constexpr std::u32string_view letters =
        U"\r\nabc XYZ09.,#\tかなカナ漢字亜海辺町図書ｱｲｳ。「」АБΩ×";
    std::string text;
    while (items-- > 0) { // some lines are long
        text += test::utf8(letters[items / 1000 % 2 * 2 + random() % (letters.size() - 2)]);
        text += random() % 400 == 0 ? "\n" : "";
    }
    return text + '.'; // the end is inside nothing
}

// The character at the beginning of the text, read by another converter from as few bytes as do.
struct slow_reader {
    explicit slow_reader(const source& s)
        : unit(s.unit), euc(std::string_view(s.name).starts_with("euc")), peer(s.oracle, "UTF-8") {}

    std::size_t operator()(std::string_view text, std::string& character) {
        for (std::size_t n = unit; n <= std::min<std::size_t>(text.size(), 4); n += unit) {
            const auto c = peer(text.substr(0, n));
            // Its EUC has DEL and controls above it, and ours has not.
            if (c && !(euc && (text[0] == '\xA0' || (*c >= "\x7F" && *c < "\xC2\xA0")))) {
                character = *c;
                return n;
            }
        }
        return 0;
    }

    std::size_t unit;
    bool euc;
    test::oracle peer;
};

// Wherever a reader of one character at a time finds none, there is a problem, with that line,
// column and byte, and nowhere else; what is before the first one is written.
void expect_places(const source& s, const std::string& text, const result& whole) {
    const bool unicode = std::string_view(s.name).starts_with("utf");
    slow_reader read(s);
    const std::vector<told>& found = whole.problems;
    auto next = found.begin();
    std::uint64_t line = 1, column = 1;
    bool behind_cr = false;
    std::string before, c;
    for (std::size_t at = 0; at < text.size();) {
        if (const std::size_t length = read(std::string_view(text).substr(at), c); length > 0) {
            const bool ends = c == "\n" || c == "\r";
            line += ends && !(c == "\n" && behind_cr) ? 1U : 0U;
            column = ends ? 1 : column + 1;
            behind_cr = c == "\r";
            before += next == found.begin() ? c : "";
            at += length;
            continue;
        }
        ASSERT_NE(next, found.end()) << "no problem at byte " << at;
        ASSERT_EQ(std::tie(next->line, next->column, next->offset), std::tie(line, column, at))
            << *next;
        // ASCII in what is blamed is looked at anew, and so is a byte that can follow none.
        std::size_t blamed = 1;
        while (blamed < next->bytes.size() && (unicode || next->bytes[blamed] < 0) &&
               (next + 1 == found.end() || next[1].offset != at + blamed)) {
            ++blamed;
        }
        at += blamed;
        ++column;
        behind_cr = false;
        ++next;
    }
    ASSERT_TRUE(next == found.end()) << *next;
    // The two read some codes as different characters.
    const auto characters = [](std::string_view utf8) {
        return std::ranges::count_if(utf8, [](char byte) { return (byte & 0xC0) != 0x80; });
    };
    ASSERT_EQ(characters(whole.output), characters(before));
}

// In short texts of nothing but faults, and in long ones with few, which go through at full speed;
// wherever either is cut.
TEST(ToolStream, PlacesAreThoseOfASlowReader) {
    std::mt19937 random(3);
    constexpr std::string_view often = "\n\r\r\n ab\0\x82\xA0\xE3\x81\x82\xA4\xD8\x8F";
    for (const source& s : sources) {
        for (int round = 0; round < 300; ++round) {
            std::string text;
            if (round < 290) {
                while (text.size() < 100) {
                    text += random() % 3 != 0 ? often[random() % often.size()]
                                              : static_cast<char>(random());
                }
            } else {
                text = test::oracle("UTF-8", s.oracle)(random_lines(random, 30'000)).value_or("?");
                for (int fault = round; fault < 299; ++fault) { // the last ones have one or none
                    text[random() % text.size()] = static_cast<char>(random());
                }
            }
            SCOPED_TRACE(s.name + ": "s + test::to_hex(text.substr(0, 100)));
            const result whole = convert(s.name, "utf-8", text);
            expect_places(s, text, whole);
            const std::size_t longest = round % 2 == 0 ? 9 : 5000;
            ASSERT_TRUE(convert(s.name, "utf-8", text, [&] { return random() % longest; }) ==
                        whole);
        }
    }
}

// To every kind of target: the same with every cut, right up to its first character that the target
// lacks, by another converter's word.
TEST(ToolStream, TargetsGetWhatTheOracleSays) {
    std::mt19937 random(7);
    constexpr std::array<std::pair<const char*, const char*>, 6> targets = {{
        {"shift_jis", "SJIS"},
        {"windows31j", "CP932"},
        {"euc-jp", "EUC-JP"},
        {"utf-16be", "UTF-16BE"},
        {"gb18030", "GB18030"},
        {"shift_jis-2004", "SHIFT_JISX0213"},
    }};
    for (const source& s : sources) {
        const std::string text = random_lines(random, 3000);
        const std::string input = test::oracle("UTF-8", s.oracle)(text).value_or("?");
        for (const auto& [target, oracle_name] : targets) {
            SCOPED_TRACE(s.name + " to "s + target);
            test::oracle to_target("UTF-8", oracle_name);
            const result whole = convert(s.name, target, input);
            EXPECT_EQ(whole.problems, std::vector<told>{});
            EXPECT_EQ(whole.output, to_target(text).value_or("refused"));
            EXPECT_EQ(convert(s.name, target, input, [&] { return std::size_t{random()} % 40; }),
                      whole);
        }
        const result ascii = convert(s.name, "iso-646irv", input);
        std::size_t beyond = 0;
        for (const char byte : text) {
            beyond += (static_cast<unsigned char>(byte) & 0xC0) == 0xC0 ? 1 : 0;
        }
        EXPECT_EQ(ascii.problems.size(), beyond);
        EXPECT_EQ(convert(s.name, "iso-646irv", input, [&] { return std::size_t{random()} % 40; }),
                  ascii);
    }
}

// Random bytes: whatever comes of them, it does not hang on the cuts, and the problems are in
// order.
TEST(ToolStream, RandomBytesGiveTheSameWithEveryCut) {
    std::mt19937 random(1);
    constexpr std::array names = {"utf-8",        "utf-16",           "ucs-2",          "ucs-4",
                                  "shift_jis",    "windows31j",       "shift_jis-2004", "euc-jp",
                                  "euc-jis-2004", "euc-jp-fix",       "iso-2022-jp",    "gb18030",
                                  "chinesebig5",  "iso-2022-jp-2004", "koreanksc"};
    constexpr std::string_view telling = "\x1B\x1B$$((BQPJ@!\"#\n\r \x8E\x8F\xE3\x82\x9A\xCC\x80";
    constexpr int rounds = 3;
    for (std::size_t i = 0; i < rounds * names.size() * names.size(); ++i) {
        const char* from = names[i % names.size()];
        const char* to = names[i / names.size() % names.size()];
        std::string text;
        for (int length = 0; length < 300; ++length) {
            text += random() % 2 == 0 ? telling[random() % telling.size()]
                                      : static_cast<char>(random());
        }
        SCOPED_TRACE(from + " to "s + to + ": "s + test::to_hex(text));
        const result whole = convert(from, to, text);
        ASSERT_EQ(convert(from, to, text, [&] { return std::size_t{random()} % 9; }), whole);
        for (std::size_t k = 1; k < whole.problems.size(); ++k) {
            ASSERT_LT(whole.problems[k - 1].offset, whole.problems[k].offset);
        }
    }
}

// ---- UTF-8 -------------------------------------------------------------------------------------

// Well-formedness by another converter's word: all sequences of up to three bytes, and those of
// four at the edges.
TEST(ToolStream, WellFormedUtf8IsWhatTheOracleTakes) {
    test::oracle utf8_to_utf32("UTF-8", "UTF-32BE");
    const tool::charset_name utf8 = tool::resolve_charset("utf-8");
    const auto check = [&](std::string_view text) {
        const tool::bytes_view bytes(reinterpret_cast<const std::uint8_t*>(text.data()),
                                     text.size());
        const bool taken = utf8_to_utf32(text).has_value();
        ASSERT_EQ(tool::well_formed_length(bytes, utf8) == text.size(), taken)
            << test::to_hex(text);
    };
    const auto byte = [](unsigned value) { return static_cast<char>(value); };
    for (unsigned first = 0x80; first <= 0xFF; ++first) {
        for (unsigned second = 0; second <= 0xFF; ++second) {
            check(std::string{byte(first), byte(second)});
            for (unsigned third = 0x70; first >= 0xE0 && third <= 0xC8; ++third) {
                check(std::string{byte(first), byte(second), byte(third)});
                for (const unsigned fourth : {0x7FU, 0x80U, 0xBFU, 0xC0U}) {
                    if (first >= 0xF0) {
                        check(std::string{byte(first), byte(second), byte(third), byte(fourth)});
                    }
                }
            }
        }
    }
}

} // namespace
