// The list of names. Each row is a charset in one form, with the names that mean it: those of the
// IANA registry and the WHATWG's labels, of iconv, ICU, nkf, Python, Java, and the numbers of code
// pages. A name means what the standard behind it defines. Where that charset is none of ours but
// another holds all of it, the name means that one, and is not exact; what may mean two is refused.
#include "text/names.h"

#include "cconv/convert/lifecycle.h"
#include "cconv/registry/further.h"
#include "cconv/registry/names.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/rulefunc/traits.h"
#include "text/directory.h"
#include "text/record.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace text {

namespace {

struct row {
    const char *charset, *shown;
    const char* names; // shown is one, too; parted by blanks
    u8 kind = PVZAN_KIND_OTHER;
    u8 order = PVZAN_ORDER_BY_NAME;
    u8 mark = 0;
    bool exact = true;
};

constexpr u8 big = PVZAN_ORDER_BIG, little = PVZAN_ORDER_LITTLE;

// Those that people name most come first; of one charset, the one whose name messages use.
constexpr std::array rows = {
    row{"utf-8", "UTF-8",
        "65001 cp65001 windows-65001 csUTF8 u8 utf utf-8n utf-8-strict unicode-1-1-utf-8 "
        "unicode-2-0-utf-8 iso-ir-193 iso-10646/utf-8 cp1208 ibm-1208 utf8-ucs2 utf8-ucs4 "
        "x-unicode20utf8 x-utf_8j",
        PVZAN_KIND_UTF_8},
    row{"utf-8", "UTF-8-SIG", "utf-8-bom", PVZAN_KIND_UTF_8, PVZAN_ORDER_BY_NAME, 2},
    row{"utf-16", "UTF-16", "csUTF16 u16 ibm-1204", PVZAN_KIND_UTF_16, big, 1},
    row{"utf-16", "UTF-16BE",
        "1201 cp1201 windows-1201 csUTF16BE x-utf-16be utf16_bigendian utf16_oppositeendian "
        "unicodebigunmarked unicodefffe ibm-1200",
        PVZAN_KIND_UTF_16, big},
    row{"utf-16", "UTF-16LE",
        "1200 windows-1200 csUTF16LE x-utf-16le utf16_littleendian utf16_platformendian "
        "unicodelittleunmarked unicodefeff ibm-1202",
        PVZAN_KIND_UTF_16, little},
    row{"utf-16", "UTF-16BE-BOM", "", PVZAN_KIND_UTF_16, big, 2},
    row{"utf-16", "UTF-16LE-BOM", "x-utf-16le-bom", PVZAN_KIND_UTF_16, little, 2},
    row{"shift_jis", "Shift_JIS", "sjis x-sjis csShiftJIS s-jis"},
    row{"windows31j", "Windows-31J",
        "cp932 ms932 932 windows-932 sjis-win csWindows31J x-ms-cp932 sjis-ms sjis-open "
        "ibm-943_p15a-2003"},
    row{"windows31j", "Windows-31J", "ms-kanji pck", PVZAN_KIND_OTHER, 0, 0, false},
    row{"euc-jp", "EUC-JP",
        "ujis x-euc-jp euc eucjis u-jis 20932 cp20932 windows-20932 euc-jp-2007 "
        "csEUCPkdFmtJapanese extended_unix_code_packed_format_for_japanese"},
    row{"euc-jp-fix", "EUC-JP-FIX",
        "csEUCFixWidJapanese extended_unix_code_fixed_width_for_japanese"},
    row{"iso-2022-jp", "ISO-2022-JP", "jis csISO2022JP"},
    row{"shift_jis-2004", "Shift_JIS-2004",
        "sjis-2004 shift_jisx0213 s-jis-2004 s-jisx0213 shift_jis:2004 shift_jis_0213:2004 "
        "sjisx0213 sjis-0213 sjis:2004 sjis_0213:2004 x-sjis_0213"},
    row{"euc-jis-2004", "EUC-JIS-2004", "euc-jisx0213 euc-jp-2004 jisx0213"},
    row{"iso-2022-jp-2004", "ISO-2022-JP-2004", ""},
    row{"iso-646irv", "ASCII",
        "us-ascii us iso-646irv 646 iso646-us ascii7 csASCII 20127 cp20127 windows-20127 cp367 "
        "ibm-367 iso-ir-6 ansi_x3.4-1968 ansi_x3.4-1986 ansi-x3-4-1968 iso_646.irv:1991 "
        "iso_646.irv:1983 iso-646.irv-1991"},
    row{"iso-8859-1", "ISO-8859-1",
        "latin1 l1 latin iso8859 8859 8859_1 819 cp819 ibm-819 28591 cp28591 windows-28591 "
        "csISOLatin1 iso-ir-100 iso_8859-1:1987 iso-8859-1-1987"},
    row{"chinesegbk", "GBK",
        "chinesegbk cp936 ms936 936 windows-936 windows-936-2000 csGBK gb13000 x-mswin-936"},
    row{"chinesegbk", "GBK",
        "gb2312 euc-cn x-euc-cn gb2312-1980 gb2312-80 csGB2312 csISO58GB231280 chinese iso-ir-58 "
        "cn-gb eucgb2312-cn hp15cn 20936 51936 cp20936 cp51936 windows-20936 windows-51936 1383 "
        "cp1383 ibm-1383",
        PVZAN_KIND_OTHER, 0, 0, false},
    row{"gb18030", "GB18030",
        "csGB18030 54936 cp54936 windows-54936 gb18030-2000 gb18030-2022 ibm-1392"},
    row{"chinesebig5", "Big5",
        "chinesebig5 cp950 ms950 950 windows-950 windows-950-2000 csBig5 big-five big5-tw cn-big5 "
        "x-big5 x-x-big5 ibm-950"},
    row{"koreanksc", "EUC-KR",
        "euc-kr x-euc-kr csEUCKR ks_c_5601-1987 ks_c_5601-1989 ksc5601 csKSC56011987 iso-ir-149 "
        "korean ks-x-1001 20949 51949 cp20949 cp51949 windows-20949 windows-51949 970 cp970 "
        "ibm-970 5601",
        PVZAN_KIND_OTHER, 0, 0, false},
    row{"koreanksc", "Windows-949",
        "koreanksc uhc cp949 ms949 949 windows-949-2000 mscp949 x-ksc5601 x-windows-949"},
    row{"oasys-win", "OASYS-WIN", ""},
    row{"oasys-online", "OASYS-ONLINE", ""},
    row{"iso-10646-ucs-2", "UCS-2", "iso-10646-ucs-2 csUnicode iso-10646/ucs2", PVZAN_KIND_UCS_2,
        big, 1},
    row{"iso-10646-ucs-2", "UCS-2BE", "iso-10646-ucs-2be byte2be csUnicode11 unicode-1-1",
        PVZAN_KIND_UCS_2, big},
    row{"iso-10646-ucs-2", "UCS-2LE", "iso-10646-ucs-2le byte2le", PVZAN_KIND_UCS_2, little},
    row{"iso-10646-ucs-4", "UCS-4", "iso-10646-ucs-4 csUCS4", PVZAN_KIND_UCS_4, big, 1},
    row{"iso-10646-ucs-4", "UCS-4BE",
        "iso-10646-ucs-4be byte4be 10646-1:1993 10646-1:1993/ucs4 iso-10646/ucs4", PVZAN_KIND_UCS_4,
        big},
    row{"iso-10646-ucs-4", "UCS-4LE", "iso-10646-ucs-4le byte4le", PVZAN_KIND_UCS_4, little},
    row{"iso-10646-ucs-4", "UTF-32", "csUTF32 u32 ibm-1236", PVZAN_KIND_UCS_4, big, 1},
    row{"iso-10646-ucs-4", "UTF-32BE",
        "12001 cp12001 windows-12001 csUTF32BE x-utf-32be utf32_bigendian utf32_oppositeendian "
        "ibm-1232",
        PVZAN_KIND_UCS_4, big},
    row{"iso-10646-ucs-4", "UTF-32LE",
        "12000 cp12000 windows-12000 csUTF32LE x-utf-32le utf32_littleendian "
        "utf32_platformendian ibm-1234",
        PVZAN_KIND_UCS_4, little},
    row{"iso-10646-ucs-4", "UTF-32BE-BOM", "x-utf-32be-bom", PVZAN_KIND_UCS_4, big, 2},
    row{"iso-10646-ucs-4", "UTF-32LE-BOM", "x-utf-32le-bom", PVZAN_KIND_UCS_4, little, 2},
};

// What the labels mean to browsers where that is something else. Of what we lack the very charset,
// those that are held by one of ours are not exact; an empty charset: none holds it.
constexpr std::array browser_rows = {
    row{"windows31j", "Windows-31J", "shift_jis sjis x-sjis csShiftJIS ms-kanji"},
    row{"koreanksc", "Windows-949",
        "euc-kr csEUCKR ks_c_5601-1987 ks_c_5601-1989 ksc5601 csKSC56011987 iso-ir-149 korean"},
    row{"utf-16", "UTF-16LE", "utf-16 ucs-2 csUnicode iso-10646-ucs-2 unicode", PVZAN_KIND_UTF_16,
        little},
    row{"gb18030", "GB18030",
        "gbk x-gbk gb2312 gb_2312-80 csGB2312 csISO58GB231280 chinese iso-ir-58", PVZAN_KIND_OTHER,
        0, 0, false},
    row{"", "Windows-1252",
        "iso-8859-1 latin1 l1 ascii us-ascii ansi_x3.4-1968 cp819 ibm819 csISOLatin1 iso-ir-100 "
        "iso_8859-1:1987"},
};

constexpr bool is_separator(char c) {
    return c == '-' || c == '_' || c == ' ';
}

// A letter or digit that counts, and what comes behind it; NUL at the end.
constexpr char next_plain(const char*& text, const char* end) {
    while (text != end && is_separator(*text)) {
        ++text;
    }
    return text == end || *text == '\0' ? '\0' : fold_ascii(*text++);
}

constexpr bool same_name(std::string_view a, std::string_view b) {
    const char *p = a.data(), *q = b.data();
    for (;;) {
        const char c = next_plain(p, a.data() + a.size());
        if (c != next_plain(q, b.data() + b.size())) {
            return false;
        }
        if (c == '\0') {
            return true;
        }
    }
}

constexpr u32 hash_of(std::string_view name) {
    u32 hash = 2166136261U;
    const char* p = name.data();
    while (const char c = next_plain(p, name.data() + name.size())) {
        hash = (hash ^ static_cast<u8>(c)) * 16777619U;
    }
    return hash;
}

// The names of a row, one after the other; shown is the first.
class names_of {
public:
    constexpr explicit names_of(const row& r)
        : next_(*r.shown != '\0' ? r.shown : r.names), rest_(r.names), first_(*r.shown != '\0') {}
    constexpr bool read(std::string_view& name) {
        name = next_.substr(0, first_ ? next_.size() : next_.find(' '));
        if (name.empty()) {
            return false;
        }
        next_ = first_ ? rest_ : next_.substr(std::min(name.size() + 1, next_.size()));
        first_ = false;
        return true;
    }

private:
    std::string_view next_, rest_;
    bool first_; // shown, which is one name whatever is in it
};

struct known_name {
    u32 hash;
    u16 row;
};

constexpr std::size_t count_names() {
    std::size_t count = 0;
    for (const row& r : rows) {
        names_of names(r);
        for (std::string_view name; names.read(name);) {
            ++count;
        }
    }
    return count;
}

// All names by their hashes, so that one is found without a look at the others.
constexpr auto index_names() {
    std::array<known_name, count_names()> index{};
    std::size_t at = 0;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        names_of names(rows[i]);
        for (std::string_view name; names.read(name);) {
            index[at++] = {hash_of(name), static_cast<u16>(i)};
        }
    }
    std::ranges::sort(index, [](const known_name& a, const known_name& b) {
        return a.hash != b.hash ? a.hash < b.hash : a.row < b.row;
    });
    return index;
}
constexpr auto known_names = index_names();

