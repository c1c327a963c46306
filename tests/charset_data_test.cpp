// The shipped charsets as a whole: how many codes and characters each has, and which of them do not
// come back as they were. Windows-31J is compared in all of that with another converter
// (oracle_test.cpp).
#include "tests/support/convert.h"

namespace {

constexpr const char* unicode = "utf-16"; // which reads a base and its mark as one
constexpr std::uint32_t scalar_end = 0x110000;

bool is_unicode(std::string_view name) {
    return name.starts_with("utf") || name.starts_with("iso-10646");
}

// A prefix that goes before each code, and a range for each byte behind it.
struct code_form {
    std::string prefix;
    std::vector<std::pair<int, int>> bytes;
};

std::vector<code_form> forms_of(std::string_view charset) {
    constexpr std::pair any{0, 0xFF}, lead{0x81, 0xFE}, digit{0x30, 0x39}, graphic{0x21, 0x7E};
    if (charset.starts_with("iso-2022-jp")) {
        std::vector<code_form> designated = {{"\x1B(B", {any}},
                                             {"\x1B(J", {any}},
                                             {"\x1B$B", {graphic, graphic}},
                                             {"\x1B$@", {graphic, graphic}}};
        if (charset == "iso-2022-jp-2004") {
            designated.push_back({"\x1B$(Q", {graphic, graphic}});
            designated.push_back({"\x1B$(P", {graphic, graphic}});
        }
        return designated;
    }
    std::vector<code_form> forms = {{"", {any}}, {"", {any, any}}};
    if (charset == "euc-jp" || charset == "euc-jis-2004") {
        forms.push_back({"\x8F", {any, any}});
    } else if (charset == "gb18030") {
        forms.push_back({"", {lead, digit, lead, digit}});
    }
    return forms;
}

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
        for (int byte = form.bytes[place].first; byte <= form.bytes[place].second; ++byte) {
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

// Behind the escape sequence that designates its set; ESC may be a code itself.
std::string_view without_designation(std::string_view code) {
    const bool designated = code.size() > 3 && code[0] == '\x1B';
    return code.substr(!designated ? 0 : code.starts_with("\x1B$(") ? 4 : 3);
}

// Counts everything, and lists what does not come back as it was. A code may come back under
// another designation.
std::vector<std::string> examine(const char* name) {
    test::character_converter decode(name, unicode), encode(unicode, name);
    std::vector<std::string> one_way;
    const auto list = [&](const char* way, const std::string& from, const std::string& to,
                          const std::string& back) {
        one_way.push_back(std::string(name) + "\t" + way + "\t" + hex(from) + "\t" + hex(to) +
                          "\t" + hex(back));
    };
    std::set<std::string> pairs;
    std::size_t codes = 0;
    for (const code_form& form : forms_of(name)) {
        each_code(form, [&](const std::string& code) {
            const auto text = decode(code);
            if (!text) {
                return;
            }
            ++codes;
            const std::string back = encode(*text).value_or("");
            if (without_designation(back) != without_designation(code)) {
                list("decode", code, *text, back);
            } else if (is_pair(*text)) {
                pairs.insert(*text);
            }
        });
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
    one_way.push_back(std::string(name) + "\tcounts\t" + std::to_string(codes) + "\t" +
                      std::to_string(encoded) + "\t-");
    return one_way;
}

// Set PVZAN_LIST_ONE_WAY to a file to have the list written there, and review what changed.
TEST(CharsetData, CountsAndWhatDoesNotComeBack) {
    std::set<std::string> found, reviewed;
    for (const char* name : test::all_charsets) {
        if (is_unicode(name) || name == std::string_view("windows31j")) {
            continue;
        }
        for (std::string& line : examine(name)) {
            found.insert(std::move(line));
        }
    }
    if (const char* path = std::getenv("PVZAN_LIST_ONE_WAY")) {
        std::ofstream out(path);
        for (const std::string& line : found) {
            out << line << '\n';
        }
    }
    std::ifstream list(PVZAN_SOURCE_DIR "/tests/charset_data_one_way.tsv");
    for (std::string line; std::getline(list, line);) {
        if (!line.starts_with('#')) {
            reviewed.insert(line);
            EXPECT_TRUE(found.contains(line)) << "gone: " << line;
        }
    }
    for (const std::string& line : found) {
        EXPECT_TRUE(reviewed.contains(line)) << "new: " << line;
    }
}

} // namespace
