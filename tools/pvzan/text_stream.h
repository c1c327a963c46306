// The conversion of one text, piece by piece, with the places of its problems.
//
// The library converts at full speed; only a piece in which something was wrong is gone through
// once more, one character at a time, to tell where.
#pragma once

#include "tools/pvzan/charset_name.h"

#include "pvzan.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace tool {

using bytes_view = std::span<const std::uint8_t>;

enum class problem_kind { invalid, unrepresentable, incomplete };

struct problem {
    problem_kind kind;
    std::uint64_t line, column; // from 1, the column in characters
    std::uint64_t offset;       // from 0, in the input
    std::vector<std::uint8_t> bytes;
    char32_t character; // unrepresentable: its Unicode value, 0 where that is not known
};

struct text_sinks {
    std::function<bool(bytes_view)> output; // false: stop, nobody takes it
    std::function<void(const problem&)> problems;
};

// A place in the input.
struct text_place {
    std::uint64_t line = 1, column = 1, offset = 0;
    bool behind_cr = false;
};

class text_stream {
public:
    text_stream(charset_name from, charset_name to, text_sinks sinks);

    // False when the library does not know a charset; unknown() says which.
    bool open();
    [[nodiscard]] const std::string& unknown() const { return unknown_; }

    // Converts what it can of the text, and returns how much that was: the rest, a few bytes at
    // most, is to be given again with more behind it.
    std::size_t feed(bytes_view text);
    // Takes the rest as the end of the text, and closes the output.
    void finish(bytes_view rest);

    [[nodiscard]] bool stopped() const { return stopped_; }
    [[nodiscard]] std::uint64_t characters() const { return characters_; }

private:
    std::size_t skip_mark(bytes_view text);
    std::size_t convert_piece(bytes_view text);
    std::size_t convert(bytes_view text, std::size_t& faults);
    void convert_part(bytes_view text, std::size_t end, std::size_t& faults);
    void deliver();
    void locate(bytes_view text, const pvzan_session& start);
    [[nodiscard]] std::size_t step_end(bytes_view text, std::size_t begin) const;
    void report(bool invalid, const text_place& at, bytes_view blamed, const pvzan_session& s);
    char32_t unicode_value(bytes_view character, const pvzan_session& at);

    charset_name from_, to_;
    text_sinks sinks_;
    std::string unknown_;
    std::unique_ptr<pvzan_session> session_, snapshot_, probe_;
    std::vector<std::uint8_t> out_;
    text_place place_;
    std::uint64_t characters_ = 0;
    bool started_ = false;
    bool stopped_ = false;
};

} // namespace tool