bool is_in(const row& r, std::string_view name) {
    names_of names(r);
    for (std::string_view listed; names.read(listed);) {
        if (same_name(listed, name)) {
            return true;
        }
    }
    return false;
}

const row* find_row(std::string_view name, u32 flags) {
    if ((flags & PVZAN_BROWSER_LABELS) != 0) {
        const auto* found = std::ranges::find_if(browser_rows, [=](const row& r) {
            return is_in({"", "", r.names}, name);
        });
        if (found != browser_rows.end()) {
            return found;
        }
    }
    const u32 hash = hash_of(name);
    for (const auto* at = std::ranges::lower_bound(known_names, hash, {}, &known_name::hash);
         at != known_names.end() && at->hash == hash; ++at) {
        if (is_in(rows[at->row], name)) {
            return &rows[at->row];
        }
    }
    return nullptr;
}

void fill_in(const row& r, pvzan_name& meaning) {
    meaning.kind = r.kind;
    meaning.unit = r.kind == PVZAN_KIND_UCS_4                                  ? 4
                   : r.kind == PVZAN_KIND_UTF_16 || r.kind == PVZAN_KIND_UCS_2 ? 2
                                                                               : 1;
    meaning.order = r.order != PVZAN_ORDER_BY_NAME ? r.order : big;
    meaning.mark = r.mark;
    meaning.exact = r.exact ? 1 : 0;
    copy_text(meaning.charset, r.charset);
    copy_text(meaning.shown, r.shown);
}

