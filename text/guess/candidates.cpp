#include "text/guess/candidates.h"

#include <cstdlib>

namespace text {

namespace {
constexpr auto many = structure::several_bytes;
constexpr auto one = structure::single_byte;
constexpr const char *western = "en de fr es it pt nl da sv nb fi is ca",
                     *central = "pl cs sk hu ro hr sl", *baltic = "et lt lv",
                     *cyrillic = "ru uk bg sr be",
                     *any = "en de fr es it pt nl da sv nb fi is ca "
                            "pl cs sk hu ro hr sl et lt lv tr vi ru "
                            "uk bg sr be el he ar th ja ko zh_CN "
                            "zh_TW";
} // namespace

// Those of a family stand in the order in which they are believed.
const charset_row charset_rows[] = {
    {"utf-8", many, family::none, 0, any},
    {"windows-31j", many, family::shift_jis, 0, "ja"},
    {"shift_jis", many, family::shift_jis, 6, "ja"},
    {"cp943", many, family::shift_jis, 8, "ja"},
    {"shift_jis-2004", many, family::shift_jis, 8, "ja"},
    {"macjapanese", many, family::shift_jis, 12, "ja"},
    {"euc-jp", many, family::euc_jp, 0, "ja"},
    {"cp51932", many, family::euc_jp, 0, "ja"},
    {"eucjp-ms", many, family::euc_jp, 2, "ja"},
    {"euc-jis-2004", many, family::euc_jp, 8, "ja"},
    {"gbk", many, family::gbk, 0, "zh_CN"},
    {"gb18030", many, family::gbk, 2, "zh_CN"},
    {"cp950", many, family::big5, 0, "zh_TW"},
    {"big5-hkscs", many, family::big5, 4, "zh_TW"},
    {"euc-tw", many, family::none, 10, "zh_TW"},
    {"cp949", many, family::korean, 0, "ko"},
    {"johab", many, family::none, 10, "ko"},
    {"windows-1252", one, family::windows_1252, 0, western},
    {"iso-8859-1", one, family::windows_1252, 1, western},
    {"iso-8859-15", one, family::none, 3, western},
    {"cp850", one, family::none, 8, western},
    {"cp858", one, family::none, 10, western},
    {"cp437", one, family::none, 8, western},
    {"macintosh", one, family::none, 10, western},
    {"cp860", one, family::none, 10, "pt"},
    {"cp861", one, family::none, 10, "is"},
    {"cp863", one, family::none, 10, "fr"},
    {"cp865", one, family::none, 10, "nb da"},
    {"iso-8859-10", one, family::none, 9, "sv nb is"},
    {"iso-8859-14", one, family::none, 10, "en"},
    {"windows-1250", one, family::windows_1250, 0, central},
    {"iso-8859-2", one, family::none, 1, central},
    {"cp852", one, family::none, 8, central},
    {"mac-centraleurope", one, family::none, 12, central},
    {"iso-8859-16", one, family::none, 9, "ro"},
    {"iso-8859-3", one, family::none, 9, "tr"},
    {"windows-1257", one, family::windows_1257, 1, baltic},
    {"iso-8859-13", one, family::none, 3, baltic},
    {"iso-8859-4", one, family::none, 6, baltic},
    {"cp775", one, family::none, 9, baltic},
    {"windows-1254", one, family::windows_1254, 1, "tr"},
    {"iso-8859-9", one, family::windows_1254, 2, "tr"},
    {"cp857", one, family::none, 9, "tr"},
    {"mac-turkish", one, family::none, 12, "tr"},
    {"windows-1258", one, family::none, 2, "vi"},
    {"viscii", one, family::none, 8, "vi"},
    {"windows-1251", one, family::windows_1251, 0, cyrillic},
    {"koi8-r", one, family::none, 0, "ru bg"},
    {"koi8-u", one, family::none, 1, "uk ru be"},
    {"iso-8859-5", one, family::none, 5, cyrillic},
    {"cp866", one, family::none, 4, "ru be"},
    {"cp855", one, family::none, 9, cyrillic},
    {"cp1125", one, family::none, 9, "uk"},
    {"koi8-ru", one, family::none, 9, "uk be"},
    {"mac-cyrillic", one, family::none, 10, cyrillic},
    {"windows-1253", one, family::windows_1253, 0, "el"},
    {"iso-8859-7", one, family::none, 1, "el"},
    {"cp737", one, family::none, 6, "el"},
    {"cp869", one, family::none, 9, "el"},
    {"mac-greek", one, family::none, 12, "el"},
    {"windows-1255", one, family::windows_1255, 0, "he"},
    {"iso-8859-8", one, family::windows_1255, 1, "he"},
    {"cp862", one, family::none, 6, "he"},
    {"windows-1256", one, family::windows_1256, 0, "ar"},
    {"iso-8859-6", one, family::none, 1, "ar"},
    {"cp864", one, family::none, 8, "ar"},
    {"windows-874", one, family::thai, 0, "th"},
    {"tis-620", one, family::thai, 1, "th"},
    {"iso-8859-11", one, family::thai, 2, "th"},
    {"armscii-8", one, family::none, 12, ""},
    {"georgian-academy", one, family::none, 12, ""},
    {"georgian-ps", one, family::none, 12, ""},
    {"iso-2022-jp", structure::escapes, family::none, 0, "ja"},
    {"cp50221", structure::escapes, family::none, 1, "ja"},
    {"iso-2022-jp-1", structure::escapes, family::none, 3, "ja"},
    {"iso-2022-jp-2", structure::escapes, family::none, 3, "ja"},
    {"iso-2022-jp-ms", structure::escapes, family::none, 4, "ja"},
    {"iso-2022-jp-2004", structure::escapes, family::none, 5, "ja"},
    {"iso-2022-jp-3", structure::escapes, family::none, 6, "ja"},
    {"iso-2022-kr", structure::escapes, family::none, 2, "ko"},
    {"iso-2022-cn", structure::escapes, family::none, 3, "zh_CN zh_TW"},
    {"utf-16le", structure::units, family::none, 0, any},
    {"utf-16be", structure::units, family::none, 0, any},
    {"utf-32le", structure::units, family::none, 0, any},
    {"utf-32be", structure::units, family::none, 0, any},
};
const u32 charset_count = sizeof charset_rows / sizeof *charset_rows;

void read_language(const char* name, char (&language)[8]) {
    const std::size_t word = std::strcspn(name, "_-.@");
    language[0] = '\0';
    if (word < 2 || word > 3) {
        return; // "C", "POSIX"
    }
    std::memcpy(language, name, word);
    language[word] = '\0';
    fold_text(language);
    if (std::strcmp(language, "zh") == 0) {
        const char* region = name + word;
        const bool traditional = std::strncmp(region + (*region != '\0'), "TW", 2) == 0 ||
                                 std::strncmp(region + (*region != '\0'), "HK", 2) == 0 ||
                                 std::strncmp(region + (*region != '\0'), "Hant", 4) == 0;
        copy_text(language, traditional ? "zh_TW" : "zh_CN");
    }
}

void user_language(char (&language)[8]) {
    language[0] = '\0';
    for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && *value != '\0') {
            read_language(value, language);
            return;
        }
    }
}

} // namespace text
