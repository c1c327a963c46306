// The verb "repair" for one input.
#pragma once

#include "tools/pvzan/convert/convert_text.h"

namespace tool {

// Undoes what a wrong charset has made of a text in UTF-8; what is plausible passes as it is.
text_result repair_text(const input_file& file, const byte_sink& output, file_report& report);

} // namespace tool
