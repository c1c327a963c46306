// The codec rules: one decode ("dest") and one encode ("const") rule for each charset family,
// reached by the names in ruleList.
//
// A decode rule reads one character and leaves status 11, or 0 (no input), 12 (incomplete), 13
// (invalid). An encode rule writes the current character and leaves 21, or 22 (output full), 23
// (not representable); asked with status 31 it closes the output and leaves 0. Their results carry
// no meaning beyond that.
#pragma once

#include "cconv/engine/engine.h"

extern "C" {
// rule_list.cpp
PVZAN_API extern rule_row ruleList[30];
// Those that came later stand in a list beside, which TheRule knows too.
// The row of that very name; null when there is none, or name is null or empty.
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
// Writes a byte-order mark of n bytes: 1 written (status 21), 0 full (22). Not counted.
PVZAN_API u32 writeBOM(session* s, u32 n, u32 value);
// Finds the member set of the scalar in srcCode; start is where its bytes began.
PVZAN_API u32 srcUCS4(session* s, i32 start);
// Writes a language tag where the language changes: 1 done, 0 full (status 22).
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
// 1 when the current character belongs to Windows-31J.
PVZAN_API u32 IsWIN31J(session* s);

// euc_jp.cpp
PVZAN_API u32 destEUC_JP(session* s);
PVZAN_API u32 constEUC_JP(session* s);
PVZAN_API u32 destEUC_JIS_2004(session* s);
PVZAN_API u32 constEUC_JIS_2004(session* s);
PVZAN_API u32 destEUC_JP_FIX(session* s);
PVZAN_API u32 constEUC_JP_FIX(session* s);
// The EUC decoder; ss3Set is the set behind single shift 3.
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
