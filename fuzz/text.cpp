// Texts without a session. Detection: nothing outside the extent is read, the answer depends on the
// extent alone, and the request's first fields stay. HZ and UTF-7: no byte outside the buffers, and
// what fits a smaller output is the same.
#include "fuzz/support.h"

#include "pvzan.h"

#include <algorithm>
#include <cstring>

namespace {

std::unique_ptr<pvzan_detection_request> ask(const std::uint8_t* text, std::size_t from,
                                             std::size_t to) {
    auto request = std::make_unique<pvzan_detection_request>();
    request->text = text;
    request->textPos = static_cast<std::int32_t>(from);
    request->textEnd = static_cast<std::int32_t>(to);
    const std::uint32_t known = cconvChkEncode(request.get());
    fuzz::expect(request->text == text && request->textPos == static_cast<std::int32_t>(from) &&
                     request->textEnd == static_cast<std::int32_t>(to),
                 "the request was changed");
    fuzz::expect(std::memchr(request->encodingName, 0, sizeof request->encodingName) != nullptr,
                 "an endless name");
    fuzz::expect(known == 1 || (known == 0 && std::strcmp(request->encodingName, "unknown") == 0),
                 "a wrong result");
    fuzz::expect(request->newlineKind <= PVZAN_NEWLINE_PARAGRAPH_SEPARATOR, "a wrong line break");
    cconvIsEndianAware(request->encodingName);
    return request;
}

fuzz::bytes as_bytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

constexpr std::uint32_t not_set = 0xA5A5A5A5;

void hz(const fuzz::exact_bytes& in, std::size_t length, std::size_t room) {
    const auto convert = [&](std::size_t size, std::string& text) {
        // As large as the input, deliberately, whatever size says: so the call promises.
        const fuzz::exact_bytes out(std::max(length, size), 0);
        std::uint32_t count = not_set;
        const std::uint32_t result =
            ZAN_HZtoGB2312(out.data(), in.data(), static_cast<std::int32_t>(size), &count);
        // Without room at a "~" at the very start, the number of bytes written so far is 0, too.
        const std::uint32_t written = result == 0 && count != not_set ? count : result;
        fuzz::expect(result == 0 || count == not_set, "HZ: a count beside a result");
        fuzz::expect(written <= out.size(), "HZ: more bytes than there is room");
        text.assign(reinterpret_cast<const char*>(out.data()), written);
    };
    std::string whole, part;
    convert(length + 1, whole);
    convert(std::min(room, length), part);
    fuzz::expect(whole.starts_with(part) || part.starts_with(whole), "HZ: the room counts");
}

void utf7(const fuzz::exact_bytes& in, std::size_t length, std::size_t room) {
    const auto convert = [&](std::size_t size, std::u32string& text) {
        const fuzz::exact_bytes out(size * 4, 0);
        std::uint32_t count = not_set;
        const std::uint32_t result =
            ZAN_UTF_7ToUCS_4(reinterpret_cast<std::uint32_t*>(out.data()), in.data(),
                             static_cast<std::int32_t>(size), &count);
        fuzz::expect(count <= size && result <= length + 1, "UTF-7: a wrong count");
        text.resize(count);
        if (count > 0) {
            std::memcpy(text.data(), out.data(), count * 4);
        }
        return result;
    };
    std::u32string whole, part;
    const std::uint32_t result = convert(length + 1, whole);
    const std::uint32_t other = convert(std::min(room, length + 1), part);
    fuzz::expect(whole.starts_with(part), "UTF-7: the room counts");
    fuzz::expect(result != 0 || other != 0 || whole == part, "UTF-7: less than all, unsaid");
    for (const char32_t c : whole) {
        fuzz::expect(c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF), "UTF-7: no character");
    }
}

} // namespace

int LLVMFuzzerInitialize(int*, char***) {
    my_init();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::input in({data, size});
    const std::size_t room = in.byte(), before = room % 9;
    const bool repeated = in.byte() % 4 == 0; // beyond what is looked at
    const fuzz::bytes text = in.take(60000);
    std::string whole(fuzz::as_text(text));
    while (repeated && !text.empty() && whole.size() < 3000) {
        whole += fuzz::as_text(text);
    }
    // The same extent at the same offset, with other bytes around it, and none behind.
    const fuzz::exact_bytes alone(as_bytes(std::string(before, '<') + whole)),
        around(as_bytes(std::string(before, '\x1B') + whole + "encoding=\"\n\x1B$B"));
    const auto first = ask(alone.data(), before, before + whole.size());
    const auto second = ask(around.data(), before, before + whole.size());
    second->text = first->text;
    fuzz::expect(std::memcmp(first.get(), second.get(), sizeof *first) == 0,
                 "what lies around the extent counts");
    whole.resize(std::strlen(whole.c_str()));
    const fuzz::exact_bytes exact(as_bytes({whole.c_str(), whole.size() + 1}));
    hz(exact, whole.size(), room);
    utf7(exact, whole.size(), room);
    return 0;
}
