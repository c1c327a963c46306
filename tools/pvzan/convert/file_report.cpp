#include "tools/pvzan/convert/file_report.h"

#include "tools/pvzan/convert/relative_hint.h"
#include "tools/pvzan/files/input_file.h"
#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include <algorithm>
#include <unistd.h>
#include <utility>

namespace tool {

namespace {

constexpr std::uint64_t most_messages = 20; // for each file

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

void append(std::string& list, const std::string& item) {
    list += (list.empty() || item.empty() ? "" : ", ") + item;
}

} // namespace

file_report::file_report(std::string file, const pvzan_name& to, const text_options& options,
                         bool checking, line_sink sink)
    : file_(std::move(file)), from_(to), to_(to), options_(options), checking_(checking),
      colored_(wants_color(checking ? STDOUT_FILENO : STDERR_FILENO)),
      excerpts_(wants_excerpts(checking ? STDOUT_FILENO : STDERR_FILENO)), sink_(std::move(sink)) {
    json_file_ = json_string(file_);
    json_to_ = json_string(to_.shown);
}

void file_report::set_source(const pvzan_name& from) {
    from_ = from;
    json_from_ = json_string(from_.shown);
}

void file_report::enter_line(std::uint64_t line, const pvzan_name& from) {
    set_source(from);
    const message_style& style = current_style();
    if (style.json) {
        emit(fmt::format(R"({{"file":{},"line":{},"kind":"charset","from":{}}})", json_file_, line,
                         json_from_));
    } else if (!style.quiet && ++changes_ <= most_messages) {
        emit(fmt::format("{}:{}: {}{}", shown_name(file_), line, printable(from.shown),
                         changes_ == most_messages ? "; further changes are not told" : ""));
    }
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

std::string file_report::describe(const problem& p) const {
    const pvzan_fault& fault = p.fault;
    const problem_kind kind = kind_of(fault);
    if (kind == problem_kind::invalid || kind == problem_kind::incomplete) {
        return fmt::format("{}, at byte {}", printable(fault.why), fault.offset);
    }
    const std::string who =
        fault.scalars_count > 1
            ? fmt::format("{} {}", code_point(fault.scalars[0]), code_point(fault.scalars[1]))
            : character_text(fault.scalars[0]);
    const std::string again =
        fault.back_bytes_count > 0
            ? fmt::format("({})",
                          hex_bytes(bytes_view(fault.back_bytes).first(fault.back_bytes_count)))
            : character_text(fault.back[0]);
    const std::string to = printable(to_.shown);
    return fmt::format("{} {}, ({}) at byte {}", who,
                       kind == problem_kind::one_way
                           ? fmt::format("would come back from {} as {}", to, again)
                           : fmt::format("has no code in {}", to),
                       hex_bytes(p.blamed()), fault.offset);
}

// Once for each file.
void file_report::tell_hint(const problem& p) {
    const pvzan_fault& fault = p.fault;
    if (hinted_ || options_.similar || fault.scalars_count > 1) {
        return;
    }
    std::string hint = *fault.relative != '\0' ? relative_hint(fault) : std::string();
    if (hint.empty() && fault.kind == PVZAN_FAULT_OTHER_BACK && fault.back_bytes_count == 0 &&
        fault.back[0] >= 0x80) {
        hint = "    hint: --similar takes the two as equal";
    } else if (hint.empty() && fault.look_alike != 0) {
        hint = fmt::format("    hint: its usual stand-in there is {}; --similar uses it",
                           code_point(fault.look_alike));
    }
    if (!hint.empty()) {
        hinted_ = true;
        emit(hint);
    }
}

void file_report::tell(const problem& p) {
    const auto paint = [this](std::string_view color, std::string_view text) {
        return colored_ ? fmt::format("\x1b[{}m{}\x1b[0m", color, text) : std::string(text);
    };
    emit(fmt::format(
        "{} {} {}",
        paint("1", fmt::format("{}:{}:{}:", shown_name(file_), p.fault.line, p.fault.column)),
        is_fatal() ? paint("1;31", "error:") : paint("1;33", "warning:"), describe(p)));
    if (excerpts_ && excerpt_line_ != p.fault.line) {
        excerpt_line_ = p.fault.line;
        emit(fmt::format("    {}{}", p.before, p.after));
        emit(fmt::format("    {:{}}{}", "", p.columns, paint("1;32", "^")));
    }
    tell_hint(p);
}

void file_report::tell_json(const problem& p) {
    constexpr std::array kinds = {"invalid", "unrepresentable", "incomplete", "not_round_trip"};
    const pvzan_fault& fault = p.fault;
    const problem_kind kind = kind_of(fault);
    std::string line = fmt::format(
        "{{\"file\":{},\"line\":{},\"column\":{},\"byte\":{},\"kind\":\"{}\"", json_file_,
        fault.line, fault.column, fault.offset, kinds[static_cast<std::size_t>(kind)]);
    const bool one_way = kind == problem_kind::one_way;
    const bool character = kind == problem_kind::unrepresentable || one_way;
    if (character) {
        line += fmt::format(",\"char\":\"{}{}\"", code_point(fault.scalars[0]),
                            fault.scalars_count > 1 ? " " + code_point(fault.scalars[1]) : "");
    }
    line += fmt::format(",\"bytes\":\"{}\"", hex_bytes(p.bytes(), ""));
    if (one_way) {
        const bytes_view back = bytes_view(fault.back_bytes).first(fault.back_bytes_count);
        line += fmt::format(",\"again\":\"{}\"",
                            back.empty() ? code_point(fault.back[0]) : hex_bytes(back, ""));
    }
    line += character ? fmt::format(",\"to\":{}}}", json_to_)
                      : fmt::format(",\"from\":{}}}", json_from_);
    emit(line);
}

void file_report::add(const problem& p) {
    count(kind_of(p.fault), p.fault.scalars[0], 1);
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

void file_report::count(problem_kind kind, char32_t scalar, std::uint64_t count) {
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
    const std::uint32_t policy = options_.on_error;
    if (policy == PVZAN_REFERENCE && characters > 0) {
        append(text,
               counted(characters, "character reference", "character references") + " written");
    }
    if (policy == PVZAN_REFERENCE && invalid > 0) {
        append(text, counted(invalid, "invalid sequence", "invalid sequences") + " written in hex");
    } else if (policy != PVZAN_REFERENCE && policy != PVZAN_TELL && problems() > 0) {
        append(text, fmt::format("{} {}", totals(),
                                 policy == PVZAN_HEX    ? "written in hex"
                                 : policy == PVZAN_DROP ? "dropped"
                                                        : "replaced by a substitute"));
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
    if (!facts.controls.empty() && problems() == 0 && !failed && !style.quiet) {
        emit(fmt::format("{}: {}", name, facts.controls));
    }
    const std::string changed = changes(facts);
    if (checking_ && problems() > 0) {
        emit(fmt::format("{}: {}", name, check_totals(facts)));
    } else if (failed) {
        emit(fmt::format("{}: not converted: {}; {}", name, totals(), lost));
    } else if (!changed.empty() && !style.quiet) {
        emit(fmt::format("{}: {}", name, changed));
    } else if (style.verbose) {
        constexpr std::array asked = {"", "LF", "CRLF", "CR"}; // by PVZAN_BREAKS_...
        const bool keeps = options_.breaks == PVZAN_BREAKS_AS_FOUND;
        const auto with_breaks = [](const std::string& charset, std::string_view breaks) {
            return breaks.empty() ? charset : fmt::format("{}, {}", charset, breaks);
        };
        const std::uint64_t own = facts.counts.private_use;
        emit(fmt::format(
            "{}: {} -> {}  ({}, {}, {})", name, with_breaks(printable(from_.shown), facts.breaks),
            with_breaks(printable(to_.shown), keeps || facts.breaks.empty()
                                                  ? facts.breaks
                                                  : std::string(asked[options_.breaks])),
            counted(facts.bytes_in, "byte", "bytes"),
            counted(facts.counts.characters, "character", "characters"),
            own > 0 ? counted(own, "character", "characters") + " of private use"
                    : std::string("nothing lost")));
    }
}

} // namespace tool
