#include "tools/pvzan/source_guess.h"

#include "tools/pvzan/message.h"

#include "pvzan.h"

#include <algorithm>
#include <memory>

namespace tool {

source_guess guess_source(bytes_view head, const std::vector<std::string>& candidates) {
    source_guess guess;
    const auto request = std::make_unique<pvzan_detection_request>();
    request->text = head.data();
    request->textEnd = static_cast<std::int32_t>(head.size());
    if (cconvChkEncode(request.get()) == 0) {
        guess.binary = std::ranges::find(head, std::uint8_t{0}) != head.end();
        guess.why = "cannot tell the encoding; use --from";
        return guess;
    }
    std::string name = request->encodingName;
    if (cconvIsEndianAware(request->encodingName) != 0) {
        name += request->bigEndian != 0 ? "be" : "le";
    }
    guess.charset = resolve_charset(name);
    guess.known =
        candidates.empty() || std::ranges::any_of(candidates, [&](const std::string& candidate) {
            return resolve_charset(candidate).library == guess.charset.library;
        });
    guess.why = fmt::format("looks like {}; use --from", guess.charset.shown);
    return guess;
}

} // namespace tool
