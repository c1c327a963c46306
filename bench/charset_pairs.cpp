#include "bench/charset_pairs.h"

namespace bench {

namespace {

// The peers' names are those of the same repertoire; for UCS-2 they have UTF-16, which is the same
// for these texts.
constexpr charset ucs_2le{"iso-10646-ucs-2le", "UCS-2LE", "UTF-16LE", "utf-16le", "utf-16-le"};
constexpr charset ucs_4le{"iso-10646-ucs-4le", "UCS-4LE", "UTF-32LE", nullptr, "utf-32-le"};
constexpr charset windows31j{"windows31j", "CP932", "ibm-943_P15A-2003", "shift_jis", "cp932"};
constexpr charset iso_2022_jp{"iso-2022-jp", "ISO-2022-JP", "ISO-2022-JP", "iso-2022-jp",
                              "iso2022_jp"};
constexpr charset shift_jis_2004{"shift_jis-2004", "SHIFT_JISX0213", nullptr, nullptr,
                                 "shift_jis_2004"};
constexpr charset euc_jis_2004{"euc-jis-2004", "EUC-JISX0213", nullptr, nullptr, "euc_jis_2004"};
constexpr charset gbk{"chinesegbk", "GBK", "windows-936", "gbk", "gbk"};
constexpr charset big5{"chinesebig5", "CP950", "windows-950-2000", "big5", "cp950"};
constexpr charset cp51932{"cp51932", "EUC-JP-MS", "euc-jp-2007", "euc-jp", "euc_jp"};
constexpr charset eucjp_ms{"eucjp-ms", "EUC-JP-MS", "euc-jp-2007", nullptr, "euc_jp"};
constexpr charset hkscs{"big5-hkscs", "BIG5-HKSCS", "ibm-1375_P100-2008", "big5", "big5hkscs"};
constexpr charset ksc{"koreanksc", "UHC", "windows-949", "euc-kr", "cp949"};
constexpr charset windows_1252{"windows-1252", "CP1252", "windows-1252", "windows-1252", "cp1252"};
constexpr charset koi8_r{"koi8-r", "KOI8-R", "KOI8-R", "koi8-r", "koi8_r"};
constexpr charset iso_2022_kr{"iso-2022-kr", "ISO-2022-KR", "ISO-2022-KR", nullptr, "iso2022_kr"};
constexpr charset utf_7{"utf-7", "UTF-7", "UTF-7", nullptr, "utf-7"};

constexpr char japanese[] = "ja-dense ja-prose ascii";
constexpr char japanese_2004[] = "ja-dense ja-prose ja-jis2004 ascii";
constexpr char simplified_chinese[] = "zh_cn-dense zh_cn-prose ascii";
constexpr char traditional_chinese[] = "zh_tw-dense zh_tw-prose ascii";
constexpr char korean[] = "ko-dense ko-prose ascii";

constexpr measured_pair pairs[] = {
    {{shift_jis, utf_8}, kind::legacy, japanese},
    {{utf_8, shift_jis}, kind::legacy, japanese},
    {{windows31j, utf_8}, kind::legacy, japanese},
    {{utf_8, windows31j}, kind::legacy, japanese},
    {{euc_jp, utf_8}, kind::legacy, japanese},
    {{utf_8, euc_jp}, kind::legacy, japanese},
    {{iso_2022_jp, utf_8}, kind::legacy, japanese},
    {{utf_8, iso_2022_jp}, kind::legacy, japanese},
    {{shift_jis_2004, utf_8}, kind::legacy, japanese_2004},
    {{utf_8, shift_jis_2004}, kind::legacy, japanese_2004},
    {{euc_jis_2004, utf_8}, kind::legacy, japanese_2004},
    {{utf_8, euc_jis_2004}, kind::legacy, japanese_2004},
    {{cp51932, utf_8}, kind::legacy, japanese},
    {{utf_8, cp51932}, kind::legacy, japanese},
    {{eucjp_ms, utf_8}, kind::legacy, japanese},
    {{utf_8, eucjp_ms}, kind::legacy, japanese},
    {{gbk, utf_8}, kind::legacy, simplified_chinese},
    {{utf_8, gbk}, kind::legacy, simplified_chinese},
    {{gb18030, utf_8}, kind::legacy, simplified_chinese},
    {{utf_8, gb18030}, kind::legacy, simplified_chinese},
    {{big5, utf_8}, kind::legacy, traditional_chinese},
    {{utf_8, big5}, kind::legacy, traditional_chinese},
    {{hkscs, utf_8}, kind::legacy, traditional_chinese},
    {{utf_8, hkscs}, kind::legacy, traditional_chinese},
    {{ksc, utf_8}, kind::legacy, korean},
    {{utf_8, ksc}, kind::legacy, korean},
    {{iso_2022_kr, utf_8}, kind::legacy, korean},
    {{utf_8, iso_2022_kr}, kind::legacy, korean},
    {{windows_1252, utf_8}, kind::legacy, "fr-dense fr-prose"},
    {{utf_8, windows_1252}, kind::legacy, "fr-dense fr-prose"},
    {{koi8_r, utf_8}, kind::legacy, "ru-dense ru-prose"},
    {{utf_8, koi8_r}, kind::legacy, "ru-dense ru-prose"},
    {{utf_7, utf_8}, kind::unicode, "ja-dense ja-prose"},
    {{utf_8, utf_7}, kind::unicode, "ja-dense ja-prose"},
    {{shift_jis, euc_jp}, kind::legacy, japanese},
    {{euc_jp, shift_jis}, kind::legacy, japanese},
    {{shift_jis, utf_16le}, kind::legacy, japanese},
    {{utf_16le, shift_jis}, kind::legacy, japanese},
    {{utf_8, utf_16le}, kind::unicode, japanese},
    {{utf_16le, utf_8}, kind::unicode, japanese},
    {{utf_8, ucs_2le}, kind::unicode, japanese},
    {{ucs_2le, utf_8}, kind::unicode, japanese},
    {{utf_8, ucs_4le}, kind::unicode, japanese},
    {{ucs_4le, utf_8}, kind::unicode, japanese},
};

} // namespace

std::span<const measured_pair> measured_pairs() {
    return pairs;
}

} // namespace bench
