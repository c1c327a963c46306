// Detection: recorded answers, answers to what is made of the recorded texts, and known ones.
// Answers were found equal to those of a second detector, written apart from this one, when they
// were recorded.
#include "cconv/detect/detect.h"
#include "tests/support/convert.h"
#include "tests/support/digest.h"
#include "tests/support/rows.h"
#include "tests/support/temp_dir.h"

namespace {

// What the library says about text[pos, end), in one line of ASCII, whatever the name is made of;
// the caller's fields must come back as they were.
std::string ask(const u8* text, i32 pos, i32 end) {
    const auto request = std::make_unique<pvzan_detection_request>();
    std::memset(request.get(), 'x', sizeof *request); // what the call does not set shows
    request->text = text;
    request->textPos = pos;
    request->textEnd = end;
    std::ostringstream line;
    line << cconvChkEncode(request.get()) << ' ' << request->xmlDeclared << request->bomFound
         << request->bigEndian << ' ' << request->newlineKind << ' ' << request->resultFlags << ' ';
    EXPECT_TRUE(request->text == text && request->textPos == pos && request->textEnd == end);
    const std::size_t length = ::strnlen(request->encodingName, text_bytes);
    for (const char& c : std::string_view(request->encodingName, length)) {
        line << (c >= ' ' && c <= '~' ? std::string(1, c) : '<' + test::to_hex({&c, 1}) + '>');
    }
    return line.str();
}

// The text ends where memory ends.
std::string ask_at_end(const std::string& buffer, std::size_t pos) {
    static const test::guarded_buffer memory(32768);
    u8* const text = memory.data() + memory.size() - buffer.size();
    std::ranges::copy(buffer, text);
    return ask(text, static_cast<i32>(pos), static_cast<i32>(buffer.size()));
}

struct recorded_text {
    std::string bytes, answer;
    std::size_t pos; // where the text begins in them
};

// Of every encoding, with what makes some pass change its mind, and XML declarations, often
// damaged.
const std::vector<recorded_text>& recorded_texts() {
    static const std::vector<recorded_text> all = [] {
        std::vector<recorded_text> texts;
        for (const test::row_cells& row : test::rows_of("detect_answers.tsv", 3)) {
            texts.push_back({row[2], row[0], std::stoul(row[1])});
        }
        return texts;
    }();
    return all;
}

TEST(Detect, RecordedTexts) {
    EXPECT_GT(recorded_texts().size(), 600U);
    for (const auto& [bytes, answer, pos] : recorded_texts()) {
        EXPECT_EQ(ask_at_end(bytes, pos), answer) << test::to_hex(bytes);
    }
}

// Parts of two or three recorded texts in a row, now and then long or with a byte changed; the
// search for a declared name in units of any width, of which all but 2 and 4 count as 1.
TEST(Detect, TextsMadeOfThem) {
    std::mt19937 random{20210707}; // the same everywhere
    const auto below = [&](std::size_t n) { return random() % n; };
    test::digest answers("detected: parts of texts"), keywords("detected: keywords in parts");
    for (int round = 0; round < 150000; ++round) {
        std::string made;
        for (std::size_t parts = 2 + below(2); parts > 0; --parts) {
            const std::string& from = recorded_texts()[below(recorded_texts().size())].bytes;
            const std::size_t start = below(3) == 0 ? below(from.size() + 1) : 0;
            made += from.substr(start, below(3) == 0 ? below(40) : below(200));
        }
        for (std::size_t most = 2300; below(30) == 0 && !made.empty() && made.size() < most;) {
            made += made;
        }
        if (below(3) == 0 && !made.empty()) {
            made[below(made.size())] = static_cast<char>(below(4) == 0 ? '\0' : random());
        }
        made.resize(std::min<std::size_t>(made.size(), 8000));
        answers.add(ask_at_end(made, below(4) == 0 ? below(made.size() + 1) : 0));
        const i32 found =
            findEncoding(reinterpret_cast<const u8*>(made.data()), static_cast<i32>(made.size()),
                         static_cast<i32>(round % 6) - 1);
        keywords.add({static_cast<u32>(found)});
    }
    EXPECT_EQ(findEncoding(nullptr, 100, 1), 0);
    EXPECT_EQ(findEncoding(reinterpret_cast<const u8*>("encoding"), -1, 1), 0);
}

// Which characters text is likely to hold, and every pair of bytes on its own and between letters,
// where ties are decided.
TEST(Detect, EveryPairOfBytes) {
    test::digest plausible("detected: plausible"), pairs("detected: pairs");
    for (u32 value = 0; value <= 0xFFFF; ++value) {
        plausible.add(isUNICODE_BMP(value >> 8, value & 0xFF) != 0 ? "1" : "0");
        const std::string pair = {static_cast<char>(value >> 8), static_cast<char>(value & 0xFF)};
        for (const std::string& text : {pair, pair + "ab", "\xA4\xA2" + pair + "\xA4\xA2\r\n"}) {
            pairs.add(ask_at_end(text, 0));
        }
    }
}

// An extent that makes no sense holds nothing.
TEST(Detect, ImpossibleExtents) {
    const test::guarded_buffer page(0);
    const std::string nothing = "0 001 0 0 unknown";
    constexpr i32 least = INT32_MIN, most = INT32_MAX;
    const std::pair<i32, i32> extents[] = {{0, 0},     {5, 5},      {1, 0},        {0, -1},
                                           {-1, 4},    {-4, -2},    {least, most}, {most, least},
                                           {least, 0}, {most, most}};
    for (const auto& [pos, end] : extents) {
        EXPECT_EQ(ask(page.data(), pos, end), nothing) << pos << " " << end;
    }
    EXPECT_EQ(ask(nullptr, 0, 100), nothing);
    EXPECT_EQ(cconvChkEncode(nullptr), 0U);
    EXPECT_EQ(cconvIsEndianAware(nullptr), 0U);
    for (const char* name : {"", "utf-16", "UTF-16 ", "UTF-1", "ISO-10646-UCS-22"}) {
        EXPECT_EQ(cconvIsEndianAware(name), 0U) << name;
    }
}

TEST(Detect, LengthOfADeclaredName) {
    for (const std::size_t width : {1U, 2U, 4U}) {
        const std::size_t most = 4094 / width; // a name of 4095 bytes, closing NUL and all
        for (const std::size_t length : {most, most + 1, std::size_t{5000}}) {
            const std::string name(length, 'n');
            const std::string text = test::widen("<?xml encoding='" + name + "'?>", width, false);
            EXPECT_EQ(ask_at_end(text, 0).ends_with(' ' + name), length <= most) << length;
        }
    }
}

} // namespace
