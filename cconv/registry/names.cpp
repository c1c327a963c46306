// The fixed numbers of charsets and coded sets.
#include "cconv/registry/names.h"

namespace {

constexpr u32 first_hashed_number = 4000;

} // namespace

extern "C" {

const group_row groupList[31] = {
    {"shift_jis", PVZAN_SHIFT_JIS},
    {"windows31j", PVZAN_WINDOWS_31J},
    {"iso-10646-ucs-2", PVZAN_UCS_2},
    {"iso-10646-ucs-4", PVZAN_UCS_4},
    {"utf-16", PVZAN_UTF_16},
    {"utf-8", PVZAN_UTF_8},
    {"euc-jp", PVZAN_EUC_JP},
    {"euc-jp-fix", PVZAN_EUC_JP_FIX},
    {"iso-2022-jp", PVZAN_ISO_2022_JP},
    {"shift_jis-2004", PVZAN_SHIFT_JIS_2004},
    {"euc-jis-2004", PVZAN_EUC_JIS_2004},
    {"iso-2022-jp-2004", PVZAN_ISO_2022_JP_2004},
    {"iso-646irv", PVZAN_SET_ISO_646_IRV},
    {"jis_x0201latin", PVZAN_SET_JIS_X_0201_LATIN},
    {"jis_x0201kana", PVZAN_SET_JIS_X_0201_KANA},
    {"jis_c6226-1978", PVZAN_SET_JIS_C_6226_1978},
    {"jis_x0208-1983", PVZAN_SET_JIS_X_0208_1983},
    {"jis_x0208-1990", PVZAN_SET_JIS_X_0208_1990},
    {"jis_x0212-1990", PVZAN_SET_JIS_X_0212_1990},
    {"nec_extset", PVZAN_SET_NEC_EXT},
    {"ibm_extset", PVZAN_SET_IBM_EXT},
    {"jis-78-83", PVZAN_SET_JIS_78_83},
    {"jis_x0213", PVZAN_SET_JIS_X_0213},
    {"windows31j-usr", PVZAN_SET_WINDOWS_31J_USER},
    {"windowsntj-usr", PVZAN_SET_WINDOWS_NTJ_USER},
    {"oasys_extset", PVZAN_SET_OASYS_EXT},
    {"oasys2_extset", PVZAN_SET_OASYS2_EXT},
    {"chinesegbk", PVZAN_CHINESE_GBK},
    {"chinesebig5", PVZAN_CHINESE_BIG5},
    {"koreanksc", PVZAN_KOREAN_KSC},
    {"gb18030", PVZAN_GB18030},
};

u32 TheCreateNo(char* name) {
    fold_text(name);
    return group_number(name);
}

// Most names differ in their first two bytes. The second byte is looked at only if the first is not
// a NUL.
u32 byteCmp(const char* a, const char* b) {
    if (a[0] != b[0]) {
        return 0;
    }
    if (a[0] == '\0') {
        return 1;
    }
    return a[1] == b[1] && std::strcmp(a, b) == 0;
}

} // extern "C"

bool same_name(const char* a, const char* b) {
    while (*a != '\0' && fold_ascii(*a) == fold_ascii(*b)) {
        ++a;
        ++b;
    }
    return *a == *b;
}

u32 group_number(const char* name) {
    for (const group_row& row : groupList) {
        if (same_name(name, row.name)) {
            return row.number;
        }
    }
    u32 hash = first_hashed_number;
    for (u32 position = 1; *name != '\0'; ++name, ++position) {
        hash += static_cast<u8>(fold_ascii(*name)) * position;
    }
    return hash;
}
