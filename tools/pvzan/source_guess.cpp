#include "tools/pvzan/source_guess.h"

#include "tools/pvzan/message.h"
#include "tools/pvzan/text_stream.h"

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

// What a text is taken for when nothing is said; and UTF-16 and the like.
const std::vector<std::string>& usual() {
    static const std::vector<std::string> names = {"utf-8", "iso-2022-jp", "windows-31j", "euc-jp"};
    return names;
}

// The end may be cut.
bool is_valid(bytes_view head, const charset_name& charset) {
    bool valid = true;
    text_stream text(charset, resolve_charset("utf-8"),
                     {[](bytes_view) {}, [&](const problem&) { valid = false; }});
    if (!text.open()) {
        return false;
    }
    text.feed(head);
    return valid;
}

// The only one of the charsets that the text is valid in, if there is just one.
void choose_valid(bytes_view head, const std::vector<std::string>& names, source_guess& guess) {
    std::string valid;
    int number = 0;
    for (const std::string& name : names) {
        charset_name charset = resolve_charset(name);
        if (is_valid(head, charset)) {
            valid += (number++ > 0 ? " or " : "") + charset.shown;
            guess.charset = std::move(charset);
        }
    }
    guess.known = number == 1;
    guess.why = number == 0 ? "cannot tell the encoding; use --from"
                            : fmt::format("cannot tell the encoding ({}); use --from", valid);
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
    const std::vector<std::string>& allowed = candidates.empty() ? usual() : candidates;
    const auto is_allowed = [&](const std::string& name) {
        return resolve_charset(name).library == guess.charset.library;
    };
    guess.known = (candidates.empty() && guess.charset.unit_bytes() > 1) ||
                  std::ranges::any_of(allowed, is_allowed);
    if (!guess.known) {
        choose_valid(head, allowed, guess);
    }
    return guess;
}

} // namespace tool
