// The codec rules: a decode rule ("dest") and an encode rule ("const") for each family of charsets,
// found by their names in ruleList.
//
// A decode rule reads one character and sets status 11, or 0 (no input), 12 (incomplete) or 13
// (invalid). An encode rule writes the current character and sets 21, or 22 (output full) or 23
// (not representable); called with status 31 it closes the output and sets 0. The return values
// mean nothing else.
#pragma once

#include "cconv/engine/engine.h"

extern "C" {
// rule_list.cpp
PVZAN_API extern rule_row ruleList[30];
// Later rules are in a second list, which TheRule also searches. Returns the row with exactly this
// name, or null.
PVZAN_API rule_row* TheRule(const char* name);

// unicode.cpp
PVZAN_API u32 destUTF_8(session* s);
PVZAN_API u32 constUTF_8(session* s);
PVZAN_API u32 destUTF_16(session* s);
PVZAN_API u32 constUTF_16(session* s);
PVZAN_API u32 destISO_10646_UCS_4(session* s);
PVZAN_API u32 constISO_10646_UCS_4(session* s);
PVZAN_API u32 destISO_10646_UCS_2(session* s);
PVZAN_API u32 constISO_10646_UCS_2(session* s);
// Writes a byte-order mark of n bytes: 1 written (status 21), 0 full (22). It is not counted.
PVZAN_API u32 writeBOM(session* s, u32 n, u32 value);
// Finds the member set that contains the Unicode value in srcCode; start is the position of its
// bytes.
PVZAN_API u32 srcUCS4(session* s, i32 start);
// Writes a language tag if the language changes: 1 done, 0 full (status 22).
PVZAN_API u32 dstUCS4(session* s, put_function putFunc);

// same.cpp, oasys.cpp
PVZAN_API u32 destSAME(session* s);
PVZAN_API u32 constSAME(session* s);
PVZAN_API u32 constDOUBLE_BYTE(session* s);
PVZAN_API u32 destOASYS_WIN(session* s);
PVZAN_API u32 constOASYS_WIN(session* s);
PVZAN_API u32 destOASYS_ONLINE(session* s);
PVZAN_API u32 constOASYS_ONLINE(session* s);

// shift_jis.cpp
PVZAN_API u32 destSHIFT_JIS(session* s);
PVZAN_API u32 constSHIFT_JIS(session* s);
PVZAN_API u32 destSHIFT_JIS_2004(session* s);
PVZAN_API u32 constSHIFT_JIS_2004(session* s);

// windows31j.cpp
PVZAN_API u32 destWINDOWS31J(session* s);
PVZAN_API u32 constWINDOWS31J(session* s);
// 1 if the current character belongs to Windows-31J.
PVZAN_API u32 IsWIN31J(session* s);

// euc_jp.cpp
PVZAN_API u32 destEUC_JP(session* s);
PVZAN_API u32 constEUC_JP(session* s);
PVZAN_API u32 destEUC_JIS_2004(session* s);
PVZAN_API u32 constEUC_JIS_2004(session* s);
PVZAN_API u32 destEUC_JP_FIX(session* s);
PVZAN_API u32 constEUC_JP_FIX(session* s);
// The EUC decoder; ss3Set is the set selected by single shift 3.
PVZAN_API u32 euc_jp_reader(session* s, u32 ss3Set);

// iso2022_jp.cpp
PVZAN_API u32 destISO_2022_JP(session* s);
PVZAN_API u32 constISO_2022_JP(session* s);
PVZAN_API u32 destISO_2022_JP_2004(session* s);
PVZAN_API u32 constISO_2022_JP_2004(session* s);

// iso2022.cpp
u32 destISO_2022(session* s);
u32 constISO_2022(session* s);

// utf7.cpp
u32 destUTF_7(session* s);
u32 constUTF_7(session* s);

// utf8_forms.cpp
u32 destCESU_8(session* s);
u32 constCESU_8(session* s);
u32 destUTF_8_MAC(session* s);
u32 constUTF_8_MAC(session* s);

// shift_jis_arithmetic.cpp: row numbers of plane 2 for the leads F0 to FC, by the half of the trail
// byte
PVZAN_API extern const u32 k40[13], k9F[13];
}
