// The fast path against the rules: two sessions get the same calls, and after each of them every
// field, and the output, must be the same.
#include "cconv/bulk.h"
#include "fuzz/conversion_input.h"
#include "fuzz/rules_alone.h"

namespace {

std::string differing_field(const pvzan_session& fast, const pvzan_session& slow) {
    const auto* one = reinterpret_cast<const unsigned char*>(&fast);
    const auto* other = reinterpret_cast<const unsigned char*>(&slow);
    for (std::size_t at = 0; at < sizeof fast; ++at) {
        if (one[at] != other[at]) {
            return std::to_string(at);
        }
    }
    return "none";
}

class pair_of_sessions {
public:
    explicit pair_of_sessions(const fuzz::conversion& c)
        : c_(c), fast_(fuzz::open(c)), slow_(fuzz::open(c)) {}

    // False when this input is used up.
    bool step(fuzz::bytes text, std::size_t& position, std::size_t room) {
        const fuzz::exact_bytes in(text.subspan(position));
        const fuzz::exact_bytes fast_out(room), slow_out(room);
        aim(*fast_, in, fast_out);
        aim(*slow_, in, slow_out);
        const std::uint32_t status = cconvConvert(fast_.get());
        rules_alone_convert(slow_.get());
        slow_->outBuf = fast_->outBuf;
        if (std::memcmp(fast_.get(), slow_.get(), sizeof(pvzan_session)) != 0) {
            fuzz::fail("the sessions differ from byte " + differing_field(*fast_, *slow_) +
                       names());
        }
        if (std::memcmp(fast_out.data(), slow_out.data(),
                        static_cast<std::size_t>(fast_->outPos)) != 0) {
            fuzz::fail("the output differs" + names());
        }
        const bool moved = fast_->inPos > 0 || fast_->outPos > 0;
        position += static_cast<std::size_t>(fast_->inPos);
        if (status == PVZAN_INVALID_INPUT && fast_->inPos == 0) {
            ++position;
        }
        return status != PVZAN_DONE && status != PVZAN_INPUT_INCOMPLETE &&
               (moved || status != PVZAN_OUTPUT_FULL);
    }

    void change_source(const char* name) {
        for (pvzan_session* s : {fast_.get(), slow_.get()}) {
            cconvChgCharset(s, &c_.source, name);
        }
    }

private:
    static void aim(pvzan_session& s, const fuzz::exact_bytes& in, const fuzz::exact_bytes& out) {
        s.inBuf = in.data();
        s.inPos = 0;
        s.inLen = static_cast<std::int32_t>(in.size());
        s.outBuf = out.data();
        s.outPos = 0;
        s.outLen = static_cast<std::int32_t>(out.size());
    }
    [[nodiscard]] std::string names() const { return std::string(", ") + c_.from + " to " + c_.to; }

    const fuzz::conversion& c_;
    std::unique_ptr<pvzan_session> fast_, slow_;
};

} // namespace

int LLVMFuzzerInitialize(int*, char***) {
    fuzz::use_charsets();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t most_text = 6000;
    constexpr std::uint32_t pieces[] = {200, 600, 2000, 4000, 9000};
    constexpr std::uint32_t rooms[] = {100, 130, 1000, 9000, 20000};
    // What is learnt is kept for some inputs: learning it takes longer than using it.
    static std::uint32_t inputs;
    if (inputs++ % 64 == 0) {
        bulk_release();
    }
    fuzz::input in({data, size});
    fuzz::conversion c = fuzz::read_conversion(in, most_text);
    const std::uint32_t piece = pieces[c.plan.below(5)], room = rooms[c.plan.below(5)];
    const bool changes = c.plan.below(4) == 0;
    pair_of_sessions sessions(c);
    const fuzz::bytes text(reinterpret_cast<const std::uint8_t*>(c.text.data()), c.text.size());
    std::size_t position = 0, end = 0;
    while (end < text.size()) {
        end = std::min(text.size(), std::max(position, end + 1 + c.plan.below(piece)));
        while (position <= end && sessions.step(text.first(end), position,
                                                c.plan.below(8) == 0 ? c.plan.below(room) : room)) {
        }
        position = std::min(position, text.size());
        end = std::max(end, position);
        if (changes && c.plan.below(4) == 0) {
            sessions.change_source(fuzz::charsets[c.plan.below(20)]);
        }
    }
    return 0;
}
