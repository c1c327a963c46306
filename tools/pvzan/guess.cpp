#include "tools/pvzan/guess.h"

#include "tools/pvzan/guess_tables.h"
#include "tools/pvzan/message.h"

#include "pvzan.h"

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <optional>

namespace tool {

namespace {

using kind = character_kind;

constexpr std::size_t examined_bytes = 16 * 1024;
constexpr unsigned fault_cost = 24 * bit_cost; // bytes that are no character
constexpr std::size_t most_faults = 64;
constexpr double sure_bits = 6; // by so much the best is ahead of the next

// ---- What a text costs -------------------------------------------------------------------------

kind kind_of(char32_t c) {
    const auto within = [c](char32_t first, char32_t last) { return c >= first && c <= last; };
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
        return kind::space;
    }
    if (c < 0x20 || within(0x7F, 0x9F)) {
        return kind::control;
    }
    if (c < 0x7F) {
        const bool letter = within('a', 'z') || within('A', 'Z');
        return within('0', '9') ? kind::digit : letter ? kind::letter : kind::ascii_mark;
    }
    if (c < 0x250) {
        return kind::latin;
    }
    if (within(0xFF61, 0xFF9F)) {
        return kind::half_katakana;
    }
    if (within(0x3041, 0x309F)) {
        return kind::hiragana;
    }
    if (within(0x30A0, 0x30FF)) {
        return kind::katakana;
    }
    if (within(0x4E00, 0x9FFF) || within(0x20000, 0x2FFFF) || c == 0x3005) {
        return kind::kanji;
    }
    if (within(0x3000, 0x303F) || within(0xFF01, 0xFF0F) || within(0xFF1A, 0xFF20) || c == 0xFFE5) {
        return kind::wide_mark;
    }
    if (within(0xFF10, 0xFF5E)) {
        return kind::wide_letter;
    }
    if (within(0x2000, 0x27FF) || within(0x370, 0x52F) || within(0x3200, 0x33FF)) {
        return kind::other;
    }
    return kind::odd;
}

// Bits for what the tables do not hold, by kind.
constexpr std::array<std::uint8_t, character_kinds> rare_bits = {0,  1,  3,  5,  5,  16, 14, 6,
                                                                 14, 12, 18, 12, 12, 10, 22};

// Bits of a character within its kind, for all 16-bit ones.
const std::vector<std::uint8_t>& character_bits() {
    static const std::vector<std::uint8_t> bits = [] {
        std::vector<std::uint8_t> table(0x10000);
        for (std::size_t c = 0; c < table.size(); ++c) {
            table[c] = rare_bits[static_cast<std::size_t>(kind_of(static_cast<char32_t>(c)))];
        }
        for (std::size_t cost = 0; cost < common_characters.size(); ++cost) {
            for (const char16_t c : common_characters[cost]) {
                table[c] = static_cast<std::uint8_t>(cost);
            }
        }
        return table;
    }();
    return bits;
}

std::uint64_t cost_of(std::u32string_view text) {
    const std::vector<std::uint8_t>& bits = character_bits();
    constexpr unsigned beyond_bits = 22;
    std::uint64_t cost = 0;
    kind before = kind::start;
    for (const char32_t c : text) {
        const kind k = kind_of(c);
        cost += pair_costs[static_cast<std::size_t>(before)][static_cast<std::size_t>(k)];
        cost += bit_cost * (c < bits.size() ? bits[c] : beyond_bits);
        before = k;
    }
    return cost;
}

// ---- Reading -----------------------------------------------------------------------------------

struct reading {
    charset_name charset;
    std::u32string text;
    std::size_t faults = 0;
    std::size_t fault_at = 0, fault_bytes = 0; // the first
    bool possible = true;
    double bits = 0;
};

void note_fault(reading& r, std::size_t at, std::size_t bytes) {
    if (r.faults++ == 0) {
        r.fault_at = at;
        r.fault_bytes = bytes;
    }
    r.possible = r.faults < most_faults;
}

void read_unicode(reading& r, bytes_view bytes, bool whole) {
    for (std::size_t at = 0; at < bytes.size() && r.possible;) {
        const unicode_sequence next = read_sequence(bytes.subspan(at), r.charset);
        if (next.kind == unicode_sequence::whole) {
            r.text += next.scalar;
        } else if (next.kind == unicode_sequence::ill_formed || whole) {
            note_fault(r, at, next.bytes);
        }
        at += next.kind == unicode_sequence::cut ? bytes.size()
                                                 : std::max<std::size_t>(next.bytes, 1);
    }
}

void read_code(reading& r, bytes_view bytes, bool whole) {
    const auto session = std::make_unique<pvzan_session>();
    pvzan_target_options target{};
    target.dstBigEndian = 1;
    pvzan_source_options source{};
    source.srcBigEndian = 1;
    if (cconvInitConvert(session.get(), &target, "iso-10646-ucs-4") != PVZAN_DONE ||
        cconvChgCharset(session.get(), &source, r.charset.library.c_str()) != PVZAN_DONE) {
        r.possible = false;
        return;
    }
    std::array<std::uint8_t, 4096> out;
    session->inBuf = bytes.data();
    session->inLen = static_cast<std::int32_t>(bytes.size());
    session->outBuf = out.data();
    session->outLen = out.size();
    for (bool done = false; !done && r.possible;) {
        const std::int32_t before = session->inPos;
        const std::uint32_t status = cconvConvert(session.get());
        for (std::int32_t i = 0; i + 3 < session->outPos; i += 4) {
            const auto* unit = &out[static_cast<std::size_t>(i)];
            char32_t scalar = 0;
            for (std::size_t b = 0; b < 4; ++b) {
                scalar = scalar << 8 | unit[b];
            }
            r.text += scalar;
        }
        session->outPos = 0;
        const auto at = static_cast<std::size_t>(session->inPos);
        switch (status) {
        case PVZAN_OUTPUT_FULL: break;
        case PVZAN_INVALID_INPUT:
            session->inPos += session->inPos == before ? 1 : 0;
            note_fault(r, at > 0 ? at - 1 : 0, 1);
            break;
        case PVZAN_UNREPRESENTABLE: { // a code without a character
            const std::size_t length = session->srcCode > 0xFF ? 2 : 1;
            note_fault(r, at >= length ? at - length : 0, length);
            break;
        }
        case PVZAN_INPUT_INCOMPLETE:
            if (whole) {
                note_fault(r, at, bytes.size() - at);
            }
            [[fallthrough]];
        default: done = true;
        }
    }
}

// Japanese charsets read nine characters in either of two ways, which tells nothing.
void settle_look_alikes(std::u32string& text) {
    constexpr std::u32string_view one = U"\u301C\u2212\u2016\u2014\u00A2\u00A3\u00AC\u00A5\u203E";
    constexpr std::u32string_view other = U"\uFF5E\uFF0D\u2225\u2015\uFFE0\uFFE1\uFFE2\\~";
    for (char32_t& c : text) {
        const std::size_t at = c < 0x80 ? one.npos : one.find(c);
        c = at == one.npos ? c : other[at];
    }
}

reading read_as(charset_name charset, bytes_view bytes, bool whole) {
    reading r;
    r.charset = std::move(charset);
    if (r.charset.is_unicode()) {
        read_unicode(r, bytes, whole);
    } else {
        read_code(r, bytes, whole);
    }
    if (r.charset.is_japanese()) {
        settle_look_alikes(r.text);
    }
    if (r.charset.library == "iso-8859-1") {
        // Windows code page 1252 has quotation marks and dashes there.
        constexpr char32_t mark = 0x2019;
        std::ranges::replace_if(
            r.text, [](char32_t c) { return c >= 0x80 && c <= 0x9F; }, mark);
    }
    r.bits = r.possible ? static_cast<double>(cost_of(r.text) + r.faults * fault_cost) / bit_cost
                        : std::numeric_limits<double>::infinity();
    return r;
}

// ---- Candidates --------------------------------------------------------------------------------

// Bits against charsets that are seldom met.
double prior_bits(const charset_name& charset) {
    if (charset.is_jis_x0213()) {
        return 8;
    }
    if (charset.form == unicode_form::utf8) {
        return -10;
    }
    return charset.library == "iso-8859-1" ? 2 : 0;
}

std::vector<charset_name> candidates_of(bytes_view text, const std::vector<std::string>& names) {
    static const std::vector<std::string> usual = {
        "utf-8",          "iso-2022-jp",  "windows-31j",      "euc-jp",
        "shift_jis-2004", "euc-jis-2004", "iso-2022-jp-2004", "iso-8859-1"};
    static const std::vector<std::string> wide = {"utf-16le", "utf-16be", "utf-32le", "utf-32be"};
    std::vector<std::string> all = names;
    if (names.empty()) {
        all = usual;
        if (std::ranges::find(text, std::uint8_t{0}) != text.end()) {
            all.insert(all.end(), wide.begin(), wide.end());
        }
    }
    std::vector<charset_name> found;
    for (const std::string& name : all) {
        charset_name charset = resolve_charset(name);
        const std::string base = charset.form == unicode_form::ucs4   ? "utf-32"
                                 : charset.form == unicode_form::ucs2 ? "ucs-2"
                                                                      : "utf-16";
        if (charset.marked) { // of either byte order
            found.push_back(resolve_charset(base + "le"));
            charset = resolve_charset(base + "be");
        }
        found.push_back(std::move(charset));
    }
    return found;
}

struct byte_order_mark {
    const char* charset;
    std::string_view bytes;
};

std::optional<byte_order_mark> find_mark_of(bytes_view text) {
    using namespace std::string_view_literals;
    constexpr std::array marks = {
        byte_order_mark{"utf-8", "\xEF\xBB\xBF"sv}, byte_order_mark{"utf-32le", "\xFF\xFE\0\0"sv},
        byte_order_mark{"utf-32be", "\0\0\xFE\xFF"sv}, byte_order_mark{"utf-16le", "\xFF\xFE"sv},
        byte_order_mark{"utf-16be", "\xFE\xFF"sv}};
    const std::string_view start(reinterpret_cast<const char*>(text.data()), text.size());
    for (const byte_order_mark& mark : marks) {
        if (start.starts_with(mark.bytes)) {
            return mark;
        }
    }
    return std::nullopt;
}

const char* breaks_of(std::u32string_view text) {
    std::size_t lf = 0, cr = 0, crlf = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
            ++crlf;
            ++i;
        } else {
            lf += text[i] == '\n' ? 1U : 0U;
            cr += text[i] == '\r' && i + 1 < text.size() ? 1U : 0U;
        }
    }
    const int kinds = (lf > 0 ? 1 : 0) + (cr > 0 ? 1 : 0) + (crlf > 0 ? 1 : 0);
    return kinds == 0 ? "-" : kinds > 1 ? "mixed" : lf > 0 ? "LF" : cr > 0 ? "CR" : "CRLF";
}

