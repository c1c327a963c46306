// Detection: recorded answers over generated texts, and known answers. The answers were found equal
// to those of a second detector, written apart from this one, when they were recorded.
#include "cconv/detect/detect.h"
#include "tests/support/convert.h"
#include "tests/support/digest.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace std::string_literals;

// ---- Texts of which every part is likely to matter to some pass --------------------------------

// Sequences of byte ranges. Those of a flavour are mixed, with bytes at which some pass changes its
// mind between them; a flavour of units has them in either byte order.
struct flavour {
    const char* name;
    std::size_t unit; // 0: none
    std::vector<const char*> patterns;
};

const char* const edges =
    "00 01 08 09 0A 0B 0D 10 11 1B 1F 20 21 24 28 40 41 42 44 49 4A 4E 4F 7E 7F 80 81 85 8E 8F 9F "
    "A0 A1 A8 A9 BF C0 C1 DF E0 E2 EF F0 F7 F8 F9 FA FB FC FD FE FF";

const flavour flavours[] = {
    {"any", 0, {"00-FF"}},
    {"ascii", 0, {"21-7E", "21-7E", "21-7E", "20", "09", "0D", "0A", "0D 0A", "0A 0D"}},
    {"utf-16",
     2,
     {"00 21-7E", "00 0D", "00 0A", "00 7F-A1", "20 0B", "20 28-29", "30 42", "4E 00-FF",
      "9F A0-FF", "AC 00", "FF 00-FF", "00-FF 00-FF"}},
    {"ucs-4",
     4,
     {"00 00 00 21-7E", "00 00 00 0A", "00 00 20 28", "00 00 30 42", "00 00 4E 00-FF",
      "00 00 00 00-FF", "00 00-20 4E 00", "00 10 30 42", "7F-80 FF 30 42"}},
    {"iso-2022-jp",
     0,
     {"1B 24 42", "1B 24 40", "1B 24 28 44", "1B 24 28 51", "1B 24 41", "1B 28 42", "1B 28 4A",
      "1B 28 49", "1B 28 48", "1B 4E", "A0-E0", "21-7E 21-7E", "21-7E 21-7E", "0A", "20-21"}},
    {"utf-8",
     0,
     {"21-7E", "C0-DF 80-BF", "E0-EF 80-BF 80-BF", "E2 80 A7-AA", "E3 81-82 80-BF",
      "F0-F7 80-90 80-BF 80-BF", "F8-FB 80-BF 80-BF 80-BF 80-BF",
      "FC-FF 80-BF 80-BF 80-BF 80-BF 80-BF", "0A"}},
    {"euc-jp", 0, {"21-7E", "8E A0-E0", "8F A0-E0 A0-FF", "A1-E1 A0-FE", "A4 A1-F3", "0D", "0A"}},
    {"shift_jis", 0, {"21-7E", "9F-E0", "80-E0 3F-FF", "E0-FF 3F-FF", "82 9F-F1", "0D 0A"}},
    {"euc-jp-fix", 0, {"A1-DF 21-FF", "A1-DF A1-FF", "00 21-7E", "00 A0-E0", "00 0A", "00 0D"}},
};

class text_maker {
public:
    u32 below(u32 n) { return static_cast<u32>(random_() % n); }

    template <class List>
    const auto& one_of(const List& list) {
        return list[below(static_cast<u32>(std::size(list)))];
    }

    std::string bytes_of(const char* pattern) {
        std::string made;
        for (const char* at = pattern; *at != 0; at += *at == ' ') {
            char* end = nullptr;
            const auto low = static_cast<u32>(std::strtoul(at, &end, 16));
            const u32 high = *end == '-' ? static_cast<u32>(std::strtoul(end + 1, &end, 16)) : low;
            made += static_cast<char>(low + below(high - low + 1));
            at = end;
        }
        return made;
    }

    std::string text(const flavour& kind, std::size_t length) {
        const u32 faults = below(3) != 0 ? 0 : 1 + below(40);
        const bool swapped = below(2) == 0;
        std::string made;
        while (made.size() < length) {
            if (below(100) < faults) {
                made += one_of(edge_bytes_);
                continue;
            }
            const std::string next = bytes_of(one_of(kind.patterns));
            made += swapped && kind.unit > 0 ? test::swapped(next, kind.unit) : next;
        }
        return made;
    }

