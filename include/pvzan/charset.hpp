// Which charset a name means, and where the charset directory lies. Part of pvzan.hpp.
#ifndef PVZAN_CHARSET_HPP
#define PVZAN_CHARSET_HPP

#include "unicode.hpp"

#include "../pvzan.h"

#include <cstdlib>
#include <dlfcn.h>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace pvzan {

// A charset by its name. "utf-16", "ucs-2" and "ucs-4" leave the byte order to a byte-order mark:
// one is written, most significant byte first, and read, or is missing and means the same order.
// With "be" or "le" behind them they name the order.
struct charset {
    std::string library; // its name in the charset directory
    unicode_form form = unicode_form::none;
    bool big_endian = true;
    bool marked = false; // the byte order is told by a mark

    charset(std::string_view name); // NOLINT: a name is a charset
    charset(const char* name) : charset(std::string_view(name)) {}
    charset(const std::string& name) : charset(std::string_view(name)) {}

    bool is_unicode() const { return form != unicode_form::none; }
    bool is_iso2022() const { return library.compare(0, 11, "iso-2022-jp") == 0; }
    bool is_euc() const { return library.compare(0, 4, "euc-") == 0; }
    // Whether it has the 25 characters that are a letter and a mark in Unicode.
    bool is_jis_x0213() const {
        return library.size() > 5 && library.compare(library.size() - 5, 5, "-2004") == 0;
    }
};

namespace detail {

struct known_name {
    std::string_view plain; // lower case, without "-", "_" and blanks
    std::string_view library;
    unicode_form form = unicode_form::none;
};

inline constexpr known_name known_names[] = {
    {"shiftjis", "shift_jis"},
    {"sjis", "shift_jis"},
    {"windows31j", "windows31j"},
    {"cp932", "windows31j"},
    {"ms932", "windows31j"},
    {"eucjp", "euc-jp"},
    {"ujis", "euc-jp"},
    {"eucjpfix", "euc-jp-fix"},
    {"iso2022jp", "iso-2022-jp"},
    {"jis", "iso-2022-jp"},
    {"shiftjis2004", "shift_jis-2004"},
    {"sjis2004", "shift_jis-2004"},
    {"eucjis2004", "euc-jis-2004"},
    {"iso2022jp2004", "iso-2022-jp-2004"},
    {"ascii", "iso-646irv"},
    {"usascii", "iso-646irv"},
    {"latin1", "iso-8859-1"},
    {"iso88591", "iso-8859-1"},
    {"gbk", "chinesegbk"},
    {"cp936", "chinesegbk"},
    {"big5", "chinesebig5"},
    {"cp950", "chinesebig5"},
    {"uhc", "koreanksc"},
    {"cp949", "koreanksc"},
    {"utf8", "utf-8", unicode_form::utf8},
    {"utf16", "utf-16", unicode_form::utf16},
    {"ucs2", "iso-10646-ucs-2", unicode_form::ucs2},
    {"iso10646ucs2", "iso-10646-ucs-2", unicode_form::ucs2},
    {"ucs4", "iso-10646-ucs-4", unicode_form::ucs4},
    {"iso10646ucs4", "iso-10646-ucs-4", unicode_form::ucs4},
    {"utf32", "iso-10646-ucs-4", unicode_form::ucs4},
};

inline const known_name* find_name(std::string_view plain) {
    for (const known_name& known : known_names) {
        if (known.plain == plain) {
            return &known;
        }
    }
    return nullptr;
}

inline bool is_directory(const std::string& path) {
    struct stat found = {};
    return ::stat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode);
}

// The environment counts for nothing in a program that runs with another user's rights.
inline const char* trusted_variable(const char* name) {
#ifdef __GLIBC__
    return ::secure_getenv(name);
#else
    return ::getuid() == ::geteuid() && ::getgid() == ::getegid() ? std::getenv(name) : nullptr;
#endif
}

// Beside the loaded library, links resolved. A variable of the library tells where that is: a
// function's address may be one of the program's own.
inline std::string beside_library() {
    Dl_info info = {};
    if (::dladdr(ZAN_getCharsetPath(), &info) == 0 || info.dli_fname == nullptr) {
        return {};
    }
    char* const resolved = ::realpath(info.dli_fname, nullptr);
    const std::string path = resolved != nullptr ? resolved : "";
    std::free(resolved);
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash) + "/pvzan/base2";
}

struct directory_choice {
    std::once_flag once;
    std::string path; // empty: there is none
    bool usable = false;

