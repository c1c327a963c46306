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
#include <vector>

namespace tool {

struct text_character {
    enum kind_type {
        whole,
        silent, // an escape sequence: no character
        cut,    // the text ends inside a character
        invalid
    } kind;
    std::size_t bytes;       // of the text, to be stepped over
    char32_t scalar = 0;     // whole
    char32_t mark = 0;       // whole: what JIS X 0213 has in the same code, or 0
    bytes_view spelled = {}; // whole, silent: what to give the library for it
    std::size_t blamed = 0;  // invalid: bytes from the start that cannot be continued
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
    // The character at the start of text, which is not empty. A letter and its mark are read as one
    // where the library reads them so and the target has them so. What the result's spelling points
    // to lives until the next call.
    text_character read(bytes_view text);

    // Whether the library converts the text right without being watched: no byte of it is read or
    // written leniently. The text begins where the conversion stands.
    bool reads_clean(bytes_view text, const pvzan_session& conversion);

private:
    text_character read_unicode(bytes_view text);
    text_character read_code(bytes_view text);
    bool is_one_character(bytes_view text);
    bool begins_nothing(std::uint8_t byte);
    std::uint32_t run(bytes_view text, std::size_t end);
    bool converts_clean(bytes_view text);
    [[nodiscard]] bool holds_pair(char32_t letter, char32_t mark) const;

    charset_name from_, to_;
    std::unique_ptr<pvzan_session> session_; // converts to UTF-8
    std::vector<std::uint8_t> out_;
    std::array<std::uint8_t, 6> respelled_{}; // a code behind its escape sequence
    bool plane2_ = false;                     // ISO-2022-JP-2004: ESC $ ( P stands
};

} // namespace tool
