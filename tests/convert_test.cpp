// The four calls that run a conversion: known conversions, every pair of charsets with every
// option, and the same outcome however input and output are cut. What iconv(3) can judge is
// compared with it in oracle_test.cpp.
#include "tests/support/convert.h"
#include "tests/support/digest.h"

namespace {

using test::conversion;
using test::expect_conversion;

std::string from_hex(std::string_view hex) {
    std::string bytes;
    for (std::size_t at = 0; hex != "-" && at < hex.size(); at += 2) {
        bytes += static_cast<char>(std::stoul(std::string(hex.substr(at, 2)), nullptr, 16));
    }
    return bytes;
}

// What is not as usual in a row of conversions.tsv: a word, often with a number. False for "cut".
bool read_word(conversion& c, const std::string& name, std::uint32_t value, std::size_t behind) {
    const std::pair<const char*, std::uint32_t*> options[] = {
        {"from-mark", &c.source.srcCheckBom},  {"skip", &c.source.skipInvalid},
        {"to-mark", &c.target.dstWriteBom},    {"newline", &c.target.newlineMode},
        {"references", &c.target.charRefMode}, {"from-little", &c.source.srcBigEndian},
        {"to-little", &c.target.dstBigEndian},
    };
    for (const auto& [word, option] : options) {
        if (name == word) {
            *option = name.ends_with("little") ? 0 : value;
            c.target.convertNewline |= name == "newline";
            return true;
        }
    }
    if (name == "fault") {
        c.faults.push_back({value, behind});
    } else if (name == "unread") {
        c.unread = value;
    } else if (name == "narrow" || name == "wide") {
        c.target.useSubstitute = 1;
        (name == "wide" ? c.target.substChar2 : c.target.substChar1) =
            static_cast<std::uint16_t>(value);
    } else if (name == "other") {
        c.other_at.push_back(value);
    } else if (name == "enough" || name == "least") {
        (name == "enough" ? c.enough_room : c.least_room) = value;
    } else {
        EXPECT_EQ(name, "cut");
        return false;
    }
    return true;
}

TEST(Convert, KnownConversions) {
    // The repertoire for references is known once the encode tables are loaded.
    test::convert("utf-8", "windows31j", "A");
    test::digest counts("counts of known conversions");
    std::ifstream file(PVZAN_SOURCE_DIR "/tests/data/conversions.tsv");
    std::size_t rows = 0;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line.starts_with('#')) {
            continue;
        }
        SCOPED_TRACE(line);
        std::istringstream row(line);
        std::string from, to, input, expected;
        row >> from >> to >> input >> expected;
        conversion c{from.c_str(), to.c_str(), from_hex(input), from_hex(expected)};
        std::optional<std::size_t> cut;
        for (std::string word; row >> word;) {
            const std::size_t equal = std::min(word.find('='), word.size());
            std::size_t number = 0, behind = 0;
            std::istringstream numbers(word.substr(std::min(equal + 1, word.size())));
            numbers.unsetf(std::ios::basefield);
            if (!(numbers >> number)) {
                number = 1;
            }
            numbers.ignore() >> behind;
            if (!read_word(c, word.substr(0, equal), static_cast<std::uint32_t>(number), behind)) {
                cut = number;
            }
        }
        const std::string_view text = c.input;
        const test::outcome got =
            test::run(c, {text.substr(0, cut.value_or(0)), text.substr(cut.value_or(0))}, 4096);
        counts.add({got.in_count, got.out_count});
        if (cut) {
            EXPECT_EQ(test::to_hex(got.bytes), test::to_hex(c.expected));
            EXPECT_EQ(got.faults, c.faults);
        } else {
            expect_conversion(c);
        }
        ++rows;
    }
    EXPECT_GT(rows, 300U);
}

// Beyond what iconv(3) judges, UTF-8 is tested by what returns: surrogates, and values beyond
// Unicode.
TEST(Convert, Utf8ReturnsAllOtherValues) {
    std::string values;
    for (std::uint32_t value = 0xD800; value <= 0xDFFF; ++value) {
        values += test::ucs4({value});
    }
    for (std::uint32_t bits = 17; bits <= 31; ++bits) {
        values += test::ucs4({(1U << bits) - 1, 1U << (bits - 1), 0x9E3779B9U >> (32 - bits)});
    }
    const std::string text = test::convert("iso-10646-ucs-4", "utf-8", values);
    EXPECT_TRUE(test::convert("utf-8", "iso-10646-ucs-4", text) == values);
}

