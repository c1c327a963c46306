// The conversion of one text, piece by piece, with the places of its problems. The library converts
// and finds them; what is written in their place, and whether it goes on, is settled here.
#pragma once

#include "tools/pvzan/convert/text_options.h"
#include "tools/pvzan/detect/line_breaks.h"
#include "tools/pvzan/directory/charset.h"
#include "tools/pvzan/report/shown_text.h"

#include <array>
#include <string>
#include <vector>

namespace tool {

// One way: the target has the character, but it comes back as another.
enum class problem_kind { invalid, unrepresentable, incomplete, one_way };
problem_kind kind_of(const pvzan_fault& fault);

struct problem {
    pvzan_fault fault; // with the place in the whole text
    excerpt before;    // the text around it, when excerpts are wanted
    std::string after;

    // What the words are about, and what is stepped over.
    [[nodiscard]] bytes_view blamed() const { return first(fault.blamed); }
    [[nodiscard]] bytes_view bytes() const { return first(fault.length); }

private:
    [[nodiscard]] bytes_view first(std::size_t count) const {
        return bytes_view(fault.bytes).first(std::min(count, std::size(fault.bytes)));
    }
};

struct text_sinks {
    std::function<void(bytes_view)> output;
    std::function<void(const problem&)> problems;
    // A look-alike was written for the character.
    std::function<void(char32_t)> look_alikes;
};

// Where a text stands and what came through: a part's counts, which began at begun, behind those of
// what is before it.
pvzan_counts behind(const pvzan_counts& before, const pvzan_counts& begun, pvzan_counts part);
// Of no text.
pvzan_counts no_counts();

// Where a conversion stands, for another of the same charsets and options.
struct text_state {
    std::array<std::uint8_t, 512> bytes{};
    std::size_t size = 0;
};

// With the policy stop, the output ends before the first problem, closed. All problems are told.
class text_feed {
public:
    text_feed(const pvzan_name& from, const pvzan_name& to, text_sinks sinks,
              const text_options& options);

    // False when the library cannot do it; error says why.
    bool open(pvzan_error* error = nullptr);
    // The same for a part of what another one converts.
    [[nodiscard]] bool open_as(const text_feed& other);
    // For a text that has been ASCII so far: the rest is in this charset.
    bool change_source(const pvzan_name& from);

    void feed(bytes_view text) { take(text, PVZAN_PART); }
    void finish() { take({}, PVZAN_LAST); }

    // For a part of a text: it begins as the part before it ended; places and counts are its own.
    void begin_inside(const text_state& state, code_unit unit);
    // Goes on behind parts that others have converted.
    void go_on(const text_state& state, const pvzan_counts& counts, bool failed);
    [[nodiscard]] text_state state() const;
    [[nodiscard]] bool stands_as(const text_state& state) const;

    // The output ends early: because of the policy, or of too many problems.
    [[nodiscard]] bool failed() const { return failed_; }
    [[nodiscard]] pvzan_counts counts() const;
    [[nodiscard]] const pvzan_name& source() const { return from_; }
    [[nodiscard]] const pvzan_name& target() const { return to_; }
    [[nodiscard]] const text_options& options() const { return options_; }
    [[nodiscard]] code_unit unit() const { return unit_; }

private:
    [[nodiscard]] pvzan_counts now() const; // as the converter counts
    void begin_at(const pvzan_counts& counts);
    void restore(const text_state& state);
    void take(bytes_view text, std::int32_t how);
    void meet_fault(bytes_view text);
    bool write_look_alike(const pvzan_fault& fault);
    bool answer(std::int32_t how, const std::string& text = {});
    void add_excerpt(problem& told, bytes_view text) const;
    void keep_for_excerpts(bytes_view text);
    void flush();
    void deliver();

    pvzan_name from_, to_;
    text_sinks sinks_;
    text_options options_;
    converter converter_;
    code_unit unit_;
    std::unique_ptr<std::uint8_t[]> out_;
    std::size_t filled_ = 0;
    pvzan_counts begun_ = no_counts();  // as the converter counted when this began
    pvzan_counts before_ = no_counts(); // of the whole text, up to there
    std::uint64_t taken_ = 0;           // bytes, by the converter's places
    std::vector<std::uint8_t> kept_;    // the last of them, for excerpts
    std::uint64_t problems_ = 0;
    bool fresh_ = true, written_ = false;
    bool begins_ = true;  // the output, where a mark may be due
    bool failed_ = false; // there is no more output
};

} // namespace tool
