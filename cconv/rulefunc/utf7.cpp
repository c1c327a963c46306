// UTF-7 (RFC 2152): ASCII, and UTF-16 in base64 between "+" and "-".
//
// Deliberate in the decoder:
// - Bare are the characters that the standard lets stand bare, the optional ones too.
// - Base64 may end with any bare character; what is left of it before "-" must be zero.
// - Surrogates count in pairs only.
//
// Deliberate in the encoder:
// - Of the optional characters none stands bare: some mail systems change them.
// - Base64 always ends in "-", be it needed or not.
#include "cconv/rulefunc/scanned.h"
#include "cconv/rulefunc/strict.h"

#include <array>
#include <string_view>

namespace {

// The state: whether base64 is open, the number of its unused bits, and these bits.
inline constexpr u32 is_open = 1U << 16, count_place = 8, bits_mask = 0xFF;

struct base64_state {
    bool open = false;
    u32 count = 0, bits = 0;

    static base64_state of(u32 word) {
        return (word & is_open) != 0
                   ? base64_state{true, word >> count_place & 0xF, word & bits_mask}
                   : base64_state{};
    }
    [[nodiscard]] u32 word() const { return open ? is_open | count << count_place | bits : 0; }
};

constexpr std::string_view digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view bare_marks = "'(),-./:? \t\r\n",
                           optional_marks = "!\"#$%&*;<=>@[]^_`{|}";

// An ASCII character: its value as a digit, if it is one, and whether it may appear outside
// base 64.
constexpr u8 no_digit = 64;
struct character_class {
    u8 digit;
    bool bare, optional;
};
constexpr std::array<character_class, 0x80> classes = [] {
    std::array<character_class, 0x80> all{};
    all.fill({no_digit, false, false});
    u8 value = 0;
    for (const char c : digits) {
        all[static_cast<u8>(c)] = {value++, c != '+' && c != '/', false};
    }
    for (const char c : bare_marks) {
        all[static_cast<u8>(c)].bare = true;
    }
    for (const char c : optional_marks) {
        all[static_cast<u8>(c)].optional = true;
    }
    return all;
}();

u32 digit_value(u8 byte) {
    return byte < classes.size() ? classes[byte].digit : no_digit;
}
bool is_bare(u32 c, bool optional_too) {
    return c < classes.size() && (classes[c].bare || (optional_too && classes[c].optional));
}

// ---- Reading -----------------------------------------------------------------------------------

scalar_reading result(scanned::kind_type kind, std::size_t length, std::size_t needed,
                      const base64_state& state, u32 scalar = 0) {
    return {{kind, static_cast<u8>(length), static_cast<u8>(needed), state.word()}, scalar};
}

// Reads digits from at on until a unit of UTF-16 is complete; false if there are too few.
bool read_unit(std::span<const u8> text, std::size_t& at, base64_state& state, u32& unit) {
    while (state.count < 16) {
        const u32 value = at < text.size() ? digit_value(text[at]) : no_digit;
        if (value == no_digit) {
            return false;
        }
        state.bits = state.bits << 6 | value;
        state.count += 6;
        ++at;
    }
    state.count -= 16;
    unit = state.bits >> state.count;
    state.bits &= (1U << state.count) - 1;
    return true;
}

scalar_reading read_base64(std::span<const u8> text, base64_state state) {
    const base64_state before = state;
    std::size_t at = 0;
    u32 unit = 0, low = 0;
    if (!read_unit(text, at, state, unit)) {
        return at == text.size() ? result(scanned::cut, 1, at, before)
                                 : result(scanned::invalid, at, at + 1, {true, 0, 0});
    }
    if (!is_high_surrogate(unit)) {
        return is_low_surrogate(unit) ? result(scanned::invalid, at, at, state)
                                      : result(scanned::code, at, at, state, unit);
    }
    const std::size_t half = at;
    const base64_state behind = state;
    if (!read_unit(text, at, state, low)) {
        return at == text.size() ? result(scanned::cut, 1, at, before)
                                 : result(scanned::invalid, half, at + 1, behind);
    }
    return is_low_surrogate(low)
               ? result(scanned::code, at, at, state, join_surrogate_pair(unit, low))
               : result(scanned::invalid, half, at, behind);
}

scalar_reading read_bare(std::span<const u8> text) {
    if (text[0] != '+') {
        return is_bare(text[0], true) ? result(scanned::code, 1, 1, {}, text[0])
                                      : result(scanned::invalid, 1, 1, {});
    }
    if (text.size() < 2) {
        return result(scanned::cut, 1, 1, {});
    }
    if (text[1] == '-') {
        return result(scanned::code, 2, 2, {}, '+');
    }
    return digit_value(text[1]) < no_digit ? result(scanned::silent, 1, 2, {true, 0, 0})
                                           : result(scanned::invalid, 1, 2, {});
}

scalar_reading read_utf7(const charset_group*, u32 word, std::span<const u8> text) {
    const base64_state state = base64_state::of(word);
    if (!state.open) {
        return read_bare(text);
    }
    if (digit_value(text[0]) < no_digit) {
        return read_base64(text, state);
    }
    if (text[0] == '-') {
        return result(state.bits == 0 ? scanned::silent : scanned::invalid, 1, 1, {});
    }
    return read_bare(text);
}

scanned scan(const charset_group* group, u32 state, std::span<const u8> text) {
    return read_utf7(group, state, text);
}

bool is_in_use(const charset_group*, u32 word) {
    const base64_state state = base64_state::of(word);
    return state.word() == word && state.bits >> state.count == 0;
}

bool may_end(const charset_group*, u32 state) {
    return base64_state::of(state).bits == 0;
}

// ---- Writing -----------------------------------------------------------------------------------

struct utf7_writer {
    base64_state state;
    u8 bytes[16];
    std::size_t size = 0;

