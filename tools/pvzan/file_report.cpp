#include "tools/pvzan/file_report.h"

#include "tools/pvzan/error_policy.h"
#include "tools/pvzan/input_file.h"
#include "tools/pvzan/message.h"

#include "pvzan.h"

#include <algorithm>
#include <memory>
#include <unistd.h>
#include <utility>

namespace tool {

namespace {

constexpr std::uint64_t most_messages = 20; // for each file

std::string code_point(char32_t scalar) {
    return fmt::format("U+{:04X}", static_cast<std::uint32_t>(scalar));
}

std::string counted(std::uint64_t number, std::string_view one, std::string_view many) {
    return fmt::format("{} {}", grouped(number), number == 1 ? one : many);
}

// "U+301C ×2, U+00A5 ×1", the most frequent ones.
std::string most_frequent(const std::map<char32_t, std::uint64_t>& counts) {
    constexpr std::size_t most = 5;
    std::vector<std::pair<char32_t, std::uint64_t>> order(counts.begin(), counts.end());
    std::ranges::stable_sort(order, std::greater(), &std::pair<char32_t, std::uint64_t>::second);
    std::string text;
    for (std::size_t i = 0; i < order.size() && i < most; ++i) {
        text += fmt::format("{}{} ×{}", i > 0 ? ", " : "", code_point(order[i].first),
                            grouped(order[i].second));
    }
    return text + (order.size() > most ? ", …" : "");
}

std::string json_counts(const std::map<char32_t, std::uint64_t>& counts) {
    std::string text = "{";
    for (const auto& [scalar, count] : counts) {
        text += fmt::format("{}\"{}\":{}", text.size() > 1 ? "," : "", code_point(scalar), count);
    }
    return text + "}";
}

// What calls itself Shift_JIS is often code page 932, which has ① and others besides. The character
// that the two bytes are there; 0 for none.
char32_t in_windows_31j(std::uint8_t lead, std::uint8_t trail) {
    const auto session = std::make_unique<pvzan_session>();
    pvzan_target_options big_endian{};
    big_endian.dstBigEndian = 1;
    const std::array<std::uint8_t, 2> code = {lead, trail};
    std::array<std::uint8_t, 16> scalar{};
    session->inBuf = code.data();
    session->inLen = code.size();
    session->outBuf = scalar.data();
    session->outLen = scalar.size();
    const bool one =
        cconvInitConvert(session.get(), &big_endian, "iso-10646-ucs-4") == PVZAN_DONE &&
        cconvChgCharset(session.get(), nullptr, "windows31j") == PVZAN_DONE &&
        cconvConvert(session.get()) == PVZAN_DONE && session->outPos == 4;
    return one ? char32_t{scalar[2]} << 8 | scalar[3] : 0;
}

std::string windows_31j_hint(const charset_name& from, const charset_name& to, const problem& p) {
    if (p.kind == problem_kind::invalid && from.library == "shift_jis" && p.bytes.size() == 1 &&
        p.follower >= 0) {
        const auto trail = static_cast<std::uint8_t>(p.follower);
        const char32_t scalar = in_windows_31j(p.bytes[0], trail);
        return scalar == 0 ? std::string()
                           : fmt::format("    hint: {:02x} {:02x} is {} in Windows-31J; -f "
                                         "windows-31j reads it",
                                         p.bytes[0], trail, character_text(scalar));
    }
    const bool lacks = p.kind == problem_kind::unrepresentable && to.library == "shift_jis";
    return lacks && p.mark == 0 && can_write(resolve_charset("windows-31j"), p.scalar)
               ? "    hint: Windows-31J has it; -t windows-31j writes it"
               : std::string();
}

void append(std::string& list, const std::string& item) {
    list += (list.empty() || item.empty() ? "" : ", ") + item;
}

} // namespace

std::string character_text(char32_t scalar) {
    std::string text = code_point(scalar);
    if (is_visible(scalar)) {
        text += " " + utf8_of(scalar);
    }
    const std::string_view name = look_alike_name(scalar);
    return name.empty() ? text : fmt::format("{} {}", text, name);
}

file_report::file_report(std::string file, charset_name to, const text_options& options,
                         bool checking, line_sink sink)
    : file_(std::move(file)), to_(std::move(to)), options_(options), checking_(checking),
      colored_(wants_color(checking ? STDOUT_FILENO : STDERR_FILENO)),
      excerpts_(wants_excerpts(checking ? STDOUT_FILENO : STDERR_FILENO)), sink_(std::move(sink)) {
    json_file_ = json_string(file_);
    json_to_ = json_string(to_.shown);
}

void file_report::set_source(charset_name from) {
    from_ = std::move(from);
    json_from_ = json_string(from_.shown);
}

void file_report::emit(std::string_view line) {
    constexpr std::size_t most = 64 * 1024;
    lines_ += line;
    lines_ += '\n';
    if (!current_style().json || lines_.size() >= most) {
        flush();
    }
}

void file_report::flush() {
    if (!lines_.empty()) {
        sink_(lines_);
        lines_.clear();
    }
}

std::uint64_t file_report::problems() const {
    return of_kind_[0] + of_kind_[1] + of_kind_[2] + of_kind_[3];
}

// ---- One problem -------------------------------------------------------------------------------

std::string file_report::why_invalid(const problem& p) const {
    const std::string all = hex_bytes(p.bytes);
    const bytes_view but_last = p.bytes.first(p.bytes.empty() ? 0 : p.bytes.size() - 1);
    switch (p.why) {
    case fault::cannot_follow:
        return but_last.empty() ? fmt::format("{} stands alone", all)
                                : fmt::format("{} cannot be followed by {:02x}",
                                              hex_bytes(but_last), p.bytes.back());
    case fault::broken_off:
        return p.follower < 0 ? fmt::format("{} is broken off", all)
                              : fmt::format("{} cannot be followed by {:02x}", all, p.follower);
    case fault::no_character: return fmt::format("{} has no character", all);
    case fault::half_pair: return fmt::format("{} is half of a surrogate pair", all);
    case fault::escape: return fmt::format("{} is no known escape sequence", all);
    case fault::begins_nothing:
    case fault::open_set:
    case fault::none: break;
    }
    return fmt::format("{} is not a lead byte", all);
}

std::string file_report::describe(const problem& p) const {
    const std::string from = printable(from_.shown), to = printable(to_.shown);
    std::string who = character_text(p.scalar);
    if (p.mark != 0) {
        who = fmt::format("{} {}", code_point(p.scalar), code_point(p.mark));
    }
    const std::string place = fmt::format(", ({}) at byte {}", hex_bytes(p.bytes), p.place.offset);
    switch (p.kind) {
    case problem_kind::invalid:
        return fmt::format("invalid {}: {}, at byte {}", from, why_invalid(p), p.place.offset);
    case problem_kind::incomplete:
        if (p.why == fault::open_set) {
            return fmt::format("the text ends without the way back to ASCII that {} asks for, at "
                               "byte {}",
                               from, p.place.offset);
        }
        return fmt::format("invalid {}: {} at the end of the text, at byte {}", from,
                           hex_bytes(p.bytes), p.place.offset);
    case problem_kind::unrepresentable:
        return fmt::format("{} has no code in {}{}", who, to, place);
    case problem_kind::one_way: break;
    }
    const std::string again =
        p.again != 0 ? character_text(p.again) : fmt::format("({})", hex_bytes(p.comes_back));
    return fmt::format("{} would come back from {} as {}{}", who, to, again, place);
}

// Once for each file.
void file_report::tell_hint(const problem& p) {
    if (hinted_ || options_.similar || p.mark != 0) {
        return;
    }
    if (const std::string hint = windows_31j_hint(from_, to_, p); !hint.empty()) {
        hinted_ = true;
        emit(hint);
        return;
    }
    const char32_t like = stand_in(p.scalar);
    if (p.kind == problem_kind::one_way && p.again >= 0x80) {
        hinted_ = true;
        emit("    hint: --similar takes the two as equal");
    } else if (like != 0 && can_write(to_, like)) {
        hinted_ = true;
        emit(fmt::format("    hint: its usual stand-in there is {}; --similar uses it",
                         code_point(like)));
    }
}

void file_report::tell(const problem& p) {
    const auto paint = [this](std::string_view color, std::string_view text) {
        return colored_ ? fmt::format("\x1b[{}m{}\x1b[0m", color, text) : std::string(text);
    };
    emit(fmt::format(
        "{} {} {}",
        paint("1", fmt::format("{}:{}:{}:", shown_name(file_), p.place.line, p.place.column)),
        is_fatal() ? paint("1;31", "error:") : paint("1;33", "warning:"), describe(p)));
    if (excerpts_ && excerpt_line_ != p.place.line) {
        excerpt_line_ = p.place.line;
        emit(fmt::format("    {}{}", p.before, p.after));
        emit(fmt::format("    {:{}}{}", "", p.columns, paint("1;32", "^")));
    }
    tell_hint(p);
}

void file_report::tell_json(const problem& p) {
    constexpr std::array kinds = {"invalid", "unrepresentable", "incomplete", "not_round_trip"};
    std::string line = fmt::format(
        "{{\"file\":{},\"line\":{},\"column\":{},\"byte\":{},\"kind\":\"{}\"", json_file_,
        p.place.line, p.place.column, p.place.offset, kinds[static_cast<std::size_t>(p.kind)]);
    const bool character =
        p.kind == problem_kind::unrepresentable || p.kind == problem_kind::one_way;
    if (character) {
        line += fmt::format(",\"char\":\"{}{}\"", code_point(p.scalar),
                            p.mark != 0 ? " " + code_point(p.mark) : "");
    }
    line += fmt::format(",\"bytes\":\"{}\"", hex_bytes(p.bytes, ""));
    if (p.again != 0) {
        line += fmt::format(",\"again\":\"{}\"", code_point(p.again));
    } else if (p.kind == problem_kind::one_way) {
        line += fmt::format(",\"again\":\"{}\"", hex_bytes(p.comes_back, ""));
    }
    line += character ? fmt::format(",\"to\":{}}}", json_to_)
                      : fmt::format(",\"from\":{}}}", json_from_);
    emit(line);
}

void file_report::add(const problem& p) {
    ++of_kind_[static_cast<std::size_t>(p.kind)];
    if (p.kind == problem_kind::unrepresentable) {
        ++lacking_[p.scalar];
    } else if (p.kind == problem_kind::one_way) {
        ++one_way_[p.scalar];
    }
    const message_style& style = current_style();
    if (style.json) {
        tell_json(p);
        return;
    }
    // What is put right as asked is only counted, unless more is asked for.
    const bool told = is_fatal() || style.verbose;
    if (told && shown_ < most_messages && (is_fatal() || !style.quiet)) {
        ++shown_;
        tell(p);
    }
}

void file_report::add_untold(problem_kind kind, char32_t scalar, std::uint64_t count) {
    of_kind_[static_cast<std::size_t>(kind)] += count;
    if (kind == problem_kind::unrepresentable) {
        lacking_[scalar] += count;
    } else if (kind == problem_kind::one_way) {
        one_way_[scalar] += count;
    }
}

void file_report::add_look_alike(char32_t scalar) {
    ++look_alikes_[scalar];
}

// ---- All of them -------------------------------------------------------------------------------

std::string file_report::totals() const {
    constexpr std::array<std::pair<const char*, const char*>, 4> words = {
        {{"invalid sequence", "invalid sequences"},
         {"unrepresentable character", "unrepresentable characters"},
         {"incomplete character", "incomplete characters"},
         {"character that would not come back", "characters that would not come back"}}};
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (of_kind_[i] > 0) {
            append(text, counted(of_kind_[i], words[i].first, words[i].second));
        }
    }
    return text;
}

