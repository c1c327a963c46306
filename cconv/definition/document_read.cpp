// Reads a definition file: finds its encoding, and converts and normalises its characters.
#include "cconv/definition/document.h"

#include "cconv/directory/directory.h"
#include "cconv/directory/embedded.h"
#include "platform/platform.h"

#include <algorithm>
#include <limits>
#include <string_view>

namespace {

using std::operator""sv;

constexpr i64 max_file_bytes = std::numeric_limits<i32>::max();

// ---- The file ----------------------------------------------------------------------------------

// Definition files have lower-case names in the charset directory. A directory in the name is
// dropped in the way of splitPath, except the folder of further charsets.
bool document_path(const char* fileName, char (&path)[text_bytes]) {
    char name[text_bytes];
    copy_text(name, fileName + (fileName[0] == '/' ? 1 : 0));
    const char* delimiter = is_further_path(fileName) ? nullptr : _right(name, '/');
    fold_text(name);
    return getCharsetPath(path, text_bytes) != nullptr &&
           append_text(path, delimiter != nullptr ? delimiter + 1 : name);
}

struct file_bytes {
    owned_memory<u8> data;
    std::size_t size = 0;
    [[nodiscard]] std::span<const u8> bytes() const { return {data.get(), size}; }
};

// ---- The encoding ------------------------------------------------------------------------------

struct encoding_choice {
    u32 encoding;
    u32 bigEndian;
};

// The name of an encoding in 16-bit units, as the bytes from its first letter to its last, which
// are the same in both byte orders.
bool wide_name_at(std::span<const u8> bytes, std::size_t offset, std::string_view name) {
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (bytes[offset + 2 * i] != static_cast<u8>(name[i]) ||
            (i + 1 < name.size() && bytes[offset + 2 * i + 1] != 0)) {
            return false;
        }
    }
    return true;
}

// The declaration on the first line of a 16-bit document. The byte-order mark alone does not
// decide.
u32 declared_wide_encoding(std::span<const u8> bytes) {
    constexpr std::string_view utf16_name = "UTF-16"sv, ucs2_name = "ISO-10646-UCS-2"sv;
    constexpr std::size_t needed = 2 * ucs2_name.size();
    for (std::size_t offset = 0; offset + needed <= bytes.size(); ++offset) {
        if (bytes[offset] == '\n' || bytes[offset] == '\r') {
            break;
        }
        if (wide_name_at(bytes, offset, utf16_name)) {
            return encoding_utf16;
        }
        if (wide_name_at(bytes, offset, ucs2_name)) {
            return encoding_ucs2;
        }
    }
    return encoding_none;
}

u32 named_narrow_encoding(std::span<const u8> bytes) {
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    constexpr std::size_t name_and_one = 6;
    for (std::size_t offset = 0; offset + name_and_one <= text.size(); ++offset) {
        const std::string_view rest(text.begin() + offset, text.end());
        if (rest.starts_with("utf-8"sv)) {
            return encoding_utf8;
        }
        if (rest.starts_with("shift"sv)) {
            return encoding_shift_jis;
        }
    }
    return encoding_none;
}

encoding_choice choose_encoding(std::span<const u8> bytes, encoding_choice fallback) {
    const auto byte = [=](std::size_t i) { return i < bytes.size() ? bytes[i] : 0; };
    encoding_choice found{encoding_none, 0};
    if ((byte(0) == 0xFF && byte(1) == 0xFE) || (byte(0) == 0xFE && byte(1) == 0xFF)) {
        found = {declared_wide_encoding(bytes), byte(0) == 0xFE};
    } else if (byte(0) == 0xFE && byte(3) == 0xFF) {
        found = {encoding_ucs4, 1}; // byte-order marks of our own for four-byte units
    } else if (byte(0) == 0xFF && byte(3) == 0xFE) {
        found = {encoding_ucs4, 0};
    } else {
        found = {named_narrow_encoding(bytes), 0};
    }
    return found.encoding != encoding_none ? found : fallback;
}

// ---- The characters ----------------------------------------------------------------------------

// Converts units of two bytes to characters, and returns their number.
std::size_t widen_pairs(std::span<const u8> bytes, encoding_choice encoding, u32* out) {
    const u8* high = bytes.data() + (encoding.bigEndian != 0 ? 0 : 1);
    const u8* low = bytes.data() + (encoding.bigEndian != 0 ? 1 : 0);
    const auto unit = [=](std::size_t at) { return u32{high[at]} << 8 | low[at]; };
    const bool joins = encoding.encoding == encoding_utf16;
    const u32* begin = out;
    for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
        u32 character = unit(at);
        if (is_surrogate(character) && joins) {
            at += 2;
            if (at + 1 >= bytes.size()) {
                break;
            }
            character = join_surrogates(character, unit(at));
        }
        *out++ = character;
    }
    return static_cast<std::size_t>(out - begin);
}

