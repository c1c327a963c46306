// The conversion of one text, piece by piece, with the places of its problems.
//
// The library converts whole pieces at full speed. Only a piece in which something is wrong is
// taken back and converted line by line, and only a line in which something is wrong, character by
// character: that is where problems are met and told.
#pragma once

#include "tools/pvzan/break_writer.h"
#include "tools/pvzan/character_reader.h"
#include "tools/pvzan/composition.h"
#include "tools/pvzan/line_excerpt.h"
#include "tools/pvzan/one_way.h"
#include "tools/pvzan/read_back.h"
#include "tools/pvzan/text_options.h"
#include "tools/pvzan/text_place.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tool {

// One way: the target has the character, but it comes back as another.
enum class problem_kind { invalid, unrepresentable, incomplete, one_way };

struct problem {
    problem_kind kind;
    text_place place = {};
    bytes_view bytes = {};               // the first few; they live as long as the call
    char32_t scalar = 0, mark = 0;       // of the character, and the mark in the same code or 0
    fault why = fault::none;             // invalid
    int follower = -1;                   // the byte behind bytes, if any
    bytes_view comes_back = {};          // one way: as what, in the source charset
    char32_t again = 0;                  // one way: as what, where that is one known character
    std::string before = {}, after = {}; // the text around it, when excerpts are wanted
    std::size_t columns = 0;             // of before
};

struct text_sinks {
    std::function<void(bytes_view)> output;
    std::function<void(const problem&)> problems;
    // A look-alike was written for the character.
    std::function<void(char32_t)> look_alikes = {};
};

// What came through, when counts are wanted.
struct text_counts {
    std::uint64_t characters = 0;
    std::uint64_t private_use = 0; // characters that mean what two parties have agreed upon
    std::uint64_t composed = 0;    // written for a letter and marks

    text_counts& operator+=(const text_counts& more);
};

// How a part of a text leaves the reading and the writing to the next one.
struct stream_state {
    source_state source;
    std::uint32_t written_set = 0; // designated in the output; 0: none yet

    bool operator==(const stream_state&) const = default;
};

// The byte-order mark at the start of a text, where the charset may have one; its length, or 0. The
// charset gets the byte order.
std::size_t find_mark(bytes_view text, charset_name& charset);

// With the policy stop, the output ends before the first problem, closed. All problems are told.
class text_stream {
public:
    text_stream(charset_name from, charset_name to, text_sinks sinks, text_options options = {});

    // False when the library does not know a charset; unknown() says which.
    bool open();
    [[nodiscard]] const std::string& unknown() const { return unknown_; }

    // For a text that has been ASCII so far: the rest is in this charset.
    bool change_source(charset_name from);
    // For a part of a text: it begins as the part before it ended, without a byte-order mark.
    void begin_inside(const stream_state& state);
    // Where a part begins that follows a line feed, unless something odd is before it.
    [[nodiscard]] stream_state behind_line_feed() const;
    [[nodiscard]] stream_state state() const;
    [[nodiscard]] const charset_name& source() const { return from_; }
    // Goes on behind parts that others have converted.
    void go_on(const stream_state& state, const text_place& place, const text_counts& counts,
               bool written, bool failed);

    // Converts what it can of the text, and returns how much that was: the rest is to be given
    // again with more behind it. The first text is to be long enough for a byte-order mark.
    std::size_t feed(bytes_view text) { return take(text, false); }
    // Takes the rest as the end of the text, and closes the output.
    void finish(bytes_view rest);
    // Takes the rest as the end of a part. The output stays open.
    void finish_part(bytes_view rest) { take(rest, true); }

    // The output ends early: because of the policy, or of too many problems.
    [[nodiscard]] bool failed() const { return failed_; }
    [[nodiscard]] const text_place& place() const { return place_; }
    [[nodiscard]] const text_counts& counts() const { return counts_; }
    [[nodiscard]] bool had_mark() const { return had_mark_; }

private:
    std::size_t take(bytes_view text, bool last);
    [[nodiscard]] source_state source_now() const;
    std::size_t skip_mark(bytes_view text);
    [[nodiscard]] std::size_t whole_piece(bytes_view text) const;
    void know_one_way(bool high, bool ascii);
    bool is_clean(bytes_view text, const charset_name& form);
    bool convert_fast(bytes_view text, bool last, std::size_t& used);
    void count_characters(bytes_view unicode, const charset_name& form);
    bool convert_whole(bytes_view text, bool last, std::size_t& used, std::size_t& tail);
    bool convert_by_utf8(bytes_view text, bool last, std::size_t& used, std::size_t& tail);
    std::size_t convert_by_line(bytes_view text, bool last);
    std::size_t convert_by_character(bytes_view text, std::size_t end, bool last);
    text_character read_character(bytes_view text);
    void convert_character(const text_character& character, bytes_view text);
    bool convert_known(const text_character& character, bytes_view text);
    std::uint32_t run(bytes_view text, std::size_t end);
    std::uint32_t put(bytes_view spelled);
    void put_utf8(const std::string& text);
    [[nodiscard]] bool is_writable(const text_character& character) const;
    void report(problem told, bytes_view text, std::size_t bytes, std::size_t blamed);
    void report_open_set();
    void add_excerpt(problem& told, bytes_view behind);
    void close();
    void deliver();

    charset_name from_, to_;
    text_sinks sinks_;
    text_options options_;
    bool by_utf8_; // the library's direct way would leave ASCII, or lose characters in silence
    std::string unknown_;
    character_reader reader_;
    one_way_characters one_way_;
    composer composer_;
    std::optional<read_back> back_;
    std::unique_ptr<pvzan_session> session_, saved_;
    break_writer breaks_;
    std::vector<std::uint8_t> out_; // all output of one piece, so that it can be taken back
    text_place place_;
    line_excerpt line_;
    char32_t substitute_ = 0;
    text_counts counts_;
    std::uint64_t problems_ = 0;
    bool one_way_known_ = false, one_way_ascii_known_ = false;
    bool started_ = false, had_mark_ = false;
    bool failed_ = false; // there is no more output
};

} // namespace tool
