// The charsets that a guess chooses from.
#pragma once

#include "platform/base.h"

#include "pvzan_text.h"

namespace text {

// Charsets of a family share most of their codes. The first that reads a text without a fault is
// meant, unless private use shows that another may be.
enum class family : u8 {
    none,
    shift_jis,
    euc_jp,
    gbk,
    big5,
    korean,
    windows_1250,
    windows_1251,
    windows_1252,
    windows_1253,
    windows_1254,
    windows_1255,
    windows_1256,
    windows_1257,
    thai
};

enum class structure : u8 { several_bytes, single_byte, escapes, units };

struct charset_row {
    const char* name;
    structure codes;
    family relatives;
    u8 rare;               // bits against charsets that are seldom met
    const char* languages; // that it is made for
};

extern const charset_row charset_rows[];
extern const u32 charset_count;

// The language that the environment asks for, as "ja" or "zh_TW"; empty: none.
void user_language(char (&language)[8]);
void read_language(const char* name, char (&language)[8]);

} // namespace text
