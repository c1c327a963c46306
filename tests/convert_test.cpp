// The four calls that run a conversion, the session's fields, and the conversions that need none:
// known conversions, every pair of charsets with every option, and the same outcome however input
// and output are cut. What iconv(3) can judge is compared with it in oracle_test.cpp.
#include "tests/support/convert.h"
#include "tests/support/digest.h"

// The example of README.md, taken out of it by the build and compiled as C.
extern "C" int to_utf8(const unsigned char* in, int length, unsigned char* out, int size);

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
        values += test::code_text(value, 4);
    }
    for (std::uint32_t bits = 17; bits <= 31; ++bits) {
        for (const std::uint32_t value :
             {(1U << bits) - 1, 1U << (bits - 1), 0x9E3779B9U >> (32 - bits)}) {
            values += test::code_text(value, 4);
        }
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

TEST(Convert, SubstitutesThatAreTakenInsteadAreKeptInTheOptions) {
    conversion c{.from = "utf-8", .to = "iso-646irv"};
    c.target.useSubstitute = 1;
    c.target.substChar1 = c.target.substChar2 = u'\u25A0';
    const auto s = test::open_session(c);
    EXPECT_TRUE(s->target.substChar1 == '?' && s->target.substChar2 == '?');
    EXPECT_EQ(s->subst1.setNo, std::uint32_t{PVZAN_SET_ISO_646_IRV});
    EXPECT_EQ(s->subst2.setNo | s->subst2.bytes, 0U);
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

TEST(Convert, TheReadmesExampleDoesWhatItSays) {
    test::use_shipped_charsets();
    const auto example = [](std::string_view text, int room) {
        std::string out(100, '\0');
        auto* const to = reinterpret_cast<unsigned char*>(out.data());
        const int size =
            to_utf8(test::bytes_of(text).data(), static_cast<int>(text.size()), to, room);
        return size < 0 ? "refused" : out.substr(0, static_cast<std::size_t>(size));
    };
    EXPECT_EQ(example("A\x82\xA0\xB1", 100), "Aあｱ");
    EXPECT_EQ(example("\x82\xA0", 2), "refused"); // no room
    EXPECT_EQ(example("\xFD\x20", 100), "refused");
}

// ---- The session: what each call sets and leaves ------------------------------------------------

TEST(Session, IsClearedByTheTargetAndLeavesThePositionsAlone) {
    test::use_shipped_charsets();
    const auto s = std::make_unique<pvzan_session>();
    std::memset(s.get(), 0x5A, sizeof *s);
    const pvzan_session before = *s;
    pvzan_target_options options{};
    options.dstWriteBom = 1;
    std::strcpy(options.langTag, "en");
    options.newlineMode = 77;
    ASSERT_EQ(cconvInitConvert(s.get(), &options, "UTF-8"), 0U);

    // All but what the caller owns: zero, the options, their language, the target.
    const auto expected = std::make_unique<pvzan_session>();
    std::memcpy(expected.get(), &before, offsetof(pvzan_session, status));
    expected->source = before.source;
    expected->target = options;
    for (char* language : {expected->baseLang, expected->outLang, expected->curLang}) {
        std::strcpy(language, "en");
    }
    expected->dstGroupNo = 1006;
    expected->dstGroup = s->dstGroup;
    expected->dstRule = s->dstRule;
    constexpr std::size_t last = offsetof(pvzan_session, subst1); // which has unnamed bytes inside
    EXPECT_EQ(std::memcmp(s.get(), expected.get(), last), 0);
    for (const pvzan_substitute& none : {s->subst1, s->subst2}) {
        EXPECT_EQ(none.setNo | none.setType | none.code | none.bytes, 0U);
    }
    EXPECT_NE(s->dstRule, nullptr);
    EXPECT_EQ(cconvConvert(s.get()), PVZAN_UNKNOWN_CHARSET); // no source yet
    EXPECT_EQ(s->status, PVZAN_UNKNOWN_CHARSET);

    s->charSetNo = s->srcCode = s->setCode = s->ucsCode = s->outCode = 99;
    ASSERT_EQ(cconvChgCharset(s.get(), nullptr, "SHIFT_jis"), 0U);
    EXPECT_EQ(s->srcGroupNo, 1001U);
    EXPECT_EQ(s->srcShiftSet, 2001U);
    EXPECT_EQ(s->charSetNo | s->srcCode | s->setCode | s->ucsCode | s->outCode, 0U);
    EXPECT_EQ(s->source.srcBigEndian | s->source.srcCheckBom | s->source.skipInvalid, 0U);

    ASSERT_EQ(cconvInitConvert(s.get(), nullptr, "utf-8"), 0U);
    const pvzan_target_options none{};
    EXPECT_EQ(std::memcmp(&s->target, &none, sizeof none), 0);
}

TEST(Session, UnknownCharsetsLeaveItWithoutRules) {
    test::use_shipped_charsets();
    std::uint8_t out[8];
    const auto s = std::make_unique<pvzan_session>();
    EXPECT_EQ(cconvTermConvert(s.get()), 0U); // no target: nothing to close
    const std::string endless(100000, 'x');
    const struct {
        const char *to, *from;
        std::uint32_t opened, changed;
    } rows[] = {
        {"X-Unknown", "utf-8", PVZAN_UNKNOWN_CHARSET, PVZAN_DONE},
        {"utf-8", "utf-8", PVZAN_DONE, PVZAN_DONE},
        {"utf-8", "", PVZAN_DONE, PVZAN_UNKNOWN_CHARSET}, // the source before it is gone, too
        {"jis_x0208-1990", "utf-8", PVZAN_UNKNOWN_CHARSET, PVZAN_DONE}, // a coded set
        {endless.c_str(), "utf-8", PVZAN_UNKNOWN_CHARSET, PVZAN_DONE},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(cconvInitConvert(s.get(), nullptr, row.to), row.opened);
        EXPECT_EQ(cconvChgCharset(s.get(), nullptr, row.from), row.changed);
        test::give_input(*s, "a");
        test::give_output(*s, out);
        const bool known = row.opened == PVZAN_DONE && row.changed == PVZAN_DONE;
        EXPECT_EQ(cconvConvert(s.get()), known ? PVZAN_DONE : PVZAN_UNKNOWN_CHARSET);
        EXPECT_EQ(s->inPos + s->outPos, known ? 2 : 0) << row.to;
    }
}

TEST(Session, EveryStatusIsAResumePointOrAFreshStart) {
    const std::string text = "a\x82\xA0";
    for (const std::uint32_t status : {0U, 1U, 12U, 13U, 21U, 23U, 31U, 99U, UINT32_MAX}) {
        const auto s = test::open("shift_jis", "utf-8");
        std::uint8_t out[16];
        test::give_input(*s, text);
        test::give_output(*s, out);
        s->status = status;
        s->setCode = s->srcCode = 'x'; // a character that was dropped
        EXPECT_EQ(cconvConvert(s.get()), 0U) << status;
        EXPECT_EQ(test::written(*s), "a\xE3\x81\x82") << status;
        EXPECT_EQ(s->inPos, 3);
        EXPECT_EQ(s->inCount, 2U);
        EXPECT_EQ(s->outCount, 2U);
        // Used up: no rule is called, the characters stay as they are.
        s->status = status;
        EXPECT_EQ(cconvConvert(s.get()), 0U);
        EXPECT_EQ(s->srcCode, 0x82A0U);
        EXPECT_EQ(s->outCount, 2U);
    }
}

TEST(Session, TheSourceMayChangeUnderWay) {
    conversion c{.from = "shift_jis", .to = "iso-2022-jp"};
    const auto s = test::open_session(c);
    std::uint8_t out[64];
    test::give_output(*s, out);
    const auto feed = [&](const char* charset, std::string_view text) {
        ASSERT_EQ(cconvChgCharset(s.get(), &c.source, charset), 0U);
        test::give_input(*s, text);
        ASSERT_EQ(cconvConvert(s.get()), 0U);
    };
    feed("shift_jis", "\x82\xA0");
    feed("utf-8", "い");
    feed("euc-jp", "\xA4\xA6.");
    EXPECT_EQ(cconvTermConvert(s.get()), 0U);
    // One designation for the three, one for the full stop.
    EXPECT_EQ(test::written(*s), "\x1B$B$\"$$$&\x1B(B.");
    EXPECT_EQ(s->inCount, 4U);

    // The counts go on where another conversion starts.
    ASSERT_EQ(cconvInitConvert(s.get(), &c.target, "utf-8"), 0U);
    s->outPos = 0;
    feed("shift_jis", "abc");
    EXPECT_EQ(s->inCount, 7U);
}

// ---- HZ to GB 2312, UTF-7 to UCS-4; what fits less room is compared by fuzz/text.cpp ------------

constexpr std::uint32_t not_set = ~0U;

// What a conversion says, counts and writes. For HZ all of the output, which is as long as the
// input, for UTF-7 what was counted. Input and output end where memory ends.
template <class Text>
struct result {
    std::uint32_t value = 0, count = not_set;
    Text out = {};
    bool operator==(const result&) const = default;
};
using hz_result = result<std::string>;
using utf7_result = result<std::u32string>;

hz_result from_hz(const std::string& text, std::int32_t size) {
    const test::guarded_buffer in(text.size() + 1), out(text.size());
    std::memcpy(in.data(), text.c_str(), in.size());
    std::fill_n(out.data(), out.size(), std::uint8_t{'?'});
    hz_result r;
    r.value = ZAN_HZtoGB2312(out.data(), in.data(), size, &r.count);
    r.out = test::text_of({out.data(), out.size()});
    return r;
}

utf7_result from_utf7(const std::string& text, std::int32_t size) {
    const auto room = static_cast<std::size_t>(std::max(size, 0));
    const test::guarded_buffer in(text.size() + 1), out(room * sizeof(std::uint32_t));
    std::memcpy(in.data(), text.c_str(), in.size());
    auto* const units = reinterpret_cast<std::uint32_t*>(out.data());
    utf7_result r;
    r.value = ZAN_UTF_7ToUCS_4(units, in.data(), size, &r.count);
    EXPECT_TRUE(r.count == not_set || r.count <= room);
    r.out.assign(units, units + (r.count == not_set ? 0 : r.count));
    return r;
}

// Every text of so many of the pieces that matter.
template <std::size_t Count, class Ask>
void for_each_text(const std::string (&pieces)[Count], std::size_t longest, Ask ask) {
    for (std::size_t length = 0, texts = 1; length <= longest; ++length, texts *= Count) {
        for (std::size_t number = 0; number < texts; ++number) {
            std::string text;
            std::size_t rest = number;
            for (std::size_t i = 0; i < length; ++i, rest /= Count) {
                text += pieces[rest % Count];
            }
            ask(text, number);
        }
    }
}

// Recorded when it was found to be what a second reading of the rules gives.
TEST(Hz, EveryShortText) {
    const std::string bytes[] = {"~", "{", "}", "\n", "A", "\xB0"};
    test::digest answers("HZ");
    for_each_text(bytes, 5, [&](const std::string& text, std::size_t number) {
        for (const std::size_t size : {number % (text.size() + 3), std::size_t{100}}) {
            const hz_result r = from_hz(text, static_cast<std::int32_t>(size));
            answers.add({r.value, r.count});
            answers.add(r.out);
        }
    });
    EXPECT_EQ(from_hz("a~}~~{<>~}", 1000), (hz_result{0, 5, "a?}~\xBC\xBE????"}));
    EXPECT_EQ(from_hz("abc", -5), (hz_result{0, 3, "abc"}));
    EXPECT_EQ(from_hz("ab~", INT32_MIN), (hz_result{2, not_set, "ab?"}));
    // Counts are given modulo 65536; room is counted in full.
    const std::string letters(70000, 'a');
    EXPECT_TRUE(from_hz(letters, 1) == (hz_result{0, 70000 % 65536, letters}));
    EXPECT_TRUE(from_hz(letters + "~{", 70001) ==
                (hz_result{70000 % 65536, not_set, letters + "??"}));
}

// In rooms around its length, and known texts: recorded when spelled-out cases had been found
// right. A character that does not fit is left whole, and so is a pair.
TEST(Utf7, EveryShortText) {
    const std::string pieces[] = {"a", "+", "-", "AGE", "A", "2D3c", "Adg9", "~", "\xE3", "/w"};
    test::digest answers("UTF-7");
    const auto ask = [&](const std::string& text, std::size_t = 0) {
        for (const std::int32_t size : {INT32_MIN, -1, 0, 1, 2, 3, 5, 100}) {
            const utf7_result r = from_utf7(text, size);
            answers.add({r.value, r.count});
            for (const char32_t c : r.out) {
                answers.add({c});
            }
        }
    };
    for_each_text(pieces, 3, ask);
    for (int byte = 1; byte < 0x100; ++byte) {
        const std::string c(1, static_cast<char>(byte));
        ask(c);
        ask("+A" + c + "E-" + c);
    }
    EXPECT_EQ(from_utf7("Hi Mom -+Jjo--+2//f/w-", 100),
              (utf7_result{0, 11, U"Hi Mom -\u263A-\U0010FFFF"}));
    EXPECT_EQ(from_utf7("a+2D0AYQ-", 100),
              (utf7_result{2, 1, U"a"})); // half a pair before another letter
}

TEST(StandAlone, NullPointers) {
    std::uint8_t in[] = {'a', 0};
    std::uint32_t out = 7, count = 7;
    EXPECT_EQ(ZAN_HZtoGB2312(nullptr, in, 1, &count), 0U);
    EXPECT_EQ(ZAN_HZtoGB2312(in, nullptr, 1, &count), 0U);
    EXPECT_EQ(ZAN_HZtoGB2312(in, in, 1, nullptr), 0U);
    EXPECT_EQ(count, 7U);
    EXPECT_EQ(ZAN_UTF_7ToUCS_4(nullptr, in, 1, &count), 1U);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(ZAN_UTF_7ToUCS_4(&out, nullptr, 1, &count), 0U);
    EXPECT_EQ(ZAN_UTF_7ToUCS_4(&out, in, 1, nullptr), 0U);
    EXPECT_EQ(out, 7U);
}

} // namespace
