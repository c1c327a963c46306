// The names of the rules, and a list of the codecs' traits, which are defined next to the rules.
#include "cconv/registry/iso2022.h"
#include "cconv/registry/names.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/rulefunc/traits.h"

#include <algorithm>

namespace {

constexpr const codec_traits* codecs[] = {
    &same_traits,         &double_byte_traits,    &oasys_win_traits,   &oasys_online_traits,
    &shift_jis_traits,    &shift_jis_2004_traits, &windows31j_traits,  &euc_jp_traits,
    &euc_jis_2004_traits, &euc_jp_fix_traits,     &iso_2022_jp_traits, &iso_2022_jp_2004_traits,
    &iso_2022_traits,     &utf_7_traits,          &cesu_8_traits,      &utf_8_mac_traits,
    &utf_8_traits,        &utf_16_traits,         &ucs_4_traits,       &ucs_2_traits,
};

const codec_traits* find(rule_function rule, rule_function codec_traits::*direction) {
    for (const codec_traits* codec : codecs) {
        if (codec->*direction == rule) {
            return codec;
        }
    }
    return nullptr;
}

// The rules that were added after the fixed list.
rule_row further_rules[] = {
    {"constDOUBLE-BYTE", constDOUBLE_BYTE},
    {"destISO-2022", destISO_2022},
    {"constISO-2022", constISO_2022},
    {"destUTF-7", destUTF_7},
    {"constUTF-7", constUTF_7},
    {"destCESU-8", destCESU_8},
    {"constCESU-8", constCESU_8},
    {"destUTF-8-MAC", destUTF_8_MAC},
    {"constUTF-8-MAC", constUTF_8_MAC},
};

} // namespace

const codec_traits* traits_of_decoder(rule_function decode) {
    return find(decode, &codec_traits::decode);
}

const codec_traits* traits_of_encoder(rule_function encode) {
    return find(encode, &codec_traits::encode);
}

bool goes_by_iso2022(const char* rule) {
    const rule_row* row = TheRule(rule);
    return row != nullptr &&
           (row->function == iso_2022_traits.decode || row->function == iso_2022_traits.encode);
}

extern "C" {

rule_row ruleList[30] = {
    {"destSAME", destSAME},
    {"constSAME", constSAME},
    {"destShift_JIS", destSHIFT_JIS},
    {"constShift_JIS", constSHIFT_JIS},
    {"destShift_JIS-2004", destSHIFT_JIS_2004},
    {"constShift_JIS-2004", constSHIFT_JIS_2004},
    {"destWINDOWS31J", destWINDOWS31J},
    {"constWINDOWS31J", constWINDOWS31J},
    {"destISO-10646-UCS-2", destISO_10646_UCS_2},
    {"constISO-10646-UCS-2", constISO_10646_UCS_2},
    {"destISO-10646-UCS-4", destISO_10646_UCS_4},
    {"constISO-10646-UCS-4", constISO_10646_UCS_4},
    {"destUTF-16", destUTF_16},
    {"constUTF-16", constUTF_16},
    {"destUTF-8", destUTF_8},
    {"constUTF-8", constUTF_8},
    {"destEUC-JP", destEUC_JP},
    {"constEUC-JP", constEUC_JP},
    {"destEUC-JP-FIX", destEUC_JP_FIX},
    {"constEUC-JP-FIX", constEUC_JP_FIX},
    {"destEUC-JIS-2004", destEUC_JIS_2004},
    {"constEUC-JIS-2004", constEUC_JIS_2004},
    {"destISO-2022-JP", destISO_2022_JP},
    {"constISO-2022-JP", constISO_2022_JP},
    {"destISO-2022-JP-2004", destISO_2022_JP_2004},
    {"constISO-2022-JP-2004", constISO_2022_JP_2004},
    {"destOASYS_WIN", destOASYS_WIN},
    {"constOASYS_WIN", constOASYS_WIN},
    {"destOASYS_ONLINE", destOASYS_ONLINE},
    {"constOASYS_ONLINE", constOASYS_ONLINE},
};

rule_row* TheRule(const char* name) {
    if (name == nullptr || *name == '\0') {
        return nullptr;
    }
    for (std::span<rule_row> list :
         {std::span<rule_row>(ruleList), std::span<rule_row>(further_rules)}) {
        const auto row =
            std::ranges::find_if(list, [=](const rule_row& r) { return byteCmp(r.name, name); });
        if (row != list.end()) {
            return &*row;
        }
    }
    return nullptr;
}

} // extern "C"
