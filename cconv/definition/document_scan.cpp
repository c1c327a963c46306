// Finds elements, attributes, entities and numbers in a document.
#include "cconv/definition/document.h"

#include "platform/platform.h"

#include <algorithm>
#include <cwchar>
#include <limits>
#include <optional>
#include <string_view>

namespace {

constexpr std::size_t max_key = 511;

using characters = std::span<const u32>;

constexpr bool is_blank(u32 c) {
    return c == ' ' || c == '\t';
}

characters whole_text(const document* document) {
    return {document->text, static_cast<std::size_t>(document->textBytes) / sizeof(u32)};
}

// Converts a byte offset to a character index, limited to the text.
std::size_t clamp_offset(const document* document, i64 offset) {
    return static_cast<std::size_t>(std::clamp(offset, i64{0}, i64{document->textBytes})) /
           sizeof(u32);
}

i32 offset_of(std::size_t index) {
    return static_cast<i32>(index * sizeof(u32));
}

characters extent(const document* document, i64 start, i64 end) {
    const std::size_t first = clamp_offset(document, start);
    const std::size_t last = clamp_offset(document, end);
    return first < last ? whole_text(document).subspan(first, last - first) : characters();
}

bool key_at(characters text, std::size_t index, std::string_view key) {
    if (index > text.size() || text.size() - index < key.size()) {
        return false;
    }
    const u32* at = text.data() + index;
    for (const char c : key) {
        if (*at++ != static_cast<u8>(c)) {
            return false;
        }
    }
    return true;
}

// The first occurrence of a character in the text, or the end of the text.
const u32* find_character(characters text, u32 wanted) {
    if constexpr (sizeof(wchar_t) == sizeof(u32)) {
        static_assert(alignof(wchar_t) == alignof(u32));
        const auto* found = std::wmemchr(reinterpret_cast<const wchar_t*>(text.data()),
                                         static_cast<wchar_t>(wanted), text.size());
        return found != nullptr ? reinterpret_cast<const u32*>(found) : text.data() + text.size();
    }
    return std::to_address(std::ranges::find(text, wanted));
}

std::optional<std::size_t> find_key(characters text, std::size_t from, std::string_view key) {
    const u32 first = static_cast<u8>(key[0]); // no key is empty
    while (from + key.size() <= text.size()) {
        const u32* at =
            find_character(text.subspan(from, text.size() - from - key.size() + 1), first);
        from = static_cast<std::size_t>(at - text.data());
        if (key_at(text, from, key)) {
            return from;
        }
        ++from;
    }
    return std::nullopt;
}

// A search key in a buffer. A key longer than max_key finds nothing.
using key_buffer = char[max_key + 5];

void make_key(key_buffer& out, std::string_view before, std::string_view name,
              std::string_view behind) {
    std::size_t length = 0;
    for (const std::string_view part : {before, name, behind}) {
        const std::size_t n = std::min(part.size(), sizeof out - 1 - length);
        std::memcpy(out + length, part.data(), n);
        length += n;
    }
    out[length] = '\0';
}

// The text between the first two double quotes.
std::optional<characters> quoted_value(characters text) {
    const auto open = std::ranges::find(text, u32{'"'});
    if (open == text.end()) {
        return std::nullopt;
    }
    const auto close = std::find(open + 1, text.end(), u32{'"'});
    if (close == text.end()) {
        return std::nullopt;
    }
    return characters(open + 1, close);
}

std::optional<characters> attribute(characters text, std::string_view key) {
    const auto at = find_key(text, 0, key);
    return at ? quoted_value(text.subspan(*at + key.size())) : std::nullopt;
}

// Converts characters to bytes in a buffer of text_bytes bytes; longer texts are truncated.
void narrow(characters from, char* out) {
    from = from.first(std::min(from.size(), text_bytes - 1));
    std::ranges::transform(from, out, [](u32 c) { return static_cast<char>(c & 0xFF); });
    out[from.size()] = '\0';
}

void narrow(const std::optional<characters>& from, char* out) {
    narrow(from.value_or(characters()), out);
}

char* new_string(characters from) {
    return UCS4toASCII(from.data(), static_cast<i32>(from.size()), nullptr);
}

// Both conversions allocate count + 1 items.
template <typename T>
T* new_items(i32 count) {
    if (count < 0 || i64{count} + 1 > std::numeric_limits<i32>::max() / i64{sizeof(T)}) {
        return nullptr;
    }
    return static_cast<T*>(ZAN_malloc(static_cast<i32>((i64{count} + 1) * i64{sizeof(T)})));
}

} // namespace

