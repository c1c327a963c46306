// Which charset a text is in. Part of pvzan.hpp.
#ifndef PVZAN_DETECTION_HPP
#define PVZAN_DETECTION_HPP

#include "charset.hpp"

#include "../pvzan.h"

#include <algorithm>
#include <memory>
#include <optional>

namespace pvzan {

struct detection {
    std::string name;             // as the library tells it; a declaration's, unchecked
    bool big_endian = true;       // of charsets of wider units
    bool mark = false;            // there is a byte-order mark
    bool declared = false;        // there is an XML declaration
    std::uint32_t line_break = 0; // PVZAN_NEWLINE_...; 0: none was found

    // For a converter: the name with its byte order.
    std::string charset_name() const {
        return cconvIsEndianAware(name.c_str()) == 0 ? name : name + (big_endian ? "be" : "le");
    }
};

// By its byte-order mark, else its XML declaration, else by how well its start fits each charset; a
// guess then, better the more text there is. Nothing: it fits none, or there is no charset
// directory.
inline std::optional<detection> detect(std::string_view text) {
    if (charset_directory().empty()) {
        return std::nullopt;
    }
    constexpr std::size_t enough = 1 << 20; // more than the library looks at
    const auto request = std::make_unique<pvzan_detection_request>();
    request->text = reinterpret_cast<const std::uint8_t*>(text.data());
    request->textEnd = static_cast<std::int32_t>(std::min(text.size(), enough));
    if (cconvChkEncode(request.get()) == 0) {
        return std::nullopt;
    }
    detection found;
    found.name = request->encodingName;
    found.big_endian = request->bigEndian != 0;
    found.mark = request->bomFound != 0;
    found.declared = request->xmlDeclared != 0;
    found.line_break = request->newlineKind;
    return found;
}

} // namespace pvzan
#endif
