// Runs a conversion in every way a caller might, and expects the same of all.
#pragma once

#include "tests/support/oracle.h"

namespace test {

// Something that stopped a conversion: its status, and how far the input had been read.
struct fault {
    std::uint32_t status;
    std::size_t position;
    bool operator==(const fault&) const = default;
};

struct outcome {
    std::string bytes;
    std::vector<fault> faults;
    std::size_t unread = 0; // bytes of a character that the end of the input cuts
    std::uint32_t in_count = 0, out_count = 0;
    bool stuck = false; // the output buffer is too small for the next character
    bool operator==(const outcome&) const = default;
};

struct conversion {
    const char* from;
    const char* to;
    std::string input = {};
    std::string expected = {};
    std::vector<fault> faults = {};
    std::size_t unread = 0;
    pvzan_source_options source = {.srcBigEndian = 1, .srcCheckBom = 0, .skipInvalid = 0};
    pvzan_target_options target = big_endian_target();
    // Cuts of the input at which another outcome is right: between a base letter and its mark.
    std::vector<std::size_t> other_at = {};
    // Output buffers of this size and above must do, smaller ones may be too small for a character.
    std::size_t enough_room = 8;
    // Where it is not 0: the smallest buffer that does.
    std::size_t least_room = 0;

    static pvzan_target_options big_endian_target();
};

// A buffer in pages of its own: it ends, or begins, where memory does.
class guarded_buffer {
public:
    explicit guarded_buffer(std::size_t size, bool at_end = true);
    ~guarded_buffer();
    guarded_buffer(const guarded_buffer&) = delete;
    guarded_buffer& operator=(const guarded_buffer&) = delete;
    [[nodiscard]] std::uint8_t* data() const { return data_; }
    [[nodiscard]] std::size_t size() const { return size_; }

private:
    void* pages_;
    std::size_t mapped_, size_;
    std::uint8_t* data_;
};

// Every charset of the shipped directory.
inline constexpr const char* all_charsets[] = {
    "shift_jis",    "windows31j",       "iso-10646-ucs-2", "iso-10646-ucs-4", "utf-16",
    "utf-8",        "euc-jp",           "euc-jp-fix",      "iso-2022-jp",     "shift_jis-2004",
    "euc-jis-2004", "iso-2022-jp-2004", "chinesegbk",      "chinesebig5",     "koreanksc",
    "gb18030",      "iso-646irv",       "iso-8859-1",      "oasys-win",       "oasys-online",
};

using session_owner = std::unique_ptr<pvzan_session>;
session_owner open_session(const conversion& c);
session_owner open(const char* from, const char* to);

// Text to read from the start, room to write to from the start.
void give_input(pvzan_session& s, std::string_view input);
void give_output(pvzan_session& s, std::span<std::uint8_t> output);

inline std::string_view text_of(std::span<const std::uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}
inline std::span<const std::uint8_t> bytes_of(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}
// What a session has written.
inline std::string written(const pvzan_session& s) {
    return {reinterpret_cast<const char*>(s.outBuf), static_cast<std::size_t>(s.outPos)};
}

// Converts the pieces one after the other through an output buffer of the given size, carrying cut
// characters over, and closes the output.
outcome run(const conversion& c, const std::vector<std::string_view>& pieces, std::size_t capacity);

// Expects the outcome from the whole input, from every cut in two, with an empty piece between, and
// with every output capacity from 0 up.
void expect_conversion(const conversion& c);

// Converts one character at a time, each from the initial state of both sides.
class character_converter {
public:
    character_converter(const char* from, const char* to) : session_(open(from, to)) {}
    // Nothing unless the input is one character that both sides have.
    std::optional<std::string> operator()(std::string_view input, bool close = false);

private:
    session_owner session_;
};

// Text of several scripts in runs of about that length, now and then a line break of any kind, a
// mark or a rare character.
std::u32string random_text(std::mt19937& random, std::size_t length, unsigned run_length);

// Converts whole; faults fail the test.
std::string convert(const char* from, const char* to, std::string_view input);

} // namespace test