// ---- Reasons -----------------------------------------------------------------------------------

// The first character of the winner that the charset it is often taken for does not have.
std::string needed_character(const reading& winner, bytes_view text, bool whole) {
    constexpr std::array<std::array<const char*, 2>, 4> relatives = {
        {{"windows31j", "shift_jis"},
         {"shift_jis-2004", "windows-31j"},
         {"euc-jis-2004", "euc-jp"},
         {"iso-2022-jp-2004", "iso-2022-jp"}}};
    for (const auto& [name, relative] : relatives) {
        if (winner.charset.library != name) {
            continue;
        }
        const reading other = read_as(resolve_charset(relative), text, whole);
        if (other.faults == 0 || other.fault_at >= text.size()) {
            return {};
        }
        // Its bytes, by the winner's reading of the text before it.
        for (const std::size_t back : {std::size_t{0}, std::size_t{1}, std::size_t{2}}) {
            const std::size_t start = other.fault_at - std::min<std::size_t>(back, other.fault_at);
            const bytes_view rest =
                text.subspan(start, std::min<std::size_t>(2, text.size() - start));
            const reading before = read_as(winner.charset, text.first(start), true);
            const reading one = read_as(winner.charset, rest, true);
            if (before.faults == 0 && one.faults == 0 && one.text.size() == 1) {
                return fmt::format("needs {} {}, not in {}", hex_bytes(rest),
                                   is_visible(one.text[0]) ? utf8_of(one.text[0]) : "?",
                                   other.charset.shown);
            }
        }
        return fmt::format("byte {} is not in {}", other.fault_at, other.charset.shown);
    }
    return {};
}