// ---- Names that are like others ----------------------------------------------------------------

constexpr std::size_t longest_likened = 40;

// A name without what does not count; digits apart, for another number is another charset.
struct plain_text {
    char letters[longest_likened], digits[longest_likened];
    std::size_t size = 0, digit_count = 0;

    explicit plain_text(std::string_view name) {
        const char* p = name.data();
        while (const char c = next_plain(p, name.data() + name.size())) {
            if (size == longest_likened) {
                size = 0;
                return;
            }
            letters[size++] = c;
            if (c >= '0' && c <= '9') {
                digits[digit_count++] = c;
            }
        }
    }
    [[nodiscard]] std::string_view all() const { return {letters, size}; }
    [[nodiscard]] std::string_view number() const { return {digits, digit_count}; }
};

// Letters to add, drop, change or swap to make one word of the other.
u32 spelling_distance(std::string_view a, std::string_view b) {
    u32 cost[longest_likened + 1][longest_likened + 1];
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = static_cast<u32>(i + j);
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

const char* similar_name(std::string_view name) {
    const plain_text asked(name);
    constexpr std::size_t long_word = 6; // in shorter ones two changes make another name
    u32 least = asked.size - asked.digit_count < long_word ? 2 : 3;
    const char* best = "";
    for (const row& r : rows) {
        names_of names(r);
        for (std::string_view listed; asked.size > 0 && names.read(listed);) {
            const plain_text known(listed);
            if (known.size == 0 || (asked.digit_count > 0 && known.number() != asked.number())) {
                continue;
            }
            // A word put before or behind a name counts little.
            const bool within =
                known.size > 3 && asked.all().find(known.all()) != std::string_view::npos;
            const u32 changes = within ? 1 : spelling_distance(asked.all(), known.all());
            if (changes < least) {
                least = changes;
                best = r.shown;
            }
        }
    }
    return best;
}

// Whether the directory has it, without a look at the definition of a further one.
bool is_defined(const char* charset) {
    return std::ranges::binary_search(further_names(), std::string_view(charset), {},
                                      [](const char* name) { return std::string_view(name); }) ||
           registered_group(charset) != nullptr;
}

bool is_read_at_start(const char* charset) {
    for (const charset_group* group : items_of<charset_group>(g_ProcessObject.groups)) {
        if (std::strcmp(group->name, charset) == 0) {
            return true;
        }
    }
    return false;
}

// The first row of each charset.
constexpr auto first_rows = [] {
    std::array<bool, rows.size()> first{};
    for (std::size_t i = 0; i < rows.size(); ++i) {
        first[i] = std::ranges::find_if(rows, [&](const row& other) {
                       return std::string_view(other.charset) == rows[i].charset;
                   }) == rows.begin() + i;
    }
    return first;
}();

} // namespace