std::string file_report::check_totals(const text_facts& facts) const {
    std::string text;
    const std::uint64_t invalid = of_kind_[0] + of_kind_[2];
    if (invalid > 0) {
        append(text, counted(invalid, "invalid sequence", "invalid sequences"));
    }
    const auto part = [&](const std::map<char32_t, std::uint64_t>& counts, problem_kind kind,
                          std::string_view what) {
        const std::uint64_t number = of_kind_[static_cast<std::size_t>(kind)];
        if (number > 0) {
            append(text, fmt::format("{} of {} {} ({})", grouped(number),
                                     counted(facts.counts.characters, "character", "characters"),
                                     what, most_frequent(counts)));
        }
    };
    part(lacking_, problem_kind::unrepresentable, "cannot be written");
    part(one_way_, problem_kind::one_way, "would not come back");
    return text;
}

// What stands in the output that did not stand in the text.
std::string file_report::changes(const text_facts& facts) const {
    std::string text;
    if (!look_alikes_.empty()) {
        std::uint64_t number = 0;
        for (const auto& [scalar, count] : look_alikes_) {
            number += count;
        }
        append(text, fmt::format("{} used ({})", counted(number, "look-alike", "look-alikes"),
                                 most_frequent(look_alikes_)));
    }
    if (facts.counts.composed > 0) {
        append(text, counted(facts.counts.composed, "character", "characters") + " composed");
    }
    const std::uint64_t characters = of_kind_[1] + of_kind_[3];
    const std::uint64_t invalid = of_kind_[0] + of_kind_[2];
    switch (options_.on_error) {
    case error_policy::stop: break;
    case error_policy::ref:
        if (characters > 0) {
            append(text,
                   counted(characters, "character reference", "character references") + " written");
        }
        if (invalid > 0) {
            append(text,
                   counted(invalid, "invalid sequence", "invalid sequences") + " written in hex");
        }
        break;
    default:
        if (problems() > 0) {
            const bool hex = options_.on_error == error_policy::hex;
            const bool skip = options_.on_error == error_policy::skip;
            append(text, fmt::format("{} {}", totals(),
                                     hex    ? "written in hex"
                                     : skip ? "dropped"
                                            : "replaced by a substitute"));
        }
    }
    return text;
}

