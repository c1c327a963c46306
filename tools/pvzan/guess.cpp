#include "tools/pvzan/guess.h"

#include "tools/pvzan/guess_tables.h"
#include "tools/pvzan/message.h"
#include "tools/pvzan/shown_text.h"

#include <algorithm>
#include <array>
#include <limits>
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
    pvzan_name charset;
    std::u32string text;
    std::size_t faults = 0;
    std::size_t fault_at = 0, fault_bytes = 0; // the first
    bool possible = true;
    double bits = 0;
};

bool is_jis_x0213(const pvzan_name& charset) {
    return is_charset(charset, {"shift_jis-2004", "euc-jis-2004", "iso-2022-jp-2004"});
}

bool is_japanese(const pvzan_name& charset) {
    return is_jis_x0213(charset) ||
           is_charset(charset, {"shift_jis", "windows31j", "euc-jp", "euc-jp-fix", "iso-2022-jp",
                                "oasys-win", "oasys-online"});
}

bool is_latin(const pvzan_name& charset) {
    return is_charset(charset, {"iso-8859-1"});
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

reading read_as(const pvzan_name& charset, bytes_view bytes, bool whole) {
    reading r;
    r.charset = charset;
    const auto note_fault = [&r](const pvzan_fault& fault) {
        if (fault.kind != PVZAN_FAULT_LEFT_OPEN && r.faults++ == 0) {
            r.fault_at = static_cast<std::size_t>(fault.offset);
            r.fault_bytes = fault.length;
        }
        r.possible = r.faults < most_faults;
        return r.possible;
    };
    const bool read = read_characters(bytes, charset, PVZAN_ORDER_BY_NAME,
                                      whole ? PVZAN_LAST : PVZAN_PART, r.text, note_fault);
    r.possible = r.possible && read;
    if (is_japanese(charset)) {
        settle_look_alikes(r.text);
    }
    if (is_latin(r.charset)) {
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
double prior_bits(const pvzan_name& charset) {
    if (is_jis_x0213(charset)) {
        return 8;
    }
    return charset.kind == PVZAN_KIND_UTF_8 ? -10 : is_latin(charset) ? 2 : 0;
}

std::vector<pvzan_name> candidates_of(bytes_view text, const std::vector<std::string>& names) {
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
    std::vector<pvzan_name> found;
    for (const std::string& name : all) {
        const pvzan_name charset = charset_of(name);
        const std::string base = charset.kind == PVZAN_KIND_UCS_4   ? "utf-32"
                                 : charset.kind == PVZAN_KIND_UCS_2 ? "ucs-2"
                                                                    : "utf-16";
        if (charset.mark == 1) { // of either byte order
            found.push_back(charset_of(base + "le"));
            found.push_back(charset_of(base + "be"));
        } else {
            found.push_back(charset);
        }
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
        if (!is_charset(winner.charset, {name})) {
            continue;
        }
        const reading other = read_as(charset_of(relative), text, whole);
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
    if (is_latin(best.charset) &&
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
    guess.sure = guess.known && !close && !is_latin(best.charset);
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
    } else if (guess.known && is_latin(best.charset)) {
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
    if (r.charset.unit == 1) {
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
    const std::vector<pvzan_name> candidates = candidates_of(text, names);
    const auto allowed = [&](const pvzan_name& charset) {
        return names.empty() || std::ranges::any_of(candidates, [&](const pvzan_name& c) {
                   return same_charset(c, charset);
               });
    };
    if (const auto mark = find_mark_of(text); mark && allowed(charset_of(mark->charset))) {
        reading r = read_as(charset_of(mark->charset), text.subspan(mark->bytes.size()), whole);
        if (r.faults * 20 <= r.text.size()) {
            guess.known = guess.sure = guess.mark = true;
            guess.charset = r.charset;
            guess.breaks = breaks_of(r.text);
            guess.candidates = {{r.charset, 1.0}};
            return guess;
        }
    }
    const bool wide =
        std::ranges::any_of(candidates, [](const pvzan_name& charset) { return charset.unit > 1; });
    if (!wide && !candidates.empty() && plain_ascii(text) == text.size()) {
        guess.known = guess.sure = true;
        guess.charset = candidates.front();
        guess.breaks = breaks_of(std::u32string(text.begin(), text.end()));
        guess.candidates = {{guess.charset, 1.0}};
        return guess;
    }
    std::vector<reading> readings;
    for (const pvzan_name& candidate : candidates) {
        readings.push_back(read_as(candidate, text, whole));
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