    void settle(const std::string& asked_for) {
        my_init();
        if (!asked_for.empty()) {
            try_path(asked_for);
        } else {
            const char* const variable = trusted_variable("PVZAN_CHARSET_DIR");
            try_path(ZAN_getCharsetPath()); // the program's own call
            try_path(variable != nullptr ? variable : "");
            try_path(beside_library());
#ifdef PVZAN_DEFAULT_CHARSET_DIR
            try_path(PVZAN_DEFAULT_CHARSET_DIR);
#endif
        }
        if (!path.empty()) {
            ZAN_setCharsetPath(path.c_str());
            usable = cconvLoadRule() != 0;
            path = ZAN_getCharsetPath();
        }
    }
    void try_path(const std::string& candidate) {
        if (path.empty() && !candidate.empty() && is_directory(candidate)) {
            path = candidate;
        }
    }
    static directory_choice& of_process() {
        static directory_choice choice;
        return choice;
    }
};

inline bool settle_directory() {
    directory_choice& choice = directory_choice::of_process();
    std::call_once(choice.once, [&choice] { choice.settle({}); });
    return choice.usable;
}

} // namespace detail

// Settles the charset directory; to be called before everything else, or not at all. Without it the
// first use takes the first that exists of: what ZAN_setCharsetPath was given, the environment
// variable PVZAN_CHARSET_DIR, pvzan/base2 beside the loaded library, PVZAN_DEFAULT_CHARSET_DIR as
// the program was compiled. Never one in the current directory, where anybody's definitions may
// lie. False when path holds no definitions, or another directory was settled before.
inline bool use_charsets(const std::string& path) {
    detail::directory_choice& choice = detail::directory_choice::of_process();
    std::call_once(choice.once, [&] { choice.settle(path); });
    return choice.usable && choice.path == path;
}

// The charset directory in use; empty: there is none.
inline std::string charset_directory() {
    return detail::settle_directory() ? detail::directory_choice::of_process().path : std::string();
}

namespace detail {

struct known_mark {
    unicode_form form;
    std::string_view bytes;
    bool big_endian;
};

inline constexpr known_mark known_marks[] = {
    {unicode_form::utf8, {"\xEF\xBB\xBF", 3}, true},
    {unicode_form::ucs4, {"\x00\x00\xFE\xFF", 4}, true},
    {unicode_form::ucs4, {"\xFF\xFE\x00\x00", 4}, false},
    {unicode_form::utf16, {"\xFE\xFF", 2}, true},
    {unicode_form::utf16, {"\xFF\xFE", 2}, false},
    {unicode_form::ucs2, {"\xFE\xFF", 2}, true},
    {unicode_form::ucs2, {"\xFF\xFE", 2}, false},
};

// The byte-order mark at the start of a text: any where the charset's name leaves the order open,
// else the one of its order.
inline const known_mark* find_mark(std::string_view text, const charset& c) {
    for (const known_mark& mark : known_marks) {
        if (mark.form == c.form && (c.marked || mark.big_endian == c.big_endian) &&
            text.substr(0, mark.bytes.size()) == mark.bytes) {
            return &mark;
        }
    }
    return nullptr;
}

// Whether so short a text may be the start of a byte-order mark.
inline bool may_become_mark(std::string_view text, unicode_form form) {
    for (const known_mark& mark : known_marks) {
        if (mark.form == form && text.size() < mark.bytes.size() &&
            mark.bytes.substr(0, text.size()) == text) {
            return true;
        }
    }
    return false;
}

} // namespace detail

inline charset::charset(std::string_view name) {
    std::string plain;
    for (const char c : name) {
        const char folded = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
        library += folded;
        if (c != '-' && c != '_' && c != ' ') {
            plain += folded;
        }
    }
    const detail::known_name* known = detail::find_name(plain);
    const std::string order = plain.size() > 2 ? plain.substr(plain.size() - 2) : plain;
    const bool ordered = known == nullptr && (order == "be" || order == "le");
    if (ordered) {
        known = detail::find_name(std::string_view(plain).substr(0, plain.size() - 2));
    }
    const bool has_order = known != nullptr && known->form > unicode_form::utf8;
    if (known == nullptr || (ordered && !has_order)) {
        return; // as it stands
    }
    library = known->library;
    form = known->form;
    big_endian = !ordered || order == "be";
    marked = has_order && !ordered;
}

} // namespace pvzan
#endif