// Converts the file to one u32 for each character. False if the encoding cannot be read, or the
// text would be too large.
bool widen(std::span<const u8> bytes, encoding_choice encoding, owned_memory<u32>& out,
           std::size_t& count) {
    std::size_t unit_bytes = 2;
    switch (encoding.encoding) {
    case encoding_ucs4: unit_bytes = 4; break;
    case encoding_ucs2:
    case encoding_utf16: break;
    default: return false;
    }
    count = 0;
    const std::size_t units = bytes.size() / unit_bytes;
    if (units == 0) {
        return true;
    }
    if (units > static_cast<std::size_t>(max_file_bytes) / sizeof(u32)) {
        return false;
    }
    out.reset(static_cast<u32*>(ZAN_malloc(static_cast<i32>(units * sizeof(u32)))));
    if (out == nullptr) {
        return false;
    }
    if (unit_bytes == 2) {
        count = widen_pairs(bytes, encoding, out.get());
        return true;
    }
    for (; count < units; ++count) {
        out.get()[count] =
            load_code(bytes.subspan(count * unit_bytes, unit_bytes), encoding.bigEndian != 0);
    }
    return true;
}

// Drops declarations and comments, and replaces line breaks and tabs by blanks. Works in place,
// since text only gets shorter.
class normaliser {
public:
    normaliser(std::span<u32> text, i32* tags) : text_(text), tags_(tags) {}

    void run() {
        while (at_ < text_.size()) {
            copy_plain();
            if (at_ < text_.size()) {
                step();
            }
        }
    }
    [[nodiscard]] std::size_t length() const { return length_; }
    [[nodiscard]] i32 tag_count() const { return tag_count_; }

private:
    [[nodiscard]] bool at(std::size_t index, u32 first, u32 second) const {
        return index + 1 < text_.size() && text_[index] == first && text_[index + 1] == second;
    }

    // Moves after the next pair from begin on. If there is none, there is none further on either;
    // remembering this keeps the time linear for a text full of openings.
    bool skip_past(std::size_t begin, u32 first, u32 second, bool& none_left) {
        for (std::size_t i = begin; !none_left && i + 1 < text_.size(); ++i) {
            if (at(i, first, second)) {
                at_ = i + 2;
                return true;
            }
        }
        none_left = true;
        ++at_; // there is no closing: only the first character of the opening is dropped
        return false;
    }

    // The most frequent case: nothing that is searched for begins with a character above "<".
    void copy_plain() {
        std::size_t from = at_, to = length_;
        while (from < text_.size() && text_[from] > '<') {
            text_[to++] = text_[from++];
        }
        at_ = from;
        length_ = to;
    }

    void step() {
        if (at(at_, '<', '?')) {
            skip_past(at_ + 2, '?', '>', no_instruction_end_);
        } else if (at(at_, '-', '-')) {
            skip_past(at_ + 2, '-', '-', no_comment_end_);
        } else if (at(at_, '\r', '\n')) {
            text_[length_++] = ' ';
            at_ += 2;
        } else {
            copy_one();
        }
    }

    void copy_one() {
        const u32 c = text_[at_];
        if (c == '<' || at(at_, '/', '>')) {
            tags_[tag_count_++] = static_cast<i32>(length_);
        }
        text_[length_++] = c == '\r' || c == '\n' || c == '\t' ? u32{' '} : c;
        ++at_;
    }

    std::span<u32> text_;
    i32* tags_;
    std::size_t at_ = 0;
    std::size_t length_ = 0;
    i32 tag_count_ = 0;
    bool no_instruction_end_ = false;
    bool no_comment_end_ = false;
};

} // namespace

extern "C" u32 xmlReadFile(const char* fileName, u32 defaultEncoding, u32 defaultBigEndian,
                           document* document) {
    document->text = nullptr;
    document->textBytes = 0;
    document->tagPos = nullptr;
    document->tagCount = 0;

    char path[text_bytes];
    file_bytes file;
    if (!document_path(fileName, path) || !read_charset_file(path, file.data, file.size)) {
        return 0;
    }
    const encoding_choice encoding =
        choose_encoding(file.bytes(), {defaultEncoding, defaultBigEndian});
    owned_memory<u32> text;
    std::size_t count = 0;
    if (!widen(file.bytes(), encoding, text, count)) {
        return 0;
    }
    document->encoding = encoding.encoding;
    document->bigEndian = encoding.bigEndian;
    if (count == 0) {
        return 1;
    }
    // There cannot be more than one for each character; unused ones cost nothing.
    owned_memory<i32> tagPos(static_cast<i32*>(ZAN_malloc(static_cast<i32>(count * sizeof(i32)))));
    if (tagPos == nullptr) {
        return 0;
    }
    normaliser normal({text.get(), count}, tagPos.get());
    normal.run();
    document->text = text.release();
    document->textBytes = static_cast<i32>(normal.length() * sizeof(u32));
    document->tagPos = tagPos.release();
    document->tagCount = normal.tag_count();
    return 1;
}
