// The verbs "convert" and "check".
#pragma once

#include "tools/pvzan/convert/text_options.h"

#include <string>
#include <vector>

namespace tool {

struct convert_options {
    std::string from = "auto"; // one name, or several to choose from
    std::string language;      // where the source is guessed; empty: the environment's
    bool per_line = false;
    std::string to = "utf-8";
    std::string output;      // empty: standard output
    bool check = false;      // write nothing, and convert back
    bool repair = false;     // undo misreadings
    bool web_labels = false; // names mean what they mean to browsers
    bool in_place = false;
    std::string backup_suffix; // in place: keeps the old file; empty: does not
    bool recursive = false;
    unsigned jobs = 0;              // 0: as many as fit
    std::vector<std::string> files; // none: standard input, as is "-"
    text_options text;
};

// Returns an exit_status.
int convert_files(const convert_options& options);

} // namespace tool
