// Charsets whose bytes are the codes of their sets: definition and tables say everything.
//
// Each set's codes are as many bytes long as the set says, and the sets are tried in order. One
// encode rule more is for charsets whose longer codes are only read.
#include "cconv/rulefunc/rules.h"
#include "cconv/rulefunc/traits.h"

extern "C" {

u32 destSAME(session* s) {
    return convSrcConvert(s, nullptr);
}

u32 constSAME(session* s) {
    return convDstConvert(s) != 0 ? convDstPutcode(s, nullptr, nullptr) : 0;
}

u32 constDOUBLE_BYTE(session* s) {
    if (convDstConvert(s) == 0) {
        return 0;
    }
    return s->outBytes > 2 ? stop_with(s, PVZAN_UNREPRESENTABLE)
                           : convDstPutcode(s, nullptr, nullptr);
}

} // extern "C"

const codec_traits same_traits{
    .decode = destSAME, .encode = constSAME, .read = reading::sets, .leads = {}};
const codec_traits double_byte_traits{
    .decode = destSAME, .encode = constDOUBLE_BYTE, .read = reading::sets, .leads = {}};
