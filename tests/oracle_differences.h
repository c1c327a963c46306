// Where our charsets deliberately differ from those of the C library, with the reason. Decoding is
// listed by code, encoding by scalar.
#pragma once

#include "platform/base.h"

#include <string>
#include <vector>

namespace oracle {

using scalars = std::u32string; // empty: refused

// Codes, or scalars, from first to last that the two converters treat differently; with a test,
// those of them for which it holds.
struct difference {
    u32 first, last;
    const char* reason;
    bool (*holds_for)(const scalars& ours, const scalars& theirs) = nullptr;
};

using differences = std::vector<difference>;

inline differences operator+(differences a, const differences& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

inline bool is_refused_here(const scalars& ours, const scalars& theirs) {
    return ours.empty() && !theirs.empty();
}

inline bool is_refused_there(const scalars& ours, const scalars& theirs) {
    return !ours.empty() && theirs.empty();
}

inline bool is_private_use_here(const scalars& ours, const scalars& theirs) {
    return ours.size() == 1 && ours[0] >= 0xE000 && ours[0] <= 0xF8FF && theirs.empty();
}

// ---- JIS X 0208 and JIS X 0212 -----------------------------------------------------------------

inline constexpr const char* windows_reading =
    "JIS X 0208 by the code points of Windows, which all charsets of that set share";
inline constexpr const char* shared_latin = "as in Windows-31J, which has the set too";
inline constexpr const char* damage = "DEL and control codes count as damage";

inline const differences windows31j_encoded = {{0xA6, 0xA6, "the broken bar is not refused"}};

inline const differences shift_jis_decoded = {
    {0x5C, 0x5C, shared_latin},        {0x7E, 0x7E, shared_latin},
    {0x8160, 0x8161, windows_reading}, {0x817C, 0x817C, windows_reading},
    {0x8191, 0x8192, windows_reading}, {0x81CA, 0x81CA, windows_reading},
};

inline const differences shift_jis_encoded = {
    {0x2014, 0x2014, "accepted as another form of 2015"},
    {0x2225, 0x2225, windows_reading},
    {0xFF0D, 0xFF0D, windows_reading},
    {0xFF5E, 0xFF5E, windows_reading},
};

inline const differences jisx0208_encoded =
    shift_jis_encoded + differences{{0xFFE0, 0xFFE2, windows_reading}};

// The damage is refused in single bytes, and in the fixed-width form behind 00.
inline const differences euc_jp_decoded = {
    {0xA1C1, 0xA1C2, windows_reading},     {0xA1DD, 0xA1DD, windows_reading},
    {0xA1F1, 0xA1F2, windows_reading},     {0xA2CC, 0xA2CC, windows_reading},
    {0x7F, 0x8D, damage, is_refused_here}, {0x90, 0x9F, damage, is_refused_here},
};

inline const differences euc_jp_encoded =
    jisx0208_encoded + differences{{0xFFE4, 0xFFE4, "accepted as the broken bar of JIS X 0212"},
                                   {0x80, 0x8D, damage},
                                   {0x90, 0x9F, damage}};

// ---- JIS X 0213 --------------------------------------------------------------------------------

inline constexpr const char* same_character = "accepted as another form of the same character";

inline const differences shift_jis_2004_decoded = {
    {0x5C, 0x5C, shared_latin},
    {0x7E, 0x7E, shared_latin},
};

inline const differences shift_jis_2004_encoded = {
    {0x2015, 0x2015, same_character},
    {0x2985, 0x2986, same_character},
    {0xFFE0, 0xFFE2, same_character},
    {0xFFE4, 0xFFE4, same_character},
};

inline const differences euc_jis_2004_decoded = {{0x7F, 0x7F, damage}};

inline const differences euc_jis_2004_encoded =
    shift_jis_2004_encoded + differences{{0xA5, 0xA5, "accepted as the full-width yen sign"},
                                         {0x203E, 0x203E, "accepted as the full-width overline"}};

// ---- ISO-2022-JP, by designated set ------------------------------------------------------------

inline constexpr const char* order_of_1978 =
    "the other converter reads JIS C 6226 as JIS X 0208: these kanji changed places, or form";

inline const differences roman_decoded = {{0x5C, 0x5C, shared_latin}, {0x7E, 0x7E, shared_latin}};

inline const differences jisx0208_decoded = {
    {0x2141, 0x2142, windows_reading},
    {0x215D, 0x215D, windows_reading},
    {0x2171, 0x2172, windows_reading},
    {0x224C, 0x224C, windows_reading},
};

// 22 pairs of codes, and four with an older form.
inline constexpr u32 codes_of_1978[] = {
    0x3033, 0x724D, 0x3229, 0x7274, 0x3342, 0x695A, 0x3349, 0x5978, 0x3376, 0x635E, 0x3443, 0x5E75,
    0x3452, 0x6B5D, 0x375B, 0x7074, 0x395C, 0x6268, 0x3C49, 0x6922, 0x3F59, 0x7057, 0x4128, 0x6C4D,
    0x445B, 0x5464, 0x4557, 0x626A, 0x456E, 0x5B6D, 0x4573, 0x5E39, 0x4676, 0x6D6E, 0x4768, 0x6A24,
    0x4930, 0x5B58, 0x4B79, 0x5056, 0x4C79, 0x692E, 0x4F36, 0x6446, 0x3646, 0x4B6A, 0x4D5A, 0x6076,
};

inline differences jisc6226_decoded() {
    differences listed = jisx0208_decoded;
    for (const u32 code : codes_of_1978) {
        listed.push_back({code, code, order_of_1978});
    }
    return listed;
}

inline constexpr const char* widened = "half-width katakana are widened";

inline const differences iso_2022_jp_encoded =
    jisx0208_encoded + differences{{0xFF61, 0xFF9F, widened}};

inline constexpr const char* jis_reading =
    "JIS X 0208 goes out as JIS X 0213, which has the code points of JIS";

// What the other converter reads of our text.
inline const differences iso_2022_jp_2004_read = {
    {0x1B, 0x1B, "taken for the start of an escape sequence there"},
    {0x2015, 0x2015, jis_reading},
    {0x2225, 0x2225, jis_reading},
    {0x2985, 0x2986, same_character},
    {0xFF0D, 0xFF0D, jis_reading},
    {0xFF5E, 0xFF5E, jis_reading},
    {0xFF61, 0xFF9F, widened},
    {0xFFE0, 0xFFE2, jis_reading},
    {0xFFE4, 0xFFE4, same_character},
};

// ---- Chinese and Korean ------------------------------------------------------------------------

inline constexpr const char* user_areas = "the user-defined areas of Windows";
inline constexpr const char* second_code = "of two codes the second, as Windows writes it";

inline const differences private_use_decoded = {{0, 0xFFFF, user_areas, is_private_use_here}};
inline const differences private_use_encoded = {{0xE000, 0xF8FF, user_areas, is_refused_there}};

inline const differences big5_decoded =
    private_use_decoded + differences{{0x80, 0x80, "no character"}};
inline const differences big5_encoded =
    private_use_encoded + differences{{0x80, 0x80, "no character"},
                                      {0x2550, 0x2550, second_code},
                                      {0x255E, 0x255E, second_code},
                                      {0x2561, 0x2561, second_code},
                                      {0x256A, 0x256A, second_code}};

inline constexpr const char* private_since_2022 =
    "private use in the 2022 edition, its character has four bytes";
inline constexpr const char* older_editions = "also as older editions have it";
inline constexpr const char* unassigned_plane =
    "planes and blocks without characters have no table";

inline const differences gb18030_decoded = {
    {0xFE51, 0xFE53, private_since_2022},
    {0xFE6C, 0xFE6C, private_since_2022},
    {0xFE76, 0xFE76, private_since_2022},
    {0xFE91, 0xFE91, private_since_2022},
    {0x82359037, 0x82359039, older_editions},
    {0x82359130, 0x82359134, older_editions},
    {0x84318236, 0x84318239, older_editions},
    {0x84318330, 0x84318335, older_editions},
    {0x90308130, 0xE3329A35, unassigned_plane, is_refused_here},
};

inline const differences gb18030_encoded = {
    {0xE78D, 0xE796, older_editions},
    {0xE816, 0xE818, private_since_2022},
    {0xE81E, 0xE81E, older_editions},
    {0xE826, 0xE826, older_editions},
    {0xE82B, 0xE82C, older_editions},
    {0xE831, 0xE831, private_since_2022},
    {0xE832, 0xE832, older_editions},
    {0xE83B, 0xE83B, private_since_2022},
    {0xE843, 0xE843, older_editions},
    {0xE854, 0xE854, older_editions},
    {0xE855, 0xE855, private_since_2022},
    {0xE864, 0xE864, older_editions},
    {0x20087, 0x20087, private_since_2022},
    {0x20089, 0x20089, private_since_2022},
    {0x200CC, 0x200CC, private_since_2022},
    {0x215D7, 0x215D7, private_since_2022},
    {0x2298F, 0x2298F, private_since_2022},
    {0x241FE, 0x241FE, private_since_2022},
    {0x323B0, 0x10FFFF, unassigned_plane, is_refused_here},
};

} // namespace oracle