// ---- Keywords and elements

std::optional<i32> seek_key(const document* document, const char* key, i32 from, bool tags_known) {
    const std::string_view wanted(key, ::strnlen(key, max_key + 1));
    if (wanted.empty() || wanted.size() > max_key) {
        return std::nullopt;
    }
    const characters text = whole_text(document);
    const std::size_t first = clamp_offset(document, from);
    // Of the keys that begin with "/", only those that end an element are part of a tag.
    if ((wanted[0] == '<' || wanted == "/" || wanted.starts_with("/>")) && document->tagCount > 0) {
        const std::span tags(document->tagPos, static_cast<std::size_t>(document->tagCount));
        auto tag = std::ranges::lower_bound(tags, static_cast<i32>(first));
        for (; tag != tags.end(); ++tag) {
            const auto index = static_cast<std::size_t>(*tag);
            if (key_at(text, index, wanted)) {
                return offset_of(index + wanted.size());
            }
        }
    }
    if (tags_known && wanted[0] == '<') {
        return std::nullopt;
    }
    const auto found = find_key(text, first, wanted);
    return found ? std::optional(offset_of(*found + wanted.size())) : std::nullopt;
}

bool seek_element(const document* document, const char* name, i32 from, bool tags_known, i32* start,
                  i32* end) {
    key_buffer plain, attributed, closing;
    make_key(plain, "<", name, ">");
    make_key(attributed, "<", name, " ");
    make_key(closing, "</", name, ">");

    const i32 opened = seek_key(document, plain, from, tags_known).value_or(0);
    const i32 opened_attributed = seek_key(document, attributed, from, tags_known).value_or(0);
    *start = opened_attributed != 0 && (opened == 0 || opened_attributed < opened)
                 ? opened_attributed
                 : opened;
    if (*start == 0) {
        return false;
    }
    for (const char* ending : {static_cast<const char*>(closing), "/>"}) {
        if (const auto behind = seek_key(document, ending, *start, tags_known)) {
            *end = *behind - offset_of(std::strlen(ending));
            return true;
        }
    }
    return false;
}

