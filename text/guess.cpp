// Which charset a text may be in: what the library's detection finds, and how sure that is.
#include "text/directory.h"
#include "text/names.h"
#include "text/record.h"

#include "pvzan.h"

#include <algorithm>

namespace text {

namespace {

bool is_ascii(const uint8_t* bytes, std::size_t size) {
    return std::all_of(bytes, bytes + size, [](u8 byte) { return byte < 0x80; });
}

// A mark or a declaration says it; of the rest the detection knows no more than a likelihood.
constexpr u32 declared = 990000, likely = 700000;

} // namespace

} // namespace text

using namespace text;

extern "C" size_t pvzan_guess(const uint8_t* bytes, size_t size, int32_t complete, uint32_t flags,
                              pvzan_candidate* candidates, size_t most) {
    if (bytes == nullptr || size == 0 || flags != 0 || candidates == nullptr || most == 0 ||
        !is_record(candidates)) {
        return 0;
    }
    constexpr std::size_t looked_at = 1U << 20;
    pvzan_detection_request request;
    request.text = bytes;
    request.textPos = 0;
    request.textEnd = static_cast<i32>(std::min(size, looked_at));
    if (cconvChkEncode(&request) == 0) {
        return 0;
    }
    pvzan_candidate found = {};
    char name[64];
    copy_text(name, request.encodingName);
    if (!resolve(name, 0, found.name)) {
        return 0;
    }
    const bool told = request.bomFound != 0 || request.xmlDeclared != 0;
    const bool plain = !told && is_ascii(bytes, size) && found.name.kind == PVZAN_KIND_OTHER;
    found.per_million = told ? declared : plain && complete != 0 ? 1000000 : likely;
    describe_codes(find_group(found.name.charset), found.name);
    if (found.name.unit > 1 && found.name.kind != PVZAN_KIND_OTHER) {
        found.name.order = request.bigEndian != 0 ? PVZAN_ORDER_BIG : PVZAN_ORDER_LITTLE;
        found.name.mark = request.bomFound != 0 ? 1 : 0;
    }
    found.name.size = sizeof found.name;
    fill_record(*candidates, found);
    return 1;
}
