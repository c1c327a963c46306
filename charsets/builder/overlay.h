// A second charset directory from the same sources, as a short list of differences.
#pragma once

#include "charsets/builder/directory.h"

namespace charsets {

// tables/*.tsv of the overlay replace tables of the same name, or with %changes some of their
// scalars; the file `omit` names definitions to leave out.
void apply_overlay(directory& changed, const std::filesystem::path& overlay);

} // namespace charsets