void file_report::tell_summary_json(const text_facts& facts, bool failed) {
    std::map<char32_t, std::uint64_t> by_character = lacking_;
    for (const auto& [scalar, count] : one_way_) {
        by_character[scalar] += count;
    }
    emit(fmt::format(
        "{{\"file\":{},\"kind\":\"summary\",\"from\":{},\"to\":{},\"bytes_in\":{},\"bytes_out\":{},"
        "\"chars\":{},\"private_use\":{},\"composed\":{},\"invalid\":{},\"unrepresentable\":{},"
        "\"not_round_trip\":{"
        "},"
        "\"look_alikes\":{},\"by_char\":{},\"failed\":{}}}",
        json_file_, json_from_, json_to_, facts.bytes_in, facts.bytes_out, facts.counts.characters,
        facts.counts.private_use, facts.counts.composed, of_kind_[0] + of_kind_[2], of_kind_[1],
        of_kind_[3], json_counts(look_alikes_), json_counts(by_character),
        failed ? "true" : "false"));
}

void file_report::finish(const text_facts& facts, bool failed, std::string_view lost) {
    if (current_style().json) {
        tell_summary_json(facts, failed);
    } else {
        tell_totals(facts, failed, lost);
    }
    flush();
}

void file_report::tell_totals(const text_facts& facts, bool failed, std::string_view lost) {
    const message_style& style = current_style();
    const std::string name = shown_name(file_);
    if (is_fatal() && problems() > shown_ && shown_ > 0) {
        emit(fmt::format("{}: {} not shown", name,
                         counted(problems() - shown_, "more problem", "more problems")));
    }
    const std::string changed = changes(facts);
    if (checking_ && problems() > 0) {
        emit(fmt::format("{}: {}", name, check_totals(facts)));
    } else if (failed) {
        emit(fmt::format("{}: not converted: {}; {}", name, totals(), lost));
    } else if (!changed.empty() && !style.quiet) {
        emit(fmt::format("{}: {}", name, changed));
    } else if (style.verbose) {
        constexpr std::array<std::string_view, 4> asked = {"", "LF", "CRLF", "CR"};
        const bool keeps = options_.breaks == line_breaks::keep;
        const auto with_breaks = [](const std::string& charset, std::string_view breaks) {
            return breaks.empty() ? charset : fmt::format("{}, {}", charset, breaks);
        };
        const std::uint64_t own = facts.counts.private_use;
        emit(fmt::format(
            "{}: {} -> {}  ({}, {}, {})", name, with_breaks(printable(from_.shown), facts.breaks),
            with_breaks(printable(to_.shown),
                        keeps || facts.breaks.empty()
                            ? facts.breaks
                            : std::string(asked[static_cast<std::size_t>(options_.breaks)])),
            counted(facts.bytes_in, "byte", "bytes"),
            counted(facts.counts.characters, "character", "characters"),
            own > 0 ? counted(own, "character", "characters") + " of private use"
                    : std::string("nothing lost")));
    }
}

} // namespace tool
