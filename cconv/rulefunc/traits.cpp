// The list of codecs with their traits, which stand beside the rules themselves.
#include "cconv/rulefunc/traits.h"

namespace {

constexpr const codec_traits* codecs[] = {
    &same_traits,
    &oasys_win_traits,
    &oasys_online_traits,
    &shift_jis_traits,
    &shift_jis_2004_traits,
    &windows31j_traits,
    &euc_jp_traits,
    &euc_jis_2004_traits,
    &euc_jp_fix_traits,
    &iso_2022_jp_traits,
    &iso_2022_jp_2004_traits,
    &utf_8_traits,
    &utf_16_traits,
    &ucs_4_traits,
    &ucs_2_traits,
};

const codec_traits* find(rule_function rule, rule_function codec_traits::*direction) {
    for (const codec_traits* codec : codecs) {
        if (codec->*direction == rule) {
            return codec;
        }
    }
    return nullptr;
}

} // namespace

const codec_traits* traits_of_decoder(rule_function decode) {
    return find(decode, &codec_traits::decode);
}

const codec_traits* traits_of_encoder(rule_function encode) {
    return find(encode, &codec_traits::encode);
}