charset_group* find_group(const char* charset) {
    return find_charset(charset);
}

void shown_name(const char* charset, char (&shown)[64]) {
    const auto* found = std::ranges::find_if(
        rows, [=](const row& r) { return r.exact && std::string_view(r.charset) == charset; });
    copy_text(shown, found != rows.end() ? found->shown : charset);
}

void describe_codes(const charset_group* group, const rule_row* decoder, pvzan_name& meaning) {
    const codec_traits* traits =
        decoder != nullptr ? traits_of_decoder(decoder->function) : nullptr;
    if (traits == nullptr) {
        return;
    }
    bool two_bytes = !member_sets(group).empty();
    for (const basic_set* set : member_sets(group)) {
        two_bytes = two_bytes && set->byteNum == 2;
    }
    meaning.kind = PVZAN_KIND_OTHER;
    meaning.unit = 1;
    switch (traits->read) {
    case reading::utf8: meaning.kind = PVZAN_KIND_UTF_8; break;
    case reading::utf16: meaning.kind = PVZAN_KIND_UTF_16; break;
    case reading::ucs2: meaning.kind = PVZAN_KIND_UCS_2; break;
    case reading::ucs4: meaning.kind = PVZAN_KIND_UCS_4; break;
    case reading::sets: meaning.unit = two_bytes ? 2 : 1; return;
    case reading::pairs: meaning.unit = 2; return;
    case reading::lead_byte:
    case reading::escapes:
    case reading::scanned: return;
    }
    meaning.unit = meaning.kind == PVZAN_KIND_UTF_8 ? 1 : meaning.kind == PVZAN_KIND_UCS_4 ? 4 : 2;
}

