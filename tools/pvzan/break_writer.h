// Makes the line breaks of an output what was asked for: LF, CR and CR LF, and nothing else that
// may part lines, such as U+0085, U+2028 and U+2029.
#pragma once

#include "tools/pvzan/text_options.h"
#include "tools/pvzan/unicode_text.h"

#include <vector>

namespace tool {

class break_writer {
public:
    break_writer(line_breaks asked, const charset_name& charset);

    // The next piece of the output, which ends behind a whole character. The result lives until the
    // next call.
    bytes_view operator()(bytes_view text);

private:
    line_breaks asked_;
    charset_name charset_;
    std::vector<std::uint8_t> cr_, lf_, break_, out_;
    bool behind_cr_ = false; // the break has been written; an LF belongs to it
};

} // namespace tool
