#include "tools/pvzan/source_guess.h"

#include "tools/pvzan/message.h"

#include "pvzan.h"

#include <algorithm>
#include <memory>

namespace tool {

namespace {

// UTF-8 as far as it goes, cut or not.
bool is_utf8(bytes_view head) {
    const charset_name utf8 = resolve_charset("utf-8");
    const bytes_view rest = head.subspan(well_formed_length(head, utf8));
    return rest.empty() || read_sequence(rest, utf8).kind == unicode_sequence::cut;
}

bool has_switches(bytes_view head) {
    const std::string_view text(reinterpret_cast<const char*>(head.data()), head.size());
    return text.find("\x1b$") != text.npos || text.find("\x1b(") != text.npos;
}

std::string name_of(const pvzan_detection_request& answer) {
    std::string name = answer.encodingName;
    if (cconvIsEndianAware(answer.encodingName) != 0) {
        name += answer.bigEndian != 0 ? "be" : "le";
    }
    return name;
}

} // namespace

source_guess guess_source(bytes_view head, const std::vector<std::string>& candidates) {
    source_guess guess;
    const auto request = std::make_unique<pvzan_detection_request>();
    request->text = head.data();
    request->textEnd = static_cast<std::int32_t>(head.size());
    const bool zeros = std::ranges::find(head, std::uint8_t{0}) != head.end();
    if (!zeros && !has_switches(head) && is_utf8(head)) {
        guess.charset = resolve_charset("utf-8");
    } else if (cconvChkEncode(request.get()) == 0) {
        guess.binary = zeros;
        guess.why = "cannot tell the encoding; use --from";
        return guess;
    } else {
        guess.charset = resolve_charset(name_of(*request));
    }
    guess.known =
        candidates.empty() || std::ranges::any_of(candidates, [&](const std::string& candidate) {
            return resolve_charset(candidate).library == guess.charset.library;
        });
    guess.why = fmt::format("looks like {}; use --from", guess.charset.shown);
    return guess;
}

} // namespace tool
