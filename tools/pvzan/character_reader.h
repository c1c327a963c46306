// Reads a text one character at a time, to tell what each one is. Much slower than converting whole
// pieces, so it is for the lines in which something is wrong.
//
// It is strict where the library is lenient: ill-formed Unicode text, codes without a character in
// EUC and ISO-2022-JP, and unknown escape sequences are invalid.
#pragma once

#include "tools/pvzan/unicode_text.h"

#include "pvzan.h"

#include <array>
#include <memory>
#include <optional>
#include <vector>

namespace tool {

// Why bytes are invalid.
enum class fault {
    none,
    begins_nothing, // no character begins with this byte
    cannot_follow,  // the last of the blamed bytes does not fit those before
    broken_off,     // a sequence that the next byte does not continue
    no_character,   // well-formed, and nothing stands there
    half_pair,      // one half of a surrogate pair
    escape,         // an escape sequence of no known set
    open_set        // the text ends in a set of two-byte codes
};

struct text_character {
    enum kind_type {
        whole,
        silent, // an escape sequence: no character
        cut,    // the text ends inside a character; blamed: its bytes
        invalid
    } kind;
    std::size_t bytes;       // of the text, to be stepped over
    char32_t scalar = 0;     // whole
    char32_t mark = 0;       // whole: what JIS X 0213 has in the same code, or 0
    std::size_t marks = 0;   // whole: those in the text that the scalar is composed with
    bytes_view spelled = {}; // whole, silent: what to give the library for it
    std::size_t blamed = 0;  // invalid: bytes from the start that cannot be continued
    fault why = fault::none; // invalid
};

// Where the reading of a text with set switches stands.
struct source_state {
    std::uint32_t set = 0; // the one designated
    bool plane2 = false;   // ISO-2022-JP-2004: ESC $ ( P stands

    bool operator==(const source_state&) const = default;
};

// No code of any charset is longer, and no escape sequence that the library knows.
inline constexpr std::size_t longest_code = 4;

class character_reader {
public:
    character_reader(charset_name from, charset_name to);

    // False when the library does not know the charset, or UTF-8.
    bool open();
    // After a byte-order mark.
    void set_byte_order(bool big_endian);

    // Goes on where a conversion of the same text stands.
    void follow(const pvzan_session& conversion);
    [[nodiscard]] source_state state() const { return {session_->srcShiftSet, plane2_}; }
    void set_state(const source_state& state);
    // A text that begins as all texts do.
    [[nodiscard]] source_state first_state() const { return first_state_; }
    // The character at the start of text, which is not empty. A letter and its mark are read as one
    // where the library reads them so and the target has them so. What the result's spelling points
    // to lives until the next call.
    text_character read(bytes_view text);

    // Whether the library converts the text right without being watched: no byte of it is read or
    // written leniently. The text begins where the conversion stands.
    bool reads_clean(bytes_view text, const pvzan_session& conversion);

    // Characters that the target takes but nothing reads back, and whether ASCII-compatible text is
    // free of their bytes.
    [[nodiscard]] bool is_lost(char32_t scalar) const;
    [[nodiscard]] bool writes_clean(bytes_view text) const;

    // Converts text to UTF-8 as a whole. False when it must be read one character at a time; used
    // is less than all where the text ends inside a character. The result lives until the next
    // call.
    bool decode(bytes_view text, bool last, std::size_t& used, bytes_view& utf8);

private:
    text_character read_unicode(bytes_view text);
    text_character read_code(bytes_view text);
    bool is_one_character(bytes_view text);
    bool begins_nothing(std::uint8_t byte);
    bool ends_nothing(std::uint8_t byte);
    bool is_pair(std::uint8_t first, std::uint8_t second);
    [[nodiscard]] std::size_t step_over(bytes_view text, std::size_t taken) const;
    [[nodiscard]] text_character cut(bytes_view text) const;
    text_character judge(bytes_view text, std::size_t given, std::size_t taken);
    std::uint32_t run(bytes_view text, std::size_t end);
    bool converts_clean(bytes_view text);
    [[nodiscard]] bool holds_pair(char32_t letter, char32_t mark) const;

    charset_name from_, to_;
    std::unique_ptr<pvzan_session> session_; // converts to UTF-8
    std::vector<std::uint8_t> out_;
    std::array<std::uint8_t, 6> respelled_{}; // a code behind its escape sequence
    bool plane2_ = false;                     // ISO-2022-JP-2004: ESC $ ( P stands
    source_state first_state_;
    // What is known of single bytes, since asking takes 256 conversions.
    std::array<std::optional<bool>, 256> begins_nothing_{}, ends_nothing_{};
};

} // namespace tool
