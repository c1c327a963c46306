#include "tools/pvzan/charset_name.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tool {

namespace {

struct alias {
    std::string_view name; // lower case, without "-", "_" and blanks
    std::string_view library;
    unicode_form form = unicode_form::none;
    bool big_endian = true;
    bool marked = false;
};

constexpr std::array aliases = {
    alias{"shiftjis", "shift_jis"},
    alias{"sjis", "shift_jis"},
    alias{"windows31j", "windows31j"},
    alias{"cp932", "windows31j"},
    alias{"ms932", "windows31j"},
    alias{"mskanji", "windows31j"},
    alias{"eucjp", "euc-jp"},
    alias{"ujis", "euc-jp"},
    alias{"eucjpfix", "euc-jp-fix"},
    alias{"iso2022jp", "iso-2022-jp"},
    alias{"jis", "iso-2022-jp"},
    alias{"shiftjis2004", "shift_jis-2004"},
    alias{"sjis2004", "shift_jis-2004"},
    alias{"eucjis2004", "euc-jis-2004"},
    alias{"iso2022jp2004", "iso-2022-jp-2004"},
    alias{"ascii", "iso-646irv"},
    alias{"usascii", "iso-646irv"},
    alias{"latin1", "iso-8859-1"},
    alias{"iso88591", "iso-8859-1"},
    alias{"gbk", "chinesegbk"},
    alias{"cp936", "chinesegbk"},
    alias{"big5", "chinesebig5"},
    alias{"cp950", "chinesebig5"},
    alias{"uhc", "koreanksc"},
    alias{"cp949", "koreanksc"},
    alias{"utf8", "utf-8", unicode_form::utf8},
    alias{"utf16", "utf-16", unicode_form::utf16, true, true},
    alias{"utf16be", "utf-16", unicode_form::utf16},
    alias{"utf16le", "utf-16", unicode_form::utf16, false},
    alias{"ucs2", "iso-10646-ucs-2", unicode_form::ucs2, true, true},
    alias{"iso10646ucs2", "iso-10646-ucs-2", unicode_form::ucs2, true, true},
    alias{"ucs2be", "iso-10646-ucs-2", unicode_form::ucs2},
    alias{"ucs2le", "iso-10646-ucs-2", unicode_form::ucs2, false},
    alias{"ucs4", "iso-10646-ucs-4", unicode_form::ucs4, true, true},
    alias{"iso10646ucs4", "iso-10646-ucs-4", unicode_form::ucs4, true, true},
    alias{"utf32", "iso-10646-ucs-4", unicode_form::ucs4, true, true},
    alias{"ucs4be", "iso-10646-ucs-4", unicode_form::ucs4},
    alias{"utf32be", "iso-10646-ucs-4", unicode_form::ucs4},
    alias{"ucs4le", "iso-10646-ucs-4", unicode_form::ucs4, false},
    alias{"utf32le", "iso-10646-ucs-4", unicode_form::ucs4, false},
};

constexpr char fold(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Case and separators do not tell names apart.
std::string plain_name(std::string_view name) {
    std::string plain;
    for (const char c : name) {
        if (c != '-' && c != '_' && c != ' ') {
            plain += fold(c);
        }
    }
    return plain;
}

} // namespace

std::size_t charset_name::unit_bytes() const {
    if (form == unicode_form::ucs4) {
        return 4;
    }
    const bool two =
        form == unicode_form::utf16 || form == unicode_form::ucs2 || library == "euc-jp-fix";
    return two ? 2 : 1;
}

bool charset_name::is_iso2022() const {
    return library == "iso-2022-jp" || library == "iso-2022-jp-2004";
}

bool charset_name::is_jis_x0213() const {
    return library == "shift_jis-2004" || library == "euc-jis-2004" ||
           library == "iso-2022-jp-2004";
}

charset_name resolve_charset(std::string_view name) {
    const auto found = std::ranges::find(aliases, plain_name(name), &alias::name);
    if (found == aliases.end()) {
        std::string folded(name);
        std::ranges::transform(folded, folded.begin(), fold);
        return {.asked = std::string(name), .library = std::move(folded)};
    }
    return {.asked = std::string(name),
            .library = std::string(found->library),
            .form = found->form,
            .big_endian = found->big_endian,
            .marked = found->marked};
}

} // namespace tool
