#include "tools/pvzan/error_policy.h"

#include "pvzan.h"

#include <array>
#include <fmt/core.h>
#include <memory>

namespace tool {

bool can_write(const charset_name& to, char32_t scalar) {
    const auto session = std::make_unique<pvzan_session>();
    if (cconvInitConvert(session.get(), nullptr, to.library.c_str()) != PVZAN_DONE ||
        cconvChgCharset(session.get(), nullptr, "utf-8") != PVZAN_DONE) {
        return false;
    }
    const std::string text = utf8_of(scalar);
    std::array<std::uint8_t, 64> out{};
    session->inBuf = reinterpret_cast<const std::uint8_t*>(text.data());
    session->inLen = static_cast<std::int32_t>(text.size());
    session->outBuf = out.data();
    session->outLen = out.size();
    return cconvConvert(session.get()) == PVZAN_DONE;
}

char32_t choose_substitute(const charset_name& to, char32_t asked) {
    constexpr char32_t replacement_character = 0xFFFD, geta = 0x3013;
    if (asked != 0) {
        return asked;
    }
    if (to.is_unicode()) {
        return replacement_character;
    }
    return can_write(to, geta) ? geta : U'?';
}

std::string replacement(error_policy policy, char32_t substitute, bytes_view bytes, char32_t scalar,
                        char32_t mark) {
    switch (policy) {
    case error_policy::stop:
    case error_policy::skip: return {};
    case error_policy::subst: return utf8_of(substitute);
    case error_policy::ref:
        if (scalar != 0) {
            std::string text = fmt::format("&#x{:X};", static_cast<std::uint32_t>(scalar));
            if (mark != 0) {
                text += fmt::format("&#x{:X};", static_cast<std::uint32_t>(mark));
            }
            return text;
        }
        break; // no character to refer to
    case error_policy::hex: break;
    }
    std::string text = "<";
    for (const std::uint8_t byte : bytes) {
        text += fmt::format("{:02x}", byte);
    }
    return text + ">";
}

} // namespace tool
