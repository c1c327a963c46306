// HZ and UTF-7: no byte outside the buffers, and what fits a smaller output is the same.
#include "fuzz/support.h"

#include "pvzan.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace {

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
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::input in({data, std::min<std::size_t>(size, 60000)});
    const std::size_t room = in.byte();
    std::string text(fuzz::as_text(in.rest()));
    text.resize(std::strlen(text.c_str()));
    const fuzz::exact_bytes exact(
        {reinterpret_cast<const std::uint8_t*>(text.c_str()), text.size() + 1});
    hz(exact, text.size(), room);
    utf7(exact, text.size(), room);
    return 0;
}