    // Mostly an XML declaration, in units of any width, often damaged.
    std::string declaration() {
        static const std::string marks[] = {
            "",         "",         "\xEF\xBB\xBF",  "\xFE\xFF",
            "\xFF\xFE", "\xEF\xBB", "\0\0\xFE\xFF"s, "\xFF\xFE\0\0"s};
        static const std::vector<const char*> parts[] = {
            {"<?xml", "<?XML", "<?xml", "<?xml", "<?xMl", "<?xm"},
            {"", " version='1.0' ", " ", " version=\"1.0\"\n", "\r"},
            {"encoding", "ENCODING", "encoding", "enc"},
            {"=\"Shift_JIS\"", "='UTF-16'", "=\"x'", "=''", "=\"open", " = 'ISO-2022-JP'",
             "=\"ISO-10646-UCS-2\"", ""},
            {"?>\n<a/>\r\n", "?>", "", "'", "\r\r\n\n\n'"}};
        std::string made = one_of(marks), ascii;
        made.append(below(4) == 0 ? below(4) : 0, 'x');
        for (const auto& part : parts) {
            ascii += one_of(part);
        }
        static constexpr std::size_t widths[] = {1, 2, 4};
        const std::size_t width = one_of(widths);
        made += test::widen(ascii, width, below(2) == 0);
        if (below(4) == 0) {
            made.resize(below(static_cast<u32>(made.size()) + 1));
        }
        for (u32 n = below(8) == 0 ? 1 + below(3) : 0; n > 0 && !made.empty(); --n) {
            const u32 at = below(static_cast<u32>(made.size()));
            made[at] = one_of(edge_bytes_);
        }
        return made;
    }

private:
    std::mt19937 random_{20210707}; // the same everywhere
    const std::string edge_bytes_ = bytes_of(edges);
};

struct answer {
    u32 result = 0;
    std::string name = "unknown";
    u32 declared = 0, marked = 0, big_endian = 1, newline = 0, flags = 0;
    bool operator==(const answer&) const = default;
};

std::ostream& operator<<(std::ostream& out, const answer& a) {
    return out << a.result << " " << a.declared << a.marked << a.big_endian << " " << a.newline
               << " " << a.flags << " " << a.name;
}

// In one line of ASCII, whatever the name is made of.
std::string shown(const answer& a) {
    std::string line;
    for (const char c : (std::ostringstream() << a).str()) {
        line += c >= ' ' && c <= '~' ? std::string(1, c) : '<' + test::to_hex({&c, 1}) + '>';
    }
    return line;
}

// Asks the library about text[pos, end); the caller's fields must come back as they were.
answer ask(const u8* text, i32 pos, i32 end) {
    const auto request = std::make_unique<pvzan_detection_request>();
    std::memset(request.get(), 'x', sizeof *request); // what the call does not set shows
    request->text = text;
    request->textPos = pos;
    request->textEnd = end;
    answer a;
    a.result = cconvChkEncode(request.get());
    EXPECT_EQ(request->text, text);
    EXPECT_EQ(request->textPos, pos);
    EXPECT_EQ(request->textEnd, end);
    a.name = std::string(request->encodingName, ::strnlen(request->encodingName, text_bytes));
    a.declared = request->xmlDeclared;
    a.marked = request->bomFound;
    a.big_endian = request->bigEndian;
    a.newline = request->newlineKind;
    a.flags = request->resultFlags;
    return a;
}

answer ask(std::string_view text, std::size_t pos = 0) {
    return ask(reinterpret_cast<const u8*>(text.data()), static_cast<i32>(pos),
               static_cast<i32>(text.size()));
}

// The text ends where memory ends.
answer ask_at_end(const std::string& buffer, std::size_t pos) {
    static const test::guarded_buffer memory(8192);
    u8* const text = memory.data() + memory.size() - buffer.size();
    std::ranges::copy(buffer, text);
    return ask(text, static_cast<i32>(pos), static_cast<i32>(buffer.size()));
}

std::string from_hex(const std::string& hex) {
    std::istringstream list(hex);
    std::string bytes;
    for (std::string byte; list >> byte;) {
        bytes += static_cast<char>(std::stoul(byte, nullptr, 16));
    }
    return bytes;
}

class digest : public test::digest {
public:
    using test::digest::digest;
    ~digest() { test::expect_recorded("detect_answers.tsv", *this); }
};

