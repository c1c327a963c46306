// A conversion that an input describes: eight bytes of choices, then the text.
#pragma once

#include "fuzz/support.h"

#include "pvzan.h"

#include <algorithm>
#include <cstring>

namespace fuzz {

inline constexpr const char* charsets[] = {
    "shift_jis",    "windows31j",       "iso-10646-ucs-2", "iso-10646-ucs-4", "utf-16",
    "utf-8",        "euc-jp",           "euc-jp-fix",      "iso-2022-jp",     "shift_jis-2004",
    "euc-jis-2004", "iso-2022-jp-2004", "chinesegbk",      "chinesebig5",     "koreanksc",
    "gb18030",      "iso-646irv",       "iso-8859-1",      "oasys-win",       "oasys-online",
};

struct conversion {
    const char *from, *to;
    pvzan_source_options source{};
    pvzan_target_options target{};
    sequence plan;    // how the caller cuts input and output
    std::string text; // repeated, so that characters come back
};

inline conversion read_conversion(input& in, std::size_t most_text) {
    constexpr std::uint16_t substitutes[] = {'?', 0x3013, 0xFF1D, 0, 0xFFFF, 0x41, 0x3042, 0x00A5};
    constexpr const char* languages[] = {"", "", "ja", "zh-tw", "x"};
    const char* const from = in.choose(charsets);
    const char* const to = in.choose(charsets);
    conversion c{from, to, {}, {}, sequence(0), {}};
    const std::uint32_t flags = in.byte(), more = in.byte(), modes = in.byte();
    c.source = {.srcBigEndian = (flags & 1) == 0,
                .srcCheckBom = (flags & 2) != 0,
                .skipInvalid = (flags & 4) != 0};
    c.target.dstBigEndian = (flags & 8) == 0;
    c.target.dstWriteBom = (flags & 16) != 0;
    c.target.useSubstitute = (flags & 32) != 0;
    c.target.convertNewline = (flags & 64) != 0;
    c.target.substChar1 = substitutes[more % 8];
    c.target.substChar2 = substitutes[more / 8 % 8];
    std::strcpy(c.target.langTag, languages[more / 64]);
    c.target.newlineMode = modes % 7;
    c.target.charRefMode = modes / 7 % 4;
    const std::uint32_t times = 1 + in.byte() % 32;
    c.plan = sequence(in.byte() << 8 | in.byte());
    for (std::uint32_t i = 0; i < times && c.text.size() < most_text; ++i) {
        c.text += as_text(in.rest());
    }
    c.text.resize(std::min(c.text.size(), most_text));
    return c;
}

// Opens a session for it.
inline std::unique_ptr<pvzan_session> open(const conversion& c) {
    auto s = std::make_unique<pvzan_session>();
    expect(cconvInitConvert(s.get(), &c.target, c.to) == PVZAN_DONE, "no such target");
    expect(cconvChgCharset(s.get(), &c.source, c.from) == PVZAN_DONE, "no such source");
    return s;
}

// The charset directory of the build.
inline void use_charsets() {
    my_init();
    ZAN_setCharsetPath(PVZAN_BASE2_DIR);
    expect(cconvLoadRule() == 1, "no charsets");
}

} // namespace fuzz
