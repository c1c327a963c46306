// The verbs and their options: one table, from which they are read, and which --help shows.
#pragma once

#include "tools/pvzan/convert/convert_file.h"
#include "tools/pvzan/detect/detect_file.h"
#include "tools/pvzan/directory/list_charsets.h"
#include "tools/pvzan/report/message.h"

#include <span>

namespace tool {

enum class verb { convert, check, detect, repair, list };

struct verb_text {
    const char *name, *usage, *what;
};
// In the order of the enumeration.
std::span<const verb_text> verbs();

struct command {
    verb what = verb::convert;
    message_style style;
    std::string charset_dir; // empty: where it is usually found
    convert_options convert; // and check and repair
    detect_options detect;
    list_options list;
    std::vector<std::string> operands;
    bool asks_help = false, asks_version = false;
    std::string mistake; // in an option
};

// What stands behind an option.
struct option_value {
    std::string text;
    std::uint64_t number = 0; // of "N"; of "a|b|c" the index of the word
};

struct option {
    unsigned verbs; // a bit for each
    char letter;    // 0: none
    const char* name;
    const char* value; // null: takes none; "N": a number; "a|b|c": one of these words
    const char* help;  // null: is not shown
    void (*take)(command& c, const option_value& value);

    [[nodiscard]] bool belongs_to(verb what) const {
        return (verbs >> static_cast<unsigned>(what) & 1U) != 0;
    }
};
std::span<const option> options();

std::string help_text(verb what);

} // namespace tool
