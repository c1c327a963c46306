// What the two loops share: runs of ASCII, blocks of codes, single steps by an answer.
#pragma once

#include "cconv/fast/readers.h"

namespace fast {

// Bytes that a step may touch behind the output position where it does not look how many are there.
inline constexpr std::ptrdiff_t out_margin = 16;

// Bytes behind the output position that a block of so many codes may touch.
constexpr std::ptrdiff_t block_margin(std::size_t codes) {
    return static_cast<std::ptrdiff_t>(4 * codes + kernel_margin);
}

struct block_written {
    std::size_t codes, bytes;
};

// Writes what the entries say, up to the first that is not short. There is no branch on each of
// them: all are written, and those in vain overwritten later.
block_written put_entries(const pair& p, const u16* codes, std::size_t count, u8* out);

// Runs of ASCII, as far as is known by now what they become.
class ascii_runs {
public:
    explicit ascii_runs(const pair& p)
        : kernel_(*p.kernel), form_(p.ascii.load(std::memory_order_acquire)),
          source_(p.plan.source_unit) {
        if (form_ == ascii_form::unknown) {
            return;
        }
        target_ = form_ == ascii_form::widen ? p.ascii_target : ascii_unit{1, true};
        slot_ = p.ascii_slot;
        plain_ = p.plain_ascii.load();
    }

    [[nodiscard]] bool known() const { return form_ != ascii_form::unknown; }
    [[nodiscard]] u32 slot() const { return slot_; }
    [[nodiscard]] u32 target_bytes() const { return target_.bytes; }

    // The length of the run at in.
    [[nodiscard]] std::size_t operator()(const u8* in, const u8* in_end, u8* out,
                                         const u8* out_end) const {
        const ascii_run run{in, static_cast<std::size_t>(in_end - in), out,
                            static_cast<std::size_t>(out_end - out), plain_};
        switch (form_) {
        case ascii_form::same: return kernel_.copy_ascii(run);
        case ascii_form::widen: return kernel_.widen_ascii(run, target_);
        case ascii_form::narrow: return kernel_.narrow_ascii(run, source_);
        case ascii_form::unknown: break;
        }
        return 0;
    }

private:
    const kernels& kernel_;
    ascii_form form_;
    ascii_unit source_, target_{1, true};
    u32 slot_ = 0;
    byte_set plain_{};
};

// Writes what an entry or an answer holds; with few bytes of room, those alone.
template <bool Exact, typename Packed>
void put(u8* out, const u8* out_end, const Packed& packed, u32 length) {
    if (!Exact || out_end - out >= Packed::stored_bytes) {
        packed.store(out);
        return;
    }
    u8 bytes[answer::most_bytes];
    packed.store(bytes);
    for (u32 i = 0; i < length; ++i) {
        out[i] = bytes[i];
    }
}

} // namespace fast