bool is_half_katakana_only(std::u32string_view text) {
    return std::ranges::all_of(
        text, [](char32_t c) { return c < 0x80 || kind_of(c) == kind::half_katakana; });
}

// One half to the power of bits, in the steps of costs. The function of the mathematics library
// would make every start of the tool load that library.
double half_to_the(double bits) {
    constexpr double step = 0.957603280698573647; // 2 to the power of -1 / bit_cost
    double power = 1;
    for (auto steps = static_cast<unsigned>(bits * bit_cost); steps > 0; --steps) {
        power *= step;
    }
    return power;
}

void decide(charset_guess& guess, std::vector<reading>& readings, bytes_view text, bool whole) {
    std::ranges::stable_sort(readings, {}, &reading::bits);
    const reading& best = readings.front();
    // With more faults it is not this charset, or none.
    constexpr std::size_t characters_for_a_fault = 3;
    guess.known = best.possible && best.faults * characters_for_a_fault <= best.text.size();
    // Everything fits ISO-8859-1, but not everything is writing.
    constexpr double most_bits = 15;
    if (best.charset.library == "iso-8859-1" &&
        best.bits > most_bits * static_cast<double>(best.text.size() + 4)) {
        guess.known = false;
    }
    guess.charset = best.charset;
    guess.breaks = breaks_of(best.text);
    const reading* rival = nullptr;
    double sum = 0;
    for (const reading& r : readings) {
        const bool same = &r != &best && r.text == best.text && r.faults == best.faults;
        if (!r.possible || same) {
            continue;
        }
        if (&r != &best && rival == nullptr) {
            rival = &r;
        }
        const double score = half_to_the(std::min(r.bits - best.bits, 60.0));
        sum += score;
        guess.candidates.push_back({r.charset, score});
    }
    for (guess_candidate& candidate : guess.candidates) {
        candidate.score /= sum;
    }
    std::erase_if(guess.candidates, [](const guess_candidate& c) { return c.score < 0.005; });
    const bool close = rival != nullptr && rival->bits - best.bits < sure_bits;
    guess.sure = guess.known && !close && best.charset.library != "iso-8859-1";
    if (close) {
        guess.reason =
            fmt::format("{} fits too{}", rival->charset.shown,
                        is_half_katakana_only(best.text) || is_half_katakana_only(rival->text)
                            ? ": half-width katakana only"
                            : "");
    } else if (guess.known && best.faults > 0) {
        guess.reason = fmt::format(
            "but {} is invalid, at byte {}",
            hex_bytes(text.subspan(std::min(best.fault_at, text.size()))
                          .first(std::min(best.fault_bytes, text.size() - best.fault_at))),
            best.fault_at);
    } else if (guess.known && best.charset.library == "iso-8859-1") {
        guess.reason = "or a relative of it";
    } else if (guess.known) {
        guess.reason = needed_character(best, text, whole);
    }
}

