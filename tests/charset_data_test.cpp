// The shipped charsets as a whole: how many codes and characters each has, and which of them do not
// come back as they were.
#include "tests/support/convert.h"
#include "tests/support/oracle.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr const char* unicode = "utf-16"; // which reads a base and its mark as one
constexpr std::uint32_t scalar_end = 0x110000;

struct byte_range {
    int first, last;
};

// One form of code: a prefix that goes before each, and a range for each of its bytes.
struct code_form {
    std::string prefix;
    std::vector<byte_range> bytes;
    std::size_t count; // how many are characters
};

struct charset_case {
    const char* name;
    std::vector<code_form> forms;
    std::size_t encoded; // scalars, and pairs of base and mark
};

constexpr byte_range any{0, 0xFF}, lead{0x81, 0xFE}, digit{'0', '9'}, graphic{0x21, 0x7E};

const charset_case cases[] = {
    {"shift_jis", {{"", {any}, 191}, {"", {lead, any}, 6879}}, 7079},
    {"windows31j", {{"", {any}, 191}, {"", {lead, any}, 9604}}, 9407},
    {"shift_jis-2004", {{"", {any}, 191}, {"", {lead, any}, 11233}}, 11433},
    {"euc-jp",
     {{"", {any}, 127}, {"", {{0x8E, 0xFE}, any}, 6942}, {"\x8F", {any, any}, 6067}},
     13146},
    {"euc-jp-fix", {{"", {any, any}, 13136}}, 13146},
    {"euc-jis-2004",
     {{"", {any}, 127}, {"", {{0x8E, 0xFE}, any}, 8860}, {"\x8F", {any, any}, 2436}},
     11433},
    {"iso-2022-jp",
     {{"\x1B(B", {any}, 127},
      {"\x1B(J", {any}, 127},
      {"\x1B$B", {graphic, graphic}, 6879},
      {"\x1B$@", {graphic, graphic}, 6879}},
     7079},
    {"iso-2022-jp-2004",
     {{"\x1B(B", {any}, 127},
      {"\x1B(J", {any}, 127},
      {"\x1B$B", {graphic, graphic}, 6879},
      {"\x1B$@", {graphic, graphic}, 6879},
      {"\x1B$(Q", {graphic, graphic}, 8797},
      {"\x1B$(P", {graphic, graphic}, 2436}},
     11420},
    {"chinesegbk", {{"", {any}, 129}, {"", {lead, any}, 23940}}, 24069},
    {"chinesebig5", {{"", {any}, 128}, {"", {lead, any}, 19720}}, 19838},
    {"koreanksc", {{"", {any}, 128}, {"", {lead, any}, 17236}}, 17364},
    {"gb18030",
     {{"", {any}, 128},
      {"", {lead, {0x40, 0xFE}}, 23940},
      {"", {lead, digit, lead, digit}, 180124}},
     204192},
    {"iso-646irv", {{"", {any}, 128}}, 128},
    {"iso-8859-1", {{"", {any}, 256}}, 256},
    {"oasys-win", {{"", {any}, 191}, {"", {lead, any}, 11280}}, 11476},
    // Thirty control codes are read with their top bit set, too.
    {"oasys-online", {{"", {any, any}, 15936}}, 15911},
};

std::string utf16(std::uint32_t scalar) {
    if (scalar >= 0x10000) {
        return utf16(0xD800 + ((scalar - 0x10000) >> 10)) + utf16(0xDC00 + (scalar & 0x3FF));
    }
    return {static_cast<char>(scalar >> 8), static_cast<char>(scalar & 0xFF)};
}

bool is_pair(const std::string& text) {
    return text.size() == 4 && (static_cast<unsigned char>(text[0]) & 0xFC) != 0xD8;
}

// Calls back with every byte string of a form.
template <typename Callback>
void each_code(const code_form& form, const Callback& callback) {
    std::string code = form.prefix;
    const auto extend = [&](const auto& self, std::size_t place) -> void {
        if (place == form.bytes.size()) {
            callback(code);
            return;
        }
        for (int byte = form.bytes[place].first; byte <= form.bytes[place].last; ++byte) {
            code.push_back(static_cast<char>(byte));
            self(self, place + 1);
            code.pop_back();
        }
    };
    extend(extend, 0);
}

std::string hex(const std::string& bytes) {
    return bytes.empty() ? "-" : test::to_hex(bytes);
}

std::string without_prefix(const std::string& code, const charset_case& row) {
    for (const code_form& form : row.forms) {
        if (!form.prefix.empty() && code.size() == form.prefix.size() + form.bytes.size() &&
            code.starts_with(form.prefix)) {
            return code.substr(form.prefix.size());
        }
    }
    return code;
}

// Counts everything, and lists what does not come back as it was. A code may come back under
// another designation.
std::vector<std::string> examine(const charset_case& row) {
    test::character_converter decode(row.name, unicode), encode(unicode, row.name);
    std::vector<std::string> one_way;
    const auto list = [&](const char* way, const std::string& from, const std::string& to,
                          const std::string& back) {
        one_way.push_back(std::string(row.name) + "\t" + way + "\t" + hex(from) + "\t" + hex(to) +
                          "\t" + hex(back));
    };
    std::set<std::string> pairs;
    for (const code_form& form : row.forms) {
        std::size_t count = 0;
        each_code(form, [&](const std::string& code) {
            const auto text = decode(code);
            if (!text) {
                return;
            }
            ++count;
            const std::string back = encode(*text).value_or("");
            if (without_prefix(back, row) != without_prefix(code, row)) {
                list("decode", code, *text, back);
            } else if (is_pair(*text)) {
                pairs.insert(*text);
            }
        });
        EXPECT_EQ(count, form.count) << row.name << " prefix " << hex(form.prefix);
    }
    std::size_t encoded = pairs.size();
    for (std::uint32_t scalar = 0; scalar < scalar_end; ++scalar) {
        const std::string text = utf16(scalar);
        const auto code = scalar >= 0xD800 && scalar <= 0xDFFF ? std::nullopt : encode(text);
        if (!code) {
            continue;
        }
        ++encoded;
        const std::string back = decode(*code).value_or("");
        if (back != text) {
            list("encode", text, *code, back);
        }
    }
    EXPECT_EQ(encoded, row.encoded) << row.name;
    return one_way;
}

std::vector<std::string> read_lines(const std::string& path) {
    std::ifstream in(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        if (!line.starts_with('#')) {
            lines.push_back(line);
        }
    }
    return lines;
}

void expect_within(const std::vector<std::string>& lines, const std::vector<std::string>& all,
                   const char* what) {
    const std::set<std::string> known(all.begin(), all.end());
    for (const std::string& line : lines) {
        EXPECT_TRUE(known.contains(line)) << what << ": " << line;
    }
}

// Set PVZAN_LIST_ONE_WAY to a file to have the list written there, and review what changed.
TEST(CharsetData, CountsAndWhatDoesNotComeBack) {
    std::vector<std::string> found;
    for (const charset_case& row : cases) {
        for (std::string& line : examine(row)) {
            found.push_back(std::move(line));
        }
    }
    if (const char* path = std::getenv("PVZAN_LIST_ONE_WAY")) {
        std::ofstream out(path);
        for (const std::string& line : found) {
            out << line << '\n';
        }
    }
    const auto reviewed = read_lines(PVZAN_SOURCE_DIR "/tests/charset_data_one_way.tsv");
    expect_within(found, reviewed, "new");
    expect_within(reviewed, found, "gone");
}

} // namespace
