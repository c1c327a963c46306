#include "tools/pvzan/convert/file_report.h"

#include "tools/pvzan/convert/relative_hint.h"
#include "tools/pvzan/report/json.h"
#include "tools/pvzan/report/message.h"
#include "tools/pvzan/report/shown_text.h"

#include <algorithm>
#include <unistd.h>
#include <utility>

namespace tool {

namespace {

constexpr std::uint64_t most_messages = 20; // for each file
using character_counts = std::map<char32_t, std::uint64_t>;

// "U+301C ×2, U+00A5 ×1", the most frequent ones.
std::string most_frequent(const character_counts& counts) {
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

std::string json_counts(const character_counts& counts) {
    json_object object;
    for (const auto& [scalar, count] : counts) {
        object.add(code_point(scalar), count);
    }
    return object.text();
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
        emit(json_object()
                 .add_json("file", json_file_)
                 .add("line", line)
                 .add("kind", "charset")
                 .add_json("from", json_from_)
                 .text());
    } else if (!style.quiet && ++changes_ <= most_messages) {
        emit(fmt::format("{}:{}: {}{}", shown_name(file_), line, printable(from.shown),
                         changes_ == most_messages ? "; further changes are not reported" : ""));
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
    std::string hint;
    if (*fault.relative != '\0') {
        hint = relative_hint(fault);
    } else if (fault.kind == PVZAN_FAULT_OTHER_BACK && fault.back_bytes_count == 0 &&
               fault.back[0] >= 0x80) {
        hint = "--similar takes the two as equal";
    } else if (fault.look_alike != 0) {
        hint = fmt::format("--similar writes {} instead", character_text(fault.look_alike));
    }
    if (!hint.empty()) {
        hinted_ = true;
        emit("    hint: " + hint);
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
        emit(fmt::format("    {}{}", p.before.text, p.after));
        emit(fmt::format("    {:{}}{}", "", p.before.columns, paint("1;32", "^")));
    }
    tell_hint(p);
}

void file_report::tell_json(const problem& p) {
    constexpr std::array kinds = {"invalid", "unrepresentable", "incomplete", "not_round_trip"};
    const pvzan_fault& fault = p.fault;
    const problem_kind kind = kind_of(fault);
    const bool one_way = kind == problem_kind::one_way;
    const bool character = kind == problem_kind::unrepresentable || one_way;
    json_object line;
    line.add_json("file", json_file_)
        .add("line", fault.line)
        .add("column", fault.column)
        .add("byte", fault.offset)
        .add("kind", kinds[static_cast<std::size_t>(kind)]);
    if (character) {
        line.add("char", code_point(fault.scalars[0]) +
                             (fault.scalars_count > 1 ? " " + code_point(fault.scalars[1]) : ""));
    }
    line.add("bytes", hex_bytes(p.bytes(), ""));
    if (one_way) {
        const bytes_view back = bytes_view(fault.back_bytes).first(fault.back_bytes_count);
        line.add("again", back.empty() ? code_point(fault.back[0]) : hex_bytes(back, ""));
    }
    emit(line.add_json(character ? "to" : "from", character ? json_to_ : json_from_).text());
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

void file_report::note(std::string_view message) {
    if (current_style().json) {
        emit(json_object()
                 .add_json("file", json_file_)
                 .add("kind", "note")
                 .add("message", message)
                 .text());
    } else if (!current_style().quiet) {
        emit(fmt::format("pvzan: {}: {}", printable(shown_name(file_)), message));
    }
}

void file_report::add_look_alike(char32_t scalar) {
    ++look_alikes_[scalar];
}

// ---- All of them -------------------------------------------------------------------------------

std::string file_report::totals() const {
    constexpr std::array things = {"invalid sequence", "unrepresentable character",
                                   "incomplete character"};
    std::vector<std::string> parts;
    for (std::size_t i = 0; i < things.size(); ++i) {
        if (of_kind_[i] > 0) {
            parts.push_back(counted(of_kind_[i], things[i]));
        }
    }
    if (of_kind_[3] > 0) {
        parts.push_back(counted(of_kind_[3], "character") + " that would come back changed");
    }
    return joined(parts, ", ");
}

std::string file_report::check_totals(const text_facts& facts) const {
    std::vector<std::string> parts;
    if (invalid() > 0) {
        parts.push_back(counted(invalid(), "invalid sequence"));
    }
    const std::string all = counted(facts.counts.characters, "character");
    if (of_kind_[1] > 0) {
        parts.push_back(fmt::format("{} of {} cannot be written ({})", grouped(of_kind_[1]), all,
                                    most_frequent(lacking_)));
    }
    if (of_kind_[3] > 0) {
        parts.push_back(fmt::format("{} of {} would come back changed ({})", grouped(of_kind_[3]),
                                    all, most_frequent(one_way_)));
    }
    return joined(parts, ", ");
}

// What stands in the output that did not stand in the text.
std::string file_report::changes(const text_facts& facts) const {
    std::vector<std::string> parts;
    std::uint64_t look_alikes = 0;
    for (const auto& [scalar, count] : look_alikes_) {
        look_alikes += count;
    }
    if (look_alikes > 0) {
        parts.push_back(fmt::format("{} used ({})", counted(look_alikes, "look-alike"),
                                    most_frequent(look_alikes_)));
    }
    if (facts.counts.composed > 0) {
        parts.push_back(counted(facts.counts.composed, "character") + " composed");
    }
    const std::uint32_t policy = options_.on_error;
    const bool refers = policy == PVZAN_REFERENCE;
    if (refers && problems() > invalid()) {
        parts.push_back(counted(problems() - invalid(), "character reference") + " written");
    }
    if (refers && invalid() > 0) {
        parts.push_back(counted(invalid(), "invalid sequence") + " written in hex");
    } else if (!refers && policy != PVZAN_TELL && problems() > 0) {
        parts.push_back(totals() + (policy == PVZAN_HEX    ? " written in hex"
                                    : policy == PVZAN_DROP ? " dropped"
                                                           : " replaced by substitutes"));
    }
    return joined(parts, ", ");
}

void file_report::tell_summary_json(const text_facts& facts, bool failed) {
    character_counts by_character = lacking_;
    for (const auto& [scalar, count] : one_way_) {
        by_character[scalar] += count;
    }
    emit(json_object()
             .add_json("file", json_file_)
             .add("kind", "summary")
             .add_json("from", json_from_)
             .add_json("to", json_to_)
             .add("bytes_in", facts.bytes_in)
             .add("bytes_out", facts.bytes_out)
             .add("chars", facts.counts.characters)
             .add("private_use", facts.counts.private_use)
             .add("composed", facts.counts.composed)
             .add("invalid", invalid())
             .add("unrepresentable", of_kind_[1])
             .add("not_round_trip", of_kind_[3])
             .add_json("look_alikes", json_counts(look_alikes_))
             .add_json("by_char", json_counts(by_character))
             .add("failed", failed)
             .text());
}

void file_report::finish(const text_facts& facts, bool failed, std::string_view lost) {
    if (current_style().json) {
        tell_summary_json(facts, failed);
    } else {
        tell_totals(facts, failed, lost);
    }
    flush();
}

// "UTF-8, LF -> UTF-16, LF  (54 bytes, 26 characters, nothing lost)"
std::string file_report::way(const text_facts& facts) const {
    constexpr std::array asked = {"", "LF", "CRLF", "CR"}; // by PVZAN_BREAKS_...
    const bool keeps = options_.breaks == PVZAN_BREAKS_AS_FOUND || facts.breaks.empty();
    const auto with_breaks = [](const char* charset, const std::string& breaks) {
        return printable(charset) + (breaks.empty() ? "" : ", " + breaks);
    };
    const std::uint64_t own = facts.counts.private_use;
    return fmt::format("{} -> {}  ({}, {}, {})", with_breaks(from_.shown, facts.breaks),
                       with_breaks(to_.shown, keeps ? facts.breaks : asked[options_.breaks]),
                       counted(facts.bytes_in, "byte"),
                       counted(facts.counts.characters, "character"),
                       own > 0 ? counted(own, "private-use character") : "nothing lost");
}

void file_report::tell_totals(const text_facts& facts, bool failed, std::string_view lost) {
    const message_style& style = current_style();
    const std::string changed = changes(facts);
    const auto emit_about = [&](const std::string& text) {
        emit(fmt::format("{}: {}", shown_name(file_), text));
    };
    if (!facts.controls.empty() && problems() == 0 && !failed && !style.quiet) {
        emit_about(facts.controls);
    }
    if (is_fatal() && problems() > shown_ && shown_ > 0) {
        emit_about(counted(problems() - shown_, "more problem") + " not shown");
    }
    if (checking_ && problems() > 0) {
        emit_about(check_totals(facts));
    } else if (failed) {
        emit_about(fmt::format("not converted: {}; {}", totals(), lost));
    } else if (!changed.empty() && !style.quiet) {
        emit_about(changed);
    } else if (style.verbose) {
        emit_about(way(facts));
    }
}

} // namespace tool