    void put(u32 byte) { bytes[size++] = static_cast<u8>(byte); }
    void close() {
        if (state.open && state.count > 0) {
            put(static_cast<u8>(digits[state.bits << (6 - state.count) & 0x3F]));
        }
        if (state.open) {
            put('-');
        }
        state = {};
    }
    void put_unit(u32 unit) {
        u64 bits = u64{state.bits} << 16 | unit;
        for (state.count += 16; state.count >= 6;) {
            state.count -= 6;
            put(static_cast<u8>(digits[bits >> state.count & 0x3F]));
        }
        state.bits = static_cast<u32>(bits & ((1U << state.count) - 1));
    }
    void write(u32 scalar) {
        if (is_bare(scalar, false)) {
            close();
            put(scalar);
            return;
        }
        if (scalar == '+' && !state.open) {
            put('+');
            put('-');
            return;
        }
        if (!state.open) {
            put('+');
            state.open = true;
        }
        if (scalar > 0xFFFF) {
            put_unit(high_surrogate(scalar));
            put_unit(low_surrogate(scalar));
        } else {
            put_unit(scalar);
        }
    }
};

u32 put_utf7(session* s, u32 scalar) {
    utf7_writer w{base64_state::of(s->dstShiftSet), {}};
    if (!is_scalar(scalar)) {
        return stop_with(s, PVZAN_UNREPRESENTABLE);
    }
    w.write(scalar);
    if (put_whole(s, {w.bytes, w.size}) == 0) {
        return 0;
    }
    s->dstShiftSet = w.state.word();
    return 1;
}

} // namespace

extern "C" {

u32 destUTF_7(session* s) {
    return decode_scalar(s, read_utf7);
}

u32 constUTF_7(session* s) {
    if (s->status != PVZAN_TERMINATE) {
        return encode_scanned(s, put_utf7);
    }
    utf7_writer w{base64_state::of(s->dstShiftSet), {}};
    w.close();
    if (!emit_bytes(s, {w.bytes, w.size})) {
        return 0;
    }
    s->dstShiftSet = 0;
    return stop_with(s, PVZAN_DONE);
}

} // extern "C"

const codec_traits utf_7_traits{
    .decode = destUTF_7,
    .encode = constUTF_7,
    .read = reading::scanned,
    .scan = scan,
    .is_in_use = is_in_use,
    .may_end = may_end,
    .designates = true,
    .form = unicode_form::other,
};