TEST(DetectAnswer, RecordedTexts) {
    for (const auto& [expected, text] : test::recorded("detect_answers.tsv", "text")) {
        const std::size_t pos = text.find(' ');
        EXPECT_EQ(shown(ask_at_end(from_hex(text.substr(pos + 1)), std::stoul(text))), expected)
            << text;
    }
}

// Which characters text is likely to hold, and every pair of bytes on its own and between letters,
// where ties are decided.
TEST(DetectAnswer, EveryPairOfBytes) {
    digest plausible("plausible"), pairs("pairs");
    for (u32 value = 0; value <= 0xFFFF; ++value) {
        plausible.add(isUNICODE_BMP(value >> 8, value & 0xFF) != 0 ? "1" : "0");
        const std::string pair = {static_cast<char>(value >> 8), static_cast<char>(value & 0xFF)};
        for (const std::string& text : {pair, pair + "ab", "\xA4\xA2" + pair + "\xA4\xA2\r\n"}) {
            pairs.add(shown(ask_at_end(text, 0)));
        }
    }
}

TEST(DetectAnswer, GeneratedTexts) {
    text_maker make;
    for (const flavour& kind : flavours) {
        digest answers(kind.name);
        for (int round = 0; round < 15000; ++round) {
            const u32 most = make.below(30) == 0 ? 2300 : make.below(3) == 0 ? 8 : 60;
            const std::string text = make.text(kind, make.below(most));
            const u32 pos = make.below(4) == 0 ? make.below(static_cast<u32>(text.size()) + 1) : 0;
            answers.add(shown(ask_at_end(text, pos)));
        }
    }
}

TEST(DetectAnswer, GeneratedDeclarations) {
    text_maker make;
    digest answers("declarations"), keywords("keywords");
    for (int round = 0; round < 100000; ++round) {
        const std::string before =
            make.below(3) == 0 ? make.text(make.one_of(flavours), make.below(6)) : "";
        const std::string made = make.declaration();
        answers.add(shown(ask_at_end(before + made, before.size())));
        const i32 end = static_cast<i32>(make.below(static_cast<u32>(made.size()) + 1));
        const i32 width = static_cast<i32>(make.below(6)) - 1; // any but 2 and 4 counts as 1
        const std::size_t skipped = make.below(12) == 0 && end >= 5 ? 5 : 0;
        keywords.add(std::to_string(findEncoding(reinterpret_cast<const u8*>(made.data()) + skipped,
                                                 end - static_cast<i32>(skipped), width)));
    }
    EXPECT_EQ(findEncoding(nullptr, 100, 1), 0);
    EXPECT_EQ(findEncoding(reinterpret_cast<const u8*>("encoding"), -1, 1), 0);
}

// An extent that makes no sense holds nothing.
TEST(DetectAnswer, ImpossibleExtents) {
    const test::guarded_buffer page(0);
    constexpr i32 least = INT32_MIN, most = INT32_MAX;
    const std::pair<i32, i32> extents[] = {{0, 0},     {5, 5},      {1, 0},        {0, -1},
                                           {-1, 4},    {-4, -2},    {least, most}, {most, least},
                                           {least, 0}, {most, most}};
    for (const auto& [pos, end] : extents) {
        EXPECT_EQ(ask(page.data(), pos, end), answer{}) << pos << " " << end;
    }
    EXPECT_EQ(ask(nullptr, 0, 100), answer{});
    EXPECT_EQ(cconvChkEncode(nullptr), 0U);
    EXPECT_EQ(cconvIsEndianAware(nullptr), 0U);
    for (const char* name : {"", "utf-16", "UTF-16 ", "UTF-1", "ISO-10646-UCS-22"}) {
        EXPECT_EQ(cconvIsEndianAware(name), 0U) << name;
    }
}

TEST(DetectDeclaration, LengthOfTheName) {
    for (const std::size_t width : {1U, 2U, 4U}) {
        const std::size_t most = 4094 / width; // a name of 4095 bytes, closing NUL and all
        for (const std::size_t length : {most, most + 1, std::size_t{5000}}) {
            const std::string name(length, 'n');
            const std::string text = test::widen("<?xml encoding='" + name + "'?>", width, false);
            EXPECT_EQ(ask(text).name == name, length <= most) << length;
        }
    }
}

} // namespace
