// The conversion of one text, piece by piece, with the places of its problems.
//
// The library converts whole pieces at full speed. Only a piece in which something is wrong is
// taken back and converted line by line, and only a line in which something is wrong, character by
// character: that is where problems are met and told.
#pragma once

#include "tools/pvzan/character_reader.h"
#include "tools/pvzan/text_place.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tool {

enum class problem_kind { invalid, unrepresentable, incomplete };

struct problem {
    problem_kind kind;
    text_place place;
    bytes_view bytes;      // the first few; they live as long as the call
    char32_t scalar, mark; // unrepresentable: the character, and the mark in the same code or 0
};

struct text_sinks {
    std::function<void(bytes_view)> output;
    std::function<void(const problem&)> problems;
};

// The output ends before the first problem, closed. All problems are told.
class text_stream {
public:
    text_stream(charset_name from, charset_name to, text_sinks sinks);

    // False when the library does not know a charset; unknown() says which.
    bool open();
    [[nodiscard]] const std::string& unknown() const { return unknown_; }

    // Converts what it can of the text, and returns how much that was: the rest is to be given
    // again with more behind it. The first text is to be long enough for a byte-order mark.
    std::size_t feed(bytes_view text) { return take(text, false); }
    // Takes the rest as the end of the text, and closes the output.
    void finish(bytes_view rest);

private:
    std::size_t take(bytes_view text, bool last);
    std::size_t skip_mark(bytes_view text);
    [[nodiscard]] std::size_t whole_piece(bytes_view text) const;
    bool convert_fast(bytes_view text, bool last, std::size_t& used);
    std::size_t convert_by_line(bytes_view text, bool last);
    std::size_t convert_by_character(bytes_view text, std::size_t end, bool last);
    void convert_character(const text_character& character, bytes_view text);
    std::uint32_t run(bytes_view text, std::size_t end);
    std::uint32_t put(bytes_view spelled);
    [[nodiscard]] bool is_writable(const text_character& character) const;
    void report(problem_kind kind, bytes_view blamed, char32_t scalar = 0, char32_t mark = 0);
    void close();
    void deliver();

    charset_name from_, to_;
    text_sinks sinks_;
    std::string unknown_;
    character_reader reader_;
    std::unique_ptr<pvzan_session> session_, saved_;
    std::vector<std::uint8_t> out_; // all output of one piece, so that it can be taken back
    text_place place_;
    bool started_ = false;
    bool failed_ = false; // behind the first problem there is no output
};

} // namespace tool
