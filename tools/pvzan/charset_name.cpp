#include "tools/pvzan/charset_name.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

namespace tool {

namespace {

struct alias {
    std::string_view name;    // as people write it, one of the ways
    std::string_view library; // as the library knows it
    std::string_view shown = {};
    unicode_form form = unicode_form::none;
    bool big_endian = true;
    bool marked = false;
};

using enum unicode_form;

// The first row of each charset gives the name that messages use; case and separators do not count.
constexpr std::array aliases = {
    alias{"utf-8", "utf-8", "UTF-8", utf8},
    alias{"utf-16", "utf-16", "UTF-16", utf16, true, true},
    alias{"utf-16be", "utf-16", "UTF-16BE", utf16},
    alias{"utf-16le", "utf-16", "UTF-16LE", utf16, false},
    alias{"shift_jis", "shift_jis", "Shift_JIS"},
    alias{"sjis", "shift_jis"},
    alias{"shiftjis", "shift_jis"},
    alias{"x-sjis", "shift_jis"},
    alias{"csShiftJIS", "shift_jis"},
    alias{"windows-31j", "windows31j", "Windows-31J"},
    alias{"cp932", "windows31j"},
    alias{"ms932", "windows31j"},
    alias{"windows-932", "windows31j"},
    alias{"ms-kanji", "windows31j"},
    alias{"sjis-win", "windows31j"},
    alias{"csWindows31J", "windows31j"},
    alias{"x-ms-cp932", "windows31j"},
    alias{"euc-jp", "euc-jp", "EUC-JP"},
    alias{"ujis", "euc-jp"},
    alias{"x-euc-jp", "euc-jp"},
    alias{"euc", "euc-jp"},
    alias{"euc-jp-fix", "euc-jp-fix", "EUC-JP-FIX"},
    alias{"iso-2022-jp", "iso-2022-jp", "ISO-2022-JP"},
    alias{"jis", "iso-2022-jp"},
    alias{"csISO2022JP", "iso-2022-jp"},
    alias{"shift_jis-2004", "shift_jis-2004", "Shift_JIS-2004"},
    alias{"sjis-2004", "shift_jis-2004"},
    alias{"shift_jisx0213", "shift_jis-2004"},
    alias{"euc-jis-2004", "euc-jis-2004", "EUC-JIS-2004"},
    alias{"euc-jisx0213", "euc-jis-2004"},
    alias{"euc-jp-2004", "euc-jis-2004"},
    alias{"iso-2022-jp-2004", "iso-2022-jp-2004", "ISO-2022-JP-2004"},
    alias{"ascii", "iso-646irv", "ASCII"},
    alias{"us-ascii", "iso-646irv"},
    alias{"iso-646irv", "iso-646irv"},
    alias{"iso-8859-1", "iso-8859-1", "ISO-8859-1"},
    alias{"latin1", "iso-8859-1"},
    alias{"l1", "iso-8859-1"},
    alias{"gbk", "chinesegbk", "GBK"},
    alias{"chinesegbk", "chinesegbk"},
    alias{"cp936", "chinesegbk"},
    alias{"ms936", "chinesegbk"},
    alias{"windows-936", "chinesegbk"},
    alias{"gb2312", "chinesegbk"},
    alias{"euc-cn", "chinesegbk"},
    alias{"gb18030", "gb18030", "GB18030"},
    alias{"big5", "chinesebig5", "Big5"},
    alias{"chinesebig5", "chinesebig5"},
    alias{"cp950", "chinesebig5"},
    alias{"ms950", "chinesebig5"},
    alias{"windows-950", "chinesebig5"},
    alias{"euc-kr", "koreanksc", "EUC-KR"},
    alias{"koreanksc", "koreanksc"},
    alias{"cp949", "koreanksc"},
    alias{"ms949", "koreanksc"},
    alias{"windows-949", "koreanksc"},
    alias{"uhc", "koreanksc"},
    alias{"ks_c_5601-1987", "koreanksc"},
    alias{"ksc5601", "koreanksc"},
    alias{"oasys-win", "oasys-win", "OASYS-WIN"},
    alias{"oasys-online", "oasys-online", "OASYS-ONLINE"},
    alias{"ucs-2", "iso-10646-ucs-2", "UCS-2", ucs2, true, true},
    alias{"ucs-2be", "iso-10646-ucs-2", "UCS-2BE", ucs2},
    alias{"ucs-2le", "iso-10646-ucs-2", "UCS-2LE", ucs2, false},
    alias{"iso-10646-ucs-2", "iso-10646-ucs-2", "UCS-2", ucs2, true, true},
    alias{"iso-10646-ucs-2be", "iso-10646-ucs-2", "UCS-2BE", ucs2},
    alias{"iso-10646-ucs-2le", "iso-10646-ucs-2", "UCS-2LE", ucs2, false},
    alias{"ucs-4", "iso-10646-ucs-4", "UCS-4", ucs4, true, true},
    alias{"ucs-4be", "iso-10646-ucs-4", "UCS-4BE", ucs4},
    alias{"ucs-4le", "iso-10646-ucs-4", "UCS-4LE", ucs4, false},
    alias{"utf-32", "iso-10646-ucs-4", "UTF-32", ucs4, true, true},
    alias{"utf-32be", "iso-10646-ucs-4", "UTF-32BE", ucs4},
    alias{"utf-32le", "iso-10646-ucs-4", "UTF-32LE", ucs4, false},
    alias{"iso-10646-ucs-4", "iso-10646-ucs-4", "UCS-4", ucs4, true, true},
    alias{"iso-10646-ucs-4be", "iso-10646-ucs-4", "UCS-4BE", ucs4},
    alias{"iso-10646-ucs-4le", "iso-10646-ucs-4", "UCS-4LE", ucs4, false},
};

constexpr char fold(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool is_separator(char c) {
    return c == '-' || c == '_' || c == ' ';
}

// Case and separators do not tell names apart.
std::string plain_name(std::string_view name) {
    std::string plain;
    for (const char c : name) {
        if (!is_separator(c)) {
            plain += fold(c);
        }
    }
    return plain;
}

const alias* find_alias(std::string_view name) {
    const std::string plain = plain_name(name);
    const auto* found = std::ranges::find_if(
        aliases, [&](const alias& row) { return plain_name(row.name) == plain; });
    return found == aliases.end() ? nullptr : found;
}

// Letters and digits apart: a wrong letter is a slip, but another number is another charset.
std::string digits_of(std::string_view name) {
    std::string digits;
    std::ranges::copy_if(name, std::back_inserter(digits),
                         [](char c) { return c >= '0' && c <= '9'; });
    return digits;
}

} // namespace

std::size_t charset_name::unit_bytes() const {
    if (form == unicode_form::ucs4) {
        return 4;
    }
    const bool two = form == unicode_form::utf16 || form == unicode_form::ucs2 ||
                     library == "euc-jp-fix" || library == "oasys-online";
    return two ? 2 : 1;
}

bool charset_name::is_iso2022() const {
    return library == "iso-2022-jp" || library == "iso-2022-jp-2004";
}

bool charset_name::is_jis_x0213() const {
    return library == "shift_jis-2004" || library == "euc-jis-2004" ||
           library == "iso-2022-jp-2004";
}

bool charset_name::is_japanese() const {
    return is_iso2022() || is_jis_x0213() || library.starts_with("euc-jp") ||
           library.starts_with("oasys-") || library == "shift_jis" || library == "windows31j";
}

charset_name resolve_charset(std::string_view name) {
    const alias* found = find_alias(name);
    if (found == nullptr) {
        std::string folded(name);
        std::ranges::transform(folded, folded.begin(), fold);
        return {.shown = std::string(name), .library = std::move(folded)};
    }
    const auto* first = std::ranges::find_if(aliases, [&](const alias& row) {
        return found->shown.empty() && row.library == found->library;
    });
    return {.shown = std::string(first == aliases.end() ? found->shown : first->shown),
            .library = std::string(found->library),
            .form = found->form,
            .big_endian = found->big_endian,
            .marked = found->marked};
}

bool same_name(std::string_view a, std::string_view b) {
    return plain_name(a) == plain_name(b);
}

std::size_t spelling_distance(std::string_view a, std::string_view b) {
    std::vector<std::vector<std::size_t>> cost(a.size() + 1,
                                               std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1,
                                   cost[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
            }
        }
    }
    return cost[a.size()][b.size()];
}

std::string similar_name(std::string_view name) {
    const std::string plain = plain_name(name);
    constexpr std::size_t longest = 40;
    if (plain.size() > longest) {
        return {};
    }
    const std::string digits = digits_of(plain);
    constexpr std::size_t long_word = 6; // in shorter ones two changes make another name
    const alias* best = nullptr;
    std::size_t least = plain.size() - digits.size() < long_word ? 2 : 3;
    for (const alias& row : aliases) {
        const std::string known = plain_name(row.name);
        if (!digits.empty() && digits_of(known) != digits) {
            continue;
        }
        // A word put before or behind a name counts little.
        const bool within = known.size() > 3 && plain.find(known) != std::string::npos;
        const std::size_t changes = within ? 1 : spelling_distance(plain, known);
        if (changes < least) {
            least = changes;
            best = &row;
        }
    }
    return best == nullptr ? std::string() : resolve_charset(best->name).shown;
}

std::vector<std::string_view> other_names(std::string_view library) {
    std::vector<std::string_view> names;
    for (const alias& row : aliases) {
        if (row.library == library && row.name != library) {
            names.push_back(row.name);
        }
    }
    return names;
}

std::size_t charset_rank(std::string_view library) {
    const auto* first = std::ranges::find(aliases, library, &alias::library);
    return static_cast<std::size_t>(first - aliases.begin());
}

int code_page(std::string_view library) {
    constexpr std::array<std::pair<std::string_view, int>, 4> pages = {
        {{"windows31j", 932}, {"chinesegbk", 936}, {"koreanksc", 949}, {"chinesebig5", 950}}};
    const auto* found = std::ranges::find(pages, library, &std::pair<std::string_view, int>::first);
    return found == pages.end() ? 0 : found->second;
}

} // namespace tool
