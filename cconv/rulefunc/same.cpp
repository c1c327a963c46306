// Charsets whose bytes are the codes of their sets: definition and tables say everything.
//
// Each set's codes are as many bytes long as the set says, and the sets are tried in order.
#include "cconv/rulefunc/rules.h"
#include "cconv/rulefunc/traits.h"

extern "C" {

u32 destSAME(session* s) {
    return convSrcConvert(s, nullptr);
}

u32 constSAME(session* s) {
    return convDstConvert(s) != 0 ? convDstPutcode(s, nullptr, nullptr) : 0;
}

} // extern "C"

const codec_traits same_traits{
    .decode = destSAME, .encode = constSAME, .read = reading::sets, .leads = {}};
