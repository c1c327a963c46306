// Encoding detection: by a byte-order mark, else by an XML declaration, else by scores.
#include "cconv/detect/detect.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace {

using std::operator""sv;

constexpr std::size_t examined_bytes = 2048;

// ---- Byte-order marks --------------------------------------------------------------------------

struct byte_order_mark {
    std::string_view bytes;
    const char* name;
    u32 bigEndian;
};

constexpr std::array marks = {
    byte_order_mark{"\x00\x00\xFE\xFF"sv, "ISO-10646-UCS-4", 1},
    byte_order_mark{"\xFF\xFE\x00\x00"sv, "ISO-10646-UCS-4", 0},
    byte_order_mark{"\xEF\xBB\xBF"sv, "UTF-8", 1},
    byte_order_mark{"\xFE\xFF"sv, "UTF-16", 1},
    byte_order_mark{"\xFF\xFE"sv, "UTF-16", 0},
};

// The length of the mark at the start, or 0.
i32 read_mark(pvzan_detection_request* request, bytes_view text) {
    const std::string_view bytes(reinterpret_cast<const char*>(text.data()), text.size());
    for (const byte_order_mark& mark : marks) {
        if (bytes.starts_with(mark.bytes)) {
            copy_text(request->encodingName, mark.name);
            request->bomFound = 1;
            request->bigEndian = mark.bigEndian;
            return static_cast<i32>(mark.bytes.size());
        }
    }
    return 0;
}

// ---- The decision ------------------------------------------------------------------------------

struct scores {
    u32 iso2022_jp, euc_jp_fix, euc_jp;
    utf8_score utf8;
    ordered_score utf16, ucs4;
    shift_jis_score shift_jis;
};

struct verdict {
    const char* name = nullptr;
    u32 bigEndian = 1;
};

const char* single_byte_name(u32 latin1_characters) {
    return latin1_characters != 0 ? "ISO-8859-1" : "ISO-646IRV";
}

// The best score wins. Scores that differ by less than the step of the threshold count as equal;
// the order of the tests, and which comparisons accept a tie, then decide.
verdict decide_above(u32 threshold, const scores& all) {
    const u32 fix = all.euc_jp_fix, euc = all.euc_jp, u8s = all.utf8.score, u16s = all.utf16.best(),
              u32s = all.ucs4.best(), sjis = all.shift_jis.score;
    const auto above = [](u32 score, std::initializer_list<u32> others) {
        return std::ranges::all_of(others, [=](u32 other) { return score > other; });
    };
    if (above(fix, {threshold, euc, u8s, u32s, u16s, sjis})) {
        return {"EUC-JP-FIX"};
    }
    if (above(euc, {threshold, u8s, u32s, u16s, sjis}) && euc >= fix) {
        return {"EUC-JP"};
    }
    if (above(u16s, {threshold, u8s, euc, u32s, sjis}) && u16s >= fix) {
        return {"UTF-16", all.utf16.big > all.utf16.little};
    }
    if (above(u32s, {threshold, u8s, euc, u16s, sjis}) && u32s >= fix) {
        return {"ISO-10646-UCS-4", all.ucs4.big > all.ucs4.little};
    }
    if (above(sjis, {threshold, u8s, u32s}) && sjis >= fix && sjis >= u16s && sjis >= euc) {
        return {all.shift_jis.double_bytes != 0 ? "WINDOWS31J"
                                                : single_byte_name(all.shift_jis.high_bytes)};
    }
    if (u8s > threshold && u8s >= euc && u8s >= fix && u8s >= u32s && u8s >= u16s && u8s >= sjis) {
        return {all.utf8.multibyte != 0 ? "UTF-8" : single_byte_name(all.utf8.latin1)};
    }
    return {all.iso2022_jp > threshold ? "ISO-2022-JP" : nullptr};
}

verdict decide(const scores& all) {
    constexpr u32 highest = 10000, lowest = 7000, step = 100;
    for (u32 threshold = highest; threshold >= lowest; threshold -= step) {
        const verdict found = decide_above(threshold, all);
        if (found.name != nullptr) {
            return found;
        }
    }
    return {};
}

void examine(pvzan_detection_request* request, bytes_view text) {
    const verdict found =
        decide({score_iso2022_jp(text), score_euc_jp_fix(text), score_euc_jp(text),
                score_utf8(text), score_utf16(text), score_ucs4(text), score_shift_jis(text)});
    if (found.name != nullptr) {
        copy_text(request->encodingName, found.name);
        request->bigEndian = found.bigEndian;
    }
}

// Whether the caller's range is valid; otherwise nothing is read.
bool has_text(const pvzan_detection_request* request) {
    return request->text != nullptr && request->textPos >= 0 && request->textEnd > request->textPos;
}

bool name_encoding(pvzan_detection_request* request) {
    const auto pos = static_cast<std::size_t>(request->textPos);
    const auto end = static_cast<std::size_t>(request->textEnd);
    const bytes_view text(request->text + pos, end - pos);
    const i32 mark = read_mark(request, text);
    if (!read_declaration(request, request->textPos + mark) && mark == 0) {
        examine(request, text.first(std::min(text.size(), examined_bytes)));
    }
    if (request->encodingName[0] == '\0') {
        return false;
    }
    request->newlineKind =
        find_newline_kind(request, text.first(std::min(text.size(), examined_bytes)));
    return true;
}

} // namespace

extern "C" {

u32 cconvChkEncode(pvzan_detection_request* request) {
    constexpr u32 order_matters = 4098, order_does_not = 1;
    cconvLoadRule();
    if (request == nullptr) {
        return 0;
    }
    request->encodingName[0] = '\0';
    request->xmlDeclared = 0;
    request->bomFound = 0;
    request->bigEndian = 1;
    request->newlineKind = 0;
    request->resultFlags = 0;
    if (!has_text(request) || !name_encoding(request)) {
        copy_text(request->encodingName, "unknown");
        return 0;
    }
    request->resultFlags =
        cconvIsEndianAware(request->encodingName) != 0 ? order_matters : order_does_not;
    return 1;
}

u32 cconvIsEndianAware(const char* name) {
    constexpr std::array aware = {"UTF-16"sv, "ISO-10646-UCS-2"sv, "ISO-10646-UCS-4"sv};
    return name != nullptr && std::ranges::find(aware, std::string_view(name)) != aware.end();
}

} // extern "C"