// Every kind of line break, and text of which every charset has some. Recorded when tests that
// spelled line breaks and pairs of charsets out had found it right.
TEST(Convert, EveryPairWithEveryOption) {
    test::convert("utf-8", "windows31j", "A"); // its repertoire, as above
    const std::string text =
        "a\r\nb\rc\nd\n\re\r\r\n\r\n\n\u2028\u2029\r\u2028\nf\r日本語、あ亜弌カ①Ⅲ髙￤\uE000丂侄ÀŁ中"
        "简"
        "ㄅ€繁體한국어éß𠀋𠂉😀\U000323AF｡ｱ\uFF9E〜～−－¥‖—①②\uE757か\u309A\u0E01." +
        std::string(2, '\0');
    for (const char* from : test::all_charsets) {
        test::digest answers(std::string("pairs from ") + from);
        for (const char* to : test::all_charsets) {
            for (std::uint32_t option = 0; option < 16; ++option) {
                conversion c{.from = "utf-8", .to = from};
                c.target.dstBigEndian = c.source.srcBigEndian = option % 2;
                c.input = test::run(c, {text}, 4096).bytes;
                c.from = from;
                c.to = to;
                c.target.convertNewline = option < 8;
                c.target.newlineMode = option == 7 ? UINT32_MAX : option % 8;
                c.target.dstWriteBom = option / 8;
                c.target.useSubstitute = option / 4 % 2;
                c.target.substChar1 = u'*';
                c.target.substChar2 = u'■';
                c.target.charRefMode = option % 3;
                const test::outcome got = test::run(c, {c.input}, 4096);
                answers.add(test::to_hex(got.bytes));
                answers.add({got.in_count, got.out_count, static_cast<std::uint32_t>(got.unread)});
                for (const test::fault& f : got.faults) {
                    answers.add({f.status, static_cast<std::uint32_t>(f.position)});
                }
            }
        }
    }
}

// The black square that was asked for, and the fallbacks.
TEST(Substitutes, FallbacksAreKeptInTheOptions) {
    const auto resolve = [](const char* to, std::uint16_t wide) {
        conversion c{.from = "utf-8", .to = to};
        c.target.useSubstitute = 1;
        c.target.substChar1 = u'\u25A0';
        c.target.substChar2 = wide;
        const auto s = test::open_session(c);
        return std::vector<std::uint32_t>{s->target.substChar1, s->target.substChar2,
                                          s->subst1.setNo, s->subst2.setNo, s->subst2.bytes};
    };
    EXPECT_EQ(resolve("iso-646irv", u'\u25A0'),
              (std::vector<std::uint32_t>{0x3F, 0x3F, PVZAN_SET_ISO_646_IRV, 0, 0}));
    EXPECT_EQ(resolve("shift_jis", 0),
              (std::vector<std::uint32_t>{0x3F, 0x3013, PVZAN_SET_JIS_X_0208_1990,
                                          PVZAN_SET_JIS_X_0208_1990, 2}));
}

// ---- Any cut, any room -------------------------------------------------------------------------

// Characters that the charset has, line breaks, and bytes at random.
std::string damaged_text(std::mt19937& random, const char* charset) {
    const unsigned length = random() % 3 == 0 ? 400 : 30; // also for the fast path
    std::u32string text = test::random_text(random, length, 2 + length / 40);
    // A mark counts with the letter in the same call, deliberately.
    std::erase_if(text,
                  [](char32_t c) { return c == U'\u309A' || c == U'\u02E5' || c == U'\u0300'; });
    std::string bytes = test::run({.from = "utf-8", .to = charset}, {test::utf8(text)}, 1024).bytes;
    for (int n = 0; n < 15; ++n) {
        constexpr std::string_view controls = "\r\n\x1B\x0E";
        const char odd[] = {static_cast<char>(random()), static_cast<char>(0x80 | random()),
                            static_cast<char>(0x20 + random() % 96), controls[random() % 4]};
        bytes.insert(random() % (bytes.size() + 1), 1, odd[random() % 4]);
    }
    return bytes;
}

TEST(Convert, OutcomesDoNotDependOnPiecesOrRoom) {
    std::mt19937 random(20260101);
    const auto below = [&](std::uint32_t n) { return static_cast<std::uint32_t>(random() % n); };
    for (const char* from : test::all_charsets) {
        for (const char* to : test::all_charsets) {
            conversion c{.from = from, .to = to, .input = damaged_text(random, from)};
            if (c.input.find("\x1B$(P") != std::string::npos) {
                continue; // plane 2 holds only for the character in the same call, deliberately
            }
            c.source.skipInvalid = below(2);
            c.source.srcBigEndian = below(4) != 0;
            c.target.dstBigEndian = below(4) != 0;
            c.target.dstWriteBom = below(2);
            c.target.useSubstitute = below(2);
            c.target.substChar1 = static_cast<std::uint16_t>(below(2) * 0x2A);
            c.target.substChar2 = static_cast<std::uint16_t>(below(2) * 0x25A0);
            c.target.convertNewline = below(2);
            c.target.newlineMode = below(6);
            c.target.charRefMode = below(3);
            const std::string_view input = c.input;
            const std::uint32_t documented_room = c.target.charRefMode == 0 ? 8 : 22;
            const test::outcome whole = test::run(c, {input}, 4096);
            for (int round = 0; round < 12; ++round) {
                std::vector<std::string_view> pieces;
                for (std::size_t at = 0; at < input.size();) {
                    pieces.push_back(input.substr(at, below(round % 3 == 0 ? 300 : 9)));
                    at += pieces.back().size();
                }
                const std::uint32_t room = documented_room + below(round % 4 == 0 ? 400 : 40);
                const test::outcome got = test::run(c, pieces, room);
                ASSERT_TRUE(got.bytes == whole.bytes && got.faults == whole.faults &&
                            got.unread == whole.unread && got.in_count == whole.in_count)
                    << from << " to " << to << ", input " << test::to_hex(input) << "\n expected "
                    << test::to_hex(whole.bytes) << "\n got " << test::to_hex(got.bytes);
            }
        }
    }
}

} // namespace
