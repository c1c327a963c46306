// The conversion of one input, from its first byte to its last.
#pragma once

#include "tools/pvzan/convert/file_report.h"
#include "tools/pvzan/convert/text_feed.h"
#include "tools/pvzan/detect/source_guess.h"
#include "tools/pvzan/files/input_file.h"

#include <functional>
#include <string>
#include <vector>

namespace tool {

struct text_conversion {
    bool guess = false;    // the source
    bool per_line = false; // of each line, among those named
    bool repair = false;   // undo what a wrong charset has made of it, and convert nothing
    guess_choice choice;
    pvzan_name from, to;
    text_options options;
    unsigned jobs = 1; // threads for one input
};

enum class text_end {
    whole,      // converted, as far as the policy allows
    unreadable, // the input; the error tells why
    unknown,    // nobody can tell the charset; the error tells why
    binary,     // no text; the error tells what it is
    unwritable  // the output refused
};

struct text_result {
    text_end end = text_end::whole;
    bool failed = false; // the output is not what was asked for
    std::string error;
    text_facts facts;
};

using byte_sink = std::function<bool(bytes_view)>; // false to end it all

// The report gets all problems, and the source when it is known.
text_result convert_text(const input_file& file, const text_conversion& conversion,
                         const byte_sink& output, file_report& report);

} // namespace tool
