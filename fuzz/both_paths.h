// The fast path against the rules: two sessions get the same calls, one of them is the rules'
// alone, and after each call every field, and the output, must be the same.
#pragma once

#include "cconv/fast/fast.h"
#include "fuzz/support.h"

#include "pvzan.h"

#include <algorithm>
#include <cstring>

namespace fuzz {

class both_paths {
public:
    both_paths(const char* from, const char* to, const pvzan_source_options& source,
               const pvzan_target_options& target)
        : names_(std::string(", ") + from + " to " + to), source_(source) {
        for (pvzan_session* s : {fast_.get(), slow_.get()}) {
            expect(cconvInitConvert(s, &target, to) == PVZAN_DONE, "no such target");
        }
        change_source(from);
    }

    void change_source(const char* name) {
        for (pvzan_session* s : {fast_.get(), slow_.get()}) {
            expect(cconvChgCharset(s, &source_, name) == PVZAN_DONE, "no such source");
        }
    }

    // Converts text in one call of either session, into room bytes or into the text's own; stops
    // the process where they differ. Returns the status.
    std::uint32_t call(bytes text, std::size_t room, bool in_place = false) {
        const exact_bytes fast_in(text), slow_in(text), fast_out(room, fill), slow_out(room, fill);
        aim(*fast_, fast_in, in_place ? fast_in : fast_out);
        aim(*slow_, slow_in, in_place ? slow_in : slow_out);
        const std::uint64_t before = fast::by_hand.characters;
        const std::uint32_t read = fast_->inCount;
        fast::by_hand.counting = true;
        const std::uint32_t status = cconvConvert(fast_.get());
        fast::by_hand.counting = false;
        fast::by_hand.off = true;
        cconvConvert(slow_.get());
        fast::by_hand.off = false;
        fast_characters_ += fast::by_hand.characters - before;
        all_characters += fast_->inCount - read;
        all_fast_characters += fast::by_hand.characters - before;
        expect(fast_->inPos >= 0 && fast_->inPos <= fast_->inLen, "input position outside");
        expect(fast_->outPos >= 0 && fast_->outPos <= fast_->outLen, "output position outside");
        slow_->inBuf = fast_->inBuf;
        const std::uint8_t* const slow_bytes = slow_->outBuf;
        slow_->outBuf = fast_->outBuf;
        if (std::memcmp(fast_.get(), slow_.get(), sizeof(pvzan_session)) != 0) {
            fail("the sessions differ from byte " + differing_field() + names_);
        }
        if (std::memcmp(fast_->outBuf, slow_bytes, static_cast<std::size_t>(fast_->outPos)) != 0) {
            fail("the output differs" + names_);
        }
        return status;
    }

    // Converts text from position on; false when this text is used up, or nothing moves.
    bool step(bytes text, std::size_t& position, std::size_t room, bool in_place = false) {
        const std::uint32_t status = call(text.subspan(position), room, in_place);
        const bool moved = fast_->inPos > 0 || fast_->outPos > 0;
        position += static_cast<std::size_t>(fast_->inPos);
        if (status == PVZAN_INVALID_INPUT && fast_->inPos == 0) {
            ++position;
        }
        return status != PVZAN_DONE && status != PVZAN_INPUT_INCOMPLETE &&
               position <= text.size() &&
               (moved || status == PVZAN_INVALID_INPUT || status == PVZAN_UNREPRESENTABLE);
    }

    // Everything in one call after the other.
    void convert(bytes text, std::size_t room) {
        for (std::size_t position = 0; step(text, position, room);) {
        }
    }

    // Converts in calls of as many more bytes, and into as much room, as the two functions say.
    template <typename Piece, typename Room>
    void pieces(bytes text, Piece piece, Room room, bool in_place = false) {
        constexpr int most_calls = 4000;
        int calls = 0;
        std::size_t position = 0;
        for (std::size_t end = 0; end < text.size() && ++calls < most_calls;) {
            end = std::min(text.size(), std::max(position, end + piece()));
            while (position <= end && ++calls < most_calls &&
                   step(text.first(end), position, room(), in_place)) {
            }
            position = std::min(position, text.size());
        }
    }

    [[nodiscard]] const pvzan_session& session() const { return *fast_; }
    // Characters that the fast path converted; and of all that were converted, how many it did.
    [[nodiscard]] std::uint64_t fast_characters() const { return fast_characters_; }
    static inline std::uint64_t all_characters = 0, all_fast_characters = 0;

private:
    static constexpr std::uint8_t fill = 0xA5;

    static void aim(pvzan_session& s, const exact_bytes& in, const exact_bytes& out) {
        s.inBuf = in.data();
        s.inPos = 0;
        s.inLen = static_cast<std::int32_t>(in.size());
        s.outBuf = out.data();
        s.outPos = 0;
        s.outLen = static_cast<std::int32_t>(out.size());
    }

    [[nodiscard]] std::string differing_field() const {
        const auto* one = reinterpret_cast<const unsigned char*>(fast_.get());
        const auto* other = reinterpret_cast<const unsigned char*>(slow_.get());
        const auto* const end = one + sizeof(pvzan_session);
        return std::to_string(std::mismatch(one, end, other).first - one);
    }

    std::string names_;
    pvzan_source_options source_;
    std::unique_ptr<pvzan_session> fast_ = std::make_unique<pvzan_session>(),
                                   slow_ = std::make_unique<pvzan_session>();
    std::uint64_t fast_characters_ = 0;
};

} // namespace fuzz
