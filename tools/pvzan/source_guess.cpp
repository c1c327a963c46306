#include "tools/pvzan/source_guess.h"

#include "tools/pvzan/message.h"

#include "pvzan.h"

#include <algorithm>
#include <memory>

namespace tool {

namespace {

constexpr std::size_t longest_sequence = 4;

} // namespace

source_guess guess_source(bytes_view head, const std::vector<std::string>& candidates) {
    source_guess guess;
    const auto request = std::make_unique<pvzan_detection_request>();
    request->text = head.data();
    request->textEnd = static_cast<std::int32_t>(head.size());
    if (cconvChkEncode(request.get()) == 0) {
        const charset_name utf8 = resolve_charset("utf-8");
        const std::size_t whole = well_formed_length(head, utf8);
        const bool zeros = std::ranges::find(head, std::uint8_t{0}) != head.end();
        if (!zeros && head.size() - whole < longest_sequence) {
            return {.known = true, .charset = utf8, .why = {}};
        }
        guess.binary = zeros;
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
