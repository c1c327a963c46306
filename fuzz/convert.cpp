// Conversion of any pair with any options: one large call, a call for each character with the
// smallest output that takes it, and calls over random pieces and capacities must all agree.
#include "fuzz/conversion_input.h"

#include <algorithm>
#include <vector>

namespace {

struct fault {
    std::uint32_t status, set, code, ucs;
    std::size_t position;
    bool operator==(const fault&) const = default;
};

struct outcome {
    std::string out;
    std::vector<fault> faults;
    std::size_t unread = 0;
    std::uint32_t in_count = 0; // outCount is left out: what did not fit may be counted in part,
                                // deliberately, where a character takes several codes
};

// The table-driven decoders do not step over invalid input themselves.
bool stays_at_invalid(std::string_view charset) {
    constexpr std::string_view table_driven[] = {"iso-10646-ucs-2", "chinesegbk", "chinesebig5",
                                                 "koreanksc",       "gb18030",    "iso-8859-1",
                                                 "iso-646irv",      "oasys-win"};
    return std::ranges::find(table_driven, charset) != std::end(table_driven);
}

// Where the way the input is cut matters to the rules themselves: a base letter and its mark are
// one character only in one buffer, and so are an escape sequence and what follows it.
bool looks_ahead(std::string_view charset) {
    return charset == "utf-8" || charset == "utf-16" || charset == "iso-2022-jp-2004";
}

class run {
public:
    explicit run(const fuzz::conversion& c) : c_(c), s_(fuzz::open(c)) {}

    // Converts the input up to end with the given room; true while there is more to do with it.
    bool step(std::size_t end, std::size_t room) {
        if (end != end_ || base_ + static_cast<std::size_t>(s_->inPos) != position_) {
            base_ = position_;
            end_ = end;
            in_ = fuzz::exact_bytes(fuzz::bytes(
                reinterpret_cast<const std::uint8_t*>(c_.text.data()) + base_, end - base_));
            s_->inBuf = in_.data();
            s_->inPos = 0;
            s_->inLen = static_cast<std::int32_t>(in_.size());
        }
        const fuzz::exact_bytes out(room, 0xA5);
        s_->outBuf = out.data();
        s_->outPos = 0;
        s_->outLen = static_cast<std::int32_t>(room);
        const std::uint32_t status = cconvConvert(s_.get());
        take(out);
        fuzz::expect(s_->inPos >= 0 && s_->inPos <= s_->inLen, "input position outside");
        position_ = base_ + static_cast<std::size_t>(s_->inPos);
        fuzz::expect(++steps_ <= 40 * c_.text.size() + 1000, "does not end");
        switch (status) {
        case PVZAN_DONE: fuzz::expect(position_ == end, "done before the end"); return false;
        case PVZAN_INPUT_INCOMPLETE: return false;
        case PVZAN_OUTPUT_FULL: return true;
        case PVZAN_INVALID_INPUT:
            if (stays_at_invalid(c_.from)) {
                ++position_;
            }
            result_.faults.push_back({status, 0, 0, 0, position_});
            return true;
        case PVZAN_UNREPRESENTABLE:
            result_.faults.push_back({status, s_->charSetNo, s_->setCode, s_->ucsCode, position_});
            return true;
        default: fuzz::fail("status " + std::to_string(status));
        }
    }

    outcome finish() {
        result_.unread = c_.text.size() - position_;
        for (std::size_t room = 0;; ++room) {
            const fuzz::exact_bytes out(room, 0xA5);
            s_->outBuf = out.data();
            s_->outPos = 0;
            s_->outLen = static_cast<std::int32_t>(room);
            const std::uint32_t status = cconvTermConvert(s_.get());
            take(out);
            if (status == PVZAN_DONE) {
                break;
            }
            fuzz::expect(status == PVZAN_OUTPUT_FULL && room < 8, "cannot close");
        }
        result_.in_count = s_->inCount;
        return std::move(result_);
    }

    [[nodiscard]] std::size_t position() const { return position_; }
    [[nodiscard]] bool full() const { return s_->status == PVZAN_OUTPUT_FULL; }
    [[nodiscard]] std::size_t written() const { return result_.out.size(); }

private:
    void take(const fuzz::exact_bytes& out) {
        fuzz::expect(s_->outPos >= 0 && s_->outPos <= s_->outLen, "output position outside");
        const auto* text = reinterpret_cast<const char*>(out.data());
        result_.out.append(text, static_cast<std::size_t>(s_->outPos));
    }

    const fuzz::conversion& c_;
    std::unique_ptr<pvzan_session> s_;
    outcome result_;
    fuzz::exact_bytes in_{0}; // the text from base_ to end_
    std::size_t base_ = 0, end_ = 0;
    std::size_t position_ = 0, steps_ = 0;
};

outcome convert_at_once(const fuzz::conversion& c) {
    run r(c);
    while (r.step(c.text.size(), 16 * c.text.size() + 4096)) {
    }
    return r.finish();
}

// Finds, too, where characters begin.
outcome convert_character_by_character(const fuzz::conversion& c,
                                       std::vector<std::size_t>& starts) {
    const bool plain = c.target.langTag[0] == '\0' && c.target.charRefMode == 0;
    const std::size_t enough = plain ? 8 : 22 + 4 * 8;
    run r(c);
    for (std::size_t room = 0;;) {
        const std::size_t written = r.written();
        if (!r.step(c.text.size(), room)) {
            break;
        }
        if (r.full()) {
            starts.push_back(r.position());
        }
        if (!r.full() || r.written() > written) {
            room = 0;
        } else if (room++ == enough) {
            fuzz::fail("the documented room is not enough");
        }
    }
    starts.push_back(c.text.size());
    return r.finish();
}

outcome convert_in_pieces(const fuzz::conversion& c, const std::vector<std::size_t>& starts) {
    constexpr std::uint32_t sizes[] = {1, 2, 3, 7, 16, 40, 100, 300, 2000};
    fuzz::sequence plan = c.plan;
    const std::uint32_t piece = sizes[plan.below(9)], capacity = sizes[plan.below(9)];
    run r(c);
    std::size_t end = 0;
    while (end < c.text.size()) {
        end = std::min(c.text.size(), end + plan.below(piece + 1));
        if (looks_ahead(c.from)) {
            end = *std::ranges::lower_bound(starts, end);
        }
        end = std::max(end, r.position());
        std::size_t room = plan.below(capacity + 1);
        while (r.step(end, room)) {
            room = r.full() ? std::min<std::size_t>(room + 1 + plan.below(capacity), 4096) : room;
        }
    }
    return r.finish();
}

void compare(const outcome& one, const outcome& other, const std::string& how) {
    if (one.faults != other.faults) {
        fuzz::fail("other faults " + how);
    }
    if (one.out != other.out) {
        fuzz::fail("other output " + how);
    }
    if (one.unread != other.unread || one.in_count != other.in_count) {
        fuzz::fail("other counts " + how);
    }
}

} // namespace

int LLVMFuzzerInitialize(int*, char***) {
    fuzz::use_charsets();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::input in({data, size});
    constexpr std::size_t most_text = 1500;
    const fuzz::conversion c = fuzz::read_conversion(in, most_text);
    const std::string pair = std::string(", ") + c.from + " to " + c.to;
    const outcome whole = convert_at_once(c);
    std::vector<std::size_t> starts;
    compare(whole, convert_character_by_character(c, starts), "character by character" + pair);
    compare(whole, convert_in_pieces(c, starts), "in pieces" + pair);
    return 0;
}
