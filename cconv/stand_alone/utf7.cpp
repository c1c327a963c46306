// UTF-7 (RFC 2152) to UCS-4.
//
//   direct characters   01 to 7D but "\" and "+"
//   +-                  "+"
//   + letters [-]       UTF-16, most significant byte first, in base 64 without padding; any other
//                       byte ends it, and a "-" is used up by that
#include "platform/unicode.h"

#include <array>

namespace {

constexpr u8 no_letter = 0xFF;

constexpr std::array<u8, 256> base64_values = [] {
    std::array<u8, 256> values{};
    values.fill(no_letter);
    constexpr char letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (u8 i = 0; i < 64; ++i) {
        values[static_cast<u8>(letters[i])] = i;
    }
    return values;
}();

// All control codes are passed on, not only TAB, LF and CR: they mean the same in every charset,
// and mail contains them.
constexpr bool is_direct(u8 byte) {
    return byte < '~' && byte != '\\';
}

class decoder {
public:
    decoder(std::span<u32> out, const u8* in) : out_(out), in_(in), at_(in) {}

    // 0, or the place where it stopped, plus 1.
    u32 run() {
        while (*at_ != '\0') {
            if (!(*at_ == '+' ? read_run() : read_direct())) {
                return static_cast<u32>(done_ - in_) + 1;
            }
            done_ = at_;
        }
        return 0;
    }

    [[nodiscard]] u32 written() const { return static_cast<u32>(written_); }

private:
    bool put(u32 character) {
        if (written_ == out_.size()) {
            return false;
        }
        out_[written_++] = character;
        return true;
    }

    bool read_direct() { return is_direct(*at_) && put(*at_++); }

    // Reads a base-64 run. Input counts as used up to the last letter that completed a character.
    bool read_run() {
        ++at_;
        if (*at_ == '-') {
            ++at_;
            return put('+');
        }
        if (base64_values[*at_] == no_letter) {
            return false;
        }
        u32 bits = 0, pending = 0, high = 0;
        for (; base64_values[*at_] != no_letter; ++at_) {
            bits = bits << 6 | base64_values[*at_];
            pending += 6;
            if (pending < 16) {
                continue;
            }
            pending -= 16;
            if (!put_unit(bits >> pending & 0xFFFF, high)) {
                return false;
            }
            bits &= (1U << pending) - 1;
            if (high == 0) {
                done_ = at_ + 1;
            }
        }
        if (high != 0 || pending >= 6 || bits != 0) {
            return false;
        }
        at_ += *at_ == '-' ? 1 : 0;
        return true;
    }

    // high is a high surrogate that waits for its low one, or 0.
    bool put_unit(u32 unit, u32& high) {
        if (high != 0) {
            const u32 first = high;
            high = 0;
            return is_low_surrogate(unit) && put(join_surrogate_pair(first, unit));
        }
        if (is_high_surrogate(unit)) {
            high = unit;
            return true;
        }
        return !is_low_surrogate(unit) && put(unit);
    }

    std::span<u32> out_;
    std::size_t written_ = 0;
    const u8* in_;
    const u8* at_;
    const u8* done_ = in_;
};

} // namespace

extern "C" u32 ZAN_UTF_7ToUCS_4(u32* out, const u8* in, i32 outSize, u32* outCount) {
    if (in == nullptr || outCount == nullptr) {
        return 0;
    }
    const bool has_room = out != nullptr && outSize > 0;
    decoder text({out, has_room ? static_cast<std::size_t>(outSize) : 0}, in);
    const u32 result = text.run();
    *outCount = text.written();
    return result;
}
