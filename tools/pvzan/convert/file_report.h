// What is told about the conversion of one file.
#pragma once

#include "tools/pvzan/convert/text_feed.h"

#include <array>
#include <functional>
#include <map>
#include <string>

namespace tool {

// What a conversion found, apart from problems.
struct text_facts {
    std::uint64_t bytes_in = 0, bytes_out = 0;
    pvzan_counts counts{};
    std::string breaks;   // of the source: "LF", "CRLF", "CR", "mixed line breaks"; or empty
    std::string controls; // what control_hint says
};

using line_sink = std::function<void(std::string_view)>; // whole lines

class file_report {
public:
    // checking: the words are those of a check, not of a conversion.
    file_report(std::string file, const pvzan_name& to, const text_options& options, bool checking,
                line_sink sink);

    void set_source(const pvzan_name& from);
    // From this line on the text is in another charset.
    void enter_line(std::uint64_t line, const pvzan_name& from);
    void add(const problem& p);
    // What else there is to know, for people.
    void note(std::string_view message);
    void add_look_alike(char32_t scalar);
    // Of problems that are not told.
    void count(problem_kind kind, char32_t scalar, std::uint64_t count);

    // failed: nothing came of it, as the lost words tell.
    void flush(); // what is kept back, since a call for each line takes long
    void finish(const text_facts& facts, bool failed, std::string_view lost);

    [[nodiscard]] std::uint64_t problems() const;

private:
    void tell(const problem& p);
    void tell_json(const problem& p);
    void tell_hint(const problem& p);
    void tell_totals(const text_facts& facts, bool failed, std::string_view lost);
    void tell_summary_json(const text_facts& facts, bool failed);
    [[nodiscard]] std::string describe(const problem& p) const;
    [[nodiscard]] std::string totals() const;
    [[nodiscard]] std::string check_totals(const text_facts& facts) const;
    [[nodiscard]] std::string changes(const text_facts& facts) const;
    [[nodiscard]] std::string way(const text_facts& facts) const;
    [[nodiscard]] std::uint64_t invalid() const { return of_kind_[0] + of_kind_[2]; }
    [[nodiscard]] bool is_fatal() const { return checking_ || options_.on_error == PVZAN_TELL; }
    void emit(std::string_view line);

    std::string file_;
    pvzan_name from_, to_;
    std::string json_file_, json_from_, json_to_; // as JSON quotes them
    text_options options_;
    bool checking_;
    bool colored_, excerpts_;
    line_sink sink_;
    std::array<std::uint64_t, 4> of_kind_{}; // by problem_kind
    std::map<char32_t, std::uint64_t> lacking_, one_way_, look_alikes_;
    std::string lines_;
    std::uint64_t changes_ = 0; // of charsets
    std::uint64_t shown_ = 0, excerpt_line_ = 0;
    bool hinted_ = false;
};

} // namespace tool