bool resolve(const char* name, u32 flags, pvzan_name& meaning) {
    meaning = {};
    if (name == nullptr) {
        return false;
    }
    const std::size_t longest = sizeof meaning.charset - 1, length = ::strnlen(name, longest + 1);
    if (length > longest) {
        return false;
    }
    if (const row* found = find_row({name, length}, flags)) {
        fill_in(*found, meaning);
        return found->charset[0] != '\0';
    }
    if (settle_directory(nullptr) && find_group(name) != nullptr) {
        meaning.order = big;
        meaning.exact = 1;
        copy_text(meaning.charset, name);
        fold_text(meaning.charset);
        copy_text(meaning.shown, name);
        return true;
    }
    copy_text(meaning.shown, similar_name({name, length}));
    return false;
}

void describe_codes(const charset_group* group, pvzan_name& meaning) {
    if (group != nullptr) {
        describe_codes(group, TheRule(group->destRule), meaning);
    }
}

} // namespace text

using namespace text;

extern "C" {

int32_t pvzan_resolve(const char* name, uint32_t flags, pvzan_name* meaning) {
    if (!is_record(meaning)) {
        return 0;
    }
    pvzan_name found;
    const bool known = resolve(name, flags, found);
    if (known && settle_directory(nullptr)) {
        describe_codes(find_group(found.charset), found);
    }
    fill_record(*meaning, found);
    return known ? 1 : 0;
}

int32_t pvzan_each_charset(size_t index, pvzan_name* charset) {
    if (!is_record(charset) || !settle_directory(nullptr)) {
        return 0;
    }
    pvzan_name found = {};
    const auto give = [&] {
        describe_codes(registered_group(found.charset), found);
        fill_record(*charset, found);
        return 1;
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const row& r = rows[i];
        if (first_rows[i] && is_defined(r.charset) && index-- == 0) {
            fill_in(r, found);
            found.exact = 1;
            shown_name(r.charset, found.shown);
            return give();
        }
    }
    const auto is_next = [&](const char* name) {
        const bool listed = std::ranges::any_of(
            rows, [=](const row& r) { return std::string_view(r.charset) == name; });
        if (listed || index-- != 0) {
            return false;
        }
        found.order = big;
        found.exact = found.unit = 1;
        copy_text(found.charset, name);
        copy_text(found.shown, name);
        return true;
    };
    for (const charset_group* group : items_of<charset_group>(g_ProcessObject.groups)) {
        if (is_next(group->name)) {
            return give();
        }
    }
    for (const char* name : further_names()) {
        if (!is_read_at_start(name) && is_next(name)) {
            return give();
        }
    }
    return 0;
}

int32_t pvzan_each_name(const char* charset, size_t index, char* name, size_t room) {
    if (charset == nullptr || name == nullptr) {
        return 0;
    }
    for (const row& r : rows) {
        names_of names(r);
        for (std::string_view listed;
             std::string_view(r.charset) == charset && names.read(listed);) {
            if (index-- == 0) {
                if (listed.size() >= room) {
                    return 0;
                }
                std::ranges::copy(listed, name);
                name[listed.size()] = '\0';
                return 1;
            }
        }
    }
    return 0;
}

} // extern "C"
