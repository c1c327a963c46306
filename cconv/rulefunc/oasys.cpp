// The OASYS code page, in its Windows form and in its on-line form.
//
// Windows form: the sets of the charset by their tables, two-byte codes in the shape of Shift_JIS
// (leads F0-FC are rows 7F-98).
//
// On-line form, always two bytes, the more significant first:
//
//   00 00-9F         JIS X 0201 Roman, the second byte
//   00 A0-FF         JIS X 0201 katakana, the second byte
//   01-20            invalid
//   21-7F 00-FF      JIS C 6226-1978
//   80-FF 00-FF      OASYS extension set, without the high bit
//
// Deliberate: the on-line encoder writes the codes of the sets as they are, without 00 byte and
// high bit. What is to be written there is the charset's to say, by an extra encode table.
#include "cconv/rulefunc/member_set.h"
#include "cconv/rulefunc/rules.h"
#include "cconv/rulefunc/traits.h"

namespace {

constexpr u32 online_bytes = 2;

constexpr bool is_online_single(u32 lead) {
    return lead == 0x00;
}

constexpr bool is_online_invalid(u32 lead) {
    return lead >= 0x01 && lead <= 0x20;
}

constexpr bool is_online_extension(u32 lead) {
    return lead >= 0x80;
}

constexpr u32 online_set(u32 lead, u32 second) {
    if (is_online_single(lead)) {
        return second > 0x9F ? PVZAN_SET_JIS_X_0201_KANA : PVZAN_SET_JIS_X_0201_LATIN;
    }
    return is_online_extension(lead) ? PVZAN_SET_OASYS_EXT : PVZAN_SET_JIS_C_6226_1978;
}

// An invalid character uses up only one byte, even if that is half a character: it is unknown where
// the error is.
u32 refuse_online(session* s) {
    ++s->inPos;
    return stop_with(s, PVZAN_INVALID_INPUT);
}

} // namespace

extern "C" {

u32 destOASYS_WIN(session* s) {
    return convSrcConvert(s, SJIStoJISex);
}

u32 constOASYS_WIN(session* s) {
    return convDstConvert(s) != 0 ? convDstPutcode(s, JIStoSJISex, nullptr) : 0;
}

u32 destOASYS_ONLINE(session* s) {
    const std::span<const u8> input = input_left(s);
    if (input.empty()) {
        return stop_with(s, PVZAN_DONE);
    }
    if (is_online_invalid(input[0])) {
        return refuse_online(s);
    }
    if (input.size() < online_bytes) {
        return stop_with(s, PVZAN_INPUT_INCOMPLETE);
    }
    const basic_set* set = member_set(s->srcGroup, online_set(input[0], input[1]));
    if (set == nullptr) {
        return refuse_online(s);
    }
    const u32 code = load_big_endian(input.first(online_bytes)) & 0x7FFF;
    s->inPos += static_cast<i32>(online_bytes);
    return deliver_character(s, set, code, code, 0);
}

u32 constOASYS_ONLINE(session* s) {
    return convDstConvert(s) != 0 ? convDstPutcode(s, nullptr, nullptr) : 0;
}

} // extern "C"

const codec_traits oasys_win_traits{.decode = destOASYS_WIN,
                                    .encode = constOASYS_WIN,
                                    .read = reading::sets,
                                    .leads = {0x81, 0x9F, 0xE0, 0xFC}};
const codec_traits oasys_online_traits{
    .decode = destOASYS_ONLINE, .encode = constOASYS_ONLINE, .read = reading::pairs};