// Other controls than text has, too many of them, make it binary; not in the ASCII it begins with,
// which is no matter of charsets.
bool has_many_controls(const reading& r, bytes_view text) {
    constexpr std::size_t characters_for_a_control = 20;
    std::u32string_view judged = r.text;
    if (r.charset.unit_bytes() == 1) {
        judged.remove_prefix(std::min(plain_ascii(text), judged.size()));
    }
    const auto controls = std::ranges::count_if(judged, [](char32_t c) {
        return kind_of(c) == kind::control && c != U'\x1b' && c != '\f' && c != '\b';
    });
    return static_cast<std::size_t>(controls) * characters_for_a_control > judged.size();
}

} // namespace

std::size_t plain_ascii(bytes_view text) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        constexpr std::uint8_t escape = 0x1B;
        const bool switches = text[at] == escape &&
                              (at + 1 == text.size() || text[at + 1] == '$' || text[at + 1] == '(');
        if (text[at] >= 0x80 || text[at] == 0 || switches) {
            return at;
        }
    }
    return text.size();
}

charset_guess guess_charset(bytes_view text, bool whole, const std::vector<std::string>& names) {
    charset_guess guess;
    if (text.size() > examined_bytes) {
        text = text.first(examined_bytes);
        whole = false;
    }
    std::vector<charset_name> candidates = candidates_of(text, names);
    const auto allowed = [&](const charset_name& charset) {
        return names.empty() || std::ranges::any_of(candidates, [&](const charset_name& c) {
                   return c.library == charset.library && c.big_endian == charset.big_endian;
               });
    };
    if (const auto mark = find_mark_of(text); mark && allowed(resolve_charset(mark->charset))) {
        reading r =
            read_as(resolve_charset(mark->charset), text.subspan(mark->bytes.size()), whole);
        if (r.faults * 20 <= r.text.size()) {
            guess.known = guess.sure = guess.mark = true;
            guess.charset = r.charset;
            guess.breaks = breaks_of(r.text);
            guess.candidates = {{r.charset, 1.0}};
            return guess;
        }
    }
    const bool wide = std::ranges::any_of(
        candidates, [](const charset_name& charset) { return charset.unit_bytes() > 1; });
    if (!wide && !candidates.empty() && plain_ascii(text) == text.size()) {
        guess.known = guess.sure = true;
        guess.charset = candidates.front();
        guess.breaks = breaks_of(std::u32string(text.begin(), text.end()));
        guess.candidates = {{guess.charset, 1.0}};
        return guess;
    }
    std::vector<reading> readings;
    for (charset_name& candidate : candidates) {
        readings.push_back(read_as(std::move(candidate), text, whole));
        readings.back().bits += prior_bits(readings.back().charset);
    }
    decide(guess, readings, text, whole);
    const reading& best = readings.front();
    const bool zeros = std::ranges::find(text, std::uint8_t{0}) != text.end();
    if ((zeros && !guess.known) || best.text.find(U'\0') != best.text.npos ||
        has_many_controls(best, text)) {
        guess.known = guess.sure = false;
        guess.binary = true;
    }
    if (!guess.known) {
        guess.reason.clear();
    }
    return guess;
}

} // namespace tool