extern "C" {

u32 xmlSeekObj1(document* document, const char* key, i32* end) {
    const auto found = seek_key(document, key, document->pos, false);
    *end = found.value_or(*end);
    return found.has_value();
}

u32 xmlSeekObj2(document* document, const char* elementName, i32* start, i32* end) {
    return seek_element(document, elementName, document->pos, false, start, end) ? 1 : 0;
}

// ---- Texts and attributes

void xmlGetName(document* document, i32 start, i32 end, char* out) {
    narrow(extent(document, start, end), out);
}

void xmlGetLang(document* document, i32 start, i32 end, char* out) {
    narrow(attribute(extent(document, start, end), "domain="), out);
}

// Searches up to the end of the document, deliberately: the quotes may follow the element's first
// tag.
void xmlGetRule(document* document, i32 start, char* out) {
    narrow(quoted_value(extent(document, start, document->textBytes)), out);
}

void xmlGetBytenum(document* document, i32 start, i32 end, u16* out) {
    *out = 2;
    if (const auto value = attribute(extent(document, start, end), "bytenum=")) {
        u32 number = 0;
        auto c = std::ranges::find_if_not(*value, is_blank);
        for (; c != value->end() && *c >= '0' && *c <= '9'; ++c) {
            number = number * 10 + (*c - '0');
        }
        *out = static_cast<u16>(number);
    }
}

// The end is compared with a number of characters although it is a byte offset, deliberately: the
// value may be far behind the element. It is always inside the text.
u32 xmlGetBasedon(document* document, i32 start, i32 end, char* out) {
    *out = '\0';
    document->pos = start;
    i32 behind = 0;
    if (xmlSeekObj1(document, "basedon=", &behind) == 0) {
        return 0;
    }
    const auto value = quoted_value(extent(document, behind, behind + i64{end} * i64{sizeof(u32)}));
    narrow(value, out);
    return value.has_value();
}

// ---- Numbers

u32 xmlGetHex(const u32* text, i32 from, i32 count, i32* next, u32* value) {
    if (from < 0 || from >= count) {
        return 0;
    }
    const characters all(text, static_cast<std::size_t>(count));
    const auto first = std::find_if(all.begin() + from, all.end(), is_hex_digit);
    const auto last = std::find_if_not(first, all.end(), is_hex_digit);
    // A number at the very end is not used, deliberately: it may have been truncated.
    if (last == all.end()) {
        return 0;
    }
    u32 number = 0;
    for (auto c = first; c != last; ++c) {
        number = number << 4 | hex_value(*c);
    }
    *value = number;
    *next = static_cast<i32>(last - all.begin());
    return 1;
}

u32 xatoi(const char* string) {
    while (is_blank(static_cast<u8>(*string))) {
        ++string;
    }
    u32 number = 0;
    for (; is_hex_digit(static_cast<u8>(*string)); ++string) {
        number = number << 4 | hex_value(static_cast<u8>(*string));
    }
    return number;
}

// ---- Entities

char* xmlGetLink(document* document, i32 start, i32 end) {
    const characters text = extent(document, start, end);
    const auto ampersand = std::ranges::find(text, u32{'&'});
    const auto semicolon = std::find(ampersand, text.end(), u32{';'});
    // If no ";" follows the first "&", none follows a later one.
    if (semicolon == text.end()) {
        return nullptr;
    }
    const auto name = std::find_if_not(ampersand + 1, semicolon, [](u32 c) { return c == ' '; });
    return new_string(characters(name, semicolon));
}

char* xmlFindEntry(document* document, const char* name) {
    const characters text = whole_text(document);
    i32 from = 0;
    while (const auto found = seek_key(document, name, from, false)) {
        from = *found;
        const std::size_t behind = clamp_offset(document, from);
        if (behind < text.size() && text[behind] == ' ') {
            const auto at = seek_key(document, "SYSTEM ", from, false);
            if (!at) {
                return nullptr;
            }
            const characters rest = extent(document, *at, document->textBytes);
            const auto value = quoted_value(rest);
            return !rest.empty() && rest[0] == '"' && value ? new_string(*value) : nullptr;
        }
    }
    return nullptr;
}

u32 xmlGetTable(document* document, struct document* linkDocument, i32 start, i32 end,
                table_object* first, table_object* second) {
    const owned_memory<char> link(
        xmlGetLink(linkDocument != nullptr ? linkDocument : document, start, end));
    const owned_memory<char> file(link != nullptr ? xmlFindEntry(document, link.get()) : nullptr);
    if (file == nullptr) {
        return 0;
    }
    for (table_object* table : {first, second}) {
        if (table != nullptr) {
            copy_text(table->fileName, file.get());
            table->textEncoding = document->encoding;
            table->textBigEndian = document->bigEndian;
        }
    }
    return 1;
}

// ---- Widening and narrowing

u32* ASCIItoUCS4(const char* bytes, i32 count, u32* out) {
    if (out == nullptr) {
        out = new_items<u32>(count);
    }
    if (out != nullptr) {
        for (i32 i = 0; i < count; ++i) {
            out[i] = static_cast<u8>(bytes[i]);
        }
        out[std::max(count, 0)] = 0;
    }
    return out;
}

char* UCS4toASCII(const u32* text, i32 count, char* out) {
    if (out == nullptr) {
        out = new_items<char>(count);
    }
    if (out != nullptr) {
        for (i32 i = 0; i < count; ++i) {
            out[i] = static_cast<char>(text[i] & 0xFF);
        }
        out[std::max(count, 0)] = '\0';
    }
    return out;
}

} // extern "C"
