#include "tools/pvzan/read_back.h"

#include <algorithm>

namespace tool {

namespace {

constexpr std::size_t least_room = 4096;
constexpr unsigned sound_bits = 13; // more than the characters that most texts have

// 0 for what is too long to be one.
std::uint64_t key_of(bytes_view spelled, bool other_form) {
    constexpr std::size_t longest = 7;
    if (spelled.size() > longest) {
        return 0;
    }
    std::uint64_t key = spelled.size() + (other_form ? longest + 1 : 0);
    for (const std::uint8_t byte : spelled) {
        key = key << 8 | byte;
    }
    return key;
}

} // namespace

// A text with set switches can be spelled in many ways, so it is compared as UTF-8.
read_back::read_back(const charset_name& from, const charset_name& to)
    : from_(from), to_(to), compared_(from.is_iso2022() ? utf8_name() : from),
      sound_(std::size_t{1} << sound_bits) {}

bool read_back::begin(way& w, const charset_name& source, const charset_name& target) {
    pvzan_target_options there{};
    there.dstBigEndian = target.big_endian ? 1 : 0;
    pvzan_source_options options{};
    options.srcBigEndian = source.big_endian ? 1 : 0;
    w.session->outBuf = nullptr;
    return cconvInitConvert(w.session.get(), &there, target.library.c_str()) == PVZAN_DONE &&
           cconvChgCharset(w.session.get(), &options, source.library.c_str()) == PVZAN_DONE;
}

bool read_back::open() {
    if (!begin(back_, to_, compared_) || !begin(plain_, from_, compared_)) {
        return false;
    }
    first_set_ = back_.session->srcShiftSet;
    first_plain_set_ = plain_.session->srcShiftSet;
    return true;
}

// Appends to what came out.
bool read_back::convert(way& w, bytes_view text) {
    pvzan_session& s = *w.session;
    w.out.resize(std::max(w.out.size(), least_room));
    s.inBuf = text.data();
    s.inPos = 0;
    s.inLen = static_cast<std::int32_t>(text.size());
    s.outPos = 0;
    for (;;) {
        s.outBuf = w.out.data();
        s.outLen = static_cast<std::int32_t>(w.out.size());
        const std::uint32_t status = cconvConvert(&s);
        if (status != PVZAN_OUTPUT_FULL) {
            return status == PVZAN_DONE;
        }
        w.out.resize(w.out.size() * 2);
    }
}

bool read_back::comes_back(bytes_view output, std::uint32_t output_set, bytes_view text,
                           std::uint32_t text_set) {
    const auto result = [](const way& w) {
        return bytes_view(w.out).first(static_cast<std::size_t>(w.session->outPos));
    };
    back_.session->srcShiftSet = output_set != 0 ? output_set : first_set_;
    if (!convert(back_, output)) {
        return false;
    }
    if (!from_.is_iso2022()) {
        return std::ranges::equal(result(back_), text);
    }
    plain_.session->srcShiftSet = text_set != 0 ? text_set : first_plain_set_;
    return convert(plain_, text) && std::ranges::equal(result(back_), result(plain_));
}

std::vector<std::uint8_t> read_back::other_than(bytes_view spelled, const charset_name& source) {
    const std::uint64_t key = key_of(spelled, source.library != from_.library);
    std::uint64_t& known = sound_[(key * 0x9E3779B97F4A7C15) >> (64 - sound_bits)];
    if (known == key && key != 0) {
        return {};
    }
    if (!begin(there_, source, to_) || !begin(again_, to_, source)) {
        return {};
    }
    if (!convert(there_, spelled)) {
        known = key;
        return {};
    }
    const auto code =
        bytes_view(there_.out).first(static_cast<std::size_t>(there_.session->outPos));
    const bool reads = convert(again_, code);
    const auto came =
        bytes_view(again_.out).first(static_cast<std::size_t>(again_.session->outPos));
    if (reads && std::ranges::equal(came, spelled)) {
        known = key;
        return {};
    }
    return reads && !came.empty() ? std::vector<std::uint8_t>(came.begin(), came.end())
                                  : std::vector<std::uint8_t>{'?'};
}

} // namespace tool
