// The fast path against the rules, on shipped charsets and on charsets that nobody has, with each
// set of kernels.
#include "cconv/fast/kernels/kernels.h"
#include "fuzz/both_paths.h"
#include "fuzz/conversion_input.h"
#include "fuzz/made_charset.h"

namespace {

void choose_some_kernels(fuzz::sequence& choices) {
    fast::kernel_list list{};
    fast::list_kernels(list);
    fast::choose_kernels(
        list[choices.below(static_cast<u32>(std::ranges::find(list, nullptr) - list))]);
}

// Characters that such charsets are about, in a shipped charset's bytes.
std::string random_text(fuzz::sequence& choices, const char* charset, std::size_t characters) {
    std::string quads;
    for (std::size_t i = 0; i < characters; ++i) {
        const u32 scalar = fuzz::random_scalar(choices);
        for (int shift = 24; shift >= 0; shift -= 8) {
            quads += static_cast<char>(scalar >> shift);
        }
    }
    fuzz::conversion c{"iso-10646-ucs-4", charset, {}, {}, choices, {}};
    c.source.srcBigEndian = 1;
    c.target.dstBigEndian = 1;
    const auto s = fuzz::open(c);
    std::string text(8 * quads.size(), '\0');
    s->inBuf = reinterpret_cast<const std::uint8_t*>(quads.data());
    s->inLen = static_cast<std::int32_t>(quads.size());
    s->outBuf = reinterpret_cast<std::uint8_t*>(text.data());
    s->outLen = static_cast<std::int32_t>(text.size());
    while (cconvConvert(s.get()) == PVZAN_UNREPRESENTABLE) {
    }
    text.resize(static_cast<std::size_t>(s->outPos));
    return text;
}

void convert_in_pieces(fuzz::conversion& c) {
    constexpr std::uint32_t pieces[] = {4, 20, 200, 600, 2000, 4000, 9000};
    constexpr std::uint32_t rooms[] = {0, 3, 20, 100, 130, 1000, 9000, 20000};
    const std::uint32_t piece = pieces[c.plan.below(std::size(pieces))];
    const std::uint32_t room = rooms[c.plan.below(std::size(rooms))];
    const bool changes = c.plan.below(4) == 0, in_place = c.plan.below(8) == 0;
    fuzz::both_paths paths(c.from, c.to, c.source, c.target);
    const fuzz::bytes text(reinterpret_cast<const std::uint8_t*>(c.text.data()), c.text.size());
    std::size_t position = 0, end = 0, calls = 0;
    while (end < text.size() && ++calls < 2000) {
        end = std::min(text.size(), std::max(position, end + 1 + c.plan.below(piece)));
        while (position <= end && ++calls < 2000 &&
               paths.step(text.first(end), position,
                          c.plan.below(8) == 0 ? c.plan.below(room + 1) : room, in_place)) {
        }
        position = std::min(position, text.size());
        end = std::max(end, position);
        if (changes && c.plan.below(4) == 0) {
            paths.change_source(fuzz::charsets[c.plan.below(20)]);
        }
    }
}

} // namespace

int LLVMFuzzerInitialize(int*, char***) {
    fuzz::use_charsets();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t most_text = 6000, most_made_text = 1000;
    // Answers and kernels are kept for some inputs: asking takes longer than using them.
    static std::uint32_t inputs;
    fuzz::sequence kernels(inputs / 64);
    if (inputs++ % 64 == 0) {
        fast::release();
        choose_some_kernels(kernels);
    }
    fuzz::input in({data, size});
    fuzz::conversion c = fuzz::read_conversion(in, most_text);
    fuzz::sequence plan = c.plan;
    convert_in_pieces(c);

    // The same between charsets that such choices make.
    const auto one = fuzz::made_charset::random("made-one", plan);
    const auto other = fuzz::made_charset::random("made-other", plan);
    const std::uint32_t ends = plan.below(4);
    c.from = ends == 0 ? c.from : one->name();
    c.to = ends == 1 ? c.to : ends == 0 ? one->name() : other->name();
    c.plan = plan;
    c.text.resize(std::min(c.text.size(), most_made_text));
    const std::size_t length = plan.below(400);
    c.text += ends == 0 ? random_text(plan, c.from, length) : fuzz::random_bytes(plan, length);
    convert_in_pieces(c);
    return 0;
}
